#include "conveni/frmconvenimake.h"

#include "app/interaction.h"
#include "app/startup.h"
#include "conveni/billingjob.h"
#include "conveni/settingsjob.h"
#include "ui/dateentry.h"
#include "ui/forminteraction.h"
#include "ui/msgcatalog.h"
#include "ui/textrules.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDate>
#include <QDateEdit>
#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include <utility>

namespace pel {

frmConveniMake::frmConveniMake(QWidget* parent) : Form(parent)
{
    setObjectName(QStringLiteral("frmConveniMake"));
    setWindowTitle(BillingJob::kCaption);
    auto* outer = new QVBoxLayout(body());
    outer->setContentsMargins(16, 12, 16, 12);
    outer->setSpacing(10);
    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(10);
    grid->setVerticalSpacing(8);

    cboConveni = new QComboBox(body());
    cboConveni->setObjectName(QStringLiteral("cboConveni"));
    cboConveni->setToolTip(QStringLiteral("ﾌｧｲﾅﾝｽ会社を選択して下さい"));
    grid->addWidget(new QLabel(QStringLiteral("ﾌｧｲﾅﾝｽ会社"), body()), 0, 0);
    grid->addWidget(cboConveni, 0, 1, 1, 4);

    dates = new DateRange(body());
    dates->entry(0)->setToolTip(QStringLiteral("出荷日を開始を指定します"));
    dates->entry(1)->setToolTip(QStringLiteral("出荷日を終了を指定します"));
    grid->addWidget(new QLabel(QStringLiteral("出荷日"), body()), 1, 0);
    grid->addWidget(dates, 1, 1, 1, 4);

    grid->addWidget(new QLabel(QStringLiteral("受注番号"), body()), 2, 0);
    const QString hints[] = {QStringLiteral("受注番号の開始を入力します"),
                             QStringLiteral("受注番号の終了を入力します")};
    for (int i = 0; i < 2; ++i) {
        txtDenno[i] = new QLineEdit(body());
        txtDenno[i]->setObjectName(QStringLiteral("txtDenno"));
        txtDenno[i]->setProperty("index", i);
        txtDenno[i]->setMaxLength(8);
        setFieldKind(txtDenno[i], QStringLiteral("6"));
        txtDenno[i]->setAlignment(Qt::AlignRight);
        txtDenno[i]->setToolTip(hints[i]);
        txtDenno[i]->setFixedWidth(txtDenno[i]->fontMetrics().horizontalAdvance(QStringLiteral("00000000")) + 14);
    }
    grid->addWidget(txtDenno[0], 2, 1);
    grid->addWidget(new QLabel(QStringLiteral("～"), body()), 2, 2);
    grid->addWidget(txtDenno[1], 2, 3);
    grid->setColumnStretch(4, 1);

    chkSaiPrint = new QCheckBox(QStringLiteral("再出力"), body());
    chkSaiPrint->setObjectName(QStringLiteral("chkSaiPrint"));
    chkSaiPrint->setToolTip(QStringLiteral("コンビニＣＳＶデータを再出力する場合はチェックします"));
    grid->addWidget(chkSaiPrint, 3, 1, 1, 3);
    outer->addLayout(grid);

    cmdFile = addActionRow(outer, QStringLiteral("cmdFile"), QStringLiteral("作成"),
                           QStringLiteral("コンビニデータを作成します"), &lblMsg);

    // Outside the inputs that a run disables: it keeps the focus (and so F6 and Escape) while the export runs.
    txtDummy = new QLineEdit(this);
    txtDummy->setObjectName(QStringLiteral("txtDummy"));
    txtDummy->setGeometry(0, 0, 1, 1);
    txtDummy->setFocusPolicy(Qt::ClickFocus);

    for (QWidget* w : std::initializer_list<QWidget*>{cboConveni, txtDenno[0], txtDenno[1], chkSaiPrint, cmdFile})
        w->installEventFilter(this);
    connect(dates, &DateRange::entered, this, [this] { setMask(kIdleMask); });
    connect(cmdFile, &QPushButton::clicked, this, &frmConveniMake::cmdFile_Click);
    setAction(QStringLiteral("F6"), [this] { abortKey(); });
    setAction(QStringLiteral("F12"), [this] { close(); });
    setScreenKeys([this](int key, Qt::KeyboardModifiers) {
        if (key != Qt::Key_Escape)
            return false;
        if (toolbar() && toolbar()->button(QStringLiteral("F6"))->isEnabled())
            abortKey();
        return true;
    });
}

frmConveniMake::~frmConveniMake() = default;

QLineEdit* frmConveniMake::txtYy(int i) const
{
    return dates->entry(i)->txtYy();
}
QLineEdit* frmConveniMake::txtMm(int i) const
{
    return dates->entry(i)->txtMm();
}
QLineEdit* frmConveniMake::txtDd(int i) const
{
    return dates->entry(i)->txtDd();
}

void frmConveniMake::setDay(int i, long long ymd)
{
    dates->entry(i)->setYmd(ymd);
    const QDate day = QDate::fromString(QString::number(ymd), QStringLiteral("yyyyMMdd"));
    if (day.isValid())
        dates->entry(i)->dtpDay()->setDate(day);
}

void frmConveniMake::readSettings()
{
    folder_ = getSetting(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"));
}

void frmConveniMake::writeSettings()
{
    putSetting(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), folder_);
}

void frmConveniMake::onLoad()
{
    useToolbar(kOpenMask);
    for (const Agency& a : agencies())
        cboConveni->addItem(a.itemText(), a.code.toInt());
    cboConveni->setCurrentIndex(0);
    BillingJob job(mclsDb);
    const BillingJob::Opening opening = job.opening();
    cboConveni->setCurrentIndex(opening.agency);
    companyCode_ = opening.companyCode;
    openingError_ = opening.readError;
    if (gintArgCnt > 1) {
        // the suite's menu presets the range: arguments 2-3 ship dates, 4-5 order numbers, 6 re-output
        for (int i = 0; i < 2; ++i) {
            const QString day = fnTrim(gstrArgs.value(2 + i));
            if (!day.isEmpty())
                setDay(i, static_cast<long long>(fnToNum(day, false, false)));
            txtDenno[i]->setText(gstrArgs.value(4 + i));
        }
        chkSaiPrint->setChecked(fnToNum(gstrArgs.value(6), false, false) == 1);
    } else {
        const long long today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd")).toLongLong();
        setDay(0, today);
        setDay(1, today);
        txtDenno[0]->setText(QStringLiteral("1"));
        txtDenno[1]->setText(QStringLiteral("99999999"));
    }
}

void frmConveniMake::showEvent(QShowEvent* event)
{
    Form::showEvent(event);
    QTimer::singleShot(0, this, &frmConveniMake::activate);
}

void frmConveniMake::activate()
{
    if (!isVisible() || (!companyCode_.isEmpty() && openingError_.isEmpty()))
        return;
    if (!openingError_.isEmpty())
        msgBox(Interaction::readErrorText(openingError_), mb::OkOnly | mb::Critical);
    else
        msgBox(BillingJob::noCompanyCodeMessage(), mb::OkOnly | mb::Critical);
    close();
}

bool frmConveniMake::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::FocusIn)
        setMask(kIdleMask);
    return Form::eventFilter(watched, event);
}

void frmConveniMake::abortKey()
{
    if (running_)
        running_->requestCancel();
    else
        fnMsg(QStringLiteral("処理中止")); // nothing runs: the flag is cleared when the next run starts
}

bool frmConveniMake::entryCheck()
{
    for (int i = 0; i < 2; ++i)
        for (QLineEdit* box : {txtYy(i), txtMm(i), txtDd(i), txtDenno[i]})
            if (fnTrim(box->text()).isEmpty()) {
                fnMsg(QStringLiteral("未記入"));
                box->setFocus();
                return false;
            }
    const long long from = dates->entry(0)->ymd(), to = dates->entry(1)->ymd();
    if (from > to) {
        setDay(0, to);
        setDay(1, from);
    }
    if (fnToNum(txtDenno[0]->text()) > fnToNum(txtDenno[1]->text())) {
        const QString first = fnTrim(txtDenno[0]->text()), last = fnTrim(txtDenno[1]->text());
        txtDenno[0]->setText(fnPadLeft(last, txtDenno[0]->maxLength()));
        txtDenno[1]->setText(fnPadLeft(first, txtDenno[1]->maxLength()));
    }
    return true;
}

void frmConveniMake::cmdFile_Click()
{
    if (running_ || !entryCheck())
        return;
    BillingRequest r;
    r.agency = cboConveni->currentIndex() < 0 ? 0 : cboConveni->currentIndex();
    r.fromDate = dates->entry(0)->ymd();
    r.toDate = dates->entry(1)->ymd();
    r.fromNo = static_cast<qint64>(fnToNum(txtDenno[0]->text()));
    r.toNo = static_cast<qint64>(fnToNum(txtDenno[1]->text()));
    r.reoutput = chkSaiPrint->isChecked();
    r.companyCode = companyCode_;
    r.folder = folder_;
    {
        FormInteraction ui(this, kBusyMask, kIdleMask, {nullptr, lblMsg, nullptr});
        running_ = &ui;
        txtDummy->setFocus();
        BillingJob job(mclsDb);
        const BillingResult result = job.run(r, ui);
        if (!result.folder.isEmpty())
            folder_ = result.folder;
        running_ = nullptr;
    }
    // the closing state after every run: the start month box (deliberate)
    lblMsg->clear();
    txtMm(0)->setFocus();
    setMask(kIdleMask);
}

} // namespace pel
