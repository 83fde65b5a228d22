// offset get KIND CODE / offset set KIND CODE TOP LEFT HEIGHT: the print offsets of one form.
#include "app/db/dbglobals.h"
#include "batch/command.h"
#include "batch/interaction.h"
#include "offset/offsetjob.h"

#include <QJsonObject>
#include <QRegularExpression>

namespace pel::batch {
namespace {

int run(Context& ctx)
{
    const QString verb = ctx.args.value(0);
    const bool get = verb == QLatin1String("get") && ctx.args.size() == 3;
    const bool set = verb == QLatin1String("set") && ctx.args.size() == 6;
    if (!get && !set)
        return ctx.usage(QStringLiteral("offset: get KIND CODE or set KIND CODE TOP LEFT HEIGHT"));
    bool kindOk = false, codeOk = false;
    const int kind = ctx.args.at(1).trimmed().toInt(&kindOk);
    const int code = ctx.args.at(2).trimmed().toInt(&codeOk);
    if (!kindOk || !codeOk)
        return ctx.usage(QStringLiteral("offset: KIND and CODE are numbers"));
    if (!fnOpenDB(1))
        return Stopped;
    OffsetJob job(kind, code);
    int rc = Done;
    if (get) {
        if (const auto v = job.read()) {
            const QString top = OffsetJob::format(v->top, 0), left = OffsetJob::format(v->left, 0),
                          hight = OffsetJob::format(v->hight, 0);
            ctx.out << top << ' ' << left << ' ' << hight << Qt::endl;
            ctx.summary(QJsonObject{{"kind", kind}, {"code", code}, {"top", top}, {"left", left}, {"hight", hight}});
        } else {
            ctx.err << "offset: no row for kind " << kind << " code " << code << Qt::endl;
            rc = Stopped;
        }
    } else {
        // Numbers only: a stray word would be saved as 0 by the dialog's field rule.
        static const QRegularExpression number(QStringLiteral(R"(^\s*[+-]?(\d+\.?\d*|\.\d+)\s*$)"));
        for (int i = 3; i < 6; ++i)
            if (!number.match(ctx.args.at(i)).hasMatch()) {
                fnCloseDB(1);
                return ctx.usage(
                    QStringLiteral("offset: TOP, LEFT and HEIGHT are numbers (-30.0 to 30.0): %1").arg(ctx.args.at(i)));
            }
        // The values as the dialog's fields hold them once left.
        const QString top = OffsetJob::fieldText(ctx.args.at(3)), left = OffsetJob::fieldText(ctx.args.at(4)),
                      hight = OffsetJob::fieldText(ctx.args.at(5));
        CommandInteraction ui(&ctx.out);
        const bool saved = job.save(top, left, hight, ui);
        ctx.summary(QJsonObject{{"saved", saved},
                                {"attempts", job.attempts()},
                                {"top", top.trimmed()},
                                {"left", left.trimmed()},
                                {"hight", hight.trimmed()}});
        rc = saved ? Done : Stopped;
    }
    fnCloseDB(1);
    return rc;
}

const Registrar reg{{"offset", "offset get KIND CODE | offset set KIND CODE TOP LEFT HEIGHT", &run}};

} // namespace
} // namespace pel::batch
