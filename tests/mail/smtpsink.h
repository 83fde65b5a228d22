#pragma once
// A local SMTP server for the mail tests (mail_sink.py), and ports where nobody answers.
#include <QDeadlineTimer>
#include <QDir>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mailtest {

// A socket bound to 127.0.0.1 on a port of the system's choosing; with listen, connections to it wait for a
// greeting that never comes.
struct LocalPort {
    explicit LocalPort(bool listen)
    {
        sockaddr_in a{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t len = sizeof a;
        if (::bind(fd, reinterpret_cast<sockaddr*>(&a), len) == 0 &&
            ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
            port = ntohs(a.sin_port);
        if (listen)
            ::listen(fd, 4);
    }
    ~LocalPort() { ::close(fd); }
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    int port = 0;
};

// A port nobody listens on: taken from the system and given back at once.
inline int closedPort()
{
    return LocalPort(false).port;
}

// The login the TLS listeners of the sink accept.
inline const QString kSinkUser = QStringLiteral("shop@example.jp");
inline const QString kSinkPassword = QStringLiteral("s3cret-パス");

class SmtpSink {
public:
    ~SmtpSink()
    {
        process_.kill();
        process_.waitForFinished(3000);
    }
    // Starts the server with its plain, STARTTLS and implicit TLS listeners (the last two take mail only after the
    // login). "" when it listens, otherwise why not.
    QString start()
    {
        const QStringList args{
            QStringLiteral(MAIL_SINK_DIR "/mail_sink.py"), dir_.path(), "--tls", certs_.path(), "--login",
            kSinkUser + QLatin1Char(':') + kSinkPassword};
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral(MAIL_SINK_PYTHON), args);
        // The first line names the ports: "plain=N starttls=N smtps=N".
        for (QDeadlineTimer t(20000); !t.hasExpired() && !process_.canReadLine();)
            if (!process_.waitForReadyRead(100) && process_.state() == QProcess::NotRunning)
                return QStringLiteral("the sink ended (its messages are above)");
        for (const QString& item : QString::fromLatin1(process_.readLine().trimmed()).split(QLatin1Char(' ')))
            ports_.insert(item.section(QLatin1Char('='), 0, 0), item.section(QLatin1Char('='), 1).toInt());
        return ports_.value(QStringLiteral("plain")) ? QString() : QStringLiteral("the sink did not start listening");
    }
    // "127.0.0.1:N" of a listener: "plain", "starttls" or "smtps".
    QString server(const QString& listener = QStringLiteral("plain")) const
    {
        return QStringLiteral("127.0.0.1:%1").arg(ports_.value(listener));
    }
    // The CA that signed the listeners' certificate, and one that did not.
    QString caFile() const { return certs_.filePath(QStringLiteral("ca.pem")); }
    QString otherCaFile() const { return certs_.filePath(QStringLiteral("other-ca.pem")); }
    // The messages received since the last clear, oldest first, as mail_sink.py describes them.
    QList<QJsonObject> messages() const
    {
        QList<QJsonObject> out;
        QDir d(dir_.path());
        for (const QString& name : d.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name)) {
            QFile f(d.filePath(name));
            if (f.open(QIODevice::ReadOnly))
                out.append(QJsonDocument::fromJson(f.readAll()).object());
        }
        return out;
    }
    void clear()
    {
        for (const QString& name : QDir(dir_.path()).entryList(QDir::Files))
            QFile::remove(dir_.filePath(name));
    }

private:
    QTemporaryDir dir_;
    QTemporaryDir certs_;
    QProcess process_;
    QHash<QString, int> ports_;
};

} // namespace mailtest
