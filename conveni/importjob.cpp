#include "conveni/importjob.h"

#include "app/db/dbglobals.h"
#include "app/inifile.h"
#include "app/oplog.h"
#include "app/outputfile.h"
#include "app/runtimeerror.h"
#include "app/startup.h"
#include "conveni/layouts.h"
#include "conveni/mtrecord.h"
#include "conveni/posting.h"
#include "ui/textrules.h"

#include <QDateTime>
#include <QFile>
#include <cmath>
#include <limits>

namespace pel {
namespace {

double num(const QString& text)
{
    return fnToNum(text, true, false);
}

const QString kNoOrder = QStringLiteral("×：受注伝票がありません");
const QString kCancelRecord = QStringLiteral("×：取消データです。　入金処理で調整してください。");

} // namespace

PaymentImportJob::PaymentImportJob(clsDbClass& db, Interaction& ui) : db_(db), ui_(&ui)
{
    resetTotals();
}

PaymentImportJob::~PaymentImportJob() = default;

QString PaymentImportJob::codeName(const QString& code)
{
    if (code == QLatin1String("01"))
        return QStringLiteral("速報");
    if (code == QLatin1String("12"))
        return QStringLiteral("郵振");
    if (code == QLatin1String("22"))
        return QStringLiteral("郵振訂");
    if (code == QLatin1String("03"))
        return QStringLiteral("取消");
    return QString();
}

QString PaymentImportJob::formatDate(qint64 ymd)
{
    // digits fill the # places from the right; the separators are always written
    const QString pattern = QStringLiteral("####/##/##");
    QString digits = QString::number(ymd);
    QString out;
    for (qsizetype i = pattern.size() - 1; i >= 0; --i) {
        if (pattern[i] == u'#') {
            if (!digits.isEmpty()) {
                out.prepend(digits.back());
                digits.chop(1);
            }
        } else {
            out.prepend(pattern[i]);
        }
    }
    return digits + out;
}

QString PaymentImportJob::formatAmount(double value)
{
    const double r = std::round(value); // halves away from zero
    QString digits = QString::number(std::fabs(r), 'f', 0);
    for (qsizetype i = digits.size() - 3; i > 0; i -= 3)
        digits.insert(i, u',');
    return r < 0 ? QLatin1Char('-') + digits : digits;
}

qint64 PaymentImportJob::total(int index) const
{
    // a caption beyond 64 bits (a layout that cuts a very long amount) reads as the largest count
    const double v = num(fnDelStr(totals_[static_cast<size_t>(index)], QStringLiteral(",")));
    return v < 9.2e18 ? static_cast<qint64>(v) : std::numeric_limits<qint64>::max();
}

void PaymentImportJob::resetTotals()
{
    totals_.fill(QStringLiteral("0"));
    if (totalsChanged)
        totalsChanged();
}

void PaymentImportJob::addTotal(int index, double value)
{
    QString& caption = totals_[static_cast<size_t>(index)];
    caption = formatAmount(num(fnDelStr(caption, QStringLiteral(","))) + value);
    if (totalsChanged)
        totalsChanged();
}

void PaymentImportJob::closeFiles()
{
    file_.close();
}

void PaymentImportJob::refuse(const QString& text, int style)
{
    closeFiles();
    ui_->messageBox(text, style, kTitle);
    throw Stop{};
}

PaymentImportJob::Result PaymentImportJob::run(const Input& input)
{
    in_ = input;
    in_.fileName = fnTrim(input.fileName);
    if (busy_)
        return Result::Busy;
    if (in_.fileName.isEmpty()) {
        ui_->msg(QStringLiteral("未記入"));
        return Result::Refused;
    }
    if (!dryRun_ && ui_->msg(QStringLiteral("作業開始")) != answer::Yes)
        return Result::Refused;
    busy_ = true;
    cancelled_ = false;
    backupFailed_ = false;
    wouldPost_.clear();
    inTransaction_ = false;
    rows_ = 0;
    lineCount_ = 0;
    ui_->lock(true);
    resetTotals();
    Result result = Result::Done;
    try {
        if (!file_.open(in_.fileName)) {
            closeFiles();
            ui_->msg(QStringLiteral("ファイルエラー"));
            throw Stop{};
        }
        wait_ = checkWait_;
        if (wait_ < 0) {
            QString written;
            const std::optional<int> ms = iniCheckWait(&written);
            if (!ms)
                refuse(QStringLiteral("mirabo.ini の [CvsRead] CheckWait の値「") + written +
                           QStringLiteral("」はミリ秒の整数ではありません"),
                       mb::OkOnly | mb::Critical);
            wait_ = *ms;
        }
        detect();
        pass1();
        pass2();
        finish();
        result = cancelled_ ? Result::Cancelled : backupFailed_ ? Result::BackupFailed : Result::Done;
    } catch (const Stop&) {
        result = Result::Refused;
    } catch (const Failure& f) {
        closeFiles();
        if (inTransaction_) {
            (void)db_.RollbackTns();
            inTransaction_ = false;
        }
        ui_->messageBox(f.text, mb::OkOnly | mb::Critical, kTitle);
        result = Result::Failed;
    } catch (const RuntimeError& e) {
        closeFiles();
        if (inTransaction_) {
            (void)db_.RollbackTns();
            inTransaction_ = false;
        }
        ui_->messageBox(e.description(), mb::OkOnly | mb::Critical, kTitle);
        result = Result::Failed;
    }
    posting_.reset();
    ui_->progress(0);
    busy_ = false;
    ui_->lock(false);
    return result;
}

void PaymentImportJob::detect()
{
    const MtDetection d = detectMt(file_, agency_);
    switch (d.kind) {
    case MtDetection::Error:
        refuse(file_.message(), mb::OkOnly | mb::Critical);
    case MtDetection::Empty:
        closeFiles();
        ui_->msg(QStringLiteral("ﾃﾞｰﾀなし"));
        throw Stop{};
    case MtDetection::Head:
        refuse(QStringLiteral("現在おまかせ袋のデーターフォーマットには、対応してません。\r\n\r\n"
                              "標準フォーマットを指定してください。"),
               mb::OkOnly | mb::Critical);
    case MtDetection::Found:
        break;
    }
    comma_ = d.comma;
    agency_ = d.agency;
    QString why;
    if (!fnLoadCvsIni(agency_, comma_, &why))
        refuse(why.isEmpty() ? QStringLiteral("基本情報がありません") : why,
               why.isEmpty() ? mb::OkOnly | mb::Exclamation : mb::OkOnly | mb::Critical);
}

void PaymentImportJob::pass1()
{
    file_.close();
    if (!file_.open(in_.fileName))
        throw Failure{QStringLiteral("ファイルオープンに失敗しました！")};
    if (listCleared)
        listCleared();
    bool postal = false;
    double sokuk = 0, sokum = 0, torik = 0, torim = 0;
    QString line;
    MtFile::Status st;
    while ((st = file_.next(&line)) == MtFile::Status::Line) {
        if (ui_->cancelRequested()) { // nothing has been posted yet
            closeFiles();
            throw Stop{};
        }
        ui_->yieldOnce();
        if (fnTrim(line) == QStringLiteral("読込済"))
            refuse(QStringLiteral("読込済みデータです"), mb::OkOnly | mb::Information);
        ++lineCount_;
        if (comma_ != 0)
            continue;
        const MtSumLine sum = readSumLine(line, gCvsLayout, &postal);
        switch (sum.kind) {
        case MtSumLine::Paid:
            addTotal(6, 1);
            addTotal(7, sum.amount);
            break;
        case MtSumLine::Cancel:
            addTotal(8, 1);
            addTotal(9, sum.amount);
            break;
        case MtSumLine::Trailer: // several trailers add up
            sokuk += sum.sokuk;
            sokum += sum.sokum;
            torik += sum.torik;
            torim += sum.torim;
            break;
        case MtSumLine::Other:
            break;
        }
    }
    if (st == MtFile::Status::Error)
        refuse(file_.message(), mb::OkOnly | mb::Critical);
    if (file_.looksUtf8())
        refuse(MtFile::utf8Message(), mb::OkOnly | mb::Critical);
    if (comma_ == 0 && (static_cast<double>(total(6)) != sokuk || total(7) != std::llround(sokum) ||
                        static_cast<double>(total(8)) != torik || total(9) != std::llround(torim)))
        refuse(QStringLiteral("データ合計とトレーラー合計が違います。"), mb::OkOnly);
}

void PaymentImportJob::pass2()
{
    file_.close();
    if (!file_.open(in_.fileName))
        throw Failure{QStringLiteral("ファイルオープンに失敗しました！")};
    if (!dryRun_) {
        if (!db_.BeginTns())
            throw Failure{db_.ErrMsg()};
        inTransaction_ = true;
    }
    // the wait lets a posting become visible to the check; a dry run posts nothing
    posting_ = std::make_unique<PaymentPosting>(dryRun_ ? 0 : wait_);
    ui_->progress(0);
    qint64 processed = 0;
    QString line;
    MtFile::Status st;
    while ((st = file_.next(&line)) == MtFile::Status::Line) {
        if (ui_->cancelRequested()) {
            cancelled_ = true;
            break;
        }
        ++processed;
        ui_->progress(lineCount_ > 0 ? static_cast<int>(processed * 100 / lineCount_) : 100);
        ui_->yieldOnce();
        record(line);
    }
    if (st == MtFile::Status::Error)
        throw Failure{file_.message()};
}

void PaymentImportJob::addRow(const QString& code, qint32 nday, double orderTotal, qint32 amount, qint32 denno,
                              const QString& mcode, const QString& mname)
{
    ui_->resultRow({outcome_, codeName(code), nday ? formatDate(nday) : QString(),
                    orderTotal != 0 ? formatAmount(orderTotal) : QString(), amount ? formatAmount(amount) : QString(),
                    denno ? QString::number(denno) : QString(), mcode, mname});
    ++rows_;
}

void PaymentImportJob::record(const QString& line)
{
    const MtRecord r = readRecord(line, comma_, gCvsLayout, agency_, in_.dateKind, in_.screenDate);
    const QString& code = r.code;
    const qint32 nday = r.nday, amount = r.amount, denno = r.denno;
    double orderTotal = 0;
    QString mcode, mname;
    switch (r.kind) {
    case MtRecord::Skip:
        return;
    case MtRecord::AgencyError:
        addTotal(2, 1);
        addTotal(3, r.agencyErrorAmount);
        outcome_ = QStringLiteral("×：ﾌｧｲﾅﾝｽｺｰﾄﾞｴﾗｰ");
        addRow(code, 0, 0, 0, 0, QString(), QString());
        return;
    case MtRecord::Bad:
        outcome_ = QStringLiteral("×：読込データに誤りがあります");
        addTotal(code == QLatin1String("03") ? 4 : 2, 1);
        addTotal(code == QLatin1String("03") ? 5 : 3, amount);
        addRow(code, nday, 0, amount, denno, QString(), QString());
        return;
    case MtRecord::Data:
        break;
    }

    Recordset rs;
    if (!db_.DbSql(Sql("select * from jyuden d,member m") + " where d.mcode=m.code" + " and d.denno=" + Sql::n(denno),
                   rs))
        throw Failure{db_.ErrMsg()};
    if (rs.eof()) {
        outcome_ = kNoOrder;
        if (isPaidCode(code)) {
            addTotal(2, 1);
            addTotal(3, amount);
        } else if (code == QLatin1String("03")) {
            addTotal(4, 1);
            addTotal(5, amount);
        }
        addRow(code, nday, orderTotal, amount, denno, mcode, mname);
        return;
    }
    mcode = fnGetFields(rs, QStringLiteral("code"));
    mname = fnGetFields(rs, QStringLiteral("name"));
    orderTotal = num(fnGetFields(rs, QStringLiteral("total")));
    rs.close();

    QString error;
    std::optional<bool> exists = posting_->paymentExists(denno, &error);
    if (!exists)
        throw Failure{error};
    if (dryRun_ && wouldPost_.contains(denno))
        exists = true;
    const auto post = [&](bool compare) {
        if (dryRun_) {
            wouldPost_.insert(denno);
        } else if (!posting_->postPayment(line, denno, nday, amount, kPaymentKind)) {
            addTotal(2, 1);
            addTotal(3, amount);
            outcome_ = QStringLiteral("×：記録中にエラーが発生しました");
            return;
        }
        addTotal(0, 1);
        addTotal(1, amount);
        outcome_ = !compare || amount == orderTotal ? QStringLiteral("○：正常に読込ました")
                                                    : QStringLiteral("△：金額に相違があります");
    };
    if (*exists) {
        if (isPaidCode(code)) {
            addTotal(2, 1);
            addTotal(3, amount);
            outcome_ = QStringLiteral("×：入金伝票が存在します");
        } else if (code == QLatin1String("03")) {
            addTotal(4, 1);
            addTotal(5, amount);
            outcome_ = kCancelRecord;
        }
    } else if (code == QLatin1String("01") || code == QLatin1String("12")) {
        post(true);
    } else if (code == QLatin1String("03")) {
        addTotal(4, 1);
        addTotal(5, amount);
        outcome_ = kCancelRecord;
    } else if (code == QLatin1String("22")) {
        post(false);
    } // any other code: nothing posted or counted, the last outcome stands
    addRow(code, nday, orderTotal, amount, denno, mcode, mname);
}

void PaymentImportJob::finish()
{
    closeFiles();
    if (inTransaction_) {
        if (!db_.CommitTns())
            throw Failure{db_.ErrMsg()};
        inTransaction_ = false;
    }
    if (comma_ != 0) { // no trailer: the file totals are the outcomes'
        totals_[6] = formatAmount(static_cast<double>(total(0) + total(2)));
        totals_[7] = formatAmount(static_cast<double>(total(1) + total(3)));
        totals_[8] = totals_[4];
        totals_[9] = totals_[5];
        if (totalsChanged)
            totalsChanged();
    }
    if (dryRun_) {
        ui_->messageBox(QStringLiteral("確認のみ：") + totals_[0] + QStringLiteral("件を入金処理できます（記録していません）"),
                        mb::OkOnly | mb::Information, kProductTitle);
        return;
    }
    opeLog(kOperation, 1, totals_[0] + QStringLiteral("件 ") + totals_[1] + QStringLiteral("円"));
    if (cancelled_) {
        // stopped part-way: what was posted stays, the file is not marked so that the rest can be read later
        ui_->messageBox(QStringLiteral("処理を中止しました。\r\n") + totals_[0] +
                            QStringLiteral("件の入金処理をしました"),
                        mb::OkOnly | mb::Information, kProductTitle);
        return;
    }
    ui_->messageBox(totals_[0] + QStringLiteral("件の入金処理をしました"), mb::OkOnly | mb::Information, kProductTitle);
    if (!appendReadMark(in_.fileName)) {
        ui_->msg(QStringLiteral("ファイルエラー"));
        backupFailed_ = true;
    }
    ui_->yieldOnce();
    if (ui_->messageBox(QStringLiteral("読込データをバックアップしますか？"), mb::YesNo | mb::Information,
                        QStringLiteral("読込データバックアップ確認")) == answer::Yes) {
        // an earlier backup of the same name is replaced only by a whole copy
        const QString target = backupName(in_.fileName, QDateTime::currentDateTime());
        QString reason;
        if (sameFile(in_.fileName, target)) {
            ui_->msg(QStringLiteral("ファイルエラー"));
            backupFailed_ = true;
        } else if (!copyFileSafely(in_.fileName, target, &reason)) {
            ui_->messageBox(writeFailureText(target, reason), mb::OkOnly | mb::Exclamation, kProductTitle);
            backupFailed_ = true;
        }
    }
    ui_->yieldOnce();
}

} // namespace pel
