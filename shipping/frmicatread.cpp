#include "shipping/frmicatread.h"

#include "ui/forminteraction.h"

#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace pel {
namespace {

const QString kLayoutMask = QStringLiteral("1001-0100-0001");
const QString kIdleMask = QStringLiteral("1000-0000-0001");
const QString kFileMask = QStringLiteral("1001-0000-0001");
const QString kBusyMask = QStringLiteral("0000-0100-0000");
const QString kFileFilter = QStringLiteral("csvﾌｧｲﾙ (*.csv);;ﾃｷｽﾄﾌｧｲﾙ (*.txt);;すべてのﾌｧｲﾙ (*.*)");

} // namespace

frmICatRead::frmICatRead(QWidget* parent) : Form(parent), job_(mclsDb)
{
    setObjectName(QStringLiteral("frmICatRead"));
    setWindowTitle(TrackingImportJob::kCaption);
    useToolbar(kLayoutMask);
    setMask(kIdleMask);

    auto* outer = new QVBoxLayout(body());
    outer->setContentsMargins(16, 12, 16, 12);
    outer->setSpacing(10);
    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(10);
    const QString labels[2] = {QStringLiteral("ファイル"), QStringLiteral("エラーログ")};
    const QString tips[2] = {QStringLiteral("読込ファイル名を入力してください"),
                             QStringLiteral("エラーログファイル名を入力してください")};
    for (int i = 0; i < 2; ++i) {
        txtFile[i] = new QLineEdit(body());
        txtFile[i]->setObjectName(QStringLiteral("txtFile"));
        txtFile[i]->setProperty("index", i);
        txtFile[i]->setToolTip(tips[i]);
        txtFile[i]->setMinimumWidth(420);
        txtFile[i]->installEventFilter(this);
        grid->addWidget(new QLabel(labels[i], body()), i, 0);
        grid->addWidget(txtFile[i], i, 1);
    }
    grid->setColumnStretch(1, 1);
    outer->addLayout(grid);

    cmdRead = addActionRow(outer, QStringLiteral("cmdRead"), QStringLiteral("読込"),
                           QStringLiteral("データを読込みます"), &lblMsg);

    ui_ = std::make_unique<FormInteraction>(this, kBusyMask, kIdleMask,
                                            FormInteraction::Widgets{nullptr, lblMsg, nullptr});
    connect(cmdRead, &QPushButton::clicked, this, &frmICatRead::cmdRead_Click);
    setAction(QStringLiteral("F4"), [this] { chooseFile(); });
    setAction(QStringLiteral("F6"), [this] { requestCancel(); });
    setAction(QStringLiteral("F12"), [this] { close(); });
}

frmICatRead::~frmICatRead() = default;

void frmICatRead::readSettings()
{
    txtFile[0]->setText(getSetting(QStringLiteral("I-CAT"), QStringLiteral("ReadFile")));
    txtFile[1]->setText(getSetting(QStringLiteral("I-CAT"), QStringLiteral("ErrFile")));
}

void frmICatRead::writeSettings()
{
    putSetting(QStringLiteral("I-CAT"), QStringLiteral("ReadFile"), txtFile[0]->text());
    putSetting(QStringLiteral("I-CAT"), QStringLiteral("ErrFile"), txtFile[1]->text());
}

bool frmICatRead::eventFilter(QObject* watched, QEvent* event)
{
    const bool in = event->type() == QEvent::FocusIn, out = event->type() == QEvent::FocusOut;
    if ((watched == txtFile[0] || watched == txtFile[1]) && (in || out) && !busy()) {
        if (in)
            fileIndex_ = watched == txtFile[0] ? 0 : 1;
        setMask(in ? kFileMask : kIdleMask);
    }
    return Form::eventFilter(watched, event);
}

void frmICatRead::chooseFile()
{
    const QString remembered =
        getSetting(QStringLiteral("I-CAT"), fileIndex_ == 0 ? QStringLiteral("ReadFile") : QStringLiteral("ErrFile"));
    if (const auto file = dialogs().chooseFile(DialogService::FileChoice::Open,
                                               QStringLiteral("ファイルを選択して下さい"),
                                               startFolder(txtFile[fileIndex_]->text(), remembered), kFileFilter);
        file && !file->isEmpty()) {
        txtFile[fileIndex_]->setText(*file);
        txtFile[fileIndex_]->setToolTip(*file);
    }
}

void frmICatRead::requestCancel()
{
    ui_->requestCancel();
}

void frmICatRead::cmdRead_Click()
{
    job_.run(txtFile[0]->text(), txtFile[1]->text(), *ui_);
    txtFile[0]->setFocus();
}

} // namespace pel
