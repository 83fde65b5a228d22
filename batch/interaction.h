#pragma once
// The runner's side of a job: every dialog's exact text on stderr, questions answered by --yes/--no, folder and
// file choices answered by the command's own options, result rows on stdout as tab-separated lines (or kept for
// the JSON summary), Ctrl-C as the cancel request polled before each record.
#include "app/interaction.h"

#include <QTextStream>
#include <optional>

namespace pel::batch {

class CommandLineDialogs final : public DialogService {
public:
    CommandLineDialogs(QTextStream& err, bool yes) : err_(err), yes_(yes) {}
    int messageBox(const QString& text, int style, const QString& title) override;
    std::optional<QString> chooseFolder(const QString& title, const QString& start) override;
    std::optional<QString> chooseFile(FileChoice kind, const QString& title, const QString& start,
                                      const QString& filter) override;

    // What the next folder or file choice answers; unset: the choice is cancelled (and said on stderr).
    void answerFolder(const std::optional<QString>& folder) { folder_ = folder; }
    void answerFile(const std::optional<QString>& file) { file_ = file; }

private:
    QTextStream& err_;
    bool yes_;
    std::optional<QString> folder_;
    std::optional<QString> file_;
};

class CommandInteraction final : public Interaction {
public:
    // rows: where result rows go as tab-separated lines; nullptr keeps them only in rows().
    explicit CommandInteraction(QTextStream* rows);
    ~CommandInteraction() override;
    CommandInteraction(const CommandInteraction&) = delete;
    CommandInteraction& operator=(const CommandInteraction&) = delete;

    void yieldOnce() override {}
    void resultRow(const QStringList& row) override;
    bool cancelRequested() override;

    // Rows kept when no stream was given (for the JSON summary).
    const QList<QStringList>& rows() const { return rows_; }

private:
    QTextStream* out_;
    QList<QStringList> rows_;
};

} // namespace pel::batch
