#include "shipping/frmicatmake.h"

#include "app/interaction.h"
#include "app/startup.h"
#include "ui/dateentry.h"
#include "ui/forminteraction.h"
#include "ui/keys.h"
#include "ui/textrules.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDate>
#include <QDateEdit>
#include <QEvent>
#include <QFocusEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace pel {
namespace {

const QString kLayoutMask = QStringLiteral("1001-0100-0001");
const QString kIdleMask = QStringLiteral("1000-0100-0001");
const QString kFileMask = QStringLiteral("1001-0100-0001");
const QString kBusyMask = QStringLiteral("0000-0100-0000");
const QString kAfterMask = QStringLiteral("1000-0000-0001");
const QString kFileFilter = QStringLiteral("csvﾌｧｲﾙ (*.csv);;ﾃｷｽﾄﾌｧｲﾙ (*.txt);;すべてのﾌｧｲﾙ (*.*)");

QString datePicker(long long ymd)
{
    return IcatExportJob::datePattern(QString::number(ymd));
}

} // namespace

frmICatMake::frmICatMake(QWidget* parent) : Form(parent), job_(mclsDb)
{
    setObjectName(QStringLiteral("frmICatMake"));
    setWindowTitle(IcatExportJob::kCaption);
    useToolbar(kLayoutMask);
    setMask(kIdleMask);

    auto* outer = new QVBoxLayout(body());
    outer->setContentsMargins(16, 12, 16, 12);
    outer->setSpacing(10);
    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(10);
    grid->setVerticalSpacing(8);
    int row = 0;

    dates = new DateRange(body());
    dates->entry(0)->setToolTip(QStringLiteral("出荷日の開始を入力します"));
    dates->entry(1)->setToolTip(QStringLiteral("出荷日の終了を入力します"));
    for (int i = 0; i < 2; ++i)
        for (QWidget* w :
             {static_cast<QWidget*>(dates->entry(i)->txtYy()), static_cast<QWidget*>(dates->entry(i)->txtMm()),
              static_cast<QWidget*>(dates->entry(i)->txtDd())})
            w->setToolTip(dates->entry(i)->toolTip());
    grid->addWidget(new QLabel(QStringLiteral("出荷日"), body()), row, 0);
    grid->addWidget(dates, row++, 1, 1, 3);

    const QString dennoTips[2] = {QStringLiteral("受注番号の開始を入力します"),
                                  QStringLiteral("受注番号の終了を入力します")};
    auto* numbers = new QHBoxLayout;
    for (int i = 0; i < 2; ++i) {
        txtDenno[i] = new QLineEdit(body());
        txtDenno[i]->setObjectName(QStringLiteral("txtDenno"));
        txtDenno[i]->setProperty("index", i);
        txtDenno[i]->setMaxLength(IcatExportJob::kDennoWidth);
        setFieldKind(txtDenno[i], QStringLiteral("6"));
        txtDenno[i]->setAlignment(Qt::AlignRight);
        txtDenno[i]->setToolTip(dennoTips[i]);
        txtDenno[i]->setFixedWidth(txtDenno[i]->fontMetrics().horizontalAdvance(QStringLiteral("0")) * 9 + 16);
        txtDenno[i]->installEventFilter(this);
        numbers->addWidget(txtDenno[i]);
        if (i == 0)
            numbers->addWidget(new QLabel(QStringLiteral("～"), body()));
    }
    numbers->addStretch();
    grid->addWidget(new QLabel(QStringLiteral("受注番号"), body()), row, 0);
    grid->addLayout(numbers, row++, 1, 1, 3);

    cboHaisou = new QComboBox(body());
    cboHaisou->setObjectName(QStringLiteral("cboHaisou"));
    cboHaisou->setToolTip(QStringLiteral("送り状を選択して下さい"));
    cboHaisou->setMinimumWidth(200);
    chkSaiPrint = new QCheckBox(QStringLiteral("再出力"), body());
    chkSaiPrint->setObjectName(QStringLiteral("chkSaiPrint"));
    chkSaiPrint->setToolTip(QStringLiteral("送り状印刷済みデータを再印刷する場合はチェックします"));
    grid->addWidget(new QLabel(QStringLiteral("送り状種類"), body()), row, 0);
    grid->addWidget(cboHaisou, row, 1);
    grid->addWidget(chkSaiPrint, row++, 2);

    txtFile = new QLineEdit(body());
    txtFile->setObjectName(QStringLiteral("txtFile"));
    txtFile->setToolTip(QStringLiteral("作成ファイル名を入力してください"));
    txtFile->setMinimumWidth(420);
    txtFile->installEventFilter(this);
    grid->addWidget(new QLabel(QStringLiteral("ファイル"), body()), row, 0);
    grid->addWidget(txtFile, row++, 1, 1, 3);
    grid->setColumnStretch(3, 1);
    outer->addLayout(grid);

    cmdFile = addActionRow(outer, QStringLiteral("cmdFile"), QStringLiteral("作成"),
                           QStringLiteral("出荷データを作成します"), &lblMsg);

    ui_ = std::make_unique<FormInteraction>(this, kBusyMask, kAfterMask,
                                            FormInteraction::Widgets{nullptr, lblMsg, nullptr});
    connect(cmdFile, &QPushButton::clicked, this, &frmICatMake::cmdFile_Click);
    setAction(QStringLiteral("F4"), [this] { chooseFile(); });
    setAction(QStringLiteral("F6"), [this] { requestCancel(); });
    setAction(QStringLiteral("F12"), [this] { close(); });
    job_.showSelection = [this](const IcatExportJob::Selection& s) {
        if (s.datesSwapped) {
            setDate(0, s.dateFrom);
            setDate(1, s.dateTo);
        }
        if (s.numbersSwapped) {
            txtDenno[0]->setText(fnPadLeft(QString::number(s.dennoFrom), txtDenno[0]->maxLength()));
            txtDenno[1]->setText(fnPadLeft(QString::number(s.dennoTo), txtDenno[1]->maxLength()));
        }
    };
}

frmICatMake::~frmICatMake() = default;

void frmICatMake::setDate(int index, long long ymd)
{
    DateEntry* e = dates->entry(index);
    const QDate d = QDate::fromString(datePicker(ymd), QStringLiteral("yyyy/MM/dd"));
    if (d.isValid())
        e->dtpDay()->setDate(d);
    e->setYmd(ymd);
}

void frmICatMake::onLoad()
{
    const long long today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd")).toLongLong();
    setDate(0, today);
    setDate(1, today);
    job_.loadShop();
    for (const auto& kind : job_.labelKinds())
        cboHaisou->addItem(kind.first, kind.second);
    // an unreadable list is not an empty one: said, then the screen stays as with no kinds
    if (!job_.kindsError().isEmpty())
        msgBox(Interaction::readErrorText(job_.kindsError()), mb::OkOnly | mb::Critical);
    txtDenno[0]->setText(QStringLiteral("       1"));
    txtDenno[1]->setText(QStringLiteral("99999999"));
    cboHaisou->setCurrentIndex(cboHaisou->count() > 0 ? 0 : -1);

    if (gstrArgs.size() > 1) {
        // only the first two entries are compared, whatever the list holds
        for (int i = 0; i < 2 && i < cboHaisou->count(); ++i)
            if (cboHaisou->itemData(i).toInt() == fnToNum(gstrArgs.value(1)))
                cboHaisou->setCurrentIndex(i);
        setDate(0, gstrArgs.value(2).toLongLong());
        setDate(1, gstrArgs.value(3).toLongLong());
        txtDenno[0]->setText(gstrArgs.value(4));
        txtDenno[1]->setText(gstrArgs.value(5));
        chkSaiPrint->setChecked(gstrArgs.value(6).trimmed().toInt() == 1);
        // the caller's label kind stays
        cboHaisou->setEnabled(false);
    }
    focusKind();
}

void frmICatMake::readSettings()
{
    txtFile->setText(getSetting(QStringLiteral("I-CAT"), QStringLiteral("MakeFile")));
}

void frmICatMake::writeSettings()
{
    putSetting(QStringLiteral("I-CAT"), QStringLiteral("MakeFile"), txtFile->text());
}

void frmICatMake::setHcode(qint16 value)
{
    preset_ = true;
    for (int i = 0; i < cboHaisou->count(); ++i)
        if (cboHaisou->itemData(i).toInt() == value)
            cboHaisou->setCurrentIndex(i);
}

void frmICatMake::setSday(qint32 value)
{
    preset_ = true;
    setDate(0, value);
    setDate(1, value);
}

void frmICatMake::setDenno(qint32 value)
{
    preset_ = true;
    txtDenno[0]->setText(QString::number(value));
    txtDenno[1]->setText(QString::number(value));
}

void frmICatMake::setSaiPrint(qint16 value)
{
    preset_ = true;
    chkSaiPrint->setChecked(value == 1);
}

void frmICatMake::focusKind()
{
    if (cboHaisou->isEnabled())
        cboHaisou->setFocus();
}

bool frmICatMake::eventFilter(QObject* watched, QEvent* event)
{
    const bool in = event->type() == QEvent::FocusIn, out = event->type() == QEvent::FocusOut;
    if (watched == txtFile && (in || out) && !busy()) {
        setMask(in ? kFileMask : kIdleMask);
    } else if (out && (watched == txtDenno[0] || watched == txtDenno[1])) {
        const Qt::FocusReason r = static_cast<QFocusEvent*>(event)->reason();
        auto* box = static_cast<QLineEdit*>(watched);
        if (r != Qt::ActiveWindowFocusReason && r != Qt::PopupFocusReason)
            box->setText(fnPadLeft(box->text(), box->maxLength()));
    }
    return Form::eventFilter(watched, event);
}

void frmICatMake::chooseFile()
{
    const QString remembered = getSetting(QStringLiteral("I-CAT"), QStringLiteral("MakeFile"));
    if (const auto file = dialogs().chooseFile(DialogService::FileChoice::Save,
                                               QStringLiteral("ファイルを選択して下さい"),
                                               startFile(txtFile->text(), remembered), kFileFilter);
        file && !file->isEmpty()) {
        txtFile->setText(*file);
        txtFile->setToolTip(*file);
    }
}

void frmICatMake::requestCancel()
{
    ui_->requestCancel();
}

void frmICatMake::cmdFile_Click()
{
    IcatExportJob::Input in;
    for (int i = 0; i < 2; ++i) {
        DateEntry* e = dates->entry(i);
        in.yy[i] = e->txtYy()->text();
        in.mm[i] = e->txtMm()->text();
        in.dd[i] = e->txtDd()->text();
        in.denno[i] = txtDenno[i]->text();
    }
    in.file = txtFile->text();
    in.kind = cboHaisou->currentIndex() >= 0 ? cboHaisou->currentData().toInt() : -1;
    in.reprint = chkSaiPrint->isChecked();
    const IcatExportJob::Result r = job_.run(in, *ui_);
    if (r.outcome == IcatExportJob::Outcome::Missing) {
        QWidget* fields[] = {dates->entry(0)->txtYy(),
                             dates->entry(0)->txtMm(),
                             dates->entry(0)->txtDd(),
                             dates->entry(1)->txtYy(),
                             dates->entry(1)->txtMm(),
                             dates->entry(1)->txtDd(),
                             txtDenno[0],
                             txtDenno[1],
                             txtFile};
        fields[r.missing]->setFocus();
        return;
    }
    focusKind();
}

} // namespace pel
