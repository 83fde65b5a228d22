#include "ui/functionbar.h"

#include "ui/textrules.h"

#include <QAction>
#include <QApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QPointer>
#include <QProxyStyle>
#include <QStyleFactory>
#include <QStyleOption>
#include <QToolButton>

#include <functional>
#include <optional>
#include <utility>

namespace pel {
namespace {

// A picture made when it is first drawn or measured. The function-key pictures are drawn only for the buttons that
// show them. The toolbar's overflow button asks the style for its picture when the toolbar is made, but shows it only
// when the window is too narrow for the twelve buttons; reading that picture file makes Qt load every image plugin.
class DeferredIconEngine : public QIconEngine {
public:
    explicit DeferredIconEngine(std::function<QIcon()> make) : make_(std::move(make)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override
    {
        icon().paint(painter, rect, Qt::AlignCenter, mode, state);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        return icon().pixmap(size, mode, state);
    }
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state, qreal scale) override
    {
        return icon().pixmap(size / scale, scale, mode, state);
    }
    QSize actualSize(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        return icon().actualSize(size, mode, state);
    }
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override
    {
        return icon().availableSizes(mode, state);
    }
    QString key() const override { return QStringLiteral("pel008-deferred"); }
    QIconEngine* clone() const override { return new DeferredIconEngine(*this); }
    // Every picture deferred here exists: answered without making it.
    bool isNull() override { return false; }

private:
    const QIcon& icon()
    {
        if (!icon_)
            icon_ = make_();
        return *icon_;
    }

    std::function<QIcon()> make_;
    std::optional<QIcon> icon_;
};

class ToolbarStyle : public QProxyStyle {
public:
    using QProxyStyle::QProxyStyle;
    QIcon standardIcon(StandardPixmap which, const QStyleOption* option, const QWidget* widget) const override
    {
        if (which == SP_ToolBarHorizontalExtensionButton || which == SP_ToolBarVerticalExtensionButton) {
            // the direction the button asked with; nothing once the application's style has been replaced
            const QStyleOption asked = option ? *option : QStyleOption();
            const bool hasOption = option;
            return QIcon(new DeferredIconEngine([style = QPointer<const QProxyStyle>(this), which, asked, hasOption] {
                return style ? style->QProxyStyle::standardIcon(which, hasOption ? &asked : nullptr) : QIcon();
            }));
        }
        return QProxyStyle::standardIcon(which, option, widget);
    }
};

QWidget* withToolbarStyle(QWidget* parent)
{
    installToolbarStyle();
    return parent;
}

} // namespace

void installToolbarStyle()
{
    static bool done = false;
    if (done || !qobject_cast<QApplication*>(QCoreApplication::instance()))
        return;
    done = true;
    if (QStyle* base = QStyleFactory::create(QApplication::style()->name()))
        QApplication::setStyle(new ToolbarStyle(base));
}

FunctionBar::FunctionBar(QWidget* parent) : QToolBar(withToolbarStyle(parent))
{
    setObjectName(QStringLiteral("tlbFunction"));
    setMovable(false);
    setFloatable(false);
    setIconSize(QSize(32, 32));
    setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    for (int i = 1; i <= 12; ++i) {
        const QString key = QStringLiteral("F%1").arg(i);
        QAction* a = addAction(key);
        a->setObjectName(key);
        a->setData(key);
        // The keyboard reaches the buttons through the function keys, never through Tab.
        if (QWidget* w = widgetForAction(a))
            w->setFocusPolicy(Qt::NoFocus);
        connect(a, &QAction::triggered, this, [this, key] { emit buttonClick(key); });
        buttons_[i - 1] = a;
    }
}

QAction* FunctionBar::button(int position) const
{
    return position >= 1 && position <= 12 ? buttons_[position - 1] : nullptr;
}

QAction* FunctionBar::button(const QString& key) const
{
    if (!key.startsWith(QLatin1Char('F')))
        return nullptr;
    bool ok = false;
    const int n = key.mid(1).toInt(&ok);
    return ok ? button(n) : nullptr;
}

bool FunctionBar::press(int position)
{
    QAction* a = button(position);
    if (!a || !a->isEnabled())
        return false;
    a->trigger();
    return true;
}

QString resString(int id)
{
    static const char16_t* const strings[] = {
        u"F1 ヘルプを表示", u"F2 次のデータを検索", u"F3 前のデータを検索", u"F4 一覧表を表示",
        u"F5 保存",        u"F6 ｷｬﾝｾﾙ",          u"F7",                  u"F8 削除",
        u"F9 マスター画面を呼出", u"F10 印刷",   u"F11",                 u"F12 終了",
    };
    if (id < 101 || id > 112)
        return QString();
    return QString::fromUtf16(strings[id - 101]);
}

namespace {

// One consistent set: dark strokes on a light key cap, one sign per function.
QIcon drawPicture(int position)
{
    const int s = 32;
    QPixmap pm(s, s);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(0x60, 0x70, 0x80), 1));
    p.setBrush(QColor(0xF4, 0xF6, 0xF8));
    p.drawRoundedRect(QRectF(1.5, 1.5, s - 3, s - 3), 5, 5);
    const QColor ink(0x1F, 0x3A, 0x68);
    p.setPen(QPen(ink, 2.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    switch (position) {
    case 1: { // help: a question mark
        QPainterPath q;
        q.moveTo(11, 11);
        q.cubicTo(11, 5, 21, 5, 21, 11);
        q.cubicTo(21, 15, 16, 15, 16, 20);
        p.drawPath(q);
        p.setBrush(ink);
        p.drawEllipse(QPointF(16, 25), 1.2, 1.2);
        break;
    }
    case 2: // next: arrow down
        p.drawLine(16, 7, 16, 24);
        p.drawPolyline(QPolygonF({QPointF(9, 17), QPointF(16, 24), QPointF(23, 17)}));
        break;
    case 3: // previous: arrow up
        p.drawLine(16, 25, 16, 8);
        p.drawPolyline(QPolygonF({QPointF(9, 15), QPointF(16, 8), QPointF(23, 15)}));
        break;
    case 4: // list
        for (int y : {10, 16, 22}) {
            p.drawPoint(9, y);
            p.drawLine(13, y, 24, y);
        }
        break;
    case 5: // save: a floppy
        p.drawRect(QRectF(8, 8, 16, 16));
        p.drawRect(QRectF(12, 8, 8, 5));
        p.drawLine(12, 19, 20, 19);
        break;
    case 6: // cancel: a cross
        p.drawLine(10, 10, 22, 22);
        p.drawLine(22, 10, 10, 22);
        break;
    case 8: // delete: a bin
        p.drawLine(9, 10, 23, 10);
        p.drawLine(14, 7, 18, 7);
        p.drawPolyline(QPolygonF({QPointF(11, 10), QPointF(12, 25), QPointF(20, 25), QPointF(21, 10)}));
        break;
    case 9: // master: stacked cards
        p.drawRect(QRectF(11, 8, 13, 10));
        p.drawRect(QRectF(8, 13, 13, 11));
        break;
    case 10: // print: a printer
        p.drawRect(QRectF(11, 7, 10, 6));
        p.drawRect(QRectF(7, 13, 18, 8));
        p.drawRect(QRectF(11, 19, 10, 6));
        break;
    case 12: // end: a door with an arrow out
        p.drawPolyline(QPolygonF({QPointF(17, 8), QPointF(9, 8), QPointF(9, 24), QPointF(17, 24)}));
        p.drawLine(14, 16, 25, 16);
        p.drawPolyline(QPolygonF({QPointF(21, 12), QPointF(25, 16), QPointF(21, 20)}));
        break;
    default: // F7, F11: keys without a function of their own
        break;
    }
    p.end();
    return QIcon(pm);
}

// "1000-0000-0001" -> "100000000001"
QString digitsOf(const QString& mask)
{
    return fnDelStr(mask, QStringLiteral("-"));
}

} // namespace

QIcon resPicture(int id)
{
    if (id < 101 || id > 112)
        return QIcon();
    static QIcon cache[12];
    QIcon& icon = cache[id - 101];
    if (icon.isNull()) {
        const int position = id - 100;
        icon = QIcon(new DeferredIconEngine([position] { return drawPicture(position); }));
    }
    return icon;
}

void fnToolInit(FunctionBar* toolbar, ImageList& images, const QString& mask)
{
    const QString d = digitsOf(mask);
    for (int i = 1; i <= 12 && i <= d.size(); ++i) {
        images.add(i, resPicture(100 + i));
        QAction* b = toolbar->button(i);
        if (d.at(i - 1) == QLatin1Char('1')) {
            b->setIcon(images.picture(i));
            b->setToolTip(resString(100 + i));
        } else {
            b->setEnabled(false);
        }
    }
}

void fnToolEnable(FunctionBar* toolbar, const QString& mask)
{
    const QString d = digitsOf(mask);
    for (int i = 1; i <= 12 && i <= d.size(); ++i)
        toolbar->button(i)->setEnabled(d.at(i - 1) == QLatin1Char('1'));
}

} // namespace pel
