// The I-CAT export and the tracking import on the benchmark demo (100 000 orders) against sqlite3 doing the same
// work: the export's selection written as CSV, and one select and update per result line. Every order of the demo is
// made a kind-9 order not yet label-printed, so that the export writes all of them (the run, as the screen runs it,
// without the marking). Prints ratios; never fails a build.
// usage: shipping-bench --batch PEL008_BATCH [--orders N] [--home DIR]
// --home: a demo home made before with `pel008-batch demo --orders N` (it is changed as described), for repeated runs.
#include "app/db/dbclass.h"
#include "app/db/dbglobals.h"
#include "shipping/icatexportjob.h"
#include "shipping/trackingjob.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

#include <sys/resource.h>

using namespace pel;

namespace {

// Yes to the count, No to marking: the run writes the file and leaves the orders as they are.
class BenchDialogs final : public DialogService
{
public:
    int messageBox(const QString& text, int style, const QString&) override
    {
        if (text.startsWith(QStringLiteral("印刷した"))) return answer::No;
        return defaultAnswer(style);
    }
};

double seconds(const QElapsedTimer& t)
{
    return static_cast<double>(t.nsecsElapsed()) / 1e9;
}

// Processor time (user and system) of this process or of its waited-for children: on a shared machine the
// processor times compare the two sides more steadily than the elapsed ones.
double cpuSeconds(int who)
{
    rusage u{};
    getrusage(who, &u);
    const auto s = [](const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    return s(u.ru_utime) + s(u.ru_stime);
}

bool sqlite3(const QString& db, const QByteArray& script, const QString& output, double* secs, double* cpu = nullptr)
{
    const double before = cpuSeconds(RUSAGE_CHILDREN);
    QProcess p;
    if (!output.isEmpty()) p.setStandardOutputFile(output);
    QElapsedTimer t;
    t.start();
    p.start(QStringLiteral("sqlite3"), {QStringLiteral("-batch"), db});
    p.write(script);
    p.closeWriteChannel();
    const bool ok = p.waitForFinished(600000) && p.exitCode() == 0;
    *secs = seconds(t);
    if (cpu) *cpu = cpuSeconds(RUSAGE_CHILDREN) - before;
    if (!ok) std::fprintf(stderr, "sqlite3: %s\n", p.readAllStandardError().constData());
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QString batch, given;
    int orders = 100000;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args[i] == QLatin1String("--batch"))
            batch = args[++i];
        else if (args[i] == QLatin1String("--orders"))
            orders = args[++i].toInt();
        else if (args[i] == QLatin1String("--home"))
            given = args[++i];
    }
    if (batch.isEmpty()) {
        std::fprintf(stderr, "usage: shipping-bench --batch PEL008_BATCH [--orders N] [--home DIR]\n");
        return 2;
    }
    QTemporaryDir made;
    const QDir home(given.isEmpty() ? made.path() : given);
    if (given.isEmpty() && QProcess::execute(batch, {QStringLiteral("--home"), home.path(), QStringLiteral("demo"),
                                                     QStringLiteral("--orders"), QString::number(orders)}) != 0)
        return 1;
    qputenv("PEL008_HOME", home.path().toLocal8Bit());
    const QString db = home.filePath(QStringLiteral("data1.dat"));
    double prepare = 0;
    if (!sqlite3(db, "update jyuden set hcode = 9, denku = 0, oflag = 0;\n", QString(), &prepare)) return 1;
    BenchDialogs quiet;
    setDialogService(&quiet);
    fnOpenDB(1);
    clsDbClass conn;
    conn.OpenDb();

    // export: every label-printed order of kind 9 over all days
    IcatExportJob job(conn);
    job.loadShop();
    IcatExportJob::Input in;
    for (int i = 0; i < 2; ++i) {
        in.yy[i] = i ? QStringLiteral("2099") : QStringLiteral("2000");
        in.mm[i] = i ? QStringLiteral("12") : QStringLiteral("1");
        in.dd[i] = i ? QStringLiteral("31") : QStringLiteral("1");
    }
    in.denno[0] = QStringLiteral("1");
    in.denno[1] = QStringLiteral("99999999");
    in.file = home.filePath(QStringLiteral("icat.csv"));
    in.kind = 9;
    in.reprint = false;
    QFile::remove(in.file);
    Interaction ui;
    QElapsedTimer t;
    t.start();
    double cpu = cpuSeconds(RUSAGE_SELF);
    const IcatExportJob::Result r = job.run(in, ui);
    const double exportSecs = seconds(t);
    const double exportCpu = cpuSeconds(RUSAGE_SELF) - cpu;
    double exportBase = 0, exportBaseCpu = 0;
    const QByteArray select =
        ".mode csv\nselect * from jyuden d,member m,member jm where d.omcode=m.code and d.mcode = jm.code and d.denno "
        "between 1 and 99999999 and d.denku = 0 and d.oflag =0 and d.sday between 20000101 and 20991231 and d.hcode = "
        "9 order by sday,denno;\n";
    if (!sqlite3(db, select, home.filePath(QStringLiteral("base.csv")), &exportBase, &exportBaseCpu)) return 1;

    // import: one result line per order of the demo (an exported line with the order number set), tracking added
    QFile exported(in.file);
    exported.open(QIODevice::ReadOnly);
    QList<QByteArray> fields = exported.readLine().trimmed().split(',');
    QByteArray result, updates;
    for (int i = 1; i <= orders && fields.size() > 1; ++i) {
        const QByteArray denno = QByteArray::number(i);
        const QByteArray tracking = "4" + denno.rightJustified(11, '0');
        fields[1] = denno;
        result += fields.join(',') + ',' + tracking + "\r\n";
        updates += "begin;\nselect count(*) from jyuden where denno=" + denno +
                   ";\nupdate jyuden set okurino=" + tracking + " where denno=" + denno + ";\ncommit;\n";
    }
    const QString resultFile = home.filePath(QStringLiteral("result.csv"));
    QFile out(resultFile);
    out.open(QIODevice::WriteOnly);
    out.write(result);
    out.close();
    TrackingImportJob import(conn);
    t.restart();
    cpu = cpuSeconds(RUSAGE_SELF);
    const TrackingImportJob::Result ir = import.run(resultFile, home.filePath(QStringLiteral("err.txt")), ui);
    const double importSecs = seconds(t);
    const double importCpu = cpuSeconds(RUSAGE_SELF) - cpu;
    double importBase = 0, importBaseCpu = 0;
    if (!sqlite3(db, updates, QStringLiteral("/dev/null"), &importBase, &importBaseCpu)) return 1;

    conn.CloseDb();
    fnCloseDB(1);
    setDialogService(nullptr);
    if (r.written != orders || ir.updated != orders)
        std::printf("warning: %lld of %d orders exported, %lld updated\n", static_cast<long long>(r.written), orders,
                    static_cast<long long>(ir.updated));
    std::printf("export: %lld lines in %.3f s; sqlite3 CSV of the same selection %.3f s; ratio %.2f (goal <= 1.5); "
                "processor time %.3f s / %.3f s, ratio %.2f\n",
                static_cast<long long>(r.written), exportSecs, exportBase, exportSecs / exportBase, exportCpu,
                exportBaseCpu, exportCpu / exportBaseCpu);
    std::printf("import: %lld lines (%lld updated) in %.3f s; sqlite3 updates %.3f s; ratio %.2f (goal <= 2); "
                "processor time %.3f s / %.3f s, ratio %.2f\n",
                static_cast<long long>(ir.lines), static_cast<long long>(ir.updated), importSecs, importBase,
                importSecs / importBase, importCpu, importBaseCpu, importCpu / importBaseCpu);
    return 0;
}
