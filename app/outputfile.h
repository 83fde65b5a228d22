#pragma once
// A file the program writes: every byte goes to a temporary file in the target's folder, and only a commit after a
// clean flush and close puts it in place, so a failed run leaves an existing file as it was. Appending extends a copy
// of the existing file. Every write is checked; the first failure is kept and makes the commit fail.
#include <QByteArray>
#include <QSaveFile>
#include <QString>

namespace pel {

class OutputFile {
public:
    enum class Mode { Replace, Append };

    explicit OutputFile(const QString& path) : file_(path) {}
    ~OutputFile() { discard(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Creates the temporary file (Append: with the existing file's bytes in it). False with error() set.
    bool open(Mode mode = Mode::Replace);
    bool isOpen() const { return file_.isOpen(); }
    // False once any write has failed; later writes are not tried.
    bool write(const QByteArray& bytes);
    // Flush and sync; false with error() set.
    bool flush();
    // Flush, sync, close and rename into place. False with error() set; the existing file is then untouched.
    bool commit();
    // Drops the temporary file; the existing file is untouched.
    void discard();

    // For writers that stream themselves (a PDF); their failures are caught by commit().
    QIODevice* device() { return &file_; }
    QString path() const { return file_.fileName(); }
    // The system's reason of the first failure.
    const QString& error() const { return error_; }
    // The message shown when the file could not be written: the file and the reason.
    QString failureText() const;

private:
    bool fail();

    QSaveFile file_;
    QString error_;
    bool failed_ = false;
};

// The failure message for a file that could not be written.
QString writeFailureText(const QString& path, const QString& reason);

// Copies from to to through an OutputFile; false with reason set when anything failed (to is then untouched).
bool copyFileSafely(const QString& from, const QString& to, QString* reason);

// Whether two paths name the same file: the same path once links are resolved, or the same file on disk.
bool sameFile(const QString& a, const QString& b);

} // namespace pel
