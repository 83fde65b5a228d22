// jet FILE [TABLE] [--password P]: what our Jet engine reads from a file, without the program's database layer.
// jet check FILE [--password P]: every table and index walked; one line per inconsistency, status 0 when clean.
#include "batch/command.h"
#include "jet/tool.h"

#include <sstream>

namespace pel::batch {
namespace {

int run(Context& ctx)
{
    QStringList plain;
    QString password;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        if (ctx.args[i] == QLatin1String("--password")) {
            if (i + 1 >= ctx.args.size())
                return ctx.usage(QStringLiteral("--password needs a value"));
            password = ctx.args[++i];
        } else {
            plain << ctx.args[i];
        }
    }
    if (plain.isEmpty() || plain.size() > 2)
        return ctx.usage(QStringLiteral("jet takes a file and optionally a table"));
    std::ostringstream out;
    std::string error;
    if (plain.size() == 2 && plain[0] == QLatin1String("check")) {
        const int status = jet::checkFile(plain[1].toStdString(), password.toStdString(), out, &error);
        ctx.out << QString::fromStdString(out.str());
        if (status != 0) {
            ctx.err << QString::fromStdString(error) << Qt::endl;
            return Stopped;
        }
        ctx.out << "clean" << Qt::endl;
        return Done;
    }
    const std::string path = plain[0].toStdString();
    const int status = plain.size() == 1
                           ? jet::listTables(path, password.toStdString(), out, &error)
                           : jet::dumpTable(path, password.toStdString(), plain[1].toStdString(), out, &error);
    ctx.out << QString::fromStdString(out.str());
    if (status != 0) {
        ctx.err << QString::fromStdString(error) << Qt::endl;
        return Stopped;
    }
    return Done;
}

Registrar reg{{"jet",
               "jet FILE [TABLE] [--password P]   list a Jet file's tables with row counts, or a table's rows as JSON "
               "lines; jet check FILE [--password P]   walk every table and index, list inconsistencies",
               &run}};

} // namespace
} // namespace pel::batch
