// Base64 of CP932 text, and the header encodings the mails are built from.
#include "mail/clsbasp.h"
#include "mail/mimemessage.h"

#include <QStringDecoder>
#include <QTest>

using pel::clsBaSp;

class Base64Test : public QObject {
    Q_OBJECT
private slots:
    void known_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("base64");
        // Expected values from: printf '%s' TEXT | iconv -f UTF-8 -t CP932 | base64
        QTest::newRow("mixed, IBM kanji, wave dash")
            << QStringLiteral("受注データ①ｱｲｳ髙橋～") << QStringLiteral("jvOSjYNmgVuDXodAsbKz+/yLtIFg");
        QTest::newRow("lines") << QStringLiteral("株式会社テスト\r\n東京都千代田区１－２－３\r\n")
                               << QStringLiteral("ipSOronvjtCDZYNYg2cNCpOMi56Tc5DnkeOTY4vmglCBfIJRgXyCUg0K");
        QTest::newRow("symbols") << QStringLiteral("№ ㈱ ∥ ￢ ＼ ￠ ￡ ①②③ Ⅰ ⅰ ｶﾞﾊﾟ")
                                 << QStringLiteral("h4Igh4oggWEggcoggV8ggZEggZIgh0CHQYdCIIdUIPpAILbeyt8=");
        QTest::newRow("empty") << QString() << QString();
    }
    void known()
    {
        QFETCH(QString, text);
        QFETCH(QString, base64);
        QCOMPARE(clsBaSp::Ango(text), base64);
        QCOMPARE(clsBaSp::Fukugo(base64), text);
        // Base64 folded into lines, as mail programs and settings files keep it, reads the same.
        QString folded;
        for (qsizetype i = 0; i < base64.size(); i += 20)
            folded += base64.mid(i, 20) + QStringLiteral("\r\n ");
        QCOMPARE(clsBaSp::Fukugo(folded), text);
    }

    void rejected_data()
    {
        QTest::addColumn<bool>("encode");
        QTest::addColumn<QString>("input");
        QTest::newRow("no CP932 form (hangul)") << true << QStringLiteral("請求한");
        QTest::newRow("no CP932 form (outside BMP)") << true << QStringLiteral("𠀋");
        QTest::newRow("not Base64") << false << QStringLiteral("kL+L*gYjq");
        QTest::newRow("cut double-byte character") << false << QStringLiteral("kL+LgYg=");
    }
    void rejected()
    {
        QFETCH(bool, encode);
        QFETCH(QString, input);
        QString error;
        QCOMPARE(encode ? clsBaSp::Ango(input, &error) : clsBaSp::Fukugo(input, &error), QString());
        QVERIFY(!error.isEmpty());
    }

    void splitFiles_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("files");
        QTest::newRow("tabs and semicolons")
            << QStringLiteral("/a/請求.txt\t/b/x y.csv;/c/z") << QStringList{"/a/請求.txt", "/b/x y.csv", "/c/z"};
        QTest::newRow("blanks and empties") << QStringLiteral(" ;\t /a ;; ") << QStringList{"/a"};
    }
    void splitFiles()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, files);
        QCOMPARE(clsBaSp::splitFiles(text), files);
    }

    // Each encoded word must decode alone: readers that decode word by word show broken characters
    // when a character's bytes are cut between two words.
    void encodedWordsKeepCharactersWhole()
    {
        const QString text = QStringLiteral("seikyu_ａ𠀋請求書①ｱ").repeated(9);
        QString joined;
        for (const QByteArray& w : pel::mail::encodedWords(text)) {
            QVERIFY2(w.size() <= 64 && w.startsWith("=?UTF-8?B?") && w.endsWith("?="), w.constData());
            QStringDecoder utf8(QStringDecoder::Utf8);
            joined += utf8.decode(QByteArray::fromBase64(w.mid(10, w.size() - 12)));
            QVERIFY(!utf8.hasError());
        }
        QCOMPARE(joined, text);
    }
};

QTEST_GUILESS_MAIN(Base64Test)
#include "base64_test.moc"
