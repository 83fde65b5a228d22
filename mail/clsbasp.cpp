#include "mail/clsbasp.h"

#include "app/cp932.h"
#include "mail/mimemessage.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>

namespace pel {
namespace {

struct Server {
    QString host; // as it goes into the URL (an IPv6 address keeps its brackets)
    int port = 25;
};

bool parseServer(const QString& text, Server* server, QString* error)
{
    const QString s = text.trimmed();
    QString host = s;
    QString port;
    if (s.startsWith(QLatin1Char('['))) {
        const qsizetype close = s.indexOf(QLatin1Char(']'));
        if (close < 0) {
            *error = QStringLiteral("メールサーバーの指定が正しくありません: %1").arg(s);
            return false;
        }
        host = s.left(close + 1);
        const QString rest = s.mid(close + 1);
        if (!rest.isEmpty()) {
            if (!rest.startsWith(QLatin1Char(':'))) {
                *error = QStringLiteral("メールサーバーの指定が正しくありません: %1").arg(s);
                return false;
            }
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
    if (!validHost.match(host).hasMatch()) {
        *error = QStringLiteral("メールサーバーの指定が正しくありません: %1").arg(s);
        return false;
    }
    server->host = host;
    server->port = 25;
    if (!port.isNull()) {
        bool ok = false;
        const int p = port.toInt(&ok);
        if (!ok || p < 1 || p > 65535) {
            *error = QStringLiteral("メールサーバーのポート番号が正しくありません: %1").arg(s);
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

QString transfer(const Server& server, const QByteArray& from, const QList<QByteArray>& recipients,
                 const QByteArray& message, int connectTimeout, int totalTimeout)
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
    const QByteArray url = "smtp://" + where;
    const QByteArray mailFrom = '<' + from + '>';
    Upload upload{&message};
    char detail[CURL_ERROR_SIZE] = {};

    CURL* c = curl.get();
    curl_easy_setopt(c, CURLOPT_URL, url.constData());
    curl_easy_setopt(c, CURLOPT_MAIL_FROM, mailFrom.constData());
    curl_easy_setopt(c, CURLOPT_MAIL_RCPT, rcpt.get());
    curl_easy_setopt(c, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(c, CURLOPT_READFUNCTION, &readUpload);
    curl_easy_setopt(c, CURLOPT_READDATA, &upload);
    curl_easy_setopt(c, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(message.size()));
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, detail);
    // No signals: name look-up time-outs would otherwise use SIGALRM, unsafe beside Qt's threads.
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, static_cast<long>(connectTimeout));
    curl_easy_setopt(c, CURLOPT_TIMEOUT, static_cast<long>(totalTimeout));
    // A server that accepts the connection and then goes silent is given up before the overall limit.
    curl_easy_setopt(c, CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(std::min(30, totalTimeout)));

    const CURLcode rc = curl_easy_perform(c);
    if (rc == CURLE_OK)
        return QString();
    const QString why = QString::fromLocal8Bit(detail[0] ? detail : curl_easy_strerror(rc)).trimmed();
    const QString at = QString::fromLatin1(where);
    switch (rc) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
        return QStringLiteral("メールサーバー %1 に接続できません: %2").arg(at, why);
    case CURLE_OPERATION_TIMEDOUT:
        return QStringLiteral("メールサーバー %1 が時間内に応答しません: %2").arg(at, why);
    default:
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
    return transfer(server, m.from.address.toLatin1(), recipients, mail::build(m), connectTimeout_, totalTimeout_);
}

} // namespace pel
