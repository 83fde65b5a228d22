// The runner's export-shipping and import-tracking on a demo home: what it refuses and its exit codes, the answers
// --yes gives and the counts --json reports.
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
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

class TstShippingBatch : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void refused_data();
    void refused();
    void answersAndCounts();

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
    if (!p.waitForFinished(300000))
        p.kill();
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

void TstShippingBatch::initTestCase()
{
    const Run r = batch({QStringLiteral("demo"), QStringLiteral("--orders"), QStringLiteral("400")});
    QVERIFY2(r.code == 0, qPrintable(r.err));
}

void TstShippingBatch::refused_data()
{
    QTest::addColumn<QStringList>("args"); // "@" stands for the home folder
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message"); // how stderr starts
    const QStringList kind9{"export-shipping", "--file", "@out/x.csv", "--kind", "9"};
    QTest::newRow("no kind") << QStringList{"export-shipping", "--file", "@out/x.csv"} << 2 << QString();
    QTest::newRow("kind not printed by I-CAT")
        << QStringList{"export-shipping", "--file", "@out/x.csv", "--kind", "5"} << 2 << QString();
    QTest::newRow("bad date") << kind9 + QStringList{"--from-date", "2025-01-01"} << 2 << QString();
    QTest::newRow("order number too long") << kind9 + QStringList{"--to-no", "123456789"} << 2 << QString();
    QTest::newRow("no error log") << QStringList{"import-tracking", "@out/x.csv"} << 2 << QString();
    QTest::newRow("the count answered No without --yes")
        << kind9 + QStringList{"--from-date", "20000101", "--to-date", "20991231"} << 1 << "該当件数は";
    QTest::newRow("no result file") << QStringList{"import-tracking", "@none.csv", "--errlog", "@out/e.txt"} << 1
                                    << "ファイルオープンに失敗しました！";
}

void TstShippingBatch::refused()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, message);
    for (QString& a : args)
        a.replace(u'@', home_.path() + QLatin1Char('/'));
    const Run r = batch(args);
    QCOMPARE(r.code, code);
    QVERIFY2(r.err.startsWith(message), qPrintable(r.err));
    QVERIFY(!QFile::exists(file(QStringLiteral("out/x.csv"))));
}

// What only the runner does: the questions answered by --yes and shown on stderr, the counts as --json, --reoutput
// and --append passed on; the lines and the stored numbers are the job tests' part.
void TstShippingBatch::answersAndCounts()
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
    QVERIFY(ex.err.contains(QStringLiteral("印刷した受注伝票を送り状印刷済みに更新しますか？")));

    // the demo's carrier file: orders of the shop and one it does not have
    const Run im = batch({"--json", "import-tracking", file(QStringLiteral("samples/icat_result.csv")), "--errlog",
                          file(QStringLiteral("out/err.txt"))});
    QVERIFY2(im.code == 0, qPrintable(im.err));
    QCOMPARE(im.json().value("updated").toInteger(), im.json().value("lines").toInteger() - 1);
    QCOMPARE(im.json().value("rejected").toInteger(), 1);
    QCOMPARE(im.err.trimmed(), QStringLiteral("エラーデータがあります。確認して下さい"));

    // again, reprinting the flagged orders, appended to the same file
    const Run ap = batch(exportArgs + QStringList{"--reoutput", "--append"});
    QVERIFY2(ap.code == 0, qPrintable(ap.err));
    QVERIFY(ap.err.contains(QStringLiteral("はい:上書 いいえ:追加")));
    QVERIFY(ap.json().value("written").toInteger() > count); // every label-printed order of the kind
    QFile f(out);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll().count('\n'), count + ap.json().value("written").toInteger());
}

QTEST_GUILESS_MAIN(TstShippingBatch)
#include "tst_shipping_batch.moc"
