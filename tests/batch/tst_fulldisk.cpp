// The exports on a full disk: the runner is started with a file size limit (SIGXFSZ ignored, so that a write beyond
// it fails as on a full disk). Nothing may be called saved or marked, and a file that was there stays as it was.
#include "tests/batch/process.h"
#include "tests/support/files.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

namespace {

using pel::test::fileBytes;
using pel::test::Ran;

constexpr rlim_t kLimit = 64 * 1024; // above SQLite's shared-memory file, below every export of the demo

} // namespace

class TstFullDisk : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void exportOnFullDisk_data();
    void exportOnFullDisk();

private:
    Ran batch(const QStringList& args, bool limited = false);
    QString flagged(const QString& column);
    QTemporaryDir home_;
};

Ran TstFullDisk::batch(const QStringList& args, bool limited)
{
    const std::function<void()> limit = [] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{kLimit, kLimit};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    return pel::test::runIn(home_.path(), QStringLiteral(PEL008_BATCH_EXE), args,
                            limited ? limit : std::function<void()>(), 300000);
}

QString TstFullDisk::flagged(const QString& column)
{
    return batch({"sql", QStringLiteral("select count(*) from jyuden where %1 = 1").arg(column)}).out;
}

void TstFullDisk::initTestCase()
{
    const Ran r = batch({"demo", "--orders", "10000"});
    QVERIFY2(r.code == 0, qPrintable(r.err));
    QVERIFY(QDir(home_.path()).mkpath(QStringLiteral("out")));
}

void TstFullDisk::exportOnFullDisk_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QStringList>("files"); // in out/, there before the run
    QTest::addColumn<QString>("flag");
    QTest::addColumn<QString>("marking");
    const QString dir = home_.filePath(QStringLiteral("out"));
    const QStringList range{"--from-date", "20000101", "--to-date", "20991231"};
    QTest::newRow("billing files") << (QStringList{"--yes", "export-billing", "--dir", dir} + range)
                                   << QStringList{"顧客一括登録.txt", "請求一括登録.txt"} << "cflag"
                                   << "出力済みに更新しますか";
    // one label kind each: the run without the limit marks the orders of its kind
    const QStringList shipping{"--yes", "export-shipping", "--file", dir + "/icat.csv", "--kind"};
    QTest::newRow("I-CAT file overwritten")
        << (shipping + QStringList{"9"} + range) << QStringList{"icat.csv"} << "oflag"
        << "送り状印刷済みに更新しますか";
    QTest::newRow("I-CAT file appended to")
        << (shipping + QStringList{"10", "--append"} + range) << QStringList{"icat.csv"} << "oflag"
        << "送り状印刷済みに更新しますか";
}

void TstFullDisk::exportOnFullDisk()
{
    QFETCH(QStringList, args);
    QFETCH(QStringList, files);
    QFETCH(QString, flag);
    QFETCH(QString, marking);
    QDir out(home_.filePath(QStringLiteral("out")));
    for (const QString& f : out.entryList(QDir::Files))
        QVERIFY(out.remove(f));
    for (const QString& name : files) {
        QFile f(out.filePath(name));
        QVERIFY(f.open(QIODevice::WriteOnly));
        QVERIFY(f.write("\"an earlier run\"\r\n") > 0);
    }
    const QString before = flagged(flag);

    const Ran r = batch(args, true);
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains(QStringLiteral("ファイルの書き込みに失敗しました！")), qPrintable(r.err));
    QVERIFY2(!r.err.contains(QStringLiteral("保存しました")), qPrintable(r.err));
    QVERIFY2(!r.err.contains(marking), qPrintable(r.err));
    QCOMPARE(flagged(flag), before);
    // the earlier files as they were, and nothing left beside them
    QStringList sorted = files;
    sorted.sort();
    QCOMPARE(out.entryList(QDir::Files | QDir::Hidden, QDir::Name), sorted);
    for (const QString& name : files)
        QCOMPARE(fileBytes(out.filePath(name)), QByteArray("\"an earlier run\"\r\n"));

    // the same run without the limit writes more than the limit: the test did fill the disk
    const Ran full = batch(args);
    QVERIFY2(full.code == 0, qPrintable(full.err));
    qint64 size = 0;
    for (const QString& name : files)
        size += QFile(out.filePath(name)).size();
    QVERIFY(size > qint64(kLimit));
}

QTEST_GUILESS_MAIN(TstFullDisk)
#include "tst_fulldisk.moc"
