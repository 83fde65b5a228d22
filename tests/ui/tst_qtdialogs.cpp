// The Qt message boxes: icon, buttons and default button of each style, and the answers they return; the file and
// folder choosers' start folder and prompt; Qt's own texts translated.
#include "tests/support/datarow.h"
#include "ui/qtdialogs.h"

#include <QAbstractButton>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace pel;
using test::row;

class QtDialogsTest : public QObject {
    Q_OBJECT
private slots:
    void styles_data();
    void styles();
    void answers_data();
    void answers();
    void yesNoHasNoEscape();
    void choosers_data();
    void choosers();
    void qtTranslation_data();
    void qtTranslation();
};

void QtDialogsTest::styles_data()
{
    QTest::addColumn<int>("style");
    QTest::addColumn<int>("icon");
    QTest::addColumn<QList<int>>("buttons");
    QTest::addColumn<int>("defaultAnswer");
    using A = QList<int>;
    QTest::newRow("Warn 48") << 48 << int(QMessageBox::Warning) << A{1} << 1;
    QTest::newRow("AskYes 68") << 68 << int(QMessageBox::Information) << A{6, 7} << 6;
    QTest::newRow("AskNo 324") << 324 << int(QMessageBox::Information) << A{6, 7} << 7;
    QTest::newRow("Choose3 547") << 547 << int(QMessageBox::Question) << A{6, 7, 2} << 2;
    QTest::newRow("critical 16") << 16 << int(QMessageBox::Critical) << A{1} << 1;
    QTest::newRow("plain 0") << 0 << int(QMessageBox::NoIcon) << A{1} << 1;
    QTest::newRow("set 6 = 70") << 70 << int(QMessageBox::Information) << A{2, 10, 11} << 2;
    QTest::newRow("retry 5") << 5 << int(QMessageBox::NoIcon) << A{4, 2} << 4;
    QTest::newRow("abort 2") << 2 << int(QMessageBox::NoIcon) << A{3, 4, 5} << 3;
}

void QtDialogsTest::styles()
{
    QFETCH(int, style);
    QFETCH(int, icon);
    QFETCH(QList<int>, buttons);
    QFETCH(int, defaultAnswer);
    BuiltMessageBox b = buildMessageBox(QStringLiteral("該当件数は０件です"), style, kProductTitle);
    QCOMPARE(int(b.box->icon()), icon);
    QList<int> got;
    for (const auto& [button, a] : b.answers)
        got.append(a);
    QCOMPARE(got, buttons);
    QCOMPARE(b.box->buttons().size(), buttons.size());
    QCOMPARE(b.answerOf(b.box->defaultButton()), defaultAnswer);
    QCOMPARE(b.box->windowTitle(), kProductTitle);
    QCOMPARE(b.box->text(), QStringLiteral("該当件数は０件です"));
    // with no one to ask, the default button is the answer
    qputenv("PEL008_NO_DIALOGS", "1");
    installQtDialogs();
    const int headless = msgBox(QStringLiteral("記録します"), style);
    qunsetenv("PEL008_NO_DIALOGS");
    setDialogService(nullptr);
    QCOMPARE(headless, defaultAnswer);
}

void QtDialogsTest::answers_data()
{
    QTest::addColumn<int>("style");
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("button"); // the button Space is pressed on, for Key_Space
    QTest::addColumn<int>("expected");
    QTest::newRow("AskNo Yes") << 324 << int(Qt::Key_Space) << "はい(&Y)" << 6;
    QTest::newRow("Choose3 Escape") << 547 << int(Qt::Key_Escape) << "" << 2;
    QTest::newRow("Warn Escape") << 48 << int(Qt::Key_Escape) << "" << 1;
    QTest::newRow("set 6 Try again") << 70 << int(Qt::Key_Space) << "再実行(&T)" << 10;
}

void QtDialogsTest::answers()
{
    QFETCH(int, style);
    QFETCH(int, key);
    QFETCH(QString, button);
    QFETCH(int, expected);
    QtDialogService service;
    bool pressed = false;
    QTimer::singleShot(0, this, [&] {
        QWidget* box = QApplication::activeModalWidget();
        if (!box)
            return;
        QWidget* target = box;
        for (QAbstractButton* b : box->findChildren<QAbstractButton*>())
            if (!button.isEmpty() && b->text() == button)
                target = b;
        if (!button.isEmpty() && target == box) {
            static_cast<QDialog*>(box)->reject();
            return;
        }
        QTest::keyClick(target, static_cast<Qt::Key>(key));
        pressed = true;
    });
    QCOMPARE(service.messageBox(QStringLiteral("記録します"), style, kProductTitle), expected);
    QVERIFY(pressed);
}

// Escape and the title bar's close leave a Yes/No question open; only a button answers it.
void QtDialogsTest::yesNoHasNoEscape()
{
    QtDialogService service;
    bool stillOpen = false;
    QTimer::singleShot(0, this, [&] {
        QPointer<QMessageBox> box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box)
            return;
        QTest::keyClick(box, Qt::Key_Escape);
        box->close();
        QTimer::singleShot(0, this, [&stillOpen, box] {
            stillOpen = box && box->isVisible();
            if (box)
                box->buttons().constFirst()->click();
        });
    });
    QCOMPARE(service.messageBox(QStringLiteral("記録します"), 324, kProductTitle), 6);
    QVERIFY(stillOpen);
}

void QtDialogsTest::choosers_data()
{
    QTest::addColumn<int>("kind");      // -1 folder, else DialogService::FileChoice
    QTest::addColumn<QString>("start"); // under the temporary folder; every chooser opens in "out"
    QTest::addColumn<QString>("name");  // the file name filled in ("" none)
    const int folder = -1, open = int(DialogService::FileChoice::Open), save = int(DialogService::FileChoice::Save);
    row("folder", folder, "out", "");
    row("folder gone", folder, "out/gone/deeper", "");
    row("file to open", open, "out/MT908997.txt", "");
    row("file to write, its folder not there yet", save, "out/new/icat.csv", "icat.csv");
}

void QtDialogsTest::choosers()
{
    QFETCH(int, kind);
    QFETCH(QString, start);
    QFETCH(QString, name);
    QTemporaryDir tmp;
    QVERIFY(QDir(tmp.path()).mkpath(QStringLiteral("out")));
    QFile existing(tmp.filePath(QStringLiteral("out/MT908997.txt")));
    QVERIFY(existing.open(QIODevice::WriteOnly));
    existing.close();
    const QString prompt = QStringLiteral("コンビニＣＳＶを出力するフォルダを選択してください");
    QString shownIn, title, label, named;
    QTimer::singleShot(0, this, [&] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        shownIn = dialog->directory().absolutePath();
        if (dialog->fileMode() != QFileDialog::Directory && !dialog->selectedFiles().isEmpty())
            named = QFileInfo(dialog->selectedFiles().constFirst()).fileName();
        title = dialog->windowTitle();
        if (const auto* l = dialog->findChild<QLabel*>(QStringLiteral("lblPrompt")))
            label = l->text();
        dialog->reject();
    });
    QtDialogService service;
    const std::optional<QString> chosen =
        kind < 0 ? service.chooseFolder(prompt, tmp.filePath(start))
                 : service.chooseFile(DialogService::FileChoice(kind), prompt, tmp.filePath(start), QString());
    QVERIFY(!chosen);
    QCOMPARE(shownIn, QDir(tmp.filePath(QStringLiteral("out"))).absolutePath());
    QCOMPARE(title, prompt);
    if (kind >= 0)
        QCOMPARE(named, name);
    if (kind < 0)
        QCOMPARE(label, prompt); // in the dialog too, for a screen without a title bar
}

void QtDialogsTest::qtTranslation_data()
{
    QTest::addColumn<QLocale>("locale");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("cancel"); // Qt's own Cancel caption
    row("C: Japanese", QLocale::c(), "qtbase_ja.qm", "キャンセル");
    row("Japanese", QLocale(QLocale::Japanese, QLocale::Japan), "qtbase_ja.qm", "キャンセル");
    row("Swahili, none in Qt: Japanese", QLocale(QLocale::Swahili), "qtbase_ja.qm", "キャンセル");
    row("German", QLocale(QLocale::German, QLocale::Germany), "qtbase_de.qm", "Abbrechen");
}

void QtDialogsTest::qtTranslation()
{
    QFETCH(QLocale, locale);
    QFETCH(QString, file);
    QFETCH(QString, cancel);
    const QString loaded = installQtTranslation(locale);
    QCOMPARE(QFileInfo(loaded).fileName(), file);
    QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), cancel);
}

QTEST_MAIN(QtDialogsTest)
#include "tst_qtdialogs.moc"
