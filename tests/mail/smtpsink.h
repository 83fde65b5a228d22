#pragma once
// A local SMTP server for the mail tests (aiosmtpd with mail_sink.py), and ports where nobody answers.
#include <QDeadlineTimer>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mailtest {

// A socket on 127.0.0.1 with a port of the system's choosing; listening or not, it is closed on destruction.
class LocalPort {
public:
    explicit LocalPort(bool listen)
    {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (::bind(fd_, reinterpret_cast<sockaddr*>(&a), len) == 0 &&
            ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len) == 0)
            port_ = ntohs(a.sin_port);
        if (listen)
            ::listen(fd_, 4); // never accepts: connections wait for a greeting that does not come
    }
    ~LocalPort() { close(); }
    LocalPort(const LocalPort&) = delete;
    LocalPort& operator=(const LocalPort&) = delete;
    void close()
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }
    int port() const { return port_; }

private:
    int fd_ = -1;
    int port_ = 0;
};

// A port nobody listens on: taken from the system and given back at once.
inline int closedPort()
{
    return LocalPort(false).port();
}

inline bool accepts(int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<uint16_t>(port));
    const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    ::close(fd);
    return ok;
}

class SmtpSink {
public:
    ~SmtpSink()
    {
        process_.kill();
        process_.waitForFinished(3000);
    }
    // Starts the server on a free port; "" when it runs, otherwise why not.
    QString start()
    {
        if (!dir_.isValid())
            return QStringLiteral("no temporary folder");
        port_ = closedPort();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("PYTHONPATH"), QStringLiteral(MAIL_SINK_DIR));
        process_.setProcessEnvironment(env);
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QStringLiteral(MAIL_SINK_PYTHON),
                       {QStringLiteral("-m"), QStringLiteral("aiosmtpd"), QStringLiteral("-n"), QStringLiteral("-l"),
                        QStringLiteral("127.0.0.1:%1").arg(port_), QStringLiteral("-c"),
                        QStringLiteral("mail_sink.Sink"), dir_.path()});
        for (QDeadlineTimer t(10000); !t.hasExpired();) {
            if (accepts(port_))
                return QString();
            if (process_.waitForFinished(30) || process_.state() == QProcess::NotRunning)
                return QStringLiteral("aiosmtpd ended (its messages are above)");
        }
        return QStringLiteral("aiosmtpd did not start listening");
    }
    QString server() const { return QStringLiteral("127.0.0.1:%1").arg(port_); }
    // The messages received since the last clear, oldest first.
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
        QDir d(dir_.path());
        for (const QString& name : d.entryList(QDir::Files))
            d.remove(name);
    }

private:
    QTemporaryDir dir_;
    QProcess process_;
    int port_ = 0;
};

} // namespace mailtest
