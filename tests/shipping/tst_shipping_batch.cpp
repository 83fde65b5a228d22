// The runner's export-shipping and import-tracking on a demo home, and the round trip through the carrier: every
// exported order gets the tracking number added to its line.
#include "app/cp932.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

struct Run {
    int code = -1;
    QString out, err;
    QJsonObject json() const { return QJsonDocument::fromJson(out.toUtf8()).object(); }
};

} // namespace

class TstShippingBatch : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void usage_data();
    void usage();
    void answeredNoWritesNothing();
    void roundTrip();
    void importOfMissingFile();

private:
    Run batch(const QStringList& args);
    QString file(const QString& name) const { return home_.filePath(name); }
    QTemporaryDir home_;
};

Run TstShippingBatch::batch(const QStringList& args)
{
    QProcess p;
    QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
    e.insert(QStringLiteral("PEL008_HOME"), home_.path());
    p.setProcessEnvironment(e);
    p.start(QStringLiteral(PEL008_BATCH_EXE), args);
    if (!p.waitForFinished(300000)) p.kill();
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

void TstShippingBatch::initTestCase()
{
    const Run r = batch({QStringLiteral("demo"), QStringLiteral("--orders"), QStringLiteral("400")});
    QVERIFY2(r.code == 0, qPrintable(r.err));
    // the demo's result file comes from the export job: 46 fields and the tracking number
    QFile f(file(QStringLiteral("samples/icat_result.csv")));
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = f.readAll().split('\n');
    QVERIFY(lines.size() > 2);
    for (const QByteArray& l : lines.mid(0, lines.size() - 1)) {
        QVERIFY(l.endsWith('\r'));
        QCOMPARE(l.count(','), 46);
    }
}

void TstShippingBatch::usage_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("no kind") << QStringList{"export-shipping", "--file", "x.csv"};
    QTest::newRow("kind not printed by I-CAT") << QStringList{"export-shipping", "--file", "x.csv", "--kind", "5"};
    QTest::newRow("bad date") << QStringList{"export-shipping", "--file",    "x.csv", "--kind", "9",
                                             "--from-date",     "2025-01-01"};
    QTest::newRow("order number too long")
        << QStringList{"export-shipping", "--file", "x.csv", "--kind", "9", "--to-no", "123456789"};
    QTest::newRow("no error log") << QStringList{"import-tracking", "x.csv"};
}

void TstShippingBatch::usage()
{
    QFETCH(QStringList, args);
    QCOMPARE(batch(args).code, 2);
}

void TstShippingBatch::answeredNoWritesNothing()
{
    const QString out = file(QStringLiteral("out/no.csv"));
    const Run r =
        batch({"export-shipping", "--file", out, "--kind", "9", "--from-date", "20000101", "--to-date", "20991231"});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.startsWith(QStringLiteral("該当件数は")), qPrintable(r.err));
    QVERIFY(!QFile::exists(out));
}

void TstShippingBatch::roundTrip()
{
    const QString out = file(QStringLiteral("out/icat.csv"));
    const QStringList exportArgs{"--yes", "--json",      "export-shipping", "--file",    out,       "--kind",
                                 "9",     "--from-date", "20000101",        "--to-date", "20991231"};
    const Run ex = batch(exportArgs);
    QVERIFY2(ex.code == 0, qPrintable(ex.err));
    const qint64 count = ex.json().value("count").toInteger();
    QVERIFY(count > 10);
    QCOMPARE(ex.json().value("written").toInteger(), count);
    QCOMPARE(ex.json().value("marked").toInteger(), count);
    QVERIFY(ex.json().value("unencodable").toArray().isEmpty());
    QVERIFY(ex.err.contains(QStringLiteral("印刷した受注伝票を送り状印刷済みに更新しますか？")));

    // the carrier adds the tracking number as field 47
    QFile f(out);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QByteArray result;
    QMap<QString, QString> tracking;
    for (QByteArray line : f.readAll().split('\n')) {
        if (line.isEmpty()) continue;
        line.chop(1);
        const QString denno = QString::fromLatin1(line.split(',').value(1));
        tracking.insert(denno, QStringLiteral("4%1").arg(denno.toLongLong(), 11, 10, QLatin1Char('0')));
        result += line + ',' + tracking.value(denno).toLatin1() + "\r\n";
    }
    QCOMPARE(tracking.size(), count);
    QFile r(file(QStringLiteral("out/result.csv")));
    QVERIFY(r.open(QIODevice::WriteOnly));
    r.write(result);
    r.close();

    const Run im = batch({"--json", "import-tracking", r.fileName(), "--errlog", file(QStringLiteral("out/err.txt"))});
    QVERIFY2(im.code == 0, qPrintable(im.err));
    QCOMPARE(im.json().value("lines").toInteger(), count);
    QCOMPARE(im.json().value("updated").toInteger(), count);
    QCOMPARE(im.json().value("rejected").toInteger(), 0);
    QCOMPARE(im.err.trimmed(), QStringLiteral("正常に終了しました"));
    QCOMPARE(QFile(file(QStringLiteral("out/err.txt"))).size(), 0);

    const Run q = batch({"sql", "select denno, okurino from jyuden where hcode = 9"});
    QCOMPARE(q.code, 0);
    int matched = 0;
    for (const QString& row : q.out.split(QLatin1Char('\n')).mid(1)) {
        const QString denno = row.section(QLatin1Char(','), 0, 0);
        if (tracking.contains(denno)) {
            QCOMPARE(row.section(QLatin1Char(','), 1, 1).remove(QLatin1Char('"')), tracking.value(denno));
            ++matched;
        }
    }
    QCOMPARE(matched, count);

    // again, reprinting the flagged orders, appended to the same file
    QStringList again = exportArgs;
    again << "--reoutput"
          << "--append";
    const Run ap = batch(again);
    QVERIFY2(ap.code == 0, qPrintable(ap.err));
    QVERIFY(ap.err.contains(QStringLiteral("はい:上書 いいえ:追加")));
    QFile twice(out);
    QVERIFY(twice.open(QIODevice::ReadOnly));
    QVERIFY(ap.json().value("written").toInteger() > count); // every label-printed order of the kind
    QCOMPARE(twice.readAll().count('\n'), count + ap.json().value("written").toInteger());
}

void TstShippingBatch::importOfMissingFile()
{
    const Run r = batch({"import-tracking", file(QStringLiteral("none.csv")), "--errlog", file("out/e.txt")});
    QCOMPARE(r.code, 1);
    QCOMPARE(r.err.trimmed(), QStringLiteral("ファイルオープンに失敗しました！"));
}

QTEST_GUILESS_MAIN(TstShippingBatch)
#include "tst_shipping_batch.moc"
