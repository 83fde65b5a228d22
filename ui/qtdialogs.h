#pragma once
// The program's message boxes: the style code decides icon, buttons and default button, as the suite's screens
// expect; the answer codes are those of pel::answer.
#include "ui/dialogs.h"

#include <QList>
#include <QLocale>
#include <QPair>
#include <QString>
#include <memory>

class QAbstractButton;
class QMessageBox;

namespace pel {

// A message box built for a style, not yet shown, with the answer of each of its buttons.
struct BuiltMessageBox {
    std::unique_ptr<QMessageBox> box;
    QList<QPair<QAbstractButton*, int>> answers; // in button order
    int answerOf(QAbstractButton* button) const;
};
BuiltMessageBox buildMessageBox(const QString& text, int style, const QString& title);

class QtDialogService final : public DialogService {
public:
    int messageBox(const QString& text, int style, const QString& title) override;
    void processEvents() override;
    std::optional<QString> chooseFolder(const QString& title, const QString& start) override;
    std::optional<QString> chooseFile(FileChoice kind, const QString& title, const QString& start,
                                      const QString& filter) override;
};

// Text to stderr, default button answered, no window: for headless runs of the real program.
class StderrDialogService final : public DialogService {
public:
    int messageBox(const QString& text, int style, const QString& title) override;
    void processEvents() override;
};

// Installs the Qt message boxes (or, with PEL008_NO_DIALOGS=1, the stderr ones) for the rest of the process,
// and the Japanese UI font. Call once after the QApplication exists.
void installQtDialogs();

// Qt's own texts (file and folder choosers, print dialog) in the user's language: Qt's translation for locale from
// Qt's translations folder, or the Japanese one when Qt has none for it (the suite is a Japanese program). Call
// after the QApplication exists; a later call replaces the earlier one. Returns the file loaded; empty when none
// could be (a line on stderr says so, and Qt's texts stay English).
QString installQtTranslation(const QLocale& locale = QLocale());

} // namespace pel
