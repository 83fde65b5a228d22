// Mails sent to a local SMTP server and read back by an independent parser (Python's mail package).
#include "mail/clsbasp.h"
#include "smtpsink.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QTest>

using pel::clsBaSp;

namespace {

// 請求番号,金額 CR LF 0001,１２３４①ｱ CR LF in CP932 (iconv -f UTF-8 -t CP932 | xxd -p)
const QByteArray kCp932File = QByteArray::fromHex("90bf8b8194d48d862c8be08a7a0d0a303030312c82508251825282538740b10d0a");

QByteArray allBytes()
{
    QByteArray b;
    for (int i = 0; i < 256; ++i)
        b += static_cast<char>(i);
    return b;
}

} // namespace

class SendMailTest : public QObject {
    Q_OBJECT
    mailtest::SmtpSink sink_;
    QTemporaryDir files_;

    QString file(const QString& name, const QByteArray& data)
    {
        QFile f(files_.filePath(name));
        if (!f.open(QIODevice::WriteOnly) || f.write(data) != data.size())
            qFatal("cannot write test file");
        return f.fileName();
    }
    QJsonObject onlyMessage()
    {
        const QList<QJsonObject> got = sink_.messages();
        return got.size() == 1 ? got.front() : QJsonObject();
    }

private slots:
    void initTestCase()
    {
        const QString why = sink_.start();
        if (!why.isEmpty())
            QSKIP(qPrintable(QStringLiteral("no local SMTP server: ") + why));
    }
    void init() { sink_.clear(); }

    void japaneseMail_data()
    {
        QTest::addColumn<QString>("subject");
        QTest::addColumn<QString>("body");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QList<QByteArray>>("contents");
        QTest::newRow("CP932 attachment") << QStringLiteral("【請求】三月分のご案内①ｱｲｳ")
                                          << QStringLiteral("お世話になっております。\n.先頭のドット\r\n髙橋 ① ｶﾞ\n")
                                          << QStringList{"請求一括登録.txt"} << QList<QByteArray>{kCp932File};
        QTest::newRow("no attachment") << QStringLiteral("Monthly report") << QStringLiteral("Line 1\r\nLine 2")
                                       << QStringList{} << QList<QByteArray>{};
        QTest::newRow("long names, binary, empty file")
            << QStringLiteral("受注データ取込結果のお知らせ（𠀋を含む）").repeated(4)
            << QStringLiteral("長い行").repeated(200)
            << QStringList{"uriage_shukei_得意先別売上集計表_二〇二四年三月分_確定版.csv", "a b.bin", "空.txt"}
            << QList<QByteArray>{kCp932File.repeated(50), allBytes(), QByteArray()};
    }
    void japaneseMail()
    {
        QFETCH(QString, subject);
        QFETCH(QString, body);
        QFETCH(QStringList, names);
        QFETCH(QList<QByteArray>, contents);
        QStringList paths;
        for (qsizetype i = 0; i < names.size(); ++i)
            paths << file(names[i], contents[i]);

        QCOMPARE(clsBaSp().SendMail(sink_.server(), QStringLiteral("tanaka@example.jp"),
                                    QStringLiteral("営業部 販売課 <sales@example.jp>"), subject, body, paths),
                 QString());
        const QJsonObject m = onlyMessage();
        QCOMPARE(m["mail_from"].toString(), QStringLiteral("sales@example.jp"));
        QCOMPARE(m["rcpt_tos"].toArray(), QJsonArray{"tanaka@example.jp"});
        QVERIFY(m["date_ok"].toBool());
        QVERIFY2(QRegularExpression(QStringLiteral("^<[^<>@ ]+@example\\.jp>$"))
                     .match(m["message_id"].toString())
                     .hasMatch(),
                 qPrintable(m["message_id"].toString()));
        QCOMPARE(m["from"].toArray(), (QJsonArray{QJsonArray{"営業部 販売課", "sales@example.jp"}}));
        QCOMPARE(m["to"].toArray(), (QJsonArray{QJsonArray{"", "tanaka@example.jp"}}));
        QCOMPARE(m["subject"].toString(), subject);
        QCOMPARE(m["body"].toString().replace(QStringLiteral("\r\n"), QStringLiteral("\n")),
                 QString(body).replace(QStringLiteral("\r\n"), QStringLiteral("\n")));
        QCOMPARE(m["content_type"].toString(),
                 names.isEmpty() ? QStringLiteral("text/plain") : QStringLiteral("multipart/mixed"));
        const QJsonArray attachments = m["attachments"].toArray();
        QCOMPARE(attachments.size(), names.size());
        for (qsizetype i = 0; i < names.size(); ++i) {
            const QJsonObject a = attachments[i].toObject();
            QCOMPARE(a["filename"].toString(), names[i]);
            QCOMPARE(a["name"].toString(), names[i]);
            QCOMPARE(QByteArray::fromBase64(a["data"].toString().toLatin1()), contents[i]);
        }
        // What any server and mail program accepts: CR LF only, 7-bit, short lines, nothing malformed.
        QVERIFY(!m["bare_cr_or_lf"].toBool());
        QVERIFY(!m["non_ascii"].toBool());
        QVERIFY2(m["max_line"].toInt() <= 78, qPrintable(QString::number(m["max_line"].toInt())));
        QCOMPARE(m["defects"].toArray(), QJsonArray());
    }

    void recipients_data()
    {
        QTest::addColumn<QString>("to");
        QTest::addColumn<QStringList>("addresses");
        QTest::newRow("commas, semicolons, blanks, empties")
            << QStringLiteral(" ;a@example.jp,b@example.jp ;; c@example.jp, ")
            << QStringList{"a@example.jp", "b@example.jp", "c@example.jp"};
        QTest::newRow("with names") << QStringLiteral("山田 太郎 <yamada@example.jp>; \"Sato\" <sato@example.jp>")
                                    << QStringList{"yamada@example.jp", "sato@example.jp"};
        QStringList many;
        for (int i = 0; i < 15; ++i)
            many << QStringLiteral("tokuisaki%1@branch.example.co.jp").arg(i);
        QTest::newRow("many") << many.join(QLatin1Char(';')) << many;
    }
    void recipients()
    {
        QFETCH(QString, to);
        QFETCH(QStringList, addresses);
        QCOMPARE(clsBaSp().SendMail(sink_.server(), to, QStringLiteral("sales@example.jp"), QStringLiteral("件名"),
                                    QStringLiteral("本文"), QStringList{}),
                 QString());
        const QJsonObject m = onlyMessage();
        QCOMPARE(m["rcpt_tos"].toVariant().toStringList(), addresses);
        QStringList header;
        for (const QJsonValue& v : m["to"].toArray())
            header << v.toArray()[1].toString();
        QCOMPARE(header, addresses);
        if (to.contains(QStringLiteral("山田")))
            QCOMPARE(m["to"].toArray()[0].toArray()[0].toString(), QStringLiteral("山田 太郎"));
        QVERIFY(m["max_line"].toInt() <= 78);
    }

    // Whatever is wrong, the answer is an error text and nothing reaches the server.
    void refused_data()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QString>("to");
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("attach");
        QTest::addColumn<QString>("mentions");
        const QString ok = QStringLiteral("t@example.jp"), from = QStringLiteral("f@example.jp");
        QTest::newRow("missing attachment") << QString() << ok << from << QStringLiteral("/nonexistent/請求.txt")
                                            << QStringLiteral("/nonexistent/請求.txt");
        QTest::newRow("no recipient") << QString() << QStringLiteral(" ; , ") << from << QString() << QString();
        QTest::newRow("bad recipient") << QString() << QStringLiteral("a@example.jp; 田中") << from << QString()
                                       << QStringLiteral("田中");
        QTest::newRow("header injection")
            << QString() << QStringLiteral("a@example.jp\r\nBcc: x@example.jp") << from << QString() << QString();
        QTest::newRow("no sender") << QString() << ok << QStringLiteral(" ") << QString() << QString();
        QTest::newRow("bad port") << QStringLiteral("127.0.0.1:smtp") << ok << from << QString() << QString();
    }
    void refused()
    {
        QFETCH(QString, server);
        QFETCH(QString, to);
        QFETCH(QString, from);
        QFETCH(QString, attach);
        QFETCH(QString, mentions);
        const QStringList files = attach.isEmpty() ? QStringList{} : QStringList{file("ok.txt", "x"), attach};
        const QString result = clsBaSp().SendMail(server.isEmpty() ? sink_.server() : server, to, from,
                                                  QStringLiteral("s"), QStringLiteral("b"), files);
        QVERIFY(!result.isEmpty());
        QVERIFY2(result.contains(mentions), qPrintable(result));
        QCOMPARE(sink_.messages().size(), 0);
    }

    void unreachable_data()
    {
        QTest::addColumn<bool>("silent");
        QTest::newRow("closed port") << false;
        QTest::newRow("silent server") << true;
    }
    void unreachable()
    {
        QFETCH(bool, silent);
        mailtest::LocalPort listener(silent);
        const int port = silent ? listener.port : mailtest::closedPort();
        clsBaSp mailer;
        mailer.setConnectTimeout(1);
        mailer.setTotalTimeout(2);
        QElapsedTimer t;
        t.start();
        const QString result =
            mailer.SendMail(QStringLiteral("127.0.0.1:%1").arg(port), QStringLiteral("t@example.jp"),
                            QStringLiteral("f@example.jp"), QStringLiteral("s"), QStringLiteral("b"));
        QVERIFY2(result.contains(QString::number(port)), qPrintable(result));
        QVERIFY2(t.elapsed() < 4000, qPrintable(QString::number(t.elapsed())));
    }
};

QTEST_GUILESS_MAIN(SendMailTest)
#include "sendmail_test.moc"
