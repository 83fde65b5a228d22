#pragma once
// The one way any code reaches the user with a modal message box. The program installs a Qt implementation,
// the runner one that answers from its options, tests a scripted fake.
#include <QString>
#include <optional>

namespace pel {

// Message box codes: buttons + icon + default button, as the suite's dialogs are written.
namespace mb {
enum : int {
    OkOnly = 0,
    OkCancel = 1,
    AbortRetryIgnore = 2,
    YesNoCancel = 3,
    YesNo = 4,
    RetryCancel = 5,
    CancelTryContinue = 6,
    Critical = 16,
    Question = 32,
    Exclamation = 48,
    Information = 64,
    DefaultButton2 = 256,
    DefaultButton3 = 512,
};
inline int buttons(int style) { return style & 0x0F; }
inline int icon(int style) { return style & 0x70; }
inline int defaultButton(int style) { return (style & 0x300) >> 8; } // 0-based
} // namespace mb

// Answers, as the dialogs return them.
namespace answer {
enum : int { Ok = 1, Cancel = 2, Abort = 3, Retry = 4, Ignore = 5, Yes = 6, No = 7, TryAgain = 10, Continue = 11 };
}

inline const QString kProductTitle = QStringLiteral("ＰＥＬＯＮＡ");

class DialogService {
public:
    virtual ~DialogService() = default;
    // Shows text with the style's buttons and icon under title; returns the button pressed.
    virtual int messageBox(const QString& text, int style, const QString& title) = 0;
    // Lets pending window messages run once (repaint before a dialog, yield inside long loops).
    virtual void processEvents() {}

    enum class FileChoice { Open, Save };
    // A folder the user picks, starting at start; nullopt when the user cancels.
    virtual std::optional<QString> chooseFolder(const QString& title, const QString& start)
    {
        (void)title, (void)start;
        return std::nullopt;
    }
    // A file to open or to save, starting at start, with a name filter ("テキスト (*.txt)"); nullopt on cancel.
    virtual std::optional<QString> chooseFile(FileChoice kind, const QString& title, const QString& start,
                                              const QString& filter)
    {
        (void)kind, (void)title, (void)start, (void)filter;
        return std::nullopt;
    }
};

// The service in force; never null (a silent one answering the default button until one is installed).
DialogService& dialogs();
// Installs a service (not owned); nullptr restores the silent default. Returns the previous one.
DialogService* setDialogService(DialogService* service);

// Shorthand for a plain message box through the service in force.
int msgBox(const QString& text, int style = mb::OkOnly, const QString& title = kProductTitle);

// Where a file or folder chooser opens for a path: the path's folder (the path itself when it is a folder), or the
// nearest folder above it that exists; else the same for remembered; empty (the chooser's own choice) when neither
// names an absolute path.
QString startFolder(const QString& path, const QString& remembered = QString());
// Where a chooser for a file to write opens: that folder with the path's file name (else the remembered one's) filled
// in, so that OK keeps the name the box holds.
QString startFile(const QString& path, const QString& remembered = QString());

// The answer a dialog gives when the user just presses Enter: its default button.
int defaultAnswer(int style);

} // namespace pel
