#include "conveni/frmsetcvs2.h"

#include "app/interaction.h"
#include "conveni/settingsjob.h"
#include "ui/forminteraction.h"

#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPrinterInfo>
#include <QPushButton>
#include <QVBoxLayout>

namespace pel
{

std::function<QStringList()> frmSetCvs2::printerNames = [] { return QPrinterInfo::availablePrinterNames(); };

frmSetCvs2::frmSetCvs2(QWidget* parent) : Form(parent)
{
    setObjectName(QStringLiteral("frmSetCvs2"));
    setWindowTitle(SettingsJob::kCaption);
    auto* outer = new QVBoxLayout(body());
    outer->setContentsMargins(16, 12, 16, 12);
    outer->setSpacing(10);

    chkCvs = new QCheckBox(QStringLiteral("コンビニ収納代行を使用する"), body());
    chkCvs->setObjectName(QStringLiteral("chkCvs"));
    outer->addWidget(chkCvs);

    fraConveni = new QGroupBox(body());
    fraConveni->setObjectName(QStringLiteral("fraConveni"));
    auto* grid = new QGridLayout(fraConveni);
    lblCf = new QLabel(QStringLiteral("ﾌｧｲﾅﾝｽ会社"), fraConveni);
    cboCFcode = new QComboBox(fraConveni);
    cboCFcode->setObjectName(QStringLiteral("cboCFcode"));
    cboCFcode->setToolTip(QStringLiteral("ﾌｧｲﾅﾝｽ会社をリストより選択します"));
    lblCk = new QLabel(QStringLiteral("企業コード"), fraConveni);
    txtCkcode = new QLineEdit(fraConveni);
    txtCkcode->setObjectName(QStringLiteral("txtCkcode"));
    txtCkcode->setToolTip(QStringLiteral("企業コードを入力します"));
    txtCkcode->setMaxLength(10);
    txtCkcode->setFixedWidth(txtCkcode->fontMetrics().horizontalAdvance(QStringLiteral("0000000000")) + 14);
    grid->addWidget(lblCf, 0, 0);
    grid->addWidget(cboCFcode, 0, 1, 1, 2);
    grid->addWidget(lblCk, 1, 0);
    grid->addWidget(txtCkcode, 1, 1);
    grid->setColumnStretch(2, 1);
    outer->addWidget(fraConveni);

    cmdOk = new QPushButton(QStringLiteral("ＯＫ"), body());
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setToolTip(QStringLiteral("記録します"));
    cmdCancel = new QPushButton(QStringLiteral("ｷｬﾝｾﾙ"), body());
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    cmdCancel->setToolTip(QStringLiteral("ｷｬﾝｾﾙします"));
    for (QPushButton* b : {cmdOk, cmdCancel})
        b->setAutoDefault(false);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdOk);
    buttons->addWidget(cmdCancel);
    outer->addLayout(buttons);
    outer->addStretch();

    for (QWidget* w : std::initializer_list<QWidget*>{chkCvs, cboCFcode, txtCkcode, cmdOk, cmdCancel})
        w->installEventFilter(this);
    connect(chkCvs, &QCheckBox::clicked, this, &frmSetCvs2::chkCvs_Click);
    connect(cmdOk, &QPushButton::clicked, this, &frmSetCvs2::save);
    connect(cmdCancel, &QPushButton::clicked, this, &frmSetCvs2::cancel);
    setAction(QStringLiteral("F5"), [this] { save(); });
    setAction(QStringLiteral("F6"), [this] { cancel(); });
    setAction(QStringLiteral("F12"), [this] { close(); });
    setScreenKeys([this](int key, Qt::KeyboardModifiers) {
        if (key != Qt::Key_Escape) return false;
        if (toolbar() && toolbar()->button(QStringLiteral("F6"))->isEnabled()) cancel();
        return true;
    });
}

void frmSetCvs2::onLoad()
{
    useToolbar(kMask);
    SettingsJob job(mclsDb);
    const std::optional<bool> used = job.opening();
    if (!used) {
        if (!job.openingError().isEmpty())
            msgBox(Interaction::readErrorText(job.openingError()), mb::OkOnly | mb::Critical);
        ended_ = true;
        return;
    }
    chkCvs->setChecked(*used);
    for (const Agency& a : agencies())
        cboCFcode->addItem(a.itemText(), a.code.toInt());
    cboCFcode->setCurrentIndex(0);
    // Asking the print system takes longer than everything else here, and the answer changes nothing on the screen.
    afterFirstPaint([] {
        if (printerNames().isEmpty())
            msgBox(QStringLiteral("プリンターがインストールされていません。確認してください。"), mb::Exclamation);
    });
    if (!loadSettings()) {
        ended_ = true;
        return;
    }
    chkCvs_Click();
}

void frmSetCvs2::chkCvs_Click()
{
    const bool on = chkCvs->isChecked();
    for (QWidget* w : std::initializer_list<QWidget*>{lblCf, lblCk, cboCFcode, txtCkcode})
        w->setEnabled(on);
}

bool frmSetCvs2::loadSettings()
{
    SettingsJob job(mclsDb);
    const SettingsJob::Loaded l = job.load();
    if (!l.error.isEmpty()) {
        // never shown as empty settings: a save would then write over the stored ones
        msgBox(Interaction::readErrorText(l.error), mb::OkOnly | mb::Critical);
        return false;
    }
    if (l.index) cboCFcode->setCurrentIndex(*l.index);
    txtCkcode->setText(l.code);
    return true;
}

bool frmSetCvs2::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::FocusIn) setMask(kMask);
    return Form::eventFilter(watched, event);
}

void frmSetCvs2::save()
{
    // the item's code right-aligned to six, compared as text
    const QString agency =
        cboCFcode->currentIndex() < 0 ? QString() : QString::number(cboCFcode->currentData().toInt()).rightJustified(6);
    FormInteraction ui(this, kMask, kMask);
    SettingsJob job(mclsDb);
    switch (job.save(chkCvs->isChecked(), agency, txtCkcode->text(), ui)) {
    case SettingsJob::Saved::CodeRefused:
        if (txtCkcode->isEnabled()) txtCkcode->setFocus();
        break;
    case SettingsJob::Saved::Yes:
        setMask(kMask);
        focusAfterSave();
        break;
    default:
        break;
    }
}

void frmSetCvs2::cancel()
{
    // only the agency and the code come back; the check box stays as it is
    if (fnMsg(QStringLiteral("ｷｬﾝｾﾙ")) != answer::Yes) return;
    loadSettings();
    focusAfterSave();
}

void frmSetCvs2::focusAfterSave()
{
    if (!chkCvs->isChecked()) {
        if (chkCvs->isEnabled()) chkCvs->setFocus();
    } else {
        cboCFcode->setFocus();
    }
}

} // namespace pel
