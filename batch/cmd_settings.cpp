// settings [--off | --agency 908997|929023 --company-code CODE]: the collection settings, shown or saved through
// the same checks and questions as the settings screen.
#include "app/db/dbglobals.h"
#include "batch/command.h"
#include "batch/interaction.h"
#include "conveni/settingsjob.h"

#include <QJsonObject>

namespace pel::batch {
namespace {

int run(Context& ctx)
{
    bool off = false;
    QString agency, code;
    bool haveCode = false;
    for (int i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args.at(i);
        if (a == QLatin1String("--off")) {
            off = true;
        } else if (a == QLatin1String("--agency") && i + 1 < ctx.args.size()) {
            agency = ctx.args.at(++i);
        } else if (a == QLatin1String("--company-code") && i + 1 < ctx.args.size()) {
            code = ctx.args.at(++i);
            haveCode = true;
        } else {
            return ctx.usage(QStringLiteral("settings: unknown argument %1").arg(a));
        }
    }
    const bool save = off || !agency.isEmpty() || haveCode;
    if (off && (!agency.isEmpty() || haveCode))
        return ctx.usage(QStringLiteral("settings: --off takes no agency or company code"));
    if (!off && save && (agencyIndex(agency) < 0 || !haveCode))
        return ctx.usage(QStringLiteral("settings: --agency 908997|929023 and --company-code CODE go together"));

    if (!fnOpenDB(1))
        return Stopped;
    int rc = Done;
    {
        clsDbClass db;
        (void)db.OpenDb();
        SettingsJob job(db);
        if (!job.opening()) {
            if (!job.openingError().isEmpty())
                ctx.err << Interaction::readErrorText(job.openingError()) << Qt::endl;
            else
                ctx.err << "settings: the shop's row (sysfile id 1) or an agency's record layout (cvsini kind 0) is "
                           "missing"
                        << Qt::endl;
            rc = Stopped;
        } else if (!save) {
            const SettingsJob::Stored s = job.stored();
            if (!s.error.isEmpty()) {
                ctx.err << Interaction::readErrorText(s.error) << Qt::endl;
                rc = Stopped;
            } else {
                ctx.out << "conveni\t" << s.conveni << Qt::endl
                        << "agency\t" << s.agency << Qt::endl
                        << "company code\t" << s.code << Qt::endl;
                ctx.summary(QJsonObject{{"used", !s.conveni.isEmpty() && s.conveni != QLatin1String("0")},
                                        {"conveni", s.conveni},
                                        {"agency", s.agency},
                                        {"companyCode", s.code}});
            }
        } else {
            CommandInteraction ui(nullptr);
            const SettingsJob::Saved r = job.save(!off, agency, code, ui);
            static const char* const names[] = {"saved", "refused", "declined", "failed"};
            ctx.summary(QJsonObject{{"result", names[static_cast<int>(r)]},
                                    {"sysfileAttempts", job.sysfileAttempts()},
                                    {"cvssetAttempts", job.cvssetAttempts()}});
            rc = r == SettingsJob::Saved::Yes ? Done : Stopped;
        }
        db.CloseDb();
    }
    fnCloseDB(1);
    return rc;
}

const Registrar reg{{"settings", "settings [--off | --agency 908997|929023 --company-code CODE]", &run}};

} // namespace
} // namespace pel::batch
