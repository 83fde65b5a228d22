#pragma once
// The payment import: an agency's payment-result ("MT") file checked against its trailer, then every data record
// matched to its order, posted, and listed with its outcome in one row and in the ten totals.
#include "app/db/dbclass.h"
#include "app/interaction.h"
#include "conveni/mtfile.h"

#include <QSet>
#include <QString>
#include <QStringList>
#include <array>
#include <functional>

namespace pel {

class PaymentPosting;

class PaymentImportJob {
public:
    enum class Result {
        Busy,      // a run is under way: nothing done
        Refused,   // a check before the postings stopped it: nothing posted
        Done,      // every record handled, the file marked as read
        Cancelled, // stopped by the user part-way: what was posted stays, the file is not marked
        Failed,    // an engine or file error part-way: the run's transaction rolled back, the file not marked
        BackupFailed, // every record handled, but the read mark or the backup asked for could not be written
    };
    enum DateKind { RecordDate = 0, ScreenDate = 1 }; // 収納日, 画面指定

    struct Input {
        QString fileName;
        int dateKind = RecordDate;
        qint32 screenDate = 0; // yyyymmdd
    };

    static inline const QString kTitle = QStringLiteral("コンビニＭＴ入金データ読込");
    static inline const QString kOperation = QStringLiteral("コンビニ収納代行　入金データ読込");
    static constexpr qint16 kPaymentKind = 6;

    // db: the screen's own connection (order lookups, the run's transaction); postings go through the global one.
    PaymentImportJob(clsDbClass& db, Interaction& ui);
    ~PaymentImportJob();

    Result run(const Input& input);
    // Where the next run reaches the user (the screen swaps in its busy-time interaction).
    void setInteraction(Interaction& ui) { ui_ = &ui; }
    bool busy() const { return busy_; }

    // The ten totals as their captions ("###,##0"): 正常 0/1, エラー 2/3, 取消 4/5, 合計 6/7 and 8/9.
    const std::array<QString, 10>& totals() const { return totals_; }
    qint64 total(int index) const;
    // Called after every change of a total (the screen repaints its labels).
    std::function<void()> totalsChanged;
    // Called when the checks have passed and the list of the last run is to be cleared.
    std::function<void()> listCleared;
    // Records posted by the last run (total 0 as a number).
    qint64 posted() const { return total(0); }
    int rowCount() const { return rows_; }

    // Kept between runs of the same screen.
    qint16 commaFlag() const { return comma_; }
    const QString& agencyCode() const { return agency_; }
    void setAgencyCode(const QString& code) { agency_ = code; }
    // Milliseconds before each payment-exists check (default: mirabo.ini CvsRead/CheckWait; a value there that is
    // not a whole number of milliseconds refuses the run).
    void setCheckWait(int ms) { checkWait_ = ms; }
    // A dry run reads, checks and matches as a run does and lists the same rows and totals, but asks nothing and
    // changes nothing: no posting, no read mark, no backup, no operation log. A payment it would post counts as
    // existing for the records after it, as the posted one would.
    void setDryRun(bool on) { dryRun_ = on; }
    bool dryRun() const { return dryRun_; }

    // Names of the data codes in the list.
    static QString codeName(const QString& code);
    // "####/##/##" of a yyyymmdd number.
    static QString formatDate(qint64 ymd);
    // "###,##0".
    static QString formatAmount(double value);

private:
    struct Stop {};  // a refusal already shown
    struct Failure { // an engine or file error part-way
        QString text;
    };
    [[noreturn]] void refuse(const QString& text, int style);
    void addRow(const QString& code, qint32 nday, double orderTotal, qint32 amount, qint32 denno, const QString& mcode,
                const QString& mname);
    void detect();
    void pass1();
    void pass2();
    void record(const QString& line);
    void addTotal(int index, double value);
    void resetTotals();
    void closeFiles();
    void finish();

    clsDbClass& db_;
    Interaction* ui_;
    Input in_;
    MtFile file_;
    std::unique_ptr<PaymentPosting> posting_;
    std::array<QString, 10> totals_;
    bool busy_ = false;
    bool inTransaction_ = false;
    qint16 comma_ = 0;
    QString agency_;
    QString outcome_;
    int rows_ = 0;
    qint64 lineCount_ = 0;
    int checkWait_ = -1;
    int wait_ = 0; // the wait of the run in hand
    bool cancelled_ = false;
    bool backupFailed_ = false;
    bool dryRun_ = false;
    QSet<qint32> wouldPost_; // a dry run's postings
};

} // namespace pel
