// Mails sent to a local SMTP server and read back by an independent parser (Python's mail package).
#include "mail/clsbasp.h"
#include "smtpsink.h"
#include "tests/support/datarow.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QTest>

using pel::clsBaSp;
using pel::test::row;

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
    QTemporaryDir home_; // HOME of the sends: where the default .netrc is looked for

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

    // How a row of the TLS tests logs in: "env", "env:wrong", "env:user" (no password), "netrc", "netrc:0644".
    void setLogin(const QString& how)
    {
        qunsetenv(clsBaSp::kUserVariable);
        qunsetenv(clsBaSp::kPasswordVariable);
        QFile::remove(home_.filePath(QStringLiteral(".netrc")));
        const QString password =
            how.endsWith(QLatin1String(":wrong")) ? QStringLiteral("s3cret") : mailtest::kSinkPassword;
        if (how.startsWith(QLatin1String("env"))) {
            qputenv(clsBaSp::kUserVariable, mailtest::kSinkUser.toUtf8());
            if (how != QLatin1String("env:user"))
                qputenv(clsBaSp::kPasswordVariable, password.toUtf8());
        } else if (how.startsWith(QLatin1String("netrc"))) {
            QFile f(home_.filePath(QStringLiteral(".netrc")));
            const QByteArray text = "machine 127.0.0.1\n  login " + mailtest::kSinkUser.toUtf8() + "\n  password " +
                                    password.toUtf8() + "\n";
            if (!f.open(QIODevice::WriteOnly) || f.write(text) != text.size())
                qFatal("cannot write .netrc");
            f.setPermissions(how.endsWith(QLatin1String(":0644"))
                                 ? QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther
                                 : QFile::ReadOwner | QFile::WriteOwner);
        }
    }

private slots:
    void initTestCase()
    {
        qputenv("HOME", QFile::encodeName(home_.path()));
        setLogin(QString());
        const QString why = sink_.start();
        if (!why.isEmpty())
            QSKIP(qPrintable(QStringLiteral("no local SMTP server: ") + why));
    }
    void init() { sink_.clear(); }
    void cleanup() { setLogin(QString()); }

    void japaneseMail_data()
    {
        QTest::addColumn<QString>("subject");
        QTest::addColumn<QString>("body");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QList<QByteArray>>("contents");
        QTest::addColumn<QString>("to");
        QTest::addColumn<QStringList>("header"); // the To header as "name<address>", one a recipient
        const QString tanaka = QStringLiteral("tanaka@example.jp");
        const QStringList toTanaka{QStringLiteral("<tanaka@example.jp>")};
        row("CP932 attachment", "【請求】三月分のご案内①ｱｲｳ", "お世話になっております。\n.先頭のドット\r\n髙橋 ① ｶﾞ\n",
            QStringList{"請求一括登録.txt"}, QList<QByteArray>{kCp932File}, tanaka, toTanaka);
        row("no attachment", "Monthly report", "Line 1\r\nLine 2", QStringList{}, QList<QByteArray>{}, tanaka,
            toTanaka);
        row("long names, binary, empty file", QStringLiteral("受注データ取込結果のお知らせ（𠀋を含む）").repeated(4),
            QStringLiteral("長い行").repeated(200),
            QStringList{"uriage_shukei_得意先別売上集計表_二〇二四年三月分_確定版.csv", "a b.bin", "空.txt"},
            QList<QByteArray>{kCp932File.repeated(50), allBytes(), QByteArray()}, tanaka, toTanaka);
        const auto recipients = [](const char* name, const QString& to, const QStringList& header) {
            row(name, "件名", "本文", QStringList{}, QList<QByteArray>{}, to, header);
        };
        recipients("commas, semicolons, blanks, empties",
                   QStringLiteral(" ;a@example.jp,b@example.jp ;; c@example.jp, "),
                   {"<a@example.jp>", "<b@example.jp>", "<c@example.jp>"});
        recipients("with names", QStringLiteral("山田 太郎 <yamada@example.jp>; \"Sato\" <sato@example.jp>"),
                   {"山田 太郎<yamada@example.jp>", "Sato<sato@example.jp>"});
        QStringList many, manyHeader;
        for (int i = 0; i < 15; ++i) {
            many << QStringLiteral("tokuisaki%1@branch.example.co.jp").arg(i);
            manyHeader << QLatin1Char('<') + many.back() + QLatin1Char('>');
        }
        recipients("many", many.join(QLatin1Char(';')), manyHeader);
    }
    void japaneseMail()
    {
        QFETCH(QString, subject);
        QFETCH(QString, body);
        QFETCH(QStringList, names);
        QFETCH(QList<QByteArray>, contents);
        QFETCH(QString, to);
        QFETCH(QStringList, header);
        QStringList paths;
        for (qsizetype i = 0; i < names.size(); ++i)
            paths << file(names[i], contents[i]);

        QCOMPARE(clsBaSp().SendMail(sink_.server(), to, QStringLiteral("営業部 販売課 <sales@example.jp>"), subject,
                                    body, paths),
                 QString());
        const QJsonObject m = onlyMessage();
        QCOMPARE(m["mail_from"].toString(), QStringLiteral("sales@example.jp"));
        QStringList toHeader, rcptTos;
        for (const QJsonValue& v : m["to"].toArray())
            toHeader << v[0].toString() + QLatin1Char('<') + v[1].toString() + QLatin1Char('>');
        QCOMPARE(toHeader, header);
        for (const QString& h : header)
            rcptTos << h.section(QLatin1Char('<'), 1).chopped(1);
        QCOMPARE(m["rcpt_tos"].toVariant().toStringList(), rcptTos);
        QVERIFY(m["date_ok"].toBool());
        QVERIFY2(QRegularExpression(QStringLiteral("^<[^<>@ ]+@example\\.jp>$"))
                     .match(m["message_id"].toString())
                     .hasMatch(),
                 qPrintable(m["message_id"].toString()));
        QCOMPARE(m["from"].toArray(), (QJsonArray{QJsonArray{"営業部 販売課", "sales@example.jp"}}));
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

    // Whatever is wrong, the answer is an error text at once and nothing reaches the server (a silent server's
    // timeout is a row of the TLS table).
    void refused_data()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QString>("to");
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("attach");
        QTest::addColumn<QString>("mentions");
        const QString ok = QStringLiteral("t@example.jp"), from = QStringLiteral("f@example.jp");
        row("missing attachment", "", ok, from, "/nonexistent/請求.txt", "/nonexistent/請求.txt");
        row("no recipient", "", " ; , ", from, "", "");
        row("bad recipient", "", "a@example.jp; 田中", from, "", "田中");
        row("header injection", "", "a@example.jp\r\nBcc: x@example.jp", from, "", "");
        row("no sender", "", ok, " ", "", "");
        row("bad port", "127.0.0.1:smtp", ok, from, "", "");
        row("unknown scheme", "imap://127.0.0.1", ok, from, "", "imap://");
        row("scheme without host", "smtps://", ok, from, "", "");
        const QString closed = QString::number(mailtest::closedPort());
        row("nobody listening", "127.0.0.1:" + closed, ok, from, "", closed);
    }
    void refused()
    {
        QFETCH(QString, server);
        QFETCH(QString, to);
        QFETCH(QString, from);
        QFETCH(QString, attach);
        QFETCH(QString, mentions);
        const QStringList files = attach.isEmpty() ? QStringList{} : QStringList{file("ok.txt", "x"), attach};
        QElapsedTimer t;
        t.start();
        const QString result = clsBaSp().SendMail(server.isEmpty() ? sink_.server() : server, to, from,
                                                  QStringLiteral("s"), QStringLiteral("b"), files);
        QVERIFY(!result.isEmpty());
        QVERIFY2(result.contains(mentions), qPrintable(result));
        QVERIFY2(t.elapsed() < 4000, qPrintable(QString::number(t.elapsed())));
        QCOMPARE(sink_.messages().size(), 0);
    }

    // Providers: STARTTLS or TLS from the start, a login, the server's certificate checked.
    void secured_data()
    {
        QTest::addColumn<QString>("server"); // %1: the port of the listener
        QTest::addColumn<QString>("listener");
        QTest::addColumn<QString>("login");
        QTest::addColumn<QString>("ca"); // "ca", "other", a path, or "" for the system's store
        QTest::addColumn<bool>("requireTls");
        QTest::addColumn<QString>("expected"); // "" sent, or a part of the error text
        const QString starttls = QStringLiteral("smtp://127.0.0.1:%1"), smtps = QStringLiteral("smtps://127.0.0.1:%1");
        const QString untrusted = QStringLiteral("証明書を確認できません");
        const QString denied = QStringLiteral("ログインを拒否しました");
        const QString loginNeeded = QStringLiteral("ログインを求めています");
        const QString noStarttls = QStringLiteral("暗号化 (STARTTLS) に応じない");
        row("STARTTLS, login from the environment", starttls, "starttls", "env", "ca", false, QString());
        row("STARTTLS, login from ~/.netrc", starttls, "starttls", "netrc", "ca", false, QString());
        row("implicit TLS", smtps, "smtps", "env", "ca", false, QString());
        row("wrong password", starttls, "starttls", "env:wrong", "ca", false, denied);
        row("no login where one is needed", starttls, "starttls", "", "ca", false, loginNeeded);
        row("host form never logs in", QStringLiteral("127.0.0.1:%1"), "starttls", "env", "ca", true, loginNeeded);
        row("system trust store", starttls, "starttls", "env", "", false, untrusted);
        row("another CA", starttls, "starttls", "env", "other", false, untrusted);
        row("name not in the certificate", QStringLiteral("smtp://localhost:%1"), "starttls", "env", "ca", false,
            untrusted);
        row("STARTTLS required, not offered", starttls, "plain", "", "ca", true, noStarttls);
        row("login where STARTTLS is not offered", starttls, "plain", "env", "ca", false,
            QStringLiteral("パスワードを送らずに中止しました"));
        row("implicit TLS to a plain server", smtps, "plain", "env", "ca", false,
            QStringLiteral("暗号化通信を始められません"));
        row("implicit TLS, silent server", smtps, "silent", "env", "ca", false, QStringLiteral("時間内に応答しません"));
        row("~/.netrc others can read", starttls, "starttls", "netrc:0644", "ca", false, QStringLiteral("chmod 600"));
        row("user without password", starttls, "starttls", "env:user", "ca", false,
            QString::fromLatin1(clsBaSp::kPasswordVariable));
        row("CA file missing", starttls, "starttls", "env", "/nonexistent/ca.pem", false,
            QStringLiteral("/nonexistent/ca.pem"));
    }
    void secured()
    {
        QFETCH(QString, server);
        QFETCH(QString, listener);
        QFETCH(QString, login);
        QFETCH(QString, ca);
        QFETCH(bool, requireTls);
        QFETCH(QString, expected);
        setLogin(login);
        mailtest::LocalPort silent(true);
        const QString port = listener == QLatin1String("silent") ? QString::number(silent.port)
                                                                 : sink_.server(listener).section(QLatin1Char(':'), 1);
        clsBaSp mailer;
        clsBaSp::Options o;
        o.connectTimeout = 2;
        o.totalTimeout = listener == QLatin1String("silent") ? 2 : 20;
        o.caFile = ca == QLatin1String("ca") ? sink_.caFile() : ca == QLatin1String("other") ? sink_.otherCaFile() : ca;
        o.requireTls = requireTls;
        mailer.setOptions(o);
        const QString result = mailer.SendMail(
            server.arg(port), QStringLiteral("tanaka@example.jp"), QStringLiteral("営業部 <sales@example.jp>"),
            QStringLiteral("件名"), QStringLiteral("本文"), QStringList{file("請求一括登録.txt", kCp932File)});
        if (!expected.isEmpty()) {
            QVERIFY2(result.contains(expected), qPrintable(result));
            QCOMPARE(sink_.messages().size(), 0);
            return;
        }
        QCOMPARE(result, QString());
        const QJsonObject m = onlyMessage();
        QCOMPARE(m["login"].toString(), mailtest::kSinkUser);
        QVERIFY(m["tls"].toBool());
        // the whole message went through the encrypted channel
        QCOMPARE(QByteArray::fromBase64(m["attachments"][0]["data"].toString().toLatin1()), kCp932File);
    }

    // The runner takes the same options and prints the result text; the login never goes on its command line.
    void runner_data()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("login");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("printed");
        const QString starttls = "smtp://" + sink_.server(QStringLiteral("starttls"));
        row("sent", starttls, QStringList{"--ca-file", sink_.caFile()}, "env", 0, "");
        row("TLS required", sink_.server(), QStringList{"--require-tls"}, "", 1, "STARTTLS");
        row("named netrc missing", starttls, QStringList{"--netrc", "/nonexistent/netrc"}, "", 1, "/nonexistent/netrc");
    }
    void runner()
    {
        QFETCH(QString, server);
        QFETCH(QStringList, options);
        QFETCH(QString, login);
        QFETCH(int, code);
        QFETCH(QString, printed);
        setLogin(login);
        QProcess batch;
        batch.start(QStringLiteral(MAIL_BATCH),
                    QStringList{"mail", "--server", server, "--to", "t@example.jp", "--from", "f@example.jp",
                                "--subject", "件名", "--body", "本文"} +
                        options);
        QVERIFY(batch.waitForFinished(30000));
        const QString out = QString::fromUtf8(batch.readAllStandardOutput());
        QCOMPARE(batch.exitCode(), code);
        if (printed.isEmpty())
            QCOMPARE(out, QStringLiteral("\n"));
        else
            QVERIFY2(out.contains(printed), qPrintable(out));
        QCOMPARE(sink_.messages().size(), code == 0 ? 1 : 0);
    }
};

QTEST_GUILESS_MAIN(SendMailTest)
#include "sendmail_test.moc"
