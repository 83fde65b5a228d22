#pragma once
// Building the text of one mail as Japanese mail programs read it: MIME, encoded headers, CR LF, short lines.
#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

namespace pel::mail {

struct Mailbox {
    QString name;    // display name, may be empty
    QString address; // the bare address used in the SMTP envelope
};

// "addr" or "name <addr>"; false (with the reason in *error) when no usable address is there.
bool parseMailbox(const QString& text, Mailbox* box, QString* error);
// Entries separated by commas or semicolons, trimmed, empty ones skipped.
QStringList splitList(const QString& text);

struct Attachment {
    QString fileName; // the name shown to the receiver (no folder)
    QByteArray data;
};

struct Message {
    Mailbox from;
    QList<Mailbox> to;
    QString subject;
    QString body;
    QList<Attachment> attachments;
    QDateTime date;    // when invalid, now
    QString messageId; // without angle brackets; when empty, a new unique one
};

// The message as it goes after SMTP DATA: every line ends in CR LF and stays within 78 characters,
// and only 7-bit bytes are used so any server passes it unchanged.
QByteArray build(const Message& message);

// Pieces also used on their own.
QByteArray rfc5322Date(const QDateTime& when);
// RFC 2047 words (UTF-8, B) of at most 64 characters each, cut between characters; to be joined by blanks;
// none for an empty text.
QList<QByteArray> encodedWords(const QString& text);
// RFC 2231 parameter in UTF-8: one "name*=..." or, for a long value, continuation parts "name*0*=...", ...
QList<QByteArray> rfc2231Parameter(const QByteArray& name, const QString& value);

} // namespace pel::mail
