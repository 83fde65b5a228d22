// mail: sends one mail as the programs of the suite do, printing the result text (an empty line when sent).
// The login comes from the environment or a netrc file, never from the command line, where others can see it.
#include "batch/command.h"
#include "mail/clsbasp.h"

namespace {

int run(pel::batch::Context& ctx)
{
    QString server, to, from, subject, body;
    QStringList files;
    pel::clsBaSp::Options options;
    bool haveServer = false, haveTo = false, haveFrom = false, haveSubject = false, haveBody = false;
    QStringList args = ctx.args;
    while (!args.isEmpty()) {
        const QString opt = args.takeFirst();
        if (opt == QLatin1String("--require-tls")) {
            options.requireTls = true;
            continue;
        }
        if (args.isEmpty())
            return ctx.usage(QStringLiteral("missing value after %1").arg(opt));
        const QString value = args.takeFirst();
        if (opt == QLatin1String("--server")) {
            server = value;
            haveServer = true;
        } else if (opt == QLatin1String("--to")) {
            to = value;
            haveTo = true;
        } else if (opt == QLatin1String("--from")) {
            from = value;
            haveFrom = true;
        } else if (opt == QLatin1String("--subject")) {
            subject = value;
            haveSubject = true;
        } else if (opt == QLatin1String("--body")) {
            body = value;
            haveBody = true;
        } else if (opt == QLatin1String("--attach")) {
            files.append(value);
        } else if (opt == QLatin1String("--ca-file")) {
            options.caFile = value;
        } else if (opt == QLatin1String("--netrc")) {
            options.netrcFile = value;
        } else {
            return ctx.usage(QStringLiteral("unknown option %1").arg(opt));
        }
    }
    // An empty subject or body is allowed, but it has to be asked for.
    if (!haveServer || !haveTo || !haveFrom || !haveSubject || !haveBody)
        return ctx.usage(QStringLiteral("--server, --to, --from, --subject and --body are required"));

    pel::clsBaSp mailer;
    mailer.setOptions(options);
    const QString result = mailer.SendMail(server, to, from, subject, body, files);
    ctx.out << result << Qt::endl;
    return result.isEmpty() ? pel::batch::Done : pel::batch::Stopped;
}

pel::batch::Registrar reg{{"mail",
                           "mail --server [smtp://|smtps://]HOST[:PORT] --to ADDRS --from ADDR --subject S --body B "
                           "[--attach PATH]... [--ca-file PEM] [--require-tls] [--netrc FILE]",
                           &run}};

} // namespace
