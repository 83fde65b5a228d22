#pragma once
// The I-CAT shipping file: one line per order of a ship-date range, an order-number range and a label kind, for the
// carrier's label printer; afterwards the exported orders can be marked label-printed. The screen, the runner and
// the demo home all write the file through this job.
#include "app/db/dbclass.h"
#include "app/db/recordset.h"
#include "app/interaction.h"

#include <QList>
#include <QPair>
#include <QString>
#include <functional>

namespace pel {

// A character of an order that has no CP932 form: the line carries "?" in its place, as the system writes it.
struct IcatUnencodable {
    qint64 denno = 0;
    int field = 0;     // 1-based field of the line
    QString character; // one code point
    uint codePoint = 0;
};

class IcatExportJob
{
public:
    static inline const QString kCaption = QStringLiteral("Ｉ-ＣＡＴデータ作成");
    static constexpr int kFields = 46;
    static constexpr int kDennoWidth = 8; // txtDenno's maximum length

    // The screen's inputs when 作成 is pressed: both date trios, both order numbers, the file, the kind.
    struct Input {
        QString yy[2], mm[2], dd[2];
        QString denno[2];
        QString file;
        int kind = -1; // item data of the chosen label kind; -1 when none is listed
        bool reprint = false;
    };
    // The range the run uses, after the swaps.
    struct Selection {
        long long dateFrom = 0, dateTo = 0;
        qint32 dennoFrom = 0, dennoTo = 0;
        bool datesSwapped = false, numbersSwapped = false;
    };

    enum class Outcome {
        Missing,    // a required field is empty ("未記入")
        NoOrders,   // "該当件数は０件です"
        Refused,    // the count question answered No
        Abandoned,  // the overwrite question cancelled
        Stopped,    // F6 confirmed before a record
        ReadFailed, // the shop's record or the selection could not be read: the engine's text shown
        FileError,  // the file could not be written to its end: nothing put in place, nothing marked
        MarkFailed, // an order's flag could not be committed: "記録エラー", the orders before it stay flagged
        Done,       // the completion message was shown
    };
    struct Result {
        Outcome outcome = Outcome::Done;
        int missing = -1; // Missing: 0..8 = txtYy(0), txtMm(0), txtDd(0), txtYy(1), .., txtDenno(0), (1), txtFile
        Selection selection;
        qint64 count = 0;    // orders the query returned
        qint64 exported = 0; // lines built (the exported-order list)
        qint64 written = 0;  // lines that reached the file
        qint64 marked = 0;   // orders flagged label-printed
        QList<IcatUnencodable> unencodable;
    };

    explicit IcatExportJob(clsDbClass& db) : db_(db) {}

    // Screen start: the shop's own record (the sender of non-gift orders), kept for the life of the screen. A
    // failure is reported by the next run, which then writes nothing.
    void loadShop();
    // The label kinds I-CAT prints (codes 9 and 10 only), in the order the shop's setting gives: name and code.
    QList<QPair<QString, int>> labelKinds();
    // The engine's text when the last labelKinds could not read the kinds, or the shop's row they depend on (its
    // list is then empty); else "".
    const QString& kindsError() const { return kindsError_; }

    // Index of the first empty required field, in the order the screen checks them; -1 when all are filled.
    static int firstEmpty(const Input& input);
    // The range of the inputs, start and end swapped where the start is later.
    static Selection selection(const Input& input);

    // Called once the swapped range is known, so that the screen shows it.
    std::function<void(const Selection&)> showSelection;

    // The whole run from the required-field check to the unlock.
    Result run(const Input& input, Interaction& ui);

    // "@@@@/@@/@@": the text filled from the right, padded with spaces on the left.
    static QString datePattern(const QString& digits);
    // The report of unencodable characters shown at the end, one line each.
    static QString unencodableReport(const QList<IcatUnencodable>& list);

private:
    clsDbClass& db_;
    Recordset shop_;
    QString shopError_;
    QString kindsError_;
};

} // namespace pel
