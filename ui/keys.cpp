#include "ui/keys.h"

#include "ui/functionbar.h"
#include "ui/textrules.h"

#include <QAbstractButton>
#include <QApplication>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QWidget>

namespace pel {
namespace {

const char* const kKindProperty = "tag";

// Every widget of the form in tab order.
QList<QWidget*> tabOrder(QWidget* form)
{
    QList<QWidget*> order;
    QWidget* w = form->nextInFocusChain();
    while (w && w != form) {
        if (form->isAncestorOf(w))
            order.append(w);
        w = w->nextInFocusChain();
    }
    return order;
}

bool canTakeTab(QWidget* w)
{
    return (w->focusPolicy() & Qt::TabFocus) == Qt::TabFocus && !w->focusProxy() && w->isEnabled() &&
           w->isVisible();
}

const QString& allowed(int kind)
{
    static const QString symbols = QStringLiteral("!\"#$%&()=~|-^\\`{@[+*};:]<>?_,./");
    static const QString alnum = QStringLiteral(" 1234567890ABCDEFGHIJKLMNOPQRSTUVWXYZ") + symbols;
    static const QString sets[10] = {
        QStringLiteral(" 1234567890,"),
        QStringLiteral(" 1234567890-"),
        QStringLiteral(" 1234567890."),
        QStringLiteral(" 1234567890-."),
        alnum,
        alnum + QStringLiteral("'ｱｲｳｴｵｶｷｸｹｺｻｼｽｾｿﾀﾁﾂﾃﾄﾅﾆﾇﾈﾉﾊﾋﾌﾍﾎﾏﾐﾑﾒﾓﾔﾕﾖﾗﾘﾙﾚﾛﾜｦﾝ｡ﾞﾟｧｨｩｪｫｬｭｮｯｰ"),
        QStringLiteral(" 1234567890"),
        QStringLiteral(" 1234567890,-"),
        QStringLiteral(" 123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"),
        QStringLiteral(" 1234567890,."),
    };
    return sets[kind];
}

int keyOf(const QKeyEvent* e)
{
    return e->key() == Qt::Key_Enter ? Qt::Key_Return : e->key();
}

} // namespace

void setFieldKind(QWidget* box, const QString& kind)
{
    box->setProperty(kKindProperty, kind);
}

QString fieldKind(const QWidget* box)
{
    return box->property(kKindProperty).toString();
}

QWidget* activeControl(QWidget* form)
{
    QWidget* w = form->focusWidget();
    return w && w != form && form->isAncestorOf(w) ? w : nullptr;
}

int tabIndex(QWidget* form, QWidget* control)
{
    return static_cast<int>(tabOrder(form).indexOf(control));
}

int maxBytes(const QLineEdit* box)
{
    // 32767 is a text box's own "no limit".
    const int m = box->maxLength();
    return m >= 32767 ? 0 : m;
}

void clsKeyDown::fnKeyDown(QWidget* form, int& key)
{
    QWidget* active = activeControl(form);
    if (!active)
        return;
    auto* box = qobject_cast<QLineEdit*>(active);
    if (!box) {
        mintTabIndex = -1;
        return;
    }
    const int index = tabIndex(form, box);
    if (index != mintTabIndex) {
        // First key in a newly entered field: this is the text Escape goes back to.
        mintTabIndex = index;
        mstrText = box->text();
        return;
    }
    if (key == Qt::Key_Escape && box->text() != mstrText) {
        box->setText(mstrText);
        mintTabIndex = -1;
        key = 0;
        box->selectAll();
    }
}

void fnFocusMove(QWidget* form, int& key, bool arrows)
{
    const bool up = arrows && key == Qt::Key_Up;
    const bool down = key == Qt::Key_Return || (arrows && key == Qt::Key_Down);
    if (!up && !down)
        return;
    QWidget* active = activeControl(form);
    if (!active)
        return;
    const QList<QWidget*> order = tabOrder(form);
    const qsizetype here = order.indexOf(active);
    QWidget* target = nullptr;
    if (up) {
        for (qsizetype i = here - 1; i >= 0 && !target; --i)
            if (canTakeTab(order[i]))
                target = order[i];
    } else {
        for (qsizetype i = here + 1; i < order.size() && !target; ++i)
            if (canTakeTab(order[i]))
                target = order[i];
    }
    if (target && target->isEnabled()) {
        // As the Tab key would: a text box entered this way has its whole text selected.
        target->setFocus(up ? Qt::BacktabFocusReason : Qt::TabFocusReason);
        key = 0;
    }
}

void fnKeyFilter(QWidget* form, QString& ch)
{
    QWidget* active = activeControl(form);
    if (!active || ch.isEmpty())
        return;
    if (!qobject_cast<QLineEdit*>(active)) {
        ch.clear();
        return;
    }
    const QString kind = fieldKind(active);
    if (kind.size() != 1 || !kind.at(0).isDigit() || kind.at(0).unicode() > '9')
        return;
    if (!allowed(kind.at(0).unicode() - '0').contains(ch, Qt::CaseInsensitive))
        ch.clear();
}

LengthCheck keyLengthCheck(int textBytes, qsizetype selectedLength, int max, const QString& ch)
{
    if (max == 0 || ch.isEmpty())
        return LengthCheck::Pass;
    const char16_t c = ch.at(0).unicode();
    if (ch.size() == 1 && c < 32 && c != '\r' && c != '\n')
        return LengthCheck::Pass;
    if (selectedLength == max)
        return LengthCheck::Clear;
    return textBytes + fnByteLen(ch) > max ? LengthCheck::Refuse : LengthCheck::Pass;
}

void fnKeyLength(QWidget* form, QString& ch)
{
    auto* box = qobject_cast<QLineEdit*>(activeControl(form));
    if (!box || ch.isEmpty())
        return;
    switch (keyLengthCheck(fnByteLen(box->text()), box->selectedText().size(), maxBytes(box), ch)) {
    case LengthCheck::Pass:
        break;
    case LengthCheck::Clear:
        box->clear();
        break;
    case LengthCheck::Refuse:
        QApplication::beep();
        ch.clear();
        break;
    }
}

FormKeys::FormKeys(QWidget* form, clsKeyDown* keyDown) : QObject(form), form_(form), keyDown_(keyDown)
{
    qApp->installEventFilter(this);
}

FormKeys::~FormKeys()
{
    if (qApp)
        qApp->removeEventFilter(this);
}

bool FormKeys::eventFilter(QObject* watched, QEvent* event)
{
    const QEvent::Type t = event->type();
    if (t == QEvent::FocusIn) {
        // A text box is entered with its whole text selected, so that typing replaces it.
        auto* box = qobject_cast<QLineEdit*>(watched);
        if (box && form_->isAncestorOf(box))
            box->selectAll();
        return false;
    }
    if (t != QEvent::KeyPress && t != QEvent::InputMethod)
        return false;
    auto* w = qobject_cast<QWidget*>(watched);
    // Key events travel up to the parents when ignored: handle them once, at the control that has the focus.
    if (!w || w != activeControl(form_))
        return false;
    if (t == QEvent::KeyPress)
        return keyPress(w, static_cast<QKeyEvent*>(event));
    inputMethod(w, static_cast<QInputMethodEvent*>(event));
    return false;
}

bool FormKeys::keyPress(QWidget* control, QKeyEvent* event)
{
    int key = keyOf(event);
    if (key == Qt::Key_Return) {
        if (auto* button = qobject_cast<QAbstractButton*>(control)) {
            button->click();
            return true;
        }
    }
    // key-down
    keyDown_->fnKeyDown(form_, key);
    if (key == 0)
        return true;
    fnFocusMove(form_, key, true);
    if (key == 0)
        return true;
    if (bar_ && key >= Qt::Key_F1 && key <= Qt::Key_F12) {
        bar_->press(key - Qt::Key_F1 + 1);
        return true;
    }
    if (screenKeys_ && screenKeys_(key, event->modifiers()))
        return true;
    // key-press
    const QString text = event->text();
    if (text.isEmpty() || key == Qt::Key_Backspace)
        return false;
    if (key == Qt::Key_Return || key == Qt::Key_Escape || text == QLatin1String("\r") ||
        text == QLatin1String("\x1b"))
        return true;
    if (text.at(0).unicode() < 32 || text.at(0).unicode() == 127)
        return false; // editing shortcuts (Ctrl+C, Ctrl+V, ...) are not typed characters
    if (qobject_cast<QAbstractButton*>(control) && text == QLatin1String(" "))
        return false; // Space presses a button
    QString ch = text;
    fnKeyFilter(form_, ch);
    if (!ch.isEmpty())
        fnKeyLength(form_, ch);
    return ch.isEmpty();
}

void FormKeys::inputMethod(QWidget* control, QInputMethodEvent* event)
{
    const QString commit = event->commitString();
    if (commit.isEmpty())
        return;
    auto* box = qobject_cast<QLineEdit*>(control);
    // Each committed character as if typed one by one: refused ones are dropped, the kept ones count for the next.
    int bytes = box ? fnByteLen(box->text()) : 0;
    const int selectedBytes = box ? fnByteLen(box->selectedText()) : 0;
    qsizetype selected = box ? box->selectedText().size() : 0;
    const int max = box ? maxBytes(box) : 0;
    bool first = true;
    QString kept;
    for (qsizetype i = 0; i < commit.size();) {
        const qsizetype n = commit.at(i).isHighSurrogate() && i + 1 < commit.size() ? 2 : 1;
        QString ch = commit.mid(i, n);
        i += n;
        fnKeyFilter(form_, ch);
        if (ch.isEmpty())
            continue;
        switch (keyLengthCheck(bytes, selected, max, ch)) {
        case LengthCheck::Refuse:
            QApplication::beep();
            continue;
        case LengthCheck::Clear:
            box->clear();
            bytes = 0;
            break;
        case LengthCheck::Pass:
            if (first)
                bytes -= selectedBytes; // the selection is replaced by what is typed
            break;
        }
        first = false;
        selected = 0;
        bytes += fnByteLen(ch);
        kept += ch;
    }
    if (kept != commit)
        event->setCommitString(kept, event->replacementStart(), event->replacementLength());
}

} // namespace pel
