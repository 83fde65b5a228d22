#include "mail/mimemessage.h"

#include <QLocale>
#include <QRandomGenerator>
#include <QRegularExpression>

namespace pel::mail {
namespace {

constexpr qsizetype kLineLimit = 78;
// 39 UTF-8 bytes make 52 Base64 characters: "=?UTF-8?B?" + 52 + "?=" = 64, so "Subject: " plus one word
// still fits a 78-character line.
constexpr qsizetype kWordBytes = 39;
constexpr qsizetype kBase64Line = 76;

QByteArray randomHex(int bytes)
{
    QByteArray raw(bytes, Qt::Uninitialized);
    for (char& c : raw)
        c = static_cast<char>(QRandomGenerator::system()->bounded(256));
    return raw.toHex();
}

// The text split into whole code points, each as its UTF-8 bytes (a surrogate pair stays together).
QList<QByteArray> utf8CodePoints(const QString& text)
{
    QList<QByteArray> out;
    for (qsizetype i = 0; i < text.size(); ++i) {
        qsizetype n = 1;
        if (text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            n = 2;
        out.append(text.mid(i, n).toUtf8());
        i += n - 1;
    }
    return out;
}

// Control characters would break a header apart or hide text; a blank shows where they were.
QString headerText(const QString& text)
{
    QString s = text;
    for (QChar& c : s)
        if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            c = QLatin1Char(' ');
    return s;
}

bool isPlainAscii(const QString& text)
{
    for (QChar c : text)
        if (c.unicode() < 0x20 || c.unicode() > 0x7E)
            return false;
    return true;
}

// "Name:" followed by the tokens, blank-separated, with a new (blank-led) line before a token that would
// pass the line limit.
QByteArray foldHeader(const QByteArray& name, const QList<QByteArray>& tokens)
{
    QByteArray out = name + ':';
    qsizetype lineLength = out.size();
    bool tokenOnLine = false;
    for (const QByteArray& t : tokens) {
        if (tokenOnLine && lineLength + 1 + t.size() > kLineLimit) {
            out += "\r\n";
            lineLength = 0;
        }
        out += ' ' + t;
        lineLength += 1 + t.size();
        tokenOnLine = true;
    }
    return out + "\r\n";
}

QByteArray quoted(const QString& text)
{
    QByteArray q = "\"";
    for (char c : text.toLatin1()) {
        if (c == '"' || c == '\\')
            q += '\\';
        q += c;
    }
    return q + '"';
}

QList<QByteArray> mailboxTokens(const Mailbox& box)
{
    const QString name = headerText(box.name).trimmed();
    const QByteArray address = box.address.toLatin1();
    if (name.isEmpty())
        return {address};
    QList<QByteArray> tokens = isPlainAscii(name) ? QList<QByteArray>{quoted(name)} : encodedWords(name);
    tokens.append('<' + address + '>');
    return tokens;
}

QByteArray base64Lines(const QByteArray& data)
{
    const QByteArray b64 = data.toBase64();
    QByteArray out;
    out.reserve(b64.size() + b64.size() / kBase64Line * 2 + 2);
    for (qsizetype i = 0; i < b64.size(); i += kBase64Line)
        out += b64.mid(i, kBase64Line) + "\r\n";
    return out;
}

// Text bodies travel with CR LF line ends whatever the caller used.
QString crlfText(const QString& text)
{
    QString s = text;
    s.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    s.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    s.replace(QLatin1Char('\n'), QLatin1String("\r\n"));
    return s;
}

// A file name that can go as a plain quoted parameter everywhere.
bool isSimpleFileName(const QString& name)
{
    if (name.isEmpty() || name.size() > 60 || !isPlainAscii(name))
        return false;
    return !name.contains(QLatin1Char('"')) && !name.contains(QLatin1Char('\\'));
}

QByteArray attachmentPart(const Attachment& a)
{
    const QString fileName = a.fileName.isEmpty() ? QStringLiteral("file") : headerText(a.fileName);
    QByteArray out = "Content-Type: application/octet-stream;\r\n";
    if (isSimpleFileName(fileName)) {
        out += " name=" + quoted(fileName) + "\r\n";
        out += "Content-Disposition: attachment;\r\n filename=" + quoted(fileName) + "\r\n";
    } else {
        // RFC 2231 is the standard form; the RFC 2047 name= is what many Japanese mail programs still read.
        QList<QByteArray> words = encodedWords(fileName);
        words.front().prepend("name=\"");
        words.back().append('"');
        out += foldHeader(QByteArray(), words).mid(1); // folded like a header; the name-less ":" dropped
        out += "Content-Disposition: attachment";
        for (const QByteArray& part : rfc2231Parameter("filename", fileName))
            out += ";\r\n " + part;
        out += "\r\n";
    }
    out += "Content-Transfer-Encoding: base64\r\n\r\n";
    out += base64Lines(a.data);
    return out;
}

} // namespace

QStringList splitList(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,;]"));
    QStringList out;
    for (const QString& part : text.split(separators)) {
        const QString t = part.trimmed();
        if (!t.isEmpty())
            out.append(t);
    }
    return out;
}

bool parseMailbox(const QString& text, Mailbox* box, QString* error)
{
    QString name;
    QString address = text.trimmed();
    const qsizetype open = address.lastIndexOf(QLatin1Char('<'));
    if (open >= 0 && address.endsWith(QLatin1Char('>'))) {
        name = address.left(open).trimmed();
        if (name.size() >= 2 && name.startsWith(QLatin1Char('"')) && name.endsWith(QLatin1Char('"')))
            name = name.mid(1, name.size() - 2);
        address = address.mid(open + 1, address.size() - open - 2).trimmed();
    }
    // Only plain 7-bit addresses: the envelope and the headers carry them unencoded.
    static const QRegularExpression valid(QStringLiteral("^[!#-'*+\\-/-9=?A-Z^-~.]+@[A-Za-z0-9.\\-\\[\\]:]+$"));
    if (!valid.match(address).hasMatch()) {
        if (error)
            *error = QStringLiteral("メールアドレスが正しくありません: %1").arg(text.trimmed());
        return false;
    }
    box->name = name;
    box->address = address;
    return true;
}

QByteArray rfc5322Date(const QDateTime& when)
{
    const QLocale c = QLocale::c();
    const int offset = when.offsetFromUtc() / 60;
    const int absOffset = offset < 0 ? -offset : offset;
    return c.toString(when, QStringLiteral("ddd, dd MMM yyyy HH:mm:ss ")).toLatin1() + (offset < 0 ? '-' : '+') +
           QByteArray::number(absOffset / 60).rightJustified(2, '0') +
           QByteArray::number(absOffset % 60).rightJustified(2, '0');
}

QList<QByteArray> encodedWords(const QString& text)
{
    QList<QByteArray> words;
    QByteArray chunk;
    const auto flush = [&] {
        if (!chunk.isEmpty())
            words.append("=?UTF-8?B?" + chunk.toBase64() + "?=");
        chunk.clear();
    };
    for (const QByteArray& cp : utf8CodePoints(text)) {
        if (chunk.size() + cp.size() > kWordBytes)
            flush();
        chunk += cp;
    }
    flush();
    return words;
}

QList<QByteArray> rfc2231Parameter(const QByteArray& name, const QString& value)
{
    // attribute-char of RFC 2231: these pass unescaped, every other byte as %XX.
    static const QByteArray plain = "!#$&+-.^_`|~";
    // A part goes on a line of its own after a blank and before a ';'.
    constexpr qsizetype kPartLength = kLineLimit - 2;
    const auto prefix = [&](qsizetype index) {
        return name + '*' + QByteArray::number(index) + "*=" + (index == 0 ? "UTF-8''" : "");
    };
    QList<QByteArray> parts{prefix(0)};
    for (const QByteArray& cp : utf8CodePoints(value)) {
        QByteArray escaped;
        for (char ch : cp) {
            const auto b = static_cast<unsigned char>(ch);
            if ((b >= '0' && b <= '9') || (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') || plain.contains(ch))
                escaped += ch;
            else
                escaped += '%' + QByteArray::number(b, 16).rightJustified(2, '0').toUpper();
        }
        // A character's bytes stay in one part: some readers decode each part on its own.
        if (parts.back().size() + escaped.size() > kPartLength)
            parts.append(prefix(parts.size()));
        parts.back() += escaped;
    }
    // A short value needs no numbering.
    if (parts.size() == 1)
        return {name + "*=UTF-8''" + parts.front().mid(prefix(0).size())};
    return parts;
}

QByteArray build(const Message& m)
{
    const QDateTime date = m.date.isValid() ? m.date : QDateTime::currentDateTime();
    QString messageId = m.messageId;
    if (messageId.isEmpty()) {
        QString domain = m.from.address.section(QLatin1Char('@'), -1);
        if (domain.isEmpty() || domain.contains(QLatin1Char('[')))
            domain = QStringLiteral("localhost");
        messageId = date.toUTC().toString(QStringLiteral("yyyyMMddHHmmsszzz")) + QLatin1Char('.') +
                    QString::fromLatin1(randomHex(8)) + QLatin1Char('@') + domain;
    }

    QByteArray out;
    out += "Date: " + rfc5322Date(date) + "\r\n";
    out += "Message-ID: <" + messageId.toLatin1() + ">\r\n";
    out += foldHeader("From", mailboxTokens(m.from));
    QList<QByteArray> to;
    for (qsizetype i = 0; i < m.to.size(); ++i) {
        QList<QByteArray> tokens = mailboxTokens(m.to[i]);
        if (i + 1 < m.to.size())
            tokens.back() += ',';
        to += tokens;
    }
    out += foldHeader("To", to);
    const QString subject = headerText(m.subject);
    const bool plainSubject =
        isPlainAscii(subject) && !subject.contains(QLatin1String("=?")) && subject.size() + 9 <= kLineLimit;
    if (subject.isEmpty())
        out += "Subject: \r\n";
    else
        out += foldHeader("Subject", plainSubject ? QList<QByteArray>{subject.toLatin1()} : encodedWords(subject));
    out += "MIME-Version: 1.0\r\n";

    // UTF-8 holds every character the suite's texts can hold (CP932's extra characters included) and every
    // current Japanese mail program reads it; Base64 keeps the lines short and 7-bit for any server.
    const QByteArray textPart = "Content-Type: text/plain; charset=UTF-8\r\n"
                                "Content-Transfer-Encoding: base64\r\n\r\n" +
                                base64Lines(crlfText(m.body).toUtf8());
    if (m.attachments.isEmpty())
        return out + textPart;

    // "=_" cannot occur in Base64 or in an encoded word, so the boundary never meets the content.
    const QByteArray boundary = "=_pel008_" + randomHex(12);
    out += "Content-Type: multipart/mixed;\r\n boundary=\"" + boundary + "\"\r\n\r\n";
    out += "This is a multi-part message in MIME format.\r\n";
    out += "\r\n--" + boundary + "\r\n" + textPart;
    for (const Attachment& a : m.attachments)
        out += "\r\n--" + boundary + "\r\n" + attachmentPart(a);
    out += "\r\n--" + boundary + "--\r\n";
    return out;
}

} // namespace pel::mail
