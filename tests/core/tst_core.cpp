// Start-up splitting, settings file, text helpers, CP932, column type names and the message catalogue.
#include "app/cp932.h"
#include "app/db/types.h"
#include "app/inifile.h"
#include "app/runtimeerror.h"
#include "app/startup.h"
#include "tests/support/datarow.h"
#include "tests/support/files.h"
#include "tests/support/testhome.h"
#include "ui/msgcatalog.h"
#include "ui/textrules.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace pel;
using test::fileBytes;
using test::row;
using test::writeFileBytes;

class TstCore : public QObject {
    Q_OBJECT
private slots:
    void getCommand_data();
    void getCommand();
    void screenTableComparesExactly();
    void splitQuoted_data();
    void splitQuoted();
    void iniReadRules();
    void iniWrites();
    void iniInReadOnlyFolder();
    void dbMode_data();
    void dbMode();
    void cutByte_data();
    void cutByte();
    void toNum_data();
    void toNum();
    void year_data();
    void year();
    void delStr();
    void cp932_data();
    void cp932();
    void cp932Errors();
    void typeNames_data();
    void typeNames();
    void catalogue_data();
    void catalogue();
};

void TstCore::getCommand_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("count");
    QTest::addColumn<QStringList>("args");
    QTest::newRow("empty") << "" << 0 << QStringList{};
    QTest::newRow("runs of spaces") << "1   20240101    x" << 3 << QStringList{"1", "20240101", "x"};
    QTest::newRow("leading spaces") << "  1" << 2 << QStringList{"", "1"};
    QTest::newRow("tab is ordinary") << "1\t2" << 1 << QStringList{"1\t2"};
    QTest::newRow("quotes mean nothing") << "\"a b\"" << 2 << QStringList{"\"a", "b\""};
    QTest::newRow("eleven") << "0 1 2 3 4 5 6 7 8 9 10" << 11
                            << QStringList{"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10"};
    QTest::newRow("twelve: run-time error") << "1 2 3 4 5 6 7 8 9 10 11 12" << -1 << QStringList{};
}

void TstCore::getCommand()
{
    QFETCH(QString, line);
    QFETCH(int, count);
    QFETCH(QStringList, args);
    QStringList got;
    if (count < 0) {
        QVERIFY_THROWS_EXCEPTION(RuntimeError, fnGetCommand(got, line));
        return;
    }
    QCOMPARE(fnGetCommand(got, line), count);
    QCOMPARE(got, args);
}

void TstCore::screenTableComparesExactly()
{
    QVERIFY(!screenFor(QStringLiteral("01")));
    QVERIFY(!screenFor(QStringLiteral("3")));
    QVERIFY(!screenFor(QStringLiteral("１")));
}

void TstCore::splitQuoted_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("count");
    QTest::addColumn<QStringList>("fields");
    QTest::newRow("empty") << "" << -1 << QStringList{};
    QTest::newRow("quoted comma") << "a,\"b,c\"," << 3 << QStringList{"a", "b,c", ""};
    QTest::newRow("doubled quote vanishes") << "\"x\"\"y\",z" << 2 << QStringList{"xy", "z"};
    QTest::newRow("only separators") << ",," << 3 << QStringList{"", "", ""};
}

void TstCore::splitQuoted()
{
    QFETCH(QString, line);
    QFETCH(int, count);
    QFETCH(QStringList, fields);
    QStringList got{"untouched"};
    QCOMPARE(fnSplitQuoted(line, got, QStringLiteral(",")), count);
    if (count < 0) {
        QCOMPARE(got, QStringList{"untouched"});
        return;
    }
    QCOMPARE(got.mid(1), fields);
}

void TstCore::iniReadRules()
{
    QTemporaryDir dir;
    const QString ini = dir.filePath(QStringLiteral("mirabo.ini"));
    QVERIFY(writeFileBytes(ini, *Cp932::encode(QStringLiteral("[Mirabo]\r\n DbMode = 1 \r\ndbpath=  \"D:\\販売\"  \r\n"
                                                              "[CvsRead]\r\nReadFile=a=b\r\nempty=\r\nlong=") +
                                               QString(2000, QLatin1Char('x')) + QStringLiteral("\r\n"))));
    QString v;
    fnGetIni(QStringLiteral("MIRABO"), QStringLiteral("dbpath"), QString(), v, 1024, ini);
    QCOMPARE(v, QStringLiteral("D:\\販売"));
    fnGetIni(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), QString(), v, 1024, ini);
    QCOMPARE(v, QStringLiteral("a=b"));
    QCOMPARE(fnGetIni(QStringLiteral("CvsRead"), QStringLiteral("long"), QString(), v, 1024, ini), 1023L);
    fnGetIni(QStringLiteral("CvsRead"), QStringLiteral("missing"), QStringLiteral("dflt"), v, 1024, ini);
    QCOMPARE(v, QStringLiteral("dflt"));
    fnGetIni(QStringLiteral("CvsRead"), QStringLiteral("empty"), QStringLiteral("dflt"), v, 1024, ini);
    QCOMPARE(v, QString());
    QCOMPARE(fnGetIniInt(QStringLiteral("mirabo"), QStringLiteral("dbmode"), 0, ini), 1L);
    fnGetIni(QStringLiteral("none"), QStringLiteral("x"), QStringLiteral("d"), v, 1024, dir.filePath("absent.ini"));
    QCOMPARE(v, QStringLiteral("d"));
}

void TstCore::iniWrites()
{
    QTemporaryDir dir;
    const QString ini = dir.filePath(QStringLiteral("mirabo.ini"));
    // a new file; a value typed elsewhere is written with the best fit
    QVERIFY(fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("MakeFile"), QStringLiteral("D:\\1−2〜3"), ini));
    QCOMPARE(Cp932::decode(fileBytes(ini)).value_or(QString()), QStringLiteral("[I-CAT]\r\nMakeFile=D:\\1－2～3\r\n"));
    // every other line survives byte for byte, also one that is not valid Shift-JIS
    QVERIFY(
        writeFileBytes(ini, "; comment\r\n[mirabo]\r\ndbmode=0\r\nodd=\x85\x40\r\n\r\n[I-CAT]\r\nReadFile=a.csv\r\n"));
    QVERIFY(fnPutIni(QStringLiteral("i-cat"), QStringLiteral("READFILE"), QStringLiteral("b=c.csv"), ini));
    QVERIFY(fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ErrFile"), QString(), ini));
    QVERIFY(fnPutIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), QStringLiteral("C:\\out"), ini));
    QCOMPARE(fileBytes(ini),
             QByteArray("; comment\r\n[mirabo]\r\ndbmode=0\r\nodd=\x85\x40\r\n\r\n[I-CAT]\r\nREADFILE=b=c.csv\r\n"
                        "ErrFile=\r\n\r\n[ConveniMake]\r\nFilePath=C:\\out\r\n"));
    // a value with no Shift-JIS form is not written at all
    QCOMPARE(fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ErrFile"), QStringLiteral("😀"), ini), 0L);
}

void TstCore::iniInReadOnlyFolder()
{
    QTemporaryDir dir;
    const QString ini = dir.filePath(QStringLiteral("mirabo.ini"));
    QVERIFY(writeFileBytes(ini, "[I-CAT]\r\nReadFile=a.csv\r\n"));
    // a folder that takes no new file: by permissions, or (for root, whom permissions do not stop) immutable
    const auto folderTakesNewFiles = [&] {
        QFile probe(dir.filePath(QStringLiteral("probe")));
        const bool made = probe.open(QIODevice::WriteOnly);
        probe.remove();
        return made;
    };
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner);
    bool immutable = false;
    if (folderTakesNewFiles())
        immutable = QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), dir.path()}) == 0;
    const bool readOnly = !folderTakesNewFiles();
    const long written =
        readOnly ? fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ReadFile"), QStringLiteral("b.csv"), ini) : 0;
    if (immutable)
        QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), dir.path()});
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    if (!readOnly)
        QSKIP("cannot make a read-only folder here");
    QCOMPARE(written, 1L);
    QCOMPARE(fileBytes(ini), QByteArray("[I-CAT]\r\nReadFile=b.csv\r\n"));
}

void TstCore::dbMode_data()
{
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<int>("mode"); // -1: overflow
    QTest::newRow("no file") << QByteArray() << 0;
    QTest::newRow("one") << QByteArray("[mirabo]\r\ndbmode=1\r\n") << 1;
    QTest::newRow("text") << QByteArray("[mirabo]\r\ndbmode=abc\r\n") << 0;
    QTest::newRow("negative") << QByteArray("[mirabo]\r\ndbmode=-1\r\n") << -1;
    QTest::newRow("too big") << QByteArray("[mirabo]\r\ndbmode=256\r\n") << -1;
}

void TstCore::dbMode()
{
    QFETCH(QByteArray, ini);
    QFETCH(int, mode);
    QTemporaryDir dir;
    qputenv("PEL008_HOME", dir.path().toLocal8Bit());
    if (!ini.isEmpty())
        QVERIFY(writeFileBytes(dir.filePath(QStringLiteral("mirabo.ini")), ini));
    if (mode < 0)
        QVERIFY_THROWS_EXCEPTION(RuntimeError, fnGetDbMode());
    else
        QCOMPARE(int(fnGetDbMode()), mode);
}

void TstCore::cutByte_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("n");
    QTest::addColumn<QString>("piece");
    QTest::addColumn<QString>("rest");
    row("exact", "ab表", 4, "ab表", "");
    row("boundary in a wide char", "a表b", 2, "a", "表b");
    row("zero", "abc", 0, "", "abc");
    row("− and 〜 are written wide", "1−2〜3", 5, "1−2", "〜3");
    row("¥ is written as one byte", "¥¥¥", 2, "¥¥", "¥");
    row("no form: one '?' per unit, a pair kept whole", "a😀bc", 2, "a", "😀bc");
}

void TstCore::cutByte()
{
    QFETCH(QString, text);
    QFETCH(int, n);
    QFETCH(QString, piece);
    QFETCH(QString, rest);
    QString t = text;
    QCOMPARE(fnCutByte(t, n), piece);
    QCOMPARE(t, rest);
}

void TstCore::toNum_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("decimals");
    QTest::addColumn<bool>("minus");
    QTest::addColumn<double>("value");
    QTest::newRow("commas and blanks") << " 1,234 円" << true << true << 1234.0;
    QTest::newRow("minus point") << "-.5" << true << true << -0.5;
    QTest::newRow("second point dropped") << "1.2.3" << true << true << 1.23;
    QTest::newRow("no decimals") << "12.5" << false << true << 125.0;
    QTest::newRow("late minus ignored") << "12-3" << true << true << 123.0;
    QTest::newRow("minus not allowed") << "-7" << true << false << 7.0;
    QTest::newRow("full-width digits ignored") << "１２3" << true << true << 3.0;
    QTest::newRow("empty") << "" << true << true << 0.0;
}

void TstCore::toNum()
{
    QFETCH(QString, text);
    QFETCH(bool, decimals);
    QFETCH(bool, minus);
    QFETCH(double, value);
    QCOMPARE(fnToNum(text, decimals, minus), value);
}

void TstCore::year_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<QString>("year");
    QTest::newRow("5 set") << "5" << true << "2005";
    QTest::newRow("30 set") << "30" << true << "1930";
    QTest::newRow("30 clear") << "30" << false << "2030";
    QTest::newRow("75") << "75" << false << "1975";
    QTest::newRow("150") << "150" << false << "2150";
    QTest::newRow("2024 kept") << "2024" << true << "2024";
    QTest::newRow("blank") << "  " << true << "";
}

void TstCore::year()
{
    QFETCH(QString, text);
    QFETCH(bool, flag);
    QFETCH(QString, year);
    QCOMPARE(fnYear(text, flag), year);
}

void TstCore::delStr()
{
    // half-width spaces only, as the system trims
    QCOMPARE(fnTrim(QStringLiteral("  1234　 ")), QStringLiteral("1234　"));
    QCOMPARE(fnTrim(QStringLiteral("\t12 \r\n")), QStringLiteral("\t12 \r\n"));
    QCOMPARE(fnTrim(QStringLiteral("   ")), QString());
    QCOMPARE(fnDelStr(QStringLiteral("a--b-"), QStringLiteral("-")), QStringLiteral("ab"));
    QCOMPARE(fnDelStr(QStringLiteral("aXYXYb"), QStringLiteral("XY")), QStringLiteral("ab"));
    QCOMPARE(fnDelStr(QStringLiteral("abc"), QString()), QStringLiteral("abc"));
    QCOMPARE(fnPadLeft(QStringLiteral("1"), 8), QStringLiteral("       1"));
}

void TstCore::typeNames_data()
{
    QTest::addColumn<QString>("declared");
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("size");
    const auto row = [](const char* declared, JetType type, int size) {
        QTest::newRow(declared) << QString::fromLatin1(declared) << static_cast<int>(type) << size;
    };
    row("TEXT(6)", JetType::Text, 6);
    row(" text ( 40 ) ", JetType::Text, 40);
    row("character varying(40)", JetType::Text, 40);
    row("text", JetType::Memo, 0); // the server's own memo type has no size
    row("timestamp without time zone", JetType::DateTime, 0);
    row("numeric(19,4)", JetType::Currency, 19);
    row("numeric(19, 2)", JetType::Decimal, 19);
    row("TEXT(6", JetType::Unknown, 0);
    row("TEXT(6) x", JetType::Unknown, 0);
    row("LONG2", JetType::Unknown, 0);
}

void TstCore::typeNames()
{
    QFETCH(QString, declared);
    QFETCH(int, type);
    QFETCH(int, size);
    int got = -1;
    QCOMPARE(static_cast<int>(jetTypeFromName(declared, &got)), type);
    QCOMPARE(got, size);
}

void TstCore::cp932_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("bestFit"); // written one way only: reading back gives the code page's own character
    const auto row = [](const char* name, const char* text, const char* hex, bool bestFit = false) {
        QTest::newRow(name) << QString::fromUtf8(text) << QByteArray::fromHex(hex) << bestFit;
    };
    row("①", "①", "8740");
    row("～ (wave dash of the code page)", "～", "8160");
    row("表 (second byte 5C)", "表", "955C");
    row("髙 (IBM extension)", "髙", "FBFC");
    row("half-width kana", "ｱﾞ", "B1DE");
    row("ascii backslash stays", "C:\\a", "43 3A 5C 61");
    row("minus sign", "1−2", "31 817C 32", true);
    row("wave dash", "〜", "8160", true);
    row("em dash", "—", "815C", true);
    row("double vertical line", "‖", "8161", true);
    row("yen sign", "¥100", "5C 31 30 30", true);
    row("cent sign", "¢", "8191", true);
    row("pound sign", "£", "8192", true);
    row("not sign", "¬", "81CA", true);
}

void TstCore::cp932()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, bestFit);
    QCOMPARE(Cp932::encode(text).value_or(QByteArray("?")), bytes);
    QCOMPARE(Cp932::encodeLossy(text), bytes);
    QCOMPARE(Cp932::byteLength(text), bytes.size());
    if (!bestFit)
        QCOMPARE(Cp932::decode(bytes).value_or(QStringLiteral("?")), text);
}

void TstCore::cp932Errors()
{
    Cp932Error e;
    QVERIFY(!Cp932::encode(QStringLiteral("ab한c"), &e)); // Hangul has no CP932 form, not even a best fit
    QCOMPARE(e.position, 2);
    QCOMPARE(e.character, QStringLiteral("한"));
    QCOMPARE(Cp932::encodeLossy(u"a한¢😀"), QByteArray("a?\x81\x91??"));
    QCOMPARE(Cp932::byteLength(u"a한¢😀"), 6);
    QVERIFY(!Cp932::encode(QStringLiteral("x😀"), &e));
    QCOMPARE(e.character, QStringLiteral("😀"));
    QVERIFY(!Cp932::decode(QByteArray("ab\x81"), &e)); // a cut lead byte at the end
    QCOMPARE(e.position, 2);
    QVERIFY(!Cp932::decode(QByteArray("a\x85\x40"), &e)); // an unassigned code
    QCOMPARE(e.position, 1);
    // 髙 also decodes from its NEC-selected code
    QCOMPARE(*Cp932::decode(QByteArray("\xEE\xE0")), QStringLiteral("髙"));
}

void TstCore::catalogue_data()
{
    QTest::addColumn<QString>("extra"); // the row's name is the key
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("style"); // 0: no such key, nothing shown
    row("記録", "", "記録します", 68);
    row("削除", "伝票No.12", "削除します\r\n伝票No.12", 324);
    row("削除エラー", "x", "削除に失敗しました！\r\nすべて終了し、データメンテナンスから復旧をしてください", 48);
    row("作業中", "出荷", "保存されていませんが、出荷を終了しますか？", 292);
    row("ファイル書込み選択", "a.csv",
        "a.csvファイルが存在します。上書きしますか？\r\n「はい」\t上書\r\n「いいえ」\t追加\r\n「ｷｬﾝｾﾙ」\t取消", 547);
    row("ｷｬﾝｾﾙ ", "", "", 0);
}

void TstCore::catalogue()
{
    const QString key = QString::fromUtf8(QTest::currentDataTag());
    QFETCH(QString, extra);
    QFETCH(QString, text);
    QFETCH(int, style);
    test::ScriptedDialogs d; // fails on a dialog it does not expect
    if (style == 0) {
        QCOMPARE(fnMsg(key, extra, true), 0);
        return;
    }
    d.expect(text, answer::No);
    QCOMPARE(fnMsg(key, extra, false), int(answer::No));
    QCOMPARE(d.styles.value(0), style);
    QVERIFY(d.shown.value(0).startsWith(QStringLiteral("ＰＥＬＯＮＡ|")));
}

QTEST_GUILESS_MAIN(TstCore)
#include "tst_core.moc"
