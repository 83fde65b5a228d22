#include "mail/clsbasp.h"

#include "app/cp932.h"
#include "mail/mimemessage.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <curl/curl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>

namespace pel {
namespace {

enum class Tls {
    None,     // "host", "host:port": plain SMTP without a login, as these forms have always meant
    StartTls, // "smtp://": upgraded with STARTTLS when the server offers it (required when asked or logging in)
    Implicit, // "smtps://": TLS from the first byte
};

struct Server {
    QString host; // as it goes into the URL (an IPv6 address keeps its brackets)
    int port = 25;
    Tls tls = Tls::None;
};

bool parseServer(const QString& text, Server* server, QString* error)
{
    QString s = text.trimmed();
    const auto bad = [&] {
        *error = QStringLiteral("メールサーバーの指定が正しくありません: %1").arg(text.trimmed());
        return false;
    };
    server->tls = Tls::None;
    server->port = 25;
    if (const qsizetype scheme = s.indexOf(QLatin1String("://")); scheme >= 0) {
        const QString name = s.left(scheme).toLower();
        if (name == QLatin1String("smtp")) {
            server->tls = Tls::StartTls;
        } else if (name == QLatin1String("smtps")) {
            server->tls = Tls::Implicit;
            server->port = 465;
        } else {
            return bad();
        }
        s = s.mid(scheme + 3);
        if (s.endsWith(QLatin1Char('/')))
            s.chop(1);
    }
    QString host = s;
    QString port;
    if (s.startsWith(QLatin1Char('['))) {
        const qsizetype close = s.indexOf(QLatin1Char(']'));
        if (close < 0)
            return bad();
        host = s.left(close + 1);
        const QString rest = s.mid(close + 1);
        if (!rest.isEmpty()) {
            if (!rest.startsWith(QLatin1Char(':')))
                return bad();
            port = rest.mid(1);
        }
    } else if (s.count(QLatin1Char(':')) == 1) {
        host = s.section(QLatin1Char(':'), 0, 0).trimmed();
        port = s.section(QLatin1Char(':'), 1).trimmed();
    }
    if (host.isEmpty()) {
        *error = QStringLiteral("メールサーバーが指定されていません");
        return false;
    }
    static const QRegularExpression validHost(QStringLiteral("^([A-Za-z0-9._\\-]+|\\[[0-9A-Fa-f:.]+\\])$"));
    if (!validHost.match(host).hasMatch())
        return bad();
    server->host = host;
    if (!port.isNull()) {
        bool ok = false;
        const int p = port.toInt(&ok);
        if (!ok || p < 1 || p > 65535) {
            *error = QStringLiteral("メールサーバーのポート番号が正しくありません: %1").arg(text.trimmed());
            return false;
        }
        server->port = p;
    }
    return true;
}

struct CurlDeleter {
    void operator()(CURL* c) const { curl_easy_cleanup(c); }
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

struct Upload {
    const QByteArray* data;
    qsizetype sent = 0;
};

size_t readUpload(char* buffer, size_t size, size_t count, void* user)
{
    auto* up = static_cast<Upload*>(user);
    const auto left = static_cast<size_t>(up->data->size() - up->sent);
    const size_t n = std::min(left, size * count);
    std::memcpy(buffer, up->data->constData() + up->sent, n);
    up->sent += static_cast<qsizetype>(n);
    return n;
}

// Where the login comes from: the environment, or a netrc file that libcurl reads itself.
struct Login {
    QByteArray user, password;
    QByteArray netrc;
    bool any() const { return !user.isEmpty() || !netrc.isEmpty(); }
};

bool findLogin(const QString& namedNetrc, Login* login, QString* error)
{
    const bool haveUser = !qEnvironmentVariableIsEmpty(clsBaSp::kUserVariable);
    const bool havePassword = !qEnvironmentVariableIsEmpty(clsBaSp::kPasswordVariable);
    if (haveUser || havePassword) {
        if (!haveUser || !havePassword) {
            *error = QStringLiteral("環境変数 %1 と %2 は両方とも設定してください")
                         .arg(QLatin1String(clsBaSp::kUserVariable), QLatin1String(clsBaSp::kPasswordVariable));
            return false;
        }
        login->user = qgetenv(clsBaSp::kUserVariable);
        login->password = qgetenv(clsBaSp::kPasswordVariable);
        return true;
    }
    const QString path = namedNetrc.isEmpty() ? QDir::homePath() + QStringLiteral("/.netrc") : namedNetrc;
    const QByteArray local = QFile::encodeName(path);
    struct stat st = {};
    if (::stat(local.constData(), &st) != 0) {
        if (namedNetrc.isEmpty())
            return true; // no login
        *error = QStringLiteral("netrc ファイルが見つかりません: %1").arg(path);
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        *error = QStringLiteral("netrc ファイルが見つかりません: %1").arg(path);
        return false;
    }
    // A password file others can read has already leaked; using it would only hide that.
    if (st.st_uid != ::geteuid()) {
        *error = QStringLiteral("netrc ファイル %1 の所有者が本人ではないため使いません").arg(path);
        return false;
    }
    if ((st.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        *error = QStringLiteral("netrc ファイル %1 は本人以外も読めるため使いません。"
                                "chmod 600 %1 で本人だけが読めるようにしてください")
                     .arg(path);
        return false;
    }
    login->netrc = local;
    return true;
}

QString transfer(const Server& server, const Login& login, const QByteArray& from, const QList<QByteArray>& recipients,
                 const QByteArray& message, const clsBaSp::Options& options)
{
    // curl_global_init is not thread-safe itself; the easy handles are, one per send.
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

    const std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
    if (!curl)
        return QStringLiteral("メールを送信できません (通信の準備に失敗しました)");
    std::unique_ptr<curl_slist, CurlDeleter> rcpt;
    for (const QByteArray& r : recipients) {
        curl_slist* next = curl_slist_append(rcpt.get(), ('<' + r + '>').constData());
        if (!next)
            return QStringLiteral("メールを送信できません (通信の準備に失敗しました)");
        (void)rcpt.release();
        rcpt.reset(next);
    }
    const QByteArray where = server.host.toLatin1() + ':' + QByteArray::number(server.port);
    const QByteArray url = (server.tls == Tls::Implicit ? "smtps://" : "smtp://") + where;
    const QByteArray mailFrom = '<' + from + '>';
    const QByteArray caFile = QFile::encodeName(options.caFile);
    Upload upload{&message};
    char detail[CURL_ERROR_SIZE] = {};

    CURL* c = curl.get();
    curl_easy_setopt(c, CURLOPT_URL, url.constData());
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
    curl_easy_setopt(c, CURLOPT_MAIL_FROM, mailFrom.constData());
    curl_easy_setopt(c, CURLOPT_MAIL_RCPT, rcpt.get());
    curl_easy_setopt(c, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(c, CURLOPT_READFUNCTION, &readUpload);
    curl_easy_setopt(c, CURLOPT_READDATA, &upload);
    curl_easy_setopt(c, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(message.size()));
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, detail);
    // No signals: name look-up time-outs would otherwise use SIGALRM, unsafe beside Qt's threads.
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, static_cast<long>(options.connectTimeout));
    curl_easy_setopt(c, CURLOPT_TIMEOUT, static_cast<long>(options.totalTimeout));
    // A server that accepts the connection and then goes silent is given up before the overall limit.
    curl_easy_setopt(c, CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(std::min(30, options.totalTimeout)));

    // A password never travels unencrypted: with a login, STARTTLS is required.
    const bool requireTls = options.requireTls || login.any();
    if (server.tls != Tls::Implicit) {
        const long use = requireTls ? CURLUSESSL_ALL : server.tls == Tls::StartTls ? CURLUSESSL_TRY : CURLUSESSL_NONE;
        curl_easy_setopt(c, CURLOPT_USE_SSL, use);
    }
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!caFile.isEmpty()) {
        // The named file replaces the system's store rather than adding to it.
        curl_easy_setopt(c, CURLOPT_CAINFO, caFile.constData());
        curl_easy_setopt(c, CURLOPT_CAPATH, nullptr);
    }
    if (!login.user.isEmpty()) {
        curl_easy_setopt(c, CURLOPT_USERNAME, login.user.constData());
        curl_easy_setopt(c, CURLOPT_PASSWORD, login.password.constData());
    } else if (!login.netrc.isEmpty()) {
        curl_easy_setopt(c, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_OPTIONAL));
        curl_easy_setopt(c, CURLOPT_NETRC_FILE, login.netrc.constData());
    }

    const CURLcode rc = curl_easy_perform(c);
    if (rc == CURLE_OK)
        return QString();
    long reply = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &reply);
    const QString why = QString::fromLocal8Bit(detail[0] ? detail : curl_easy_strerror(rc)).trimmed();
    const QString at = QString::fromLatin1(where);
    switch (rc) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
        return QStringLiteral("メールサーバー %1 に接続できません: %2").arg(at, why);
    case CURLE_OPERATION_TIMEDOUT:
        return QStringLiteral("メールサーバー %1 が時間内に応答しません: %2").arg(at, why);
    case CURLE_LOGIN_DENIED:
        return QStringLiteral(
                   "メールサーバー %1 がログインを拒否しました。ユーザー名とパスワードを確かめてください: %2")
            .arg(at, why);
    case CURLE_PEER_FAILED_VERIFICATION:
        return QStringLiteral("メールサーバー %1 の証明書を確認できません。信頼できる発行元のものでないか、"
                              "サーバー名と一致しません: %2")
            .arg(at, why);
    case CURLE_SSL_CACERT_BADFILE:
        return QStringLiteral("CA 証明書ファイル %1 を読めません: %2")
            .arg(options.caFile.isEmpty() ? QStringLiteral("(システム)") : options.caFile, why);
    case CURLE_USE_SSL_FAILED:
        if (login.any() && !options.requireTls)
            return QStringLiteral("メールサーバー %1 が暗号化 (STARTTLS) に応じないため、パスワードを送らずに"
                                  "中止しました: %2")
                .arg(at, why);
        return QStringLiteral("メールサーバー %1 が暗号化 (STARTTLS) に応じないため送信しませんでした: %2")
            .arg(at, why);
    case CURLE_SSL_CONNECT_ERROR:
        return QStringLiteral("メールサーバー %1 と暗号化通信を始められません: %2").arg(at, why);
    default:
        if (reply == 530 && !login.any())
            return QStringLiteral("メールサーバー %1 はログインを求めています。%2 と %3、または netrc ファイルで"
                                  "ログインを設定し、サーバーを smtp:// か smtps:// で指定してください: %4")
                .arg(at, QLatin1String(clsBaSp::kUserVariable), QLatin1String(clsBaSp::kPasswordVariable), why);
        return QStringLiteral("メールサーバー %1 がメールを受け付けませんでした: %2").arg(at, why);
    }
}

} // namespace

QString clsBaSp::Ango(const QString& strOrg, QString* error)
{
    Cp932Error e;
    const std::optional<QByteArray> bytes = Cp932::encode(strOrg, &e);
    if (!bytes) {
        if (error)
            *error = e.message;
        return QString();
    }
    return QString::fromLatin1(bytes->toBase64());
}

QString clsBaSp::Fukugo(const QString& strOrg, QString* error)
{
    QByteArray b64 = strOrg.toLatin1();
    b64.removeIf([](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
    // toLatin1 turns anything outside Latin-1 into '?', which the strict decoding below refuses.
    const auto decoded = QByteArray::fromBase64Encoding(b64, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded) {
        if (error)
            *error = QStringLiteral("Base64 の文字列ではありません");
        return QString();
    }
    Cp932Error e;
    std::optional<QString> text = Cp932::decode(*decoded, &e);
    if (!text) {
        if (error)
            *error = e.message;
        return QString();
    }
    return *text;
}

QStringList clsBaSp::splitFiles(const QString& strFiles)
{
    static const QRegularExpression separators(QStringLiteral("[\t;]"));
    QStringList out;
    for (const QString& part : strFiles.split(separators)) {
        const QString t = part.trimmed();
        if (!t.isEmpty())
            out.append(t);
    }
    return out;
}

QString clsBaSp::SendMail(const QString& strServer, const QString& strTo, const QString& strFrom,
                          const QString& strSubj, const QString& strBody, const QString& strFiles) const
{
    return SendMail(strServer, strTo, strFrom, strSubj, strBody, splitFiles(strFiles));
}

QString clsBaSp::SendMail(const QString& strServer, const QString& strTo, const QString& strFrom,
                          const QString& strSubj, const QString& strBody, const QStringList& strFiles) const
{
    QString error;
    Server server;
    if (!parseServer(strServer, &server, &error))
        return error;

    mail::Message m;
    if (strFrom.trimmed().isEmpty())
        return QStringLiteral("差出人が指定されていません");
    if (!mail::parseMailbox(strFrom, &m.from, &error))
        return error;
    const QStringList to = mail::splitList(strTo);
    if (to.isEmpty())
        return QStringLiteral("宛先が指定されていません");
    QList<QByteArray> recipients;
    for (const QString& entry : to) {
        mail::Mailbox box;
        if (!mail::parseMailbox(entry, &box, &error))
            return error;
        m.to.append(box);
        recipients.append(box.address.toLatin1());
    }

    // Every file is read before connecting, so a missing one stops the mail before anything is sent.
    for (const QString& path : strFiles) {
        const QFileInfo info(path);
        if (!info.exists() || !info.isFile())
            return QStringLiteral("添付ファイルが見つかりません: %1").arg(path);
        QFile f(path);
        if (!f.open(QIODevice::ReadOnly))
            return QStringLiteral("添付ファイルを読めません: %1 (%2)").arg(path, f.errorString());
        m.attachments.append({info.fileName(), f.readAll()});
        if (f.error() != QFileDevice::NoError)
            return QStringLiteral("添付ファイルを読めません: %1 (%2)").arg(path, f.errorString());
    }
    m.subject = strSubj;
    m.body = strBody;
    // Only the forms with a scheme log in: "host" keeps meaning plain SMTP without one.
    Login login;
    if (server.tls != Tls::None && !findLogin(options_.netrcFile, &login, &error))
        return error;
    if (!options_.caFile.isEmpty() && !QFileInfo(options_.caFile).isFile())
        return QStringLiteral("CA 証明書ファイルが見つかりません: %1").arg(options_.caFile);
    return transfer(server, login, m.from.address.toLatin1(), recipients, mail::build(m), options_);
}

} // namespace pel
