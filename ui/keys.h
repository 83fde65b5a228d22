#pragma once
// Keyboard rules shared by every screen: Escape undo, Enter/arrow focus moves, the character sets of the field
// kinds and the Shift-JIS byte limit of text boxes.
#include <QObject>
#include <QString>
#include <functional>

class QWidget;
class QLineEdit;
class QKeyEvent;
class QInputMethodEvent;

namespace pel {

class FunctionBar;

// The field kind a text box holds ("0".."9" choose a character set; any other tag, or none, is not filtered).
void setFieldKind(QWidget* box, const QString& kind);
QString fieldKind(const QWidget* box);

// The control of form that has the focus; nullptr when none has.
QWidget* activeControl(QWidget* form);
// A control's place in the form's tab order (0-based); -1 when it is not in form.
int tabIndex(QWidget* form, QWidget* control);

// Escape undo of the field being typed in. A key set to 0 has been swallowed.
class clsKeyDown {
public:
    void fnKeyDown(QWidget* form, int& key);
    void fnKeyClear() { mintTabIndex = -1; }

    int mintTabIndex = -1;
    QString mstrText;
};

// Enter (and Up/Down when arrows) moves to the previous/next control in tab order that can take the focus.
void fnFocusMove(QWidget* form, int& key, bool arrows);
// The character typed into the active control: cleared when the field kind refuses it.
void fnKeyFilter(QWidget* form, QString& ch);
// Cleared (with a beep) when the character would make the text longer than the box's max length in bytes.
void fnKeyLength(QWidget* form, QString& ch);
// The byte-limit rule itself: Pass, Clear (the whole text is selected: it is emptied and the character let through)
// or Refuse. The selection is not subtracted from textBytes.
enum class LengthCheck { Pass, Clear, Refuse };
LengthCheck keyLengthCheck(int textBytes, qsizetype selectedLength, int max, const QString& ch);
// Max length of a text box as the byte limit; 0 when it has none.
int maxBytes(const QLineEdit* box);

// The form's key handling: key-down (Escape undo, focus moves, then the screen's own keys) and key-press (Enter and
// Escape swallowed, the character filter and the byte limit, also for text committed by an input method). Enter on
// a focused button presses it. A text box entered by any means has its whole text selected.
class FormKeys : public QObject {
    Q_OBJECT
public:
    // Screen's own key-down handling after the common one; returns true when it used the key.
    using ScreenKeys = std::function<bool(int key, Qt::KeyboardModifiers modifiers)>;

    FormKeys(QWidget* form, clsKeyDown* keyDown);
    ~FormKeys() override;
    void setScreenKeys(ScreenKeys keys) { screenKeys_ = std::move(keys); }
    // The toolbar whose buttons F1..F12 press (each only while its button is enabled).
    void setFunctionBar(FunctionBar* bar) { bar_ = bar; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool keyPress(QWidget* control, QKeyEvent* event);
    void inputMethod(QWidget* control, QInputMethodEvent* event);

    QWidget* form_;
    clsKeyDown* keyDown_;
    ScreenKeys screenKeys_;
    FunctionBar* bar_ = nullptr;
};

} // namespace pel
