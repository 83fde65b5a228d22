#include "shipping/trackingjob.h"

#include "app/cp932.h"
#include "app/db/connection.h"
#include "app/oplog.h"
#include "app/outputfile.h"
#include "app/startup.h"

#include <QFile>
#include <QRegularExpression>

#include <cmath>
#include <limits>

namespace pel {

std::optional<qint32> TrackingImportJob::toLong(const QString& field)
{
    static const QRegularExpression number(QStringLiteral(R"(^\s*[+-]?(\d+\.?\d*|\.\d+)\s*$)"));
    if (!number.match(field).hasMatch()) return std::nullopt;
    // halves go to the even neighbour, as the conversion rounds
    const double v = std::nearbyint(field.trimmed().toDouble());
    if (!(v >= std::numeric_limits<qint32>::min() && v <= std::numeric_limits<qint32>::max())) return std::nullopt;
    return static_cast<qint32>(v);
}

bool TrackingImportJob::readLine(const QByteArray& raw, Values& values)
{
    // Split on the bytes, one character per byte: a comma or a double quote is never part of a CP932 or UTF-8
    // character, so a name saved in another encoding does not move the fields, and only the two read must be CP932.
    QStringList fields;
    const int n = fnSplitQuoted(QString::fromLatin1(raw), fields, QStringLiteral(","));
    std::optional<QString> denno, tracking;
    if (n >= 2 && !(denno = Cp932::decode(fields[2].toLatin1()))) return false;
    if (n >= kTrackingField && !(tracking = Cp932::decode(fields[kTrackingField].toLatin1()))) return false;
    if (denno)
        if (const auto d = toLong(*denno)) values.denno = *d;
    if (tracking) values.tracking = *tracking;
    return true;
}

TrackingImportJob::Result TrackingImportJob::run(const QString& input, const QString& errorLog, Interaction& ui)
{
    Result r;
    ui.lock(true);
    ui.status(QStringLiteral("処理中・・・"));
    ui.yieldOnce();
    const auto unlock = [&](Outcome outcome) {
        r.outcome = outcome;
        ui.status(QString());
        ui.lock(false);
        return r;
    };

    QFile in(input);
    if (input.isEmpty() || !in.open(QIODevice::ReadOnly)) {
        ui.msg(QStringLiteral("ファイルエラー"));
        return unlock(Outcome::InputError);
    }
    // created anew by every run, also when no line is rejected; never over the file being read
    OutputFile log(errorLog);
    if (errorLog.isEmpty() || sameFile(input, errorLog) || !log.open()) {
        in.close();
        ui.msg(QStringLiteral("ファイルエラー"));
        return unlock(Outcome::LogError);
    }
    const auto logFailed = [&] {
        ui.messageBox(log.failureText(), mb::OkOnly | mb::Exclamation, kProductTitle);
        return unlock(Outcome::LogError);
    };

    // the engine's text, then the rest of the file is left unread
    const auto stop = [&](Outcome outcome) {
        const QString why = db_.ErrMsg();
        (void)db_.RollbackTns();
        in.close();
        (void)log.commit(); // the lines rejected before the stop, as a stopped run leaves them
        if (outcome == Outcome::ReadFailed)
            ui.readError(why);
        else
            ui.msg(QStringLiteral("記録エラー"), why);
        return unlock(outcome);
    };

    static const QByteArray kRejected = *Cp932::encode(u"【受注伝票なし】,");
    Values values;
    while (!in.atEnd()) {
        QByteArray line = in.readLine();
        if (line.endsWith('\n')) line.chop(line.endsWith("\r\n") ? 2 : 1);
        if (r.lines == 0 && line.startsWith("\xEF\xBB\xBF")) line.remove(0, 3); // an editor's UTF-8 mark
        ++r.lines;
        bool found = false;
        if (readLine(line, values)) {
            // An order that cannot be looked up is not an unknown order, and a number counts as stored only once
            // its commit went through; only a number the column cannot take (letters) is passed over.
            Recordset rs;
            if (!db_.DbSql(Sql("select * from jyuden where denno=") + Sql::n(values.denno), rs))
                return stop(Outcome::ReadFailed);
            if (db_.RecCnt() == 1) {
                found = true;
                if (!db_.BeginTns()) return stop(Outcome::SaveFailed);
                if (db_.DbSqlExec(Sql("update jyuden set okurino=") + Sql::n(values.tracking) +
                                  " where denno=" + Sql::n(values.denno))) {
                    const long affected = db_.RecCnt();
                    if (!db_.CommitTns()) return stop(Outcome::SaveFailed);
                    if (affected > 0) ++r.updated;
                } else {
                    if (!isValueRefusal(db_.ErrMsg())) return stop(Outcome::SaveFailed);
                    (void)db_.RollbackTns();
                }
            }
        } else {
            ++r.undecodable;
        }
        if (!found) {
            // the line as it was read, byte for byte
            if (!log.write(kRejected + line + "\r\n")) return logFailed();
            ++r.rejected;
        }
        ui.yieldOnce();
        if (ui.cancelRequested()) {
            // the lines logged so far stay, as a stopped run always left them
            if (!log.commit()) return logFailed();
            return unlock(Outcome::Stopped);
        }
    }
    in.close();
    if (!log.commit()) return logFailed();
    ui.yieldOnce();
    if (r.rejected == 0)
        ui.messageBox(QStringLiteral("正常に終了しました"), mb::Information, QStringLiteral("終了"));
    else
        ui.messageBox(QStringLiteral("エラーデータがあります。確認して下さい"), mb::Critical,
                      QStringLiteral("エラー確認"));
    opeLog(kCaption, 1, QString::number(r.lines) + QStringLiteral("件"));
    return unlock(Outcome::Done);
}

} // namespace pel
