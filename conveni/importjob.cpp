#include "conveni/importjob.h"

#include "app/db/dbglobals.h"
#include "app/inifile.h"
#include "app/oplog.h"
#include "app/runtimeerror.h"
#include "app/startup.h"
#include "conveni/layouts.h"
#include "conveni/posting.h"
#include "ui/textrules.h"

#include <QDateTime>
#include <QFile>
#include <cmath>
#include <limits>

namespace pel
{
namespace
{

double num(const QString& text)
{
    return fnToNum(text, true, false);
}

bool paid(const QString& code)
{
    return code == QLatin1String("01") || code == QLatin1String("12") || code == QLatin1String("22");
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
    if (code == QLatin1String("01")) return QStringLiteral("速報");
    if (code == QLatin1String("12")) return QStringLiteral("郵振");
    if (code == QLatin1String("22")) return QStringLiteral("郵振訂");
    if (code == QLatin1String("03")) return QStringLiteral("取消");
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
    return static_cast<qint64>(num(fnDelStr(totals_[static_cast<size_t>(index)], QStringLiteral(","))));
}

void PaymentImportJob::resetTotals()
{
    totals_.fill(QStringLiteral("0"));
    if (totalsChanged) totalsChanged();
}

void PaymentImportJob::addTotal(int index, double value)
{
    QString& caption = totals_[static_cast<size_t>(index)];
    caption = formatAmount(num(fnDelStr(caption, QStringLiteral(","))) + value);
    if (totalsChanged) totalsChanged();
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

qint32 PaymentImportJob::toLong(double value) const
{
    const double r = std::nearbyint(value); // halves to even
    if (!(r >= std::numeric_limits<qint32>::min() && r <= std::numeric_limits<qint32>::max())) throw BadRecord{};
    return static_cast<qint32>(r);
}

QString PaymentImportJob::field(const QStringList& fields, qint16 number) const
{
    if (number < 0 || number >= fields.size()) throw BadRecord{};
    return fields.at(number);
}

PaymentImportJob::Result PaymentImportJob::run(const Input& input)
{
    in_ = input;
    in_.fileName = input.fileName.trimmed();
    if (busy_) return Result::Busy;
    if (in_.fileName.isEmpty()) {
        ui_->msg(QStringLiteral("未記入"));
        return Result::Refused;
    }
    if (ui_->msg(QStringLiteral("作業開始")) != answer::Yes) return Result::Refused;
    busy_ = true;
    cancelled_ = false;
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
        detect();
        pass1();
        pass2();
        finish();
        result = cancelled_ ? Result::Cancelled : Result::Done;
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
    QString first;
    switch (file_.next(&first)) {
    case MtFile::Status::Error:
        refuse(file_.message(), mb::OkOnly | mb::Critical);
    case MtFile::Status::End:
        closeFiles();
        ui_->msg(QStringLiteral("ﾃﾞｰﾀなし"));
        throw Stop{};
    case MtFile::Status::Line:
        break;
    }
    if (first.contains(u',')) {
        comma_ = 1;
        agency_ = QStringLiteral("929023");
    } else {
        comma_ = 0;
        if (file_.atEnd() && first.startsWith(QLatin1String("HEAD")))
            refuse(QStringLiteral("現在おまかせ袋のデーターフォーマットには、対応してません。\r\n\r\n"
                                  "標準フォーマットを指定してください。"),
                   mb::OkOnly | mb::Critical);
        QString line;
        MtFile::Status st;
        while ((st = file_.next(&line)) == MtFile::Status::Line) {
            if (!line.startsWith(u'2')) continue;
            // the first data record names the agency; a file that names none keeps the last run's
            const QString at18 = line.mid(17, 5);
            if (at18 == QLatin1String("08997"))
                agency_ = QStringLiteral("908997");
            else if (at18 == QLatin1String("59951"))
                agency_ = QStringLiteral("959951");
            else if (at18 == QLatin1String("08082"))
                agency_ = QStringLiteral("908082");
            else if (line.mid(20, 6) == QLatin1String("929023"))
                agency_ = QStringLiteral("929023");
            break;
        }
        if (st == MtFile::Status::Error) refuse(file_.message(), mb::OkOnly | mb::Critical);
    }
    if (!fnLoadCvsIni(agency_, comma_)) refuse(QStringLiteral("基本情報がありません"), mb::OkOnly | mb::Exclamation);
}

void PaymentImportJob::pass1()
{
    file_.close();
    if (!file_.open(in_.fileName)) throw Failure{QStringLiteral("ファイルオープンに失敗しました！")};
    if (listCleared) listCleared();
    const CvsLayout& l = gCvsLayout;
    bool postal = false;
    qint64 sokuk = 0, torik = 0;
    double sokum = 0, torim = 0;
    QString line;
    MtFile::Status st;
    while ((st = file_.next(&line)) == MtFile::Status::Line) {
        if (ui_->cancelRequested()) { // nothing has been posted yet
            closeFiles();
            throw Stop{};
        }
        ui_->yieldOnce();
        if (line.trimmed() == QStringLiteral("読込済"))
            refuse(QStringLiteral("読込済みデータです"), mb::OkOnly | mb::Information);
        ++lineCount_;
        if (comma_ != 0) continue;
        const QString code = line.mid(1, 2);
        if (code == QLatin1String("12") || code == QLatin1String("22")) postal = true;
        if (line.startsWith(u'2')) {
            if (paid(code)) {
                addTotal(6, 1);
                addTotal(7, num(fnItem(line, l.money)));
            } else if (code == QLatin1String("03")) {
                addTotal(8, 1);
                addTotal(9, num(fnItem(line, l.money)));
            }
        } else if (line.startsWith(u'8')) {
            sokuk += std::llround(num(fnItem(line, l.sokuk)));
            sokum += num(fnItem(line, l.sokum));
            if (postal) { // postal transfers are counted apart at columns 50 and 56
                sokuk += std::llround(num(line.mid(49, 6)));
                sokum += num(line.mid(55, 10));
            }
            torik += std::llround(num(fnItem(line, l.torik)));
            torim += num(fnItem(line, l.torim));
        }
    }
    if (st == MtFile::Status::Error) refuse(file_.message(), mb::OkOnly | mb::Critical);
    if (file_.looksUtf8()) refuse(MtFile::utf8Message(), mb::OkOnly | mb::Critical);
    if (comma_ == 0 &&
        (total(6) != sokuk || total(7) != std::llround(sokum) || total(8) != torik || total(9) != std::llround(torim)))
        refuse(QStringLiteral("データ合計とトレーラー合計が違います。"), mb::OkOnly);
}

void PaymentImportJob::pass2()
{
    file_.close();
    if (!file_.open(in_.fileName)) throw Failure{QStringLiteral("ファイルオープンに失敗しました！")};
    if (!db_.BeginTns()) throw Failure{db_.ErrMsg()};
    inTransaction_ = true;
    posting_ = std::make_unique<PaymentPosting>(checkWait_ >= 0 ? checkWait_ : iniCheckWait());
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
    if (st == MtFile::Status::Error) throw Failure{file_.message()};
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
    const CvsLayout& l = gCvsLayout;
    qint32 nday = 0, amount = 0, denno = 0;
    double orderTotal = 0;
    QString mcode, mname, code;
    QStringList f;
    if (comma_ == 0) {
        if (!line.startsWith(u'2')) return;
        code = line.mid(1, 2);
        if (code == QLatin1String("02")) return;
    } else {
        const qint16 n = fnSplitQuoted(line, f, QStringLiteral(","));
        if (n == -1) return;
        const QString c = f.value(1);
        code = c.isEmpty() ? QStringLiteral("0 ") : c.size() == 1 ? QLatin1Char('0') + c : c.right(2);
        if (!paid(code) && code != QLatin1String("03")) return;
        if (f.size() > 4 && f[4].startsWith(QLatin1String("EAN"))) f[4].remove(0, 3);
    }
    const auto item = [&](LayoutPos pos, qint16 fieldNo) {
        return comma_ == 0 ? fnItem(line, pos) : fnItem(field(f, fieldNo), pos);
    };
    try {
        if (l.fcd.has()) {
            QString agency = item(l.fcd, l.cfcd);
            if (agency.size() == 5) agency.prepend(u'9');
            if (l.scd.has()) (void)item(l.scd, l.cscd);
            if (agency != agency_) {
                addTotal(2, 1);
                addTotal(3, num(fnItem(line, l.money))); // from the whole line, in both formats
                outcome_ = QStringLiteral("×：ﾌｧｲﾅﾝｽｺｰﾄﾞｴﾗｰ");
                addRow(code, 0, 0, 0, 0, QString(), QString());
                return;
            }
        } else if (l.scd.has()) {
            (void)item(l.scd, l.cscd);
        }
        if (l.cvscode.has()) (void)item(l.cvscode, l.ccvscode);

        if (in_.dateKind == RecordDate) {
            if (comma_ == 0) {
                nday = toLong(num(fnItem(line, l.nen) + fnItem(line, l.tuki) + fnItem(line, l.hi)));
            } else {
                nday = toLong(num(item(l.nen, l.cnen)) * 10000);
                nday = toLong(nday + num(item(l.tuki, l.ctuki)) * 100);
                nday = toLong(nday + num(item(l.hi, l.chi)));
            }
        } else if (comma_ == 0) {
            nday = in_.screenDate;
        } // the comma-separated format takes no date from the screen: it stays 0

        amount = toLong(num(item(l.money, l.cmoney)));
        if (l.dno2.has()) {
            if (comma_ == 0)
                denno = toLong(num(fnItem(line, l.dno1) + fnItem(line, l.dno2)));
            else
                denno = toLong(num(item(l.dno1, l.cdno1).trimmed() + item(l.dno2, l.cdno2)));
        } else {
            denno = toLong(num(item(l.dno1, l.cdno1)));
        }
        if (comma_ != 0) {
            (void)field(f, l.cidno);
            (void)field(f, l.cbun);
        }
    } catch (const BadRecord&) {
        outcome_ = QStringLiteral("×：読込データに誤りがあります");
        addTotal(code == QLatin1String("03") ? 4 : 2, 1);
        addTotal(code == QLatin1String("03") ? 5 : 3, amount);
        addRow(code, nday, 0, amount, denno, QString(), QString());
        return;
    }

    Recordset rs;
    if (!db_.DbSql(Sql("select * from jyuden d,member m") + " where d.mcode=m.code" + " and d.denno=" + Sql::n(denno),
                   rs))
        throw Failure{db_.ErrMsg()};
    if (rs.eof()) {
        outcome_ = kNoOrder;
        if (paid(code)) {
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
    const std::optional<bool> exists = posting_->paymentExists(denno, &error);
    if (!exists) throw Failure{error};
    const auto post = [&](bool compare) {
        if (!posting_->postPayment(line, denno, nday, amount, kPaymentKind)) {
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
        if (paid(code)) {
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
    if (!db_.CommitTns()) throw Failure{db_.ErrMsg()};
    inTransaction_ = false;
    if (comma_ != 0) { // no trailer: the file totals are the outcomes'
        totals_[6] = formatAmount(static_cast<double>(total(0) + total(2)));
        totals_[7] = formatAmount(static_cast<double>(total(1) + total(3)));
        totals_[8] = totals_[4];
        totals_[9] = totals_[5];
        if (totalsChanged) totalsChanged();
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
    if (!appendReadMark(in_.fileName)) ui_->msg(QStringLiteral("ファイルエラー"));
    ui_->yieldOnce();
    if (ui_->messageBox(QStringLiteral("読込データをバックアップしますか？"), mb::YesNo | mb::Information,
                       QStringLiteral("読込データバックアップ確認")) == answer::Yes) {
        const QString target = backupName(in_.fileName, QDateTime::currentDateTime());
        QFile::remove(target);
        if (!QFile::copy(in_.fileName, target)) ui_->msg(QStringLiteral("ファイルエラー"));
    }
    ui_->yieldOnce();
}

} // namespace pel
