// The I-CAT export and the tracking import on the benchmark demo (100 000 orders) against sqlite3 doing the same
// work: the export's selection written as CSV, and one select and update per result line. Every order of the demo is
// made a kind-9 order not yet label-printed, so that the export writes all of them (the run, as the screen runs it,
// without the marking). Prints ratios; never fails a build.
// usage: shipping-bench --batch PEL008_BATCH [--orders N] [--home DIR] [--runs R]
// --home: a demo home made before with `pel008-batch demo --orders N` (it is changed as described), for repeated runs.
// Each side runs R times (default 3), alternating; the best time of each side is compared, so that another
// program's burst on a shared machine does not decide the ratio.
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

#include <algorithm>
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

// Elapsed and processor time of this process since it was made.
struct Timer {
    QElapsedTimer elapsed;
    double cpu = cpuSeconds(RUSAGE_SELF);
    Timer() { elapsed.start(); }
};

// The best (shortest) of several runs.
struct Best {
    double wall = 0, cpu = 0;
    void take(double w, double c)
    {
        wall = wall == 0 ? w : std::min(wall, w);
        cpu = cpu == 0 ? c : std::min(cpu, c);
    }
    void take(const Timer& t) { take(seconds(t.elapsed), cpuSeconds(RUSAGE_SELF) - t.cpu); }
};

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
    int orders = 100000, runs = 3;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args[i] == QLatin1String("--batch"))
            batch = args[++i];
        else if (args[i] == QLatin1String("--orders"))
            orders = args[++i].toInt();
        else if (args[i] == QLatin1String("--home"))
            given = args[++i];
        else if (args[i] == QLatin1String("--runs"))
            runs = std::max(1, args[++i].toInt());
    }
    if (batch.isEmpty()) {
        std::fprintf(stderr, "usage: shipping-bench --batch PEL008_BATCH [--orders N] [--home DIR] [--runs R]\n");
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

    // export: every order (all of kind 9, none label-printed) over all days
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
    Interaction ui;
    const QByteArray select =
        ".mode csv\nselect * from jyuden d,member m,member jm where d.omcode=m.code and d.mcode = jm.code and d.denno "
        "between 1 and 99999999 and d.denku = 0 and d.oflag =0 and d.sday between 20000101 and 20991231 and d.hcode = "
        "9 order by sday,denno;\n";
    Best exportOurs, exportBase;
    IcatExportJob::Result r;
    for (int run = 0; run < runs; ++run) {
        QFile::remove(in.file);
        IcatExportJob job(conn);
        job.loadShop();
        const Timer t;
        r = job.run(in, ui);
        exportOurs.take(t);
        double secs = 0, cpu = 0;
        if (!sqlite3(db, select, home.filePath(QStringLiteral("base.csv")), &secs, &cpu)) return 1;
        exportBase.take(secs, cpu);
    }

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
    Best importOurs, importBase;
    TrackingImportJob::Result ir;
    for (int run = 0; run < runs; ++run) {
        const Timer t;
        ir = import.run(resultFile, home.filePath(QStringLiteral("err.txt")), ui);
        importOurs.take(t);
        double secs = 0, cpu = 0;
        if (!sqlite3(db, updates, QStringLiteral("/dev/null"), &secs, &cpu)) return 1;
        importBase.take(secs, cpu);
    }

    conn.CloseDb();
    fnCloseDB(1);
    setDialogService(nullptr);
    if (r.written != orders || ir.updated != orders)
        std::printf("warning: %lld of %d orders exported, %lld updated\n", static_cast<long long>(r.written), orders,
                    static_cast<long long>(ir.updated));
    std::printf("export: %lld lines in %.3f s; sqlite3 CSV of the same selection %.3f s; ratio %.2f (goal <= 1.5); "
                "processor time %.3f s / %.3f s, ratio %.2f (best of %d)\n",
                static_cast<long long>(r.written), exportOurs.wall, exportBase.wall, exportOurs.wall / exportBase.wall,
                exportOurs.cpu, exportBase.cpu, exportOurs.cpu / exportBase.cpu, runs);
    std::printf("import: %lld lines (%lld updated) in %.3f s; sqlite3 updates %.3f s; ratio %.2f (goal <= 2); "
                "processor time %.3f s / %.3f s, ratio %.2f (best of %d)\n",
                static_cast<long long>(ir.lines), static_cast<long long>(ir.updated), importOurs.wall, importBase.wall,
                importOurs.wall / importBase.wall, importOurs.cpu, importBase.cpu, importOurs.cpu / importBase.cpu, runs);
    return 0;
}
