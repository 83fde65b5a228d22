#include "ui/uifont.h"

#include <QApplication>
#include <QFontDatabase>
#include <QStringList>

namespace pel {

QFont uiFont()
{
    static const QFont font = [] {
#ifdef Q_OS_WIN
        const QStringList wanted = {QStringLiteral("Yu Gothic UI"), QStringLiteral("Meiryo UI"),
                                    QStringLiteral("MS UI Gothic")};
        const int points = 9;
#else
        const QStringList wanted = {QStringLiteral("IPAexGothic"), QStringLiteral("Noto Sans CJK JP"),
                                    QStringLiteral("IPAGothic")};
        const int points = 10;
#endif
        // Asking for each family by name is far cheaper at start-up than listing every installed font.
        for (const QString& family : wanted) {
            if (QFontDatabase::hasFamily(family)) {
                QFont f(family, points);
                f.setStyleHint(QFont::SansSerif);
                return f;
            }
        }
        return QApplication::font();
    }();
    return font;
}

void applyUiFont()
{
    static bool done = false;
    if (done)
        return;
    done = true;
    QApplication::setFont(uiFont());
}

} // namespace pel
