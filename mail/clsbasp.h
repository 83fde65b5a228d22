#pragma once
// Base64 of text in the suite's encoding (CP932) and sending one mail through SMTP.
#include <QString>
#include <QStringList>

namespace pel {

class clsBaSp {
public:
    // Base64 of the text's CP932 bytes. A character with no CP932 form gives "" (and the reason in *error):
    // a Base64 that silently stood for different text would be worse than none.
    static QString Ango(const QString& strOrg, QString* error = nullptr);
    // The text back from Base64 of CP932 bytes. Line breaks and blanks in the input are ignored; anything
    // that is not Base64 or not CP932 gives "" (and the reason in *error).
    static QString Fukugo(const QString& strOrg, QString* error = nullptr);

    // Sends one mail and returns "" when the server accepted it, otherwise a short error text.
    //  strServer: "host" or "host:port" (port 25 by default; "[v6addr]:port" for IPv6).
    //  strTo:     addresses separated by commas or semicolons; blanks are trimmed, empty entries skipped.
    //  strFrom:   "addr" or "name <addr>" (the name may be Japanese).
    //  strFiles:  paths of files to attach. Every file is read before connecting: a missing or unreadable
    //             one gives an error and nothing is sent.
    QString SendMail(const QString& strServer, const QString& strTo, const QString& strFrom, const QString& strSubj,
                     const QString& strBody, const QStringList& strFiles = {}) const;
    // The same with the attachments as one text, paths separated by tabs or semicolons (as the suite keeps
    // them in its settings); blanks around each path are trimmed and empty entries skipped.
    QString SendMail(const QString& strServer, const QString& strTo, const QString& strFrom, const QString& strSubj,
                     const QString& strBody, const QString& strFiles) const;

    // Splits an attachment text as SendMail does.
    static QStringList splitFiles(const QString& strFiles);

    // Time limits of one send, in seconds: reaching the server, and the whole exchange.
    void setConnectTimeout(int seconds) { connectTimeout_ = seconds; }
    void setTotalTimeout(int seconds) { totalTimeout_ = seconds; }

private:
    int connectTimeout_ = 5;
    int totalTimeout_ = 120;
};

} // namespace pel
