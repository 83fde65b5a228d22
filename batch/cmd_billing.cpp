// export-billing --dir DIR [...]: the billing export of the billing screen, the folder choice answered by --dir.
#include "app/db/dbglobals.h"
#include "app/home.h"
#include "app/inifile.h"
#include "batch/command.h"
#include "batch/interaction.h"
#include "conveni/billingjob.h"
#include "conveni/settingsjob.h"

#include <QDate>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>

#include <utility>

namespace pel::batch
{
namespace
{

int run(Context& ctx)
{
    QString dir, agency, fromDate, toDate, fromNo, toNo;
    bool reoutput = false;
    const QList<std::pair<const char*, QString*>> valued{
        {"--dir", &dir},        {"--agency", &agency},  {"--from-date", &fromDate},
        {"--to-date", &toDate}, {"--from-no", &fromNo}, {"--to-no", &toNo}};
    for (int i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args.at(i);
        if (a == QLatin1String("--reoutput")) {
            reoutput = true;
            continue;
        }
        bool known = false;
        for (const auto& [name, target] : valued)
            if (a == QLatin1String(name) && i + 1 < ctx.args.size()) {
                *target = ctx.args.at(++i);
                known = true;
            }
        if (!known) return ctx.usage(QStringLiteral("export-billing: unknown argument %1").arg(a));
    }
    if (dir.isEmpty()) return ctx.usage(QStringLiteral("export-billing: --dir DIR is needed"));
    if (!agency.isEmpty() && agencyIndex(agency) < 0)
        return ctx.usage(QStringLiteral("export-billing: --agency is 908997 or 929023"));
    if (fromDate.isEmpty() != toDate.isEmpty() || fromNo.isEmpty() != toNo.isEmpty())
        return ctx.usage(QStringLiteral("export-billing: give both ends of a range"));
    static const QRegularExpression date(QStringLiteral(R"(^\d{8}$)")), number(QStringLiteral(R"(^\d{1,8}$)"));
    for (const QString* d : {&fromDate, &toDate})
        if (!d->isEmpty() && !date.match(*d).hasMatch())
            return ctx.usage(QStringLiteral("export-billing: dates are YYYYMMDD: %1").arg(*d));
    for (const QString* n : {&fromNo, &toNo})
        if (!n->isEmpty() && !number.match(*n).hasMatch())
            return ctx.usage(QStringLiteral("export-billing: order numbers have up to 8 digits: %1").arg(*n));

    if (!fnOpenDB(1)) return Stopped;
    int rc = Stopped;
    {
        clsDbClass db;
        (void)db.OpenDb();
        BillingJob job(db);
        const BillingJob::Opening opening = job.opening();
        if (!opening.readError.isEmpty()) {
            msgBox(Interaction::readErrorText(opening.readError), mb::OkOnly | mb::Critical);
        } else if (opening.companyCode.isEmpty()) {
            msgBox(BillingJob::noCompanyCodeMessage(), mb::OkOnly | mb::Critical);
        } else {
            // the screen's defaults: today, every order number; a range given the wrong way round is swapped
            BillingRequest r;
            r.agency = agency.isEmpty() ? opening.agency : agencyIndex(agency);
            const qint64 today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd")).toLongLong();
            r.fromDate = fromDate.isEmpty() ? today : fromDate.toLongLong();
            r.toDate = toDate.isEmpty() ? today : toDate.toLongLong();
            r.fromNo = fromNo.isEmpty() ? 1 : fromNo.toLongLong();
            r.toNo = toNo.isEmpty() ? 99999999 : toNo.toLongLong();
            if (r.fromDate > r.toDate) std::swap(r.fromDate, r.toDate);
            if (r.fromNo > r.toNo) std::swap(r.fromNo, r.toNo);
            r.reoutput = reoutput;
            r.companyCode = opening.companyCode;
            QString remembered;
            fnGetIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), QString(), remembered, 1024, iniPath());
            r.folder = remembered;
            if (ctx.dialogs) ctx.dialogs->answerFolder(dir);
            CommandInteraction ui(nullptr);
            const BillingResult result = job.run(r, ui);
            if (!result.folder.isEmpty())
                fnPutIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), result.folder, iniPath());
            QJsonArray unencodable;
            for (const Unencodable& u : result.unencodable)
                unencodable.append(QJsonObject{
                    {"denno", u.denno}, {"field", u.field}, {"character", u.character}, {"codePoint", u.codePoint()}});
            ctx.summary(QJsonObject{{"count", result.count},
                                    {"files", QJsonArray::fromStringList(result.files)},
                                    {"marked", result.marked},
                                    {"unencodable", unencodable}});
            using O = BillingResult::Outcome;
            const bool ended =
                result.outcome == O::Written || result.outcome == O::NoOrders || result.outcome == O::Declined;
            rc = ended && !result.markFailed ? Done : Stopped;
        }
        db.CloseDb();
    }
    fnCloseDB(1);
    return rc;
}

const Registrar reg{{"export-billing",
                     "export-billing --dir DIR [--agency 908997|929023] [--from-date YYYYMMDD --to-date YYYYMMDD] "
                     "[--from-no N --to-no N] [--reoutput]",
                     &run}};

} // namespace
} // namespace pel::batch
