#include "conveni/posting.h"

#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "app/db/retry.h"

#include <QDateTime>
#include <QEventLoop>
#include <QTimer>

namespace pel {

void waitLive(int ms)
{
    if (ms <= 0)
        return;
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

PaymentPosting::PaymentPosting(int waitMs) : waitMs_(waitMs) {}

std::optional<bool> PaymentPosting::paymentExists(qint32 denno, QString* error)
{
    // A connection of its own, never the one the postings write on; opened once per run.
    if (!checkOpen_ && !(checkOpen_ = check_.OpenDb())) {
        *error = check_.ErrMsg();
        return std::nullopt;
    }
    waitLive(waitMs_);
    Recordset rs;
    if (!check_.DbSql(Sql("select * from inmoney where denno=") + Sql::n(denno), rs)) {
        *error = check_.ErrMsg();
        return std::nullopt;
    }
    return check_.RecCnt() != 0;
}

bool PaymentPosting::postPayment(const QString& line, qint32 denno, qint32 nday, qint32 money, qint16 pcode)
{
    // The payment and its ledger line go into one transaction, committed once the ledger attempts are over: a run
    // killed between the two writes leaves neither, so the next import posts the record whole. A ledger line that
    // cannot be written after its attempts does not undo the payment; the record is reported as failed.
    const std::shared_ptr<Connection> c = gcnData;
    QString e;
    const bool tx = c && c->begin(&e);
    const Step step = post(line, denno, nday, money, pcode);
    if (!tx)
        return step == Step::Done;
    if (step == Step::PaymentFailed) {
        (void)c->rollback(&e);
        return false;
    }
    if (!c->commit(&e)) {
        error_ = e;
        return false;
    }
    return step == Step::Done;
}

PaymentPosting::Step PaymentPosting::post(const QString& line, qint32 denno, qint32 nday, qint32 money, qint16 pcode)
{
    (void)line;
    error_.clear();
    const QString now = QDateTime::currentDateTime().toString(QStringLiteral("yyyy/MM/dd HH:mm:ss"));
    const QString day = QString::number(nday);
    const QString order = QString::number(denno);

    const Sql payment = Sql("select * from inmoney where denno=") + Sql::n(denno) + " and nday=" + Sql::n(nday);
    const auto fillPayment = [&](Recordset& rs) {
        return fnSetFields(rs, QStringLiteral("denno"), order) && fnSetFields(rs, QStringLiteral("nday"), day) &&
               fnSetFields(rs, QStringLiteral("pcode"), QString::number(pcode)) &&
               fnSetFields(rs, QStringLiteral("money"), QString::number(money)) &&
               fnSetFields(rs, QStringLiteral("inflag"), QStringLiteral("1")) &&
               fnSetFields(rs, QStringLiteral("sdate"), now);
    };
    RetryResult r = retrySilently(kAttempts, [&](QString* e) { return editRecordGlobal(payment, fillPayment, e); });
    if (!r.ok) {
        error_ = r.error;
        return Step::PaymentFailed;
    }

    QString mcode;
    {
        Recordset rs;
        fnOpenRs(rs, Sql("select mcode from jyuden where denno=") + Sql::n(denno), false, 1);
        if (!rs.isOpen()) {
            error_ = QStringLiteral("select mcode from jyuden");
            return Step::LedgerFailed;
        }
        if (rs.eof())
            return Step::Done; // the payment stands without a ledger line
        mcode = fnGetFields(rs, QStringLiteral("mcode"));
    }
    const Sql ledger = Sql("select * from cdai where ") + "mcode = " + Sql::q(mcode) + " and " +
                       "day = " + Sql::n(nday) + " and " + "kubun = 3 and " + "denno = " + Sql::n(denno) + " and " +
                       "line = 1";
    const auto fillLedger = [&](Recordset& rs) {
        return fnSetFields(rs, QStringLiteral("mcode"), mcode) && fnSetFields(rs, QStringLiteral("day"), day) &&
               fnSetFields(rs, QStringLiteral("kubun"), QStringLiteral("3")) &&
               fnSetFields(rs, QStringLiteral("denno"), order) &&
               fnSetFields(rs, QStringLiteral("line"), QStringLiteral("1"));
    };
    r = retrySilently(kAttempts, [&](QString* e) { return editRecordGlobal(ledger, fillLedger, e); });
    if (!r.ok) {
        error_ = r.error;
        return Step::LedgerFailed;
    }
    return Step::Done;
}

} // namespace pel
