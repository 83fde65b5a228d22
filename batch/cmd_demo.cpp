// demo [--orders N] [--seed S]: a demo program folder for trying the screens and for benchmarks.
#include "app/home.h"
#include "batch/command.h"
#include "batch/demohome.h"

#include <QElapsedTimer>
#include <QJsonArray>

namespace pel::batch {
namespace {

int run(Context& ctx)
{
    demo::Options o;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args[i];
        bool ok = false;
        if (a == QLatin1String("--orders") && i + 1 < ctx.args.size())
            o.orders = ctx.args[++i].toInt(&ok);
        else if (a == QLatin1String("--seed") && i + 1 < ctx.args.size())
            o.seed = ctx.args[++i].toULongLong(&ok);
        if (!ok || o.orders < 1)
            return ctx.usage(QStringLiteral("bad argument: ") + a);
    }
    const QString home = programFolder();
    QElapsedTimer t;
    t.start();
    demo::Summary s;
    QString error;
    if (!demo::makeDemoHome(home, o, &s, &error)) {
        ctx.err << error << Qt::endl;
        return Stopped;
    }
    if (ctx.json) {
        ctx.summary({{QStringLiteral("home"), home},
                     {QStringLiteral("orders"), s.orders},
                     {QStringLiteral("lines"), s.lines},
                     {QStringLiteral("members"), s.members},
                     {QStringLiteral("files"), QJsonArray::fromStringList(s.files)},
                     {QStringLiteral("seconds"), t.elapsed() / 1000.0}});
    } else {
        ctx.out << "demo home " << home << ": " << s.orders << " orders, " << s.lines << " lines, " << s.members
                << " customers (" << t.elapsed() / 1000.0 << " s)" << Qt::endl;
        for (const QString& f : s.files)
            ctx.out << "  " << f << Qt::endl;
    }
    return Done;
}

Registrar reg{{"demo", "demo [--orders N] [--seed S]   make a demo home (data1.dat, mirabo.ini, sample files)", &run}};

} // namespace
} // namespace pel::batch
