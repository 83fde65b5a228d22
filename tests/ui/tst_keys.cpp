// Function keys, masks, Escape undo, focus moves, field kinds and the byte limit, typed into real widgets.
#include "tests/support/datarow.h"
#include "ui/functionbar.h"
#include "ui/keys.h"

#include <QAction>
#include <QComboBox>
#include <QInputMethodEvent>
#include <QLabel>
#include <QLineEdit>
#include <QProxyStyle>
#include <QPushButton>
#include <QStyleFactory>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

using namespace pel;
using test::row;

namespace {

// A form as a screen builds one: boxes, a label, a combo box, a button, the toolbar and the common key handling.
struct TestForm {
    QWidget form;
    clsKeyDown keyDown;
    FunctionBar* bar;
    ImageList images;
    FormKeys* keys;
    QLineEdit* e[5];
    QComboBox* combo;
    QPushButton* button;
    int fired[13] = {};

    TestForm()
    {
        auto* layout = new QVBoxLayout(&form);
        bar = new FunctionBar(&form);
        layout->addWidget(bar);
        for (int i = 0; i < 5; ++i) {
            e[i] = new QLineEdit(&form);
            e[i]->setObjectName(QStringLiteral("e%1").arg(i));
            layout->addWidget(e[i]);
            if (i == 2) // a control that takes no focus, passed over by the moves
                layout->addWidget(new QLabel(QStringLiteral("ラベル"), &form));
        }
        combo = new QComboBox(&form);
        combo->addItems({QStringLiteral("a1"), QStringLiteral("b1")});
        layout->addWidget(combo);
        button = new QPushButton(QStringLiteral("OK"), &form);
        layout->addWidget(button);
        keys = new FormKeys(&form, &keyDown);
        keys->setFunctionBar(bar);
        QObject::connect(bar, &FunctionBar::buttonClick, [this](const QString& key) { ++fired[key.mid(1).toInt()]; });
        form.show();
        QApplication::setActiveWindow(&form);
        if (!QTest::qWaitForWindowActive(&form))
            qWarning("the form did not become active: focus and key checks will fail");
    }
};

// A character typed on the keyboard (QTest::keyClicks cannot type kana).
void type(QWidget* w, const QString& text)
{
    for (const QChar c : text) {
        const int key = c.unicode() < 128 ? int(QChar(c).toUpper().unicode()) : int(Qt::Key_unknown);
        QTest::sendKeyEvent(QTest::Click, w, static_cast<Qt::Key>(key), QString(c), Qt::NoModifier);
    }
}

void commit(QWidget* w, const QString& text)
{
    QInputMethodEvent e;
    e.setCommitString(text);
    QApplication::sendEvent(w, &e);
}

QString enabledMask(const FunctionBar* bar)
{
    QString s;
    for (int i = 1; i <= 12; ++i)
        s += bar->button(i)->isEnabled() ? QLatin1Char('1') : QLatin1Char('0');
    return s;
}

} // namespace

class KeysTest : public QObject {
    Q_OBJECT
private slots:
    void masks_data();
    void masks();
    void toolInitDressesOnlyNamedButtons();
    void escape();
    void focusMoves_data();
    void focusMoves();
    void enterPressesFocusedButton();
    void typing_data();
    void typing();
    void comboRefusesTypedCharacters();
};

void KeysTest::masks_data()
{
    QTest::addColumn<QString>("init");
    QTest::addColumn<QString>("mask");
    QTest::addColumn<QString>("enabled");
    row("F1 and F12", "1111-1111-1111", "1000-0000-0001", "100000000001");
    row("short mask keeps the rest on", "1111-1111-1111", "0", "011111111111");
    row("short mask keeps the rest off", "0000-0000-0000", "1", "100000000000");
    row("dashes anywhere", "0000-0000-0000", "1-1-1", "111000000000");
    row("not 1 is off", "1111-1111-1111", "x1 0", "010011111111");
    row("longer mask ignored past F12", "0000-0000-0000", "0000-0000-00011", "000000000001");
}

// A key and its button fire exactly when the masks left them on.
void KeysTest::masks()
{
    QFETCH(QString, init);
    QFETCH(QString, mask);
    QFETCH(QString, enabled);
    TestForm t;
    fnToolInit(t.bar, t.images, init);
    fnToolEnable(t.bar, mask);
    QCOMPARE(enabledMask(t.bar), enabled);
    QString fired;
    for (int i = 1; i <= 12; ++i) {
        t.e[0]->setFocus();
        QTest::keyClick(t.e[0], static_cast<Qt::Key>(Qt::Key_F1 + i - 1));
        t.bar->button(i)->trigger();
        fired += QString::number(t.fired[i]); // once by the key, once by the button
    }
    QCOMPARE(fired, QString(enabled).replace(QLatin1Char('1'), QLatin1Char('2')));
}

void KeysTest::toolInitDressesOnlyNamedButtons()
{
    TestForm t;
    fnToolInit(t.bar, t.images, QStringLiteral("0000-1000-0001"));
    QCOMPARE(t.images.count(), 12);
    QCOMPARE(t.bar->button(QStringLiteral("F5"))->toolTip(), QStringLiteral("F5 保存"));
    QCOMPARE(t.bar->button(QStringLiteral("F12"))->toolTip(), QStringLiteral("F12 終了"));
    QVERIFY(!t.bar->button(5)->icon().isNull());
    QVERIFY(t.bar->button(1)->icon().isNull());
    // the overflow button shows the style's own picture
    const auto* more = t.bar->findChild<QToolButton*>(QStringLiteral("qt_toolbar_ext_button"));
    QVERIFY(more);
    const auto* proxy = qobject_cast<QProxyStyle*>(QApplication::style());
    const QStyle* app = proxy ? proxy->baseStyle() : QApplication::style();
    const std::unique_ptr<QStyle> base(QStyleFactory::create(app->name()));
    QVERIFY(base);
    const QImage own = base->standardIcon(QStyle::SP_ToolBarHorizontalExtensionButton).pixmap(16).toImage();
    QVERIFY(!own.isNull());
    QCOMPARE(more->icon().pixmap(16).toImage(), own);
    // a shown key's picture, drawn on demand, greys out with its button
    const QIcon f5 = t.bar->button(5)->icon();
    const QImage normal = f5.pixmap(32).toImage();
    QCOMPARE(normal.size(), QSize(32, 32));
    QVERIFY(normal != f5.pixmap(32, QIcon::Disabled).toImage());
    // a masked key's picture stays in the list
    QCOMPARE(t.images.picture(1).pixmap(32).toImage().size(), QSize(32, 32));
}

// Escape puts back the field's text as it was before the first key; unchanged, the key goes on to the form.
void KeysTest::escape()
{
    TestForm t;
    t.e[0]->setText(QStringLiteral("abc"));
    t.e[0]->setFocus();
    t.e[0]->end(false);
    type(t.e[0], QStringLiteral("de"));
    QCOMPARE(t.e[0]->text(), QStringLiteral("abcde"));
    QTest::keyClick(t.e[0], Qt::Key_Escape);
    QCOMPARE(t.e[0]->text(), QStringLiteral("abc"));
    QCOMPARE(t.e[0]->selectedText(), QStringLiteral("abc"));
    QCOMPARE(t.keyDown.mintTabIndex, -1);
    // The next key starts over: typing then Escape goes back to "abc" again, not to an older text.
    t.e[0]->end(false);
    type(t.e[0], QStringLiteral("x"));
    QTest::keyClick(t.e[0], Qt::Key_Escape);
    QCOMPARE(t.e[0]->text(), QStringLiteral("abc"));
    // Another field remembers its own text.
    t.e[2]->setText(QStringLiteral("12"));
    t.e[2]->setFocus();
    t.e[2]->end(false);
    type(t.e[2], QStringLiteral("3"));
    QTest::keyClick(t.e[2], Qt::Key_Escape);
    QCOMPARE(t.e[2]->text(), QStringLiteral("12"));
    t.e[0]->setFocus();
    int key = Qt::Key_A;
    t.keyDown.fnKeyDown(&t.form, key); // first key in the field: remembered, untouched
    QCOMPARE(key, int(Qt::Key_A));
    key = Qt::Key_Escape;
    t.keyDown.fnKeyDown(&t.form, key);
    QCOMPARE(key, int(Qt::Key_Escape));
    QCOMPARE(t.e[0]->text(), QStringLiteral("abc"));
    // Not a text box: forgets the field.
    t.combo->setFocus();
    t.keyDown.fnKeyDown(&t.form, key);
    QCOMPARE(t.keyDown.mintTabIndex, -1);
    QCOMPARE(key, int(Qt::Key_Escape));
}

void KeysTest::focusMoves_data()
{
    QTest::addColumn<int>("from"); // index of e[], 5 = combo
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("to");
    QTest::addColumn<bool>("swallowed");
    // e1 is disabled and e3 hidden: both are skipped.
    QTest::newRow("enter skips disabled") << 0 << int(Qt::Key_Return) << 2 << true;
    QTest::newRow("keypad enter") << 0 << int(Qt::Key_Enter) << 2 << true;
    QTest::newRow("down skips hidden") << 2 << int(Qt::Key_Down) << 4 << true;
    QTest::newRow("up skips disabled") << 2 << int(Qt::Key_Up) << 0 << true;
    QTest::newRow("up from first: no candidate") << 0 << int(Qt::Key_Up) << 0 << false;
    QTest::newRow("enter to the combo") << 4 << int(Qt::Key_Return) << 5 << true;
    QTest::newRow("left is not a move") << 2 << int(Qt::Key_Left) << 2 << false;
}

void KeysTest::focusMoves()
{
    QFETCH(int, from);
    QFETCH(int, key);
    QFETCH(int, to);
    QFETCH(bool, swallowed);
    TestForm t;
    t.e[1]->setEnabled(false);
    t.e[3]->hide();
    QWidget* ws[] = {t.e[0], t.e[1], t.e[2], t.e[3], t.e[4], t.combo};
    ws[from]->setFocus();
    int k = key == Qt::Key_Enter ? int(Qt::Key_Return) : key;
    fnFocusMove(&t.form, k, true);
    QCOMPARE(QApplication::focusWidget(), ws[to]);
    QCOMPARE(k == 0, swallowed);
    // Through the form's key handling, with the real key.
    ws[from]->setFocus();
    QTest::keyClick(ws[from], static_cast<Qt::Key>(key));
    if (key != Qt::Key_Left)
        QCOMPARE(QApplication::focusWidget(), ws[to]);
}

void KeysTest::enterPressesFocusedButton()
{
    TestForm t;
    int clicks = 0;
    QObject::connect(t.button, &QPushButton::clicked, [&] { ++clicks; });
    t.button->setFocus();
    QTest::keyClick(t.button, Qt::Key_Return);
    QCOMPARE(clicks, 1);
    QCOMPARE(QApplication::focusWidget(), t.button); // last control: no candidate, focus stays
}

void KeysTest::typing_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("max");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("selected"); // characters selected from the start; 0: the cursor at the end
    QTest::addColumn<QString>("input");
    QTest::addColumn<bool>("ime"); // through the input method, else key by key
    QTest::addColumn<QString>("result");
    const int none = 32767; // the box's own limit
    QTest::newRow("a digit kind") << "3" << none << "" << 0 << "-9.,a" << false << "-9.";
    const QString symbols = QStringLiteral("aZ!\"#$%&()=~|-^\\`{@[+*};:]<>?_,./");
    QTest::newRow("kind 4 symbols") << "4" << none << "" << 0 << symbols << false << symbols;
    QTest::newRow("kind 4 refuses apostrophe and kana") << "4" << none << "" << 0 << "a'ｱ" << false << "a";
    QTest::newRow("kind 5 takes apostrophe and kana") << "5" << none << "" << 0 << "a'ｱﾟｰ｡" << false << "a'ｱﾟｰ｡";
    QTest::newRow("kind 5 refuses hiragana") << "5" << none << "" << 0 << "あ" << false << "";
    QTest::newRow("kind 8 refuses 0") << "8" << none << "" << 0 << "0a9Z-" << false << "a9Z";
    QTest::newRow("empty kind takes all") << "" << none << "" << 0 << "a'あ0" << false << "a'あ0";
    QTest::newRow("double-byte over") << "" << 4 << "abc" << 0 << "あ" << false << "abc";
    QTest::newRow("double-byte fits") << "" << 4 << "ab" << 0 << "あ" << false << "abあ";
    QTest::newRow("double-byte text") << "" << 4 << "漢字" << 0 << "a" << false << "漢字";
    QTest::newRow("whole text selected: emptied") << "" << 4 << "abcd" << 4 << "x" << false << "x";
    QTest::newRow("selection not subtracted") << "" << 4 << "abcd" << 2 << "x" << false << "abcd";
    QTest::newRow("no byte limit") << "" << none << "abcdefgh" << 0 << "あ" << false << "abcdefghあ";
    QTest::newRow("commit cut at the limit") << "" << 6 << "ab" << 0 << "日本語" << true << "ab日本";
    QTest::newRow("commit fits") << "" << 8 << "ab" << 0 << "日本語" << true << "ab日本語";
    QTest::newRow("commit half-width after full") << "" << 5 << "a" << 0 << "漢ｱｲ字" << true << "a漢ｱｲ";
    QTest::newRow("commit replaces a full selection") << "" << 4 << "abcd" << 4 << "日本語" << true << "日本";
    QTest::newRow("commit through kind 6") << "6" << 8 << "" << 0 << "１2あ3" << true << "23";
}

// Field kinds and the byte limit, typed key by key or committed by the input method.
void KeysTest::typing()
{
    QFETCH(QString, kind);
    QFETCH(int, max);
    QFETCH(QString, text);
    QFETCH(int, selected);
    QFETCH(QString, input);
    QFETCH(bool, ime);
    QFETCH(QString, result);
    TestForm t;
    setFieldKind(t.e[0], kind);
    t.e[0]->setMaxLength(max);
    t.e[0]->setText(text);
    t.e[0]->setFocus();
    if (selected > 0)
        t.e[0]->setSelection(0, selected);
    else
        t.e[0]->end(false);
    if (ime)
        commit(t.e[0], input);
    else
        type(t.e[0], input);
    QCOMPARE(t.e[0]->text(), result);
}

void KeysTest::comboRefusesTypedCharacters()
{
    TestForm t;
    t.combo->setFocus();
    type(t.combo, QStringLiteral("b"));
    QCOMPARE(t.combo->currentIndex(), 0);
    commit(t.combo, QStringLiteral("b"));
    QCOMPARE(t.combo->currentIndex(), 0);
}

QTEST_MAIN(KeysTest)
#include "tst_keys.moc"
