#pragma once
// A local SMTP server for the mail tests (aiosmtpd with mail_sink.py), and ports where nobody answers.
#include <QDeadlineTimer>
#include <QDir>
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

class SmtpSink {
public:
    ~SmtpSink()
    {
        process_.kill();
        process_.waitForFinished(3000);
    }
    // Starts the server on a free port; "" when it listens, otherwise why not.
    QString start()
    {
        port_ = closedPort();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("PYTHONPATH"), QStringLiteral(MAIL_SINK_DIR));
        process_.setProcessEnvironment(env);
        process_.setProcessChannelMode(QProcess::ForwardedChannels);
        process_.start(QStringLiteral(MAIL_SINK_PYTHON),
                       {"-m", "aiosmtpd", "-n", "-l", server(), "-c", "mail_sink.Sink", dir_.path()});
        for (QDeadlineTimer t(10000); !t.hasExpired();) {
            const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a{AF_INET, htons(static_cast<uint16_t>(port_)), {htonl(INADDR_LOOPBACK)}, {}};
            const bool up = ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
            ::close(fd);
            if (up)
                return QString();
            if (process_.waitForFinished(30) || process_.state() == QProcess::NotRunning)
                return QStringLiteral("aiosmtpd ended (its messages are above)");
        }
        return QStringLiteral("aiosmtpd did not start listening");
    }
    QString server() const { return QStringLiteral("127.0.0.1:%1").arg(port_); }
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
    QProcess process_;
    int port_ = 0;
};

} // namespace mailtest
