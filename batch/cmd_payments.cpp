// import-payments FILE [--screen-date YYYYMMDD] [--report PDF --group 0|1|2|3] [--dry-run]: the payment import of
// screen 5.
#include "app/db/dbglobals.h"
#include "batch/command.h"
#include "batch/interaction.h"
#include "conveni/importjob.h"
#include "conveni/rptcvsmtprint.h"

#include <QDate>
#include <QJsonArray>
#include <QJsonObject>

namespace pel::batch {
namespace {

// The runner's interaction, keeping the rows as well for the report.
class KeepRows final : public Interaction {
public:
    explicit KeepRows(Interaction& inner) : inner_(inner) {}
    void lock(bool on) override { inner_.lock(on); }
    void progress(int percent) override { inner_.progress(percent); }
    void status(const QString& text) override { inner_.status(text); }
    void yieldOnce() override { inner_.yieldOnce(); }
    void resultRow(const QStringList& row) override
    {
        rows << row;
        inner_.resultRow(row);
    }
    bool cancelRequested() override { return inner_.cancelRequested(); }
    QList<QStringList> rows;

private:
    Interaction& inner_;
};

int run(Context& ctx)
{
    QString file, report, group;
    qint32 screenDate = 0;
    bool haveDate = false;
    bool dryRun = false;
    QStringList args = ctx.args;
    while (!args.isEmpty()) {
        const QString a = args.takeFirst();
        if (a == QLatin1String("--screen-date") || a == QLatin1String("--report") || a == QLatin1String("--group")) {
            if (args.isEmpty())
                return ctx.usage(QStringLiteral("import-payments: %1 needs a value").arg(a));
            const QString v = args.takeFirst();
            if (a == QLatin1String("--screen-date")) {
                const QDate d = QDate::fromString(v, QStringLiteral("yyyyMMdd"));
                if (v.size() != 8 || !d.isValid())
                    return ctx.usage(QStringLiteral("import-payments: --screen-date is a date YYYYMMDD: %1").arg(v));
                screenDate = v.toInt();
                haveDate = true;
            } else if (a == QLatin1String("--report")) {
                report = v;
            } else {
                if (v.size() != 1 || v < QLatin1String("0") || v > QLatin1String("3"))
                    return ctx.usage(QStringLiteral("import-payments: --group is 0, 1, 2 or 3: %1").arg(v));
                group = v;
            }
        } else if (a == QLatin1String("--dry-run")) {
            dryRun = true;
        } else if (a.startsWith(QLatin1String("--")) || !file.isEmpty()) {
            return ctx.usage(QStringLiteral("import-payments: unexpected %1").arg(a));
        } else {
            file = a;
        }
    }
    if (file.isEmpty())
        return ctx.usage(QStringLiteral("import-payments: FILE is missing"));
    if (report.isEmpty() != group.isEmpty())
        return ctx.usage(QStringLiteral("import-payments: --report and --group go together"));

    if (!fnOpenDB(1))
        return Stopped;
    clsDbClass db;
    if (!db.OpenDb()) {
        ctx.err << db.ErrMsg() << Qt::endl;
        fnCloseDB(1);
        return Stopped;
    }
    CommandInteraction runner(ctx.json ? nullptr : &ctx.out);
    KeepRows ui(runner);
    PaymentImportJob job(db, report.isEmpty() ? static_cast<Interaction&>(runner) : ui);
    job.setDryRun(dryRun);
    const auto result =
        job.run({file, haveDate ? PaymentImportJob::ScreenDate : PaymentImportJob::RecordDate, screenDate});
    QJsonArray totals;
    QStringList totalTexts;
    for (int i = 0; i < 10; ++i) {
        totals.append(static_cast<double>(job.total(i)));
        totalTexts << QString::number(job.total(i));
    }
    if (!ctx.json)
        ctx.out << totalTexts.join(QLatin1Char('\t')) << Qt::endl;
    QJsonArray rows;
    for (const QStringList& r : runner.rows())
        rows.append(QJsonArray::fromStringList(r));
    QJsonObject summary{{"rows", rows}, {"totals", totals}, {"posted", static_cast<double>(job.posted())}};
    if (dryRun)
        summary.insert(QStringLiteral("dryRun"), true);
    ctx.summary(summary);
    db.CloseDb();
    fnCloseDB(1);
    // the report of the rows listed, whatever the outcome (a refused file gives an empty list), as the screen's
    // buttons would print it
    if (!report.isEmpty() && !rptCVSMTPrint(CvsMtReportData::build(ui.rows, group.toInt())).savePdf(report)) {
        ctx.err << QStringLiteral("import-payments: cannot write %1").arg(report) << Qt::endl;
        return Stopped;
    }
    return result == PaymentImportJob::Result::Done ? Done : Stopped;
}

const Registrar reg{
    {"import-payments", "import-payments FILE [--screen-date YYYYMMDD] [--report PDF --group 0|1|2|3] [--dry-run]",
     &run, true}};

} // namespace
} // namespace pel::batch
