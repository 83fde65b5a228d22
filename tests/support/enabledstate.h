#pragma once
// What the user can use on a screen below its toolbar (the toolbar has masks of its own): every widget of the
// screen's body as "name(Class)=0/1", in creation order.
#include <QString>
#include <QStringList>
#include <QWidget>

namespace pel::test {

inline QStringList enabledState(const QWidget* screen)
{
    QStringList state;
    const auto* body = screen->findChild<QWidget*>(QStringLiteral("body"));
    for (const QWidget* w : body->findChildren<QWidget*>()) {
        if (w->window() != screen->window())
            continue; // popups
        state << QStringLiteral("%1(%2)=%3")
                     .arg(w->objectName(), QString::fromLatin1(w->metaObject()->className()))
                     .arg(w->isEnabled() ? 1 : 0);
    }
    return state;
}

} // namespace pel::test
