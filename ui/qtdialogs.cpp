#include "ui/qtdialogs.h"

#include "ui/functionbar.h"
#include "ui/uifont.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLibraryInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QTranslator>

#include <cstdio>

namespace pel {
namespace {

struct ButtonDef {
    int answer;
    QMessageBox::StandardButton standard; // NoButton: no standard counterpart
    const char16_t* caption;
    QMessageBox::ButtonRole role;
};

// The buttons of each button set, left to right, with the captions the suite's users know.
QList<ButtonDef> buttonSet(int buttons)
{
    const ButtonDef ok{answer::Ok, QMessageBox::Ok, u"OK", QMessageBox::AcceptRole};
    const ButtonDef cancel{answer::Cancel, QMessageBox::Cancel, u"キャンセル", QMessageBox::RejectRole};
    const ButtonDef abort{answer::Abort, QMessageBox::Abort, u"中止(&A)", QMessageBox::RejectRole};
    const ButtonDef retry{answer::Retry, QMessageBox::Retry, u"再試行(&R)", QMessageBox::AcceptRole};
    const ButtonDef ignore{answer::Ignore, QMessageBox::Ignore, u"無視(&I)", QMessageBox::AcceptRole};
    const ButtonDef yes{answer::Yes, QMessageBox::Yes, u"はい(&Y)", QMessageBox::YesRole};
    const ButtonDef no{answer::No, QMessageBox::No, u"いいえ(&N)", QMessageBox::NoRole};
    const ButtonDef tryAgain{answer::TryAgain, QMessageBox::NoButton, u"再実行(&T)", QMessageBox::AcceptRole};
    const ButtonDef cont{answer::Continue, QMessageBox::NoButton, u"続行(&C)", QMessageBox::AcceptRole};
    switch (buttons) {
    case mb::OkCancel: return {ok, cancel};
    case mb::AbortRetryIgnore: return {abort, retry, ignore};
    case mb::YesNoCancel: return {yes, no, cancel};
    case mb::YesNo: return {yes, no};
    case mb::RetryCancel: return {retry, cancel};
    case mb::CancelTryContinue: return {cancel, tryAgain, cont};
    default: return {ok};
    }
}

QMessageBox::Icon iconOf(int style)
{
    switch (mb::icon(style)) {
    case mb::Critical: return QMessageBox::Critical;
    case mb::Question: return QMessageBox::Question;
    case mb::Exclamation: return QMessageBox::Warning;
    case mb::Information: return QMessageBox::Information;
    default: return QMessageBox::NoIcon;
    }
}

// The prompt as a line of its own above the rest of Qt's file dialog.
void addPrompt(QFileDialog& dialog, const QString& prompt)
{
    auto* grid = qobject_cast<QGridLayout*>(dialog.layout());
    if (!grid)
        return;
    struct Placed {
        QLayoutItem* item;
        int row, column, rowSpan, columnSpan;
    };
    QList<Placed> placed;
    while (grid->count() > 0) {
        Placed p{};
        grid->getItemPosition(0, &p.row, &p.column, &p.rowSpan, &p.columnSpan);
        p.item = grid->takeAt(0);
        placed.append(p);
    }
    auto* label = new QLabel(prompt, &dialog);
    label->setObjectName(QStringLiteral("lblPrompt"));
    label->setWordWrap(true);
    grid->addWidget(label, 0, 0, 1, -1);
    for (const Placed& p : std::as_const(placed))
        grid->addItem(p.item, p.row + 1, p.column, p.rowSpan, p.columnSpan);
}

// QMessageBox takes a box's No button for its escape button when it is given none. The suite's Yes/No boxes have
// none: Escape and the title bar's close leave the question open.
class NoEscape final : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->matches(QKeySequence::Cancel))
            return true;
        if (event->type() == QEvent::Close) {
            event->ignore();
            return true;
        }
        return QObject::eventFilter(watched, event);
    }
};

} // namespace

int BuiltMessageBox::answerOf(QAbstractButton* button) const
{
    for (const auto& [b, a] : answers)
        if (b == button)
            return a;
    return 0;
}

BuiltMessageBox buildMessageBox(const QString& text, int style, const QString& title)
{
    BuiltMessageBox built;
    built.box = std::make_unique<QMessageBox>();
    QMessageBox& box = *built.box;
    box.setFont(uiFont());
    box.setWindowTitle(title);
    box.setText(text);
    box.setIcon(iconOf(style));
    const QList<ButtonDef> defs = buttonSet(mb::buttons(style));
    for (const ButtonDef& d : defs) {
        QPushButton* b = d.standard != QMessageBox::NoButton ? box.addButton(d.standard)
                                                              : box.addButton(QString(), d.role);
        b->setText(QString::fromUtf16(d.caption));
        built.answers.append({b, d.answer});
    }
    const qsizetype def = mb::defaultButton(style);
    auto* defaultButton = qobject_cast<QPushButton*>(built.answers.value(def < defs.size() ? def : 0).first);
    box.setDefaultButton(defaultButton);
    // Escape answers Cancel where there is one, OK on a lone OK, and nothing on Yes/No (as the suite's boxes do).
    for (const auto& [b, a] : built.answers)
        if (a == answer::Cancel || (defs.size() == 1 && a == answer::Ok))
            box.setEscapeButton(b);
    if (!box.escapeButton())
        box.installEventFilter(new NoEscape(&box));
    return built;
}

int QtDialogService::messageBox(const QString& text, int style, const QString& title)
{
    BuiltMessageBox built = buildMessageBox(text, style, title);
    built.box->setParent(QApplication::activeWindow(), built.box->windowFlags());
    built.box->exec();
    const int a = built.answerOf(built.box->clickedButton());
    // Closed without a button (only possible where Escape has no button): the default answer.
    return a ? a : defaultAnswer(style);
}

void QtDialogService::processEvents()
{
    QApplication::processEvents();
}

std::optional<QString> QtDialogService::chooseFolder(const QString& title, const QString& start)
{
    QFileDialog dialog(QApplication::activeWindow(), title, startFolder(start));
    dialog.setFileMode(QFileDialog::Directory);
    // Qt's own dialog, so that the prompt stands in it too, not only in a title bar a window manager may not draw
    dialog.setOptions(QFileDialog::ShowDirsOnly | QFileDialog::DontUseNativeDialog);
    addPrompt(dialog, title);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return QDir::toNativeSeparators(dialog.selectedFiles().constFirst());
}

std::optional<QString> QtDialogService::chooseFile(FileChoice kind, const QString& title, const QString& start,
                                                   const QString& filter)
{
    QWidget* parent = QApplication::activeWindow();
    // Overwriting is the job's own question, not the dialog's.
    const QString file = kind == FileChoice::Open
                             ? QFileDialog::getOpenFileName(parent, title, startFolder(start), filter)
                             : QFileDialog::getSaveFileName(parent, title, startFile(start), filter, nullptr,
                                                            QFileDialog::DontConfirmOverwrite);
    if (file.isEmpty())
        return std::nullopt;
    return QDir::toNativeSeparators(file);
}

int StderrDialogService::messageBox(const QString& text, int style, const QString&)
{
    const QByteArray line = text.toUtf8() + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
    std::fflush(stderr);
    return defaultAnswer(style);
}

void StderrDialogService::processEvents()
{
    QApplication::processEvents();
}

void installQtDialogs()
{
    static QtDialogService qtService;
    static StderrDialogService stderrService;
    applyUiFont();
    installToolbarStyle();
    if (qEnvironmentVariable("PEL008_NO_DIALOGS") == QLatin1String("1"))
        setDialogService(&stderrService);
    else
        setDialogService(&qtService);
}

QString installQtTranslation(const QLocale& locale)
{
    static QTranslator translator;
    QCoreApplication::removeTranslator(&translator);
    const QString folder = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
    const QString name = QStringLiteral("qtbase"), prefix = QStringLiteral("_");
    if (!translator.load(locale, name, prefix, folder) &&
        !translator.load(QLocale(QLocale::Japanese, QLocale::Japan), name, prefix, folder)) {
        std::fprintf(stderr, "pel008: no Qt translation in %s (qt6-translations-l10n)\n", qPrintable(folder));
        return QString();
    }
    if (!QCoreApplication::installTranslator(&translator)) {
        std::fprintf(stderr, "pel008: the Qt translation %s could not be installed\n",
                     qPrintable(translator.filePath()));
        return QString();
    }
    return translator.filePath();
}

} // namespace pel
