// The I-CAT export job on a small database: runs by selection and by the answer about a file already there (the
// default selection against a golden file, the line rules), runs that write nothing, a refused commit and a damaged
// row.
#include "shipping/icatexportjob.h"
#include "tests/shipping/shippingtest.h"
#include "tests/support/datarow.h"

#include <QFile>
#include <QTest>

using namespace pel;
using test::row;

namespace {

using test::catalogueText;
using test::kMarkQuestion;
using test::kUnencodable104;
const QString kCount5 = test::countQuestion(5);
const QStringList kAll{"20250301", "20250310", "1", "99999999"}; // the default selection: the golden file's lines

QStringList golden()
{
    QFile f(QStringLiteral(SHIPPING_TEST_DATA "/icat_export.golden"));
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'));
    lines.removeLast();
    return lines;
}

IcatExportJob::Input input(const QString& file, int kind = 9)
{
    IcatExportJob::Input in;
    in.yy[0] = QStringLiteral("2025"), in.mm[0] = QStringLiteral(" 3"), in.dd[0] = QStringLiteral(" 1");
    in.yy[1] = QStringLiteral("2025"), in.mm[1] = QStringLiteral(" 3"), in.dd[1] = QStringLiteral("10");
    in.denno[0] = QStringLiteral("       1"), in.denno[1] = QStringLiteral("99999999");
    in.file = file;
    in.kind = kind;
    return in;
}

} // namespace

class IcatExportTest : public QObject {
    Q_OBJECT
private slots:
    void init() { test::openHome(home_, test::shippingTestRows(), &db_); }
    void cleanup() { test::closeHome(home_, &db_); }
    void labelKinds_data();
    void labelKinds();
    void runs_data();
    void runs();
    void nothingWritten_data();
    void nothingWritten();
    void aFailedCommitIsNotCounted();
    void damagedRowWritesNothing();

private:
    IcatExportJob::Result run(const IcatExportJob::Input& in, test::RecordingInteraction* ui = nullptr);
    QString flagged();
    std::unique_ptr<test::TestHome> home_;
    std::unique_ptr<clsDbClass> db_;
};

IcatExportJob::Result IcatExportTest::run(const IcatExportJob::Input& in, test::RecordingInteraction* ui)
{
    test::RecordingInteraction own;
    IcatExportJob job(*db_);
    job.loadShop();
    return job.run(in, ui ? *ui : own);
}

QString IcatExportTest::flagged()
{
    QStringList d;
    for (int denno : {101, 102, 103, 104, 105, 106, 107, 108, 110})
        if (home_->scalar(QStringLiteral("SELECT oflag FROM jyuden WHERE denno = %1").arg(denno)) == QLatin1String("1"))
            d << QString::number(denno);
    return d.join(QLatin1Char(' '));
}

void IcatExportTest::labelKinds_data()
{
    QTest::addColumn<int>("rnou");
    QTest::addColumn<int>("jun9");
    QTest::addColumn<int>("jun10");
    QTest::addColumn<QList<int>>("codes");
    // display order first, kinds without one after; every other kind is left out
    row("by display order", 0, 2, 1, QList<int>{10, 9});
    row("without display order last", 0, 0, 3, QList<int>{10, 9});
    row("rnou 1", 1, 1, 2, QList<int>{9, 10});
}

void IcatExportTest::labelKinds()
{
    QFETCH(int, rnou);
    QFETCH(int, jun9);
    QFETCH(int, jun10);
    QFETCH(QList<int>, codes);
    QVERIFY(home_->exec({QStringLiteral("UPDATE sysfile SET rnou = %1").arg(rnou),
                         QStringLiteral("INSERT INTO bunrui (kubun,code,name,jun) VALUES (3,1,'ゆうパック',1),"
                                        "(3,8,'タイム',1),(3,9,'宅急便',%1),(3,10,'コレクト',%2),(3,12,'クール',0),"
                                        "(2,9,'別の分類',1)")
                             .arg(jun9)
                             .arg(jun10)}));
    IcatExportJob job(*db_);
    job.loadShop();
    QList<int> got;
    for (const auto& k : job.labelKinds())
        got << k.second;
    QCOMPARE(got, codes);
}

void IcatExportTest::runs_data()
{
    QTest::addColumn<QStringList>("range"); // from date, to date, from number, to number
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("reprint");
    QTest::addColumn<int>("existing");     // the answer about a file already there; -1: no file there
    QTest::addColumn<QString>("exported"); // the orders selected, in file order
    QTest::addColumn<QString>("flaggedAfter");
    QTest::addColumn<bool>("swapped");
    QTest::addColumn<QStringList>("written"); // texts the lines hold
    const QStringList all = kAll, none;
    const QString golden = QStringLiteral("101 102 110 103 104"), marked = QStringLiteral("101 102 103 104 106 110");
    row("new file", all, 9, false, -1, golden, marked, false, none);
    row("yes overwrites", all, 9, false, int(answer::Yes), golden, marked, false, none);
    row("no appends", all, 9, false, int(answer::No), golden, marked, false, none);
    row("cancel writes nothing", all, 9, false, int(answer::Cancel), golden, "106", false, none);
    row("number range", QStringList{"20250301", "20250310", "102", "103"}, 9, false, -1, "102 103", "102 103 106",
        false, none);
    row("swapped dates and numbers", QStringList{"20250310", "20250301", " 110", "105"}, 9, false, -1, "110", "106 110",
        true, none);
    row("reprint: flagged orders only, no question", all, 9, true, -1, "106", "106", false, none);
    row("end date takes in the later order", QStringList{"20250303", "20250311", "1", "99999999"}, 9, false, -1, "108",
        "106 108", false, none);
    row("kind 4: by ship date before number, commas written as they are", all, 4, false, -1, "122 121", "106", false,
        QStringList{",山田, 三郎,", ",のし, 赤,"});
    row("kind 6", all, 6, false, -1, "123", "106", false, none);
    row("kind 8", all, 8, false, -1, "124", "106", false, none);
    row("kind 10", all, 10, false, -1, "105", "105 106", false, none);
}

// The file and the flags after a run, by the selection and by the answer about a file already there; the default
// selection's lines are the golden file's.
void IcatExportTest::runs()
{
    QFETCH(QStringList, range);
    QFETCH(int, kind);
    QFETCH(bool, reprint);
    QFETCH(int, existing);
    QFETCH(QString, exported);
    QFETCH(QString, flaggedAfter);
    QFETCH(bool, swapped);
    QFETCH(QStringList, written);
    const QString path = home_->file(QStringLiteral("icat.csv"));
    const QStringList old{"old,1", "old,2"};
    if (existing >= 0)
        QVERIFY(test::writeLines(path, old));
    IcatExportJob::Input in = input(path, kind);
    for (int i = 0; i < 2; ++i) {
        in.yy[i] = range[i].left(4), in.mm[i] = range[i].mid(4, 2), in.dd[i] = range[i].mid(6, 2);
        in.denno[i] = range[2 + i];
    }
    in.reprint = reprint;
    const bool cancelled = existing == answer::Cancel;
    const int count = int(exported.count(u' ')) + 1;
    test::ScriptedDialogs dialogs;
    dialogs.expect(test::countQuestion(count), answer::Yes);
    if (existing >= 0)
        dialogs.expect(QStringLiteral("ファイル <") + path +
                           QStringLiteral("> が存在します。\r\nデータを上書しますか？\r\nはい:上書 いいえ:追加"),
                       existing);
    if (!cancelled)
        dialogs.expect(catalogueText("ＣＳＶ出力"), answer::Ok);
    if (!cancelled && exported.contains(QLatin1String("104")))
        dialogs.expect(kUnencodable104, answer::Ok);
    if (!cancelled && !reprint)
        dialogs.expect(kMarkQuestion, answer::Yes);
    IcatExportJob job(*db_);
    job.loadShop();
    std::optional<IcatExportJob::Selection> shown;
    job.showSelection = [&](const IcatExportJob::Selection& s) { shown = s; };
    test::RecordingInteraction ui;
    const auto r = job.run(in, ui);
    QVERIFY(dialogs.done());
    if (existing >= 0)
        QCOMPARE(dialogs.styles.value(1), 35);
    QStringList lines = test::readLines(path);
    const QStringList kept = existing == answer::No || cancelled ? old : QStringList();
    QCOMPARE(lines.mid(0, kept.size()), kept);
    lines = lines.mid(kept.size());
    QStringList dennos;
    for (const QString& l : lines)
        dennos << l.section(u',', 1, 1);
    QCOMPARE(dennos.join(u' '), cancelled ? QString() : exported);
    if (range == kAll && kind == 9 && !reprint)
        QCOMPARE(lines, cancelled ? QStringList() : golden());
    QCOMPARE(flagged(), flaggedAfter);
    QCOMPARE(int(r.outcome), int(cancelled ? IcatExportJob::Outcome::Abandoned : IcatExportJob::Outcome::Done));
    QCOMPARE(r.count, count);
    QCOMPARE(r.written, cancelled ? 0 : count);
    QCOMPARE(r.marked, cancelled ? 0 : count); // a reprint flags the flagged orders again
    QCOMPARE(ui.locks, (QList<bool>{true, false}));
    QCOMPARE(ui.statuses, (QStringList{QStringLiteral("処理中・・・"), QString()}));
    QCOMPARE(home_->scalar(QStringLiteral("SELECT count(*) FROM operatlog WHERE syori = 'Ｉ-ＣＡＴデータ作成'")),
             cancelled ? QStringLiteral("0") : QStringLiteral("1"));
    QCOMPARE(shown.has_value(), swapped);
    if (swapped) {
        QCOMPARE(shown->dateFrom, 20250301);
        QCOMPARE(shown->dennoTo, 110);
    }
    for (const QString& l : lines) // the carrier's kind of label: 2 for every kind but 9
        QCOMPARE(l.section(u',', 2, 2), kind == 9 ? QStringLiteral("0") : QStringLiteral("2"));
    for (const QString& text : written)
        QVERIFY2(lines.join(u'\n').contains(text), qPrintable(text));
}

void IcatExportTest::nothingWritten_data()
{
    using test::Steps;
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("denno"); // both ends of the number range, else the default range
    QTest::addColumn<int>("blank");     // the entry left blank (0..8: both dates, both numbers, the file), else -1
    QTest::addColumn<Steps>("steps");
    QTest::addColumn<int>("style"); // of the first dialog
    QTest::addColumn<int>("outcome");
    row("no orders", "icat.csv", "109", -1, Steps{{"該当件数は０件です", answer::Ok}}, 70,
        int(IcatExportJob::Outcome::NoOrders));
    row("count refused", "icat.csv", QString(), -1, Steps{{kCount5, answer::No}}, 68,
        int(IcatExportJob::Outcome::Refused));
    row("missing folder", "no such folder/icat.csv", QString(), -1,
        Steps{{kCount5, answer::Yes}, {catalogueText("ファイルエラー"), answer::Ok}}, 68,
        int(IcatExportJob::Outcome::FileError));
    for (int i : {0, 8}) // the first and the last entry; the screen's test leaves the last number blank
        QTest::addRow("entry %d blank", i)
            << "icat.csv" << QString() << i << Steps{{catalogueText("未記入"), answer::Ok}} << 48
            << int(IcatExportJob::Outcome::Missing);
}

void IcatExportTest::nothingWritten()
{
    QFETCH(QString, file);
    QFETCH(QString, denno);
    QFETCH(int, blank);
    QFETCH(test::Steps, steps);
    QFETCH(int, style);
    QFETCH(int, outcome);
    const QString path = home_->file(file);
    IcatExportJob::Input in = input(path);
    if (!denno.isEmpty())
        in.denno[0] = in.denno[1] = denno;
    if (blank == 0) // a later empty entry is not the one named
        in.yy[0] = QStringLiteral("  "), in.mm[0] = QString();
    if (blank == 8)
        in.file = QStringLiteral("  ");
    test::ScriptedDialogs dialogs;
    test::expectSteps(dialogs, steps, QString());
    test::RecordingInteraction ui;
    const auto r = run(in, &ui);
    QVERIFY(dialogs.done());
    QCOMPARE(dialogs.styles.value(0), style);
    if (blank < 0) // the count's own dialog
        QCOMPARE(dialogs.shown.value(0).section(QLatin1Char('|'), 0, 0), QStringLiteral("確認"));
    QCOMPARE(int(r.outcome), outcome);
    QCOMPARE(r.missing, blank);
    QCOMPARE(ui.locks.isEmpty(), blank >= 0); // the entries are checked before anything is locked
    QCOMPARE(r.written, 0);
    QVERIFY(!QFile::exists(path));
    QCOMPARE(flagged(), QStringLiteral("106"));
}

// The marking stops at the order whose commit the engine refuses: the orders before it stay flagged and counted.
void IcatExportTest::aFailedCommitIsNotCounted()
{
    QString why;
    if (!test::refuseCommitsOfOrder(*db_, 103, &why))
        QSKIP(qPrintable(why));
    test::ScriptedDialogs dialogs;
    dialogs.expect(kCount5, answer::Yes);
    dialogs.expect(catalogueText("ＣＳＶ出力"), answer::Ok);
    dialogs.expect(kUnencodable104, answer::Ok);
    dialogs.expect(kMarkQuestion, answer::Yes);
    dialogs.expectStart(QStringLiteral("記録に失敗しました！\r\n"), answer::Ok);
    const auto r = run(input(home_->file(QStringLiteral("icat.csv"))));
    QVERIFY(dialogs.done());
    QCOMPARE(int(r.outcome), int(IcatExportJob::Outcome::MarkFailed));
    QCOMPARE(r.marked, 3); // 101 102 110, in ship-date order before 103
    QCOMPARE(flagged(), QStringLiteral("101 102 106 110"));
    QVERIFY2(dialogs.shown.last().contains(QLatin1String("FOREIGN KEY")) ||
                 dialogs.shown.last().contains(QLatin1String("commit refused")),
             qPrintable(dialogs.shown.last()));
}

// An order row the engine cannot read makes the selection fail: its text is shown and no file is written.
void IcatExportTest::damagedRowWritesNothing()
{
    if (test::backendUnderTest() != test::Backend::Sqlite)
        QSKIP("makes a Jet home of its own: once is enough");
    db_.reset();
    fnCloseDB(1);
    test::TestHome jet(test::Backend::Jet);
    QVERIFY2(jet.ok(), qPrintable(jet.error()));
    QVERIFY(jet.exec(test::shippingTestRows()));
    const QString path = jet.file(QStringLiteral("icat.csv"));
    {
        test::DamagedJetRow damage(jet.file(QStringLiteral("data1.dat")), QStringLiteral("jyuden"), 2);
        QVERIFY2(damage.ok(), qPrintable(damage.error()));
        clsDbClass db;
        QVERIFY(db.OpenDb());
        test::ScriptedDialogs dialogs;
        dialogs.expectStart(QStringLiteral("データ参照エラーです。\r\n\r\n"), answer::Ok);
        IcatExportJob job(db);
        job.loadShop();
        test::RecordingInteraction ui;
        const auto r = job.run(input(path), ui);
        QVERIFY(dialogs.done());
        QVERIFY2(dialogs.shown.last().contains(QLatin1String("bad bounds")), qPrintable(dialogs.shown.last()));
        QCOMPARE(int(r.outcome), int(IcatExportJob::Outcome::ReadFailed));
    }
    QVERIFY(!QFile::exists(path));
    QCOMPARE(jet.scalar(QStringLiteral("SELECT count(*) FROM jyuden WHERE oflag = 1")), QStringLiteral("1"));
}

QTEST_GUILESS_MAIN(IcatExportTest)
#include "tst_icatexport.moc"
