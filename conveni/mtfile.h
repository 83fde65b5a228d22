#pragma once
// Reading an agency's payment-result file line by line without holding it: CP932 decoded strictly, CR LF or LF
// line ends, the last line with or without its break, a trailing end-of-file byte 0x1A ignored.
#include <QDateTime>
#include <QFile>
#include <QString>

namespace pel {

class MtFile {
public:
    enum class Status { Line, End, Error };

    bool open(const QString& path);
    void close();
    bool isOpen() const { return file_.isOpen(); }
    // The next line, decoded; Error sets message() (a sentence for the user: not CP932, or a UTF-8 file).
    Status next(QString* line);
    // True once no line is left.
    bool atEnd();
    const QString& message() const { return message_; }
    // Whether every line read so far with bytes above 0x7F was valid UTF-8 with a multi-byte character in it:
    // a file saved as UTF-8 that happens to decode as CP932 too.
    bool looksUtf8() const { return utf8Lines_ > 0 && !nonUtf8_; }
    qint64 lineNumber() const { return lineNo_; }

    // The messages for the files we refuse.
    static QString utf8Message();
    static QString notCp932Message(qint64 line, const QString& detail);

private:
    bool fill();
    QFile file_;
    QByteArray pending_; // the next raw line, read ahead so that atEnd() sees end-of-file bytes
    bool havePending_ = false;
    qint64 lineNo_ = 0;
    qint64 utf8Lines_ = 0;
    bool nonUtf8_ = false;
    QString message_;
};

// Appends the marker line of an imported file, starting a new line when the file does not end with one. False
// when the file could not be read or written; it is then as it was.
bool appendReadMark(const QString& path);
// "path.yyyymmdd hh 24 m i ss" as the backup pattern "yyyymmddhh24miss" gives it for at.
QString backupName(const QString& path, const QDateTime& at);

} // namespace pel
