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
    //  strServer: "host" or "host:port": plain SMTP without a login (port 25 by default; "[v6addr]:port" for IPv6);
    //             "smtp://host[:port]": STARTTLS when the server offers it, required with a login (port 25);
    //             "smtps://host[:port]": TLS from the start (port 465).
    //             The login of the scheme forms comes from kUserVariable and kPasswordVariable, else from the
    //             netrc file (libcurl reads it; one that others can read is refused).
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

    static constexpr const char* kUserVariable = "PEL008_SMTP_USER";
    static constexpr const char* kPasswordVariable = "PEL008_SMTP_PASSWORD";

    struct Options {
        int connectTimeout = 5; // seconds to reach the server
        int totalTimeout = 120; // seconds for the whole exchange
        // Certificates are checked against the system's trust store, or, when named, against this file only.
        QString caFile;
        // Send only over an encrypted connection, also to a "host" server: no STARTTLS, no mail.
        bool requireTls = false;
        // Where the login is read when the environment gives none; "" is .netrc in the home folder.
        QString netrcFile;
    };
    void setOptions(const Options& options) { options_ = options; }
    const Options& options() const { return options_; }
    void setConnectTimeout(int seconds) { options_.connectTimeout = seconds; }
    void setTotalTimeout(int seconds) { options_.totalTimeout = seconds; }

private:
    Options options_;
};

} // namespace pel
