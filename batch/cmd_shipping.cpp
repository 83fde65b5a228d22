// export-shipping: the I-CAT shipping file of a range of orders; import-tracking: the carrier's tracking numbers.
#include "app/db/dbglobals.h"
#include "batch/command.h"
#include "batch/interaction.h"
#include "shipping/icatexportjob.h"
#include "shipping/trackingjob.h"

#include <QDate>
#include <QJsonArray>
#include <QRegularExpression>

namespace pel::batch {
namespace {

// --append: under --yes the overwrite question is answered No (append); everything else as the runner answers.
class AppendDialogs final : public DialogService
{
public:
    AppendDialogs(DialogService& inner, QTextStream& err) : inner_(inner), err_(err) {}
    int messageBox(const QString& text, int style, const QString& title) override
    {
        if (mb::buttons(style) == mb::YesNoCancel) {
            err_ << text << Qt::endl;
            return answer::No;
        }
        return inner_.messageBox(text, style, title);
    }

private:
    DialogService& inner_;
    QTextStream& err_;
};

bool isDate(const QString& s)
{
    static const QRegularExpression re(QStringLiteral(R"(^\d{8}$)"));
    return re.match(s).hasMatch() && QDate::fromString(s, QStringLiteral("yyyyMMdd")).isValid();
}

bool isOrderNumber(const QString& s)
{
    static const QRegularExpression re(QStringLiteral(R"(^\d{1,8}$)"));
    return re.match(s).hasMatch();
}

int exportShipping(Context& ctx)
{
    QString file, kind, fromDate, toDate, fromNo = QStringLiteral("1"), toNo = QStringLiteral("99999999");
    fromDate = toDate = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
    bool reprint = false, append = false;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args[i];
        QString* value = a == QLatin1String("--file")        ? &file
                         : a == QLatin1String("--kind")      ? &kind
                         : a == QLatin1String("--from-date") ? &fromDate
                         : a == QLatin1String("--to-date")   ? &toDate
                         : a == QLatin1String("--from-no")   ? &fromNo
                         : a == QLatin1String("--to-no")     ? &toNo
                                                             : nullptr;
        if (value && i + 1 < ctx.args.size())
            *value = ctx.args[++i];
        else if (a == QLatin1String("--reoutput"))
            reprint = true;
        else if (a == QLatin1String("--append"))
            append = true;
        else
            return ctx.usage(QStringLiteral("export-shipping: bad argument: ") + a);
    }
    bool kindOk = false;
    const int code = kind.toInt(&kindOk);
    if (file.isEmpty() || !kindOk) return ctx.usage(QStringLiteral("export-shipping: --file and --kind are required"));
    if (!isDate(fromDate) || !isDate(toDate)) return ctx.usage(QStringLiteral("export-shipping: dates are YYYYMMDD"));
    if (!isOrderNumber(fromNo) || !isOrderNumber(toNo))
        return ctx.usage(QStringLiteral("export-shipping: order numbers have 1 to 8 digits"));

    if (!fnOpenDB(1)) return Stopped;
    clsDbClass db;
    if (!db.OpenDb()) {
        ctx.err << db.ErrMsg() << Qt::endl;
        fnCloseDB(1);
        return Stopped;
    }
    IcatExportJob job(db);
    job.loadShop();
    // the kinds the screen offers
    QStringList offered;
    bool listed = false;
    for (const auto& k : job.labelKinds()) {
        offered << QString::number(k.second);
        listed = listed || k.second == code;
    }
    if (!job.kindsError().isEmpty()) {
        ctx.err << Interaction::readErrorText(job.kindsError()) << Qt::endl;
        db.CloseDb();
        fnCloseDB(1);
        return Stopped;
    }
    if (!listed) {
        db.CloseDb();
        fnCloseDB(1);
        return ctx.usage(QStringLiteral("export-shipping: --kind %1 is not a label kind I-CAT prints (listed: %2)")
                             .arg(code)
                             .arg(offered.join(QStringLiteral(", "))));
    }

    IcatExportJob::Input in;
    const QString dates[2] = {fromDate, toDate}, numbers[2] = {fromNo, toNo};
    for (int i = 0; i < 2; ++i) {
        in.yy[i] = dates[i].left(4), in.mm[i] = dates[i].mid(4, 2), in.dd[i] = dates[i].mid(6, 2);
        in.denno[i] = numbers[i];
    }
    in.file = file;
    in.kind = code;
    in.reprint = reprint;

    AppendDialogs appending(dialogs(), ctx.err);
    DialogService* previous = append && ctx.yes ? setDialogService(&appending) : nullptr;
    CommandInteraction ui(nullptr);
    const IcatExportJob::Result r = job.run(in, ui);
    if (previous) setDialogService(previous);
    db.CloseDb();
    fnCloseDB(1);

    if (!r.unencodable.isEmpty() && !ctx.json)
        for (const IcatUnencodable& u : r.unencodable)
            ctx.out << u.denno << '\t' << u.field << '\t' << u.character << "\tU+"
                    << QString::number(u.codePoint, 16).toUpper().rightJustified(4, QLatin1Char('0')) << Qt::endl;
    QJsonArray unencodable;
    for (const IcatUnencodable& u : r.unencodable)
        unencodable.append(QJsonObject{
            {"denno", u.denno},
            {"field", u.field},
            {"character", u.character},
            {"codepoint", QStringLiteral("U+") + QString::number(u.codePoint, 16).toUpper().rightJustified(4, u'0')}});
    ctx.summary(
        QJsonObject{{"count", r.count}, {"written", r.written}, {"marked", r.marked}, {"unencodable", unencodable}});
    return r.outcome == IcatExportJob::Outcome::Done ? Done : Stopped;
}

int importTracking(Context& ctx)
{
    QString file, errlog;
    bool errlogGiven = false;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args[i];
        if (a == QLatin1String("--errlog") && i + 1 < ctx.args.size()) {
            errlog = ctx.args[++i];
            errlogGiven = true;
        } else if (!a.startsWith(QLatin1String("--")) && file.isEmpty()) {
            file = a;
        } else {
            return ctx.usage(QStringLiteral("import-tracking: bad argument: ") + a);
        }
    }
    if (file.isEmpty() || !errlogGiven)
        return ctx.usage(QStringLiteral("import-tracking: FILE and --errlog are required"));
    if (!fnOpenDB(1)) return Stopped;
    clsDbClass db;
    if (!db.OpenDb()) {
        ctx.err << db.ErrMsg() << Qt::endl;
        fnCloseDB(1);
        return Stopped;
    }
    TrackingImportJob job(db);
    CommandInteraction ui(nullptr);
    const TrackingImportJob::Result r = job.run(file, errlog, ui);
    db.CloseDb();
    fnCloseDB(1);
    ctx.summary(QJsonObject{{"lines", r.lines}, {"updated", r.updated}, {"rejected", r.rejected}});
    return r.outcome == TrackingImportJob::Outcome::Done ? Done : Stopped;
}

const Registrar exportReg{{"export-shipping",
                           "export-shipping --file F --kind CODE [--from-date YYYYMMDD --to-date YYYYMMDD] "
                           "[--from-no N --to-no N] [--reoutput] [--append]",
                           &exportShipping}};
const Registrar importReg{{"import-tracking", "import-tracking FILE --errlog F", &importTracking}};

} // namespace
} // namespace pel::batch
