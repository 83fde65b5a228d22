#pragma once
// The billing export: shipped convenience-store orders of a date and number range written into the agency's upload
// files ("顧客一括登録.txt" and "請求一括登録.txt" for 908997, "コンビニ.csv" for 929023), then, if the user agrees,
// marked as exported (jyuden.cflag = 1). One implementation for frmConveniMake and the runner.
#include "app/db/dbclass.h"
#include "app/interaction.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

namespace pel
{

struct BillingRequest {
    int agency = 0; // list index: 0 agency 908997, 1 agency 929023
    qint64 fromDate = 0;
    qint64 toDate = 0;
    qint64 fromNo = 1;
    qint64 toNo = 99999999;
    bool reoutput = false; // orders already exported instead of new ones; nothing is marked
    QString companyCode;   // cvsset.ckcode1
    QString folder;        // where the folder choice opens
};

// A character of a name or an address that Shift-JIS cannot hold: written as the system writes it ("?").
struct Unencodable {
    QString denno;
    QString field; // the columns the file field comes from ("o.name", "m.adr2+m.adr3+m.adr4")
    QString character;
    QString codePoint() const; // "U+20BB7"
};

struct BillingResult {
    // ReadFailed: a statement failed; its text was shown, nothing is marked.
    // FileError: a file could not be written to its end; nothing was put in place or marked.
    enum class Outcome { NoOrders, Declined, NoFolder, OpenFailed, ReadFailed, Aborted, FileError, Written };
    Outcome outcome = Outcome::NoOrders;
    int count = 0;     // orders selected
    QString folder;    // the folder chosen (the one to remember)
    QStringList files; // full paths of the files opened for writing
    int written = 0;   // orders written
    int marked = 0;    // orders marked as exported
    bool markFailed = false;
    int markAttempts = 0; // attempts used on the last order the marking tried
    QList<Unencodable> unencodable;
};

class BillingJob
{
public:
    static inline const QString kCaption = QStringLiteral("コンビニデータ収納代行 請求データ作成");
    static inline const QString kFreeItem = QStringLiteral("pQ3r8t5w2yKm"); // goods code of a free-text line
    static constexpr int kAttempts = 11;                                    // marking attempts per order

    explicit BillingJob(clsDbClass& db) : db_(db) {}

    // What the screen opens with: the agency of sysfile.conveni (index 1 only for 2) and cvsset.ckcode1.
    struct Opening {
        int agency = 0;
        QString companyCode;
        QString readError; // the engine's text when a read failed (not the same as nothing registered)
    };
    Opening opening();
    // Shown when no company code is registered (the screen closes).
    static QString noCompanyCodeMessage();

    BillingResult run(const BillingRequest& request, Interaction& ui);

    // The files of an agency's list index.
    static QStringList fileNames(int agency);

    // Field rules of both formats.
    // Trimmed value right-aligned in width characters of pad ("" counts as one space).
    static QString padNumber(const QString& value, int width, QChar pad = QLatin1Char('0'));
    // Family and given part of a customer's name; split at the first space only when name differs from sname.
    static QPair<QString, QString> splitName(const QString& name, const QString& sname);
    // The first count pieces of at most bytes Shift-JIS bytes each; a double-byte character is never cut.
    static QStringList pieces(const QString& text, int bytes, int count);
    // A whole amount, written "999999" / "-999999" when it needs more than six characters.
    static QString clampAmount(double value);
    // yyyymmdd as "yyyy/mm/dd"; "" when that is no date.
    static QString shipDate(const QString& sday);

private:
    clsDbClass& db_;
};

} // namespace pel
