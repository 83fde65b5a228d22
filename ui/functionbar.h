#pragma once
// The function-key toolbar every screen carries: twelve buttons keyed "F1".."F12", switched on and off by masks.
#include <QIcon>
#include <QMap>
#include <QString>
#include <QToolBar>

class QAction;

namespace pel {

// tlbFunction: the buttons exist from the start, blank and enabled, until fnToolInit dresses them.
class FunctionBar : public QToolBar {
    Q_OBJECT
public:
    explicit FunctionBar(QWidget* parent = nullptr);
    // Button by key ("F1".."F12") or position (1..12); nullptr outside.
    QAction* button(const QString& key) const;
    QAction* button(int position) const;
    // The function key pressed: fires the button's action when (and only when) it is enabled.
    bool press(int position);

signals:
    void buttonClick(const QString& key);

private:
    QAction* buttons_[12] = {};
};

// The pictures handed to a toolbar, by index.
class ImageList {
public:
    void add(int index, const QIcon& picture) { pictures_.insert(index, picture); }
    QIcon picture(int index) const { return pictures_.value(index); }
    int count() const { return static_cast<int>(pictures_.size()); }

private:
    QMap<int, QIcon> pictures_;
};

// Resource strings 101..112 (the tooltips) and pictures 101..112 (the toolbar pictures).
QString resString(int id);
QIcon resPicture(int id);

// Mask: one "1"/"0" per button from F1, groups of four may be joined by "-". Positions past the mask's end are
// left as they are.
void fnToolInit(FunctionBar* toolbar, ImageList& images, const QString& mask);
void fnToolEnable(FunctionBar* toolbar, const QString& mask);

// Once: the application's style, with the toolbar's overflow picture made when first drawn. Called before the first
// widget is made (replacing the style later restyles every widget); the first toolbar calls it too.
void installToolbarStyle();

} // namespace pel
