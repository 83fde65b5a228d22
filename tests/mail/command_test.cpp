// pel008-batch mail: exit codes and printed result.
#include "smtpsink.h"

#include <QTest>

class MailCommandTest : public QObject {
    Q_OBJECT
    mailtest::SmtpSink sink_;

private slots:
    void initTestCase()
    {
        const QString why = sink_.start();
        if (!why.isEmpty())
            QSKIP(qPrintable(QStringLiteral("no local SMTP server: ") + why));
    }

    void run_data()
    {
        QTest::addColumn<QString>("server"); // "sink", "closed" or a literal
        QTest::addColumn<QStringList>("extra");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("received");
        QTest::newRow("sent") << "sink" << QStringList{"--attach", QStringLiteral(MAIL_SINK_DIR "/mail_sink.py")} << 0 << 1;
        QTest::newRow("missing attachment") << "sink" << QStringList{"--attach", "/nonexistent"} << 1 << 0;
        QTest::newRow("closed port") << "closed" << QStringList{} << 1 << 0;
        QTest::newRow("option without value") << "sink" << QStringList{"--attach"} << 2 << 0;
        QTest::newRow("unknown option") << "sink" << QStringList{"--cc", "x@example.jp"} << 2 << 0;
    }
    void run()
    {
        QFETCH(QString, server);
        QFETCH(QStringList, extra);
        QFETCH(int, exitCode);
        QFETCH(int, received);
        sink_.clear();
        const QString where = server == QLatin1String("sink") ? sink_.server()
                                                             : QStringLiteral("127.0.0.1:%1").arg(mailtest::closedPort());
        QProcess p;
        p.start(QStringLiteral(PEL008_BATCH), QStringList{"mail", "--server", where, "--to", "a@example.jp; b@example.jp",
                                                           "--from", "f@example.jp", "--subject", "件名", "--body", "本文"} +
                                                  extra);
        QVERIFY(p.waitForFinished(15000));
        QCOMPARE(p.exitCode(), exitCode);
        const QByteArray out = p.readAllStandardOutput();
        if (exitCode == 0)
            QCOMPARE(out, QByteArray("\n"));
        else if (exitCode == 1)
            QVERIFY(out.trimmed().size() > 0);
        QCOMPARE(sink_.messages().size(), received);
    }

    void missingRequiredOption()
    {
        QProcess p;
        p.start(QStringLiteral(PEL008_BATCH), {"mail", "--server", sink_.server(), "--to", "a@example.jp"});
        QVERIFY(p.waitForFinished(15000));
        QCOMPARE(p.exitCode(), 2);
    }
};

QTEST_GUILESS_MAIN(MailCommandTest)
#include "command_test.moc"
