#include "conveni/frmreadcvsmt.h"

#include "app/startup.h"
#include "conveni/rptcvsmtprint.h"
#include "ui/dateentry.h"
#include "ui/forminteraction.h"
#include "ui/textrules.h"

#include <QComboBox>
#include <QDate>
#include <QDateEdit>
#include <QDesktopServices>
#include <QEvent>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>

namespace pel {
namespace {

QPushButton* button(const QString& name, const QString& caption, QWidget* parent)
{
    auto* b = new QPushButton(caption, parent);
    b->setObjectName(name);
    b->setAutoDefault(false);
    return b;
}

QLabel* totalLabel(int index, QWidget* parent)
{
    auto* l = new QLabel(QStringLiteral("0"), parent);
    l->setObjectName(QStringLiteral("lblTotal_%1").arg(index));
    l->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    l->setFrameShape(QFrame::Panel);
    l->setFrameShadow(QFrame::Sunken);
    l->setMinimumWidth(l->fontMetrics().horizontalAdvance(QStringLiteral("99,999,999")) + 12);
    return l;
}

} // namespace

frmReadCVSMT::frmReadCVSMT(QWidget* parent) : Form(parent)
{
    setObjectName(QStringLiteral("frmReadCVSMT"));
    setWindowTitle(QStringLiteral("コンビニ収納代行　入金データ読込"));
    auto* outer = new QVBoxLayout(body());
    outer->setContentsMargins(12, 8, 12, 8);

    auto* input = new QGridLayout;
    input->addWidget(new QLabel(QStringLiteral("読込ﾌｧｲﾙ名"), body()), 0, 0);
    txtFname = new QLineEdit(body());
    txtFname->setObjectName(QStringLiteral("txtFname"));
    txtFname->setToolTip(QStringLiteral("読込ファイル名を入力して下さい"));
    input->addWidget(txtFname, 0, 1, 1, 3);
    cmdFile = button(QStringLiteral("cmdFile"), QStringLiteral("ﾌｧｲﾙ選択"), body());
    cmdFchk = button(QStringLiteral("cmdFchk"), QStringLiteral("ﾃﾞｰﾀ確認"), body());
    input->addWidget(cmdFile, 0, 4);
    input->addWidget(cmdFchk, 0, 5);
    input->addWidget(new QLabel(QStringLiteral("入金日区分"), body()), 1, 0);
    cboDkbn = new QComboBox(body());
    cboDkbn->setObjectName(QStringLiteral("cboDkbn"));
    cboDkbn->addItems({QStringLiteral("収納日"), QStringLiteral("画面指定")});
    cboDkbn->setToolTip(QStringLiteral("入金日区分を選択して下さい"));
    input->addWidget(cboDkbn, 1, 1);
    input->addWidget(new QLabel(QStringLiteral("入金日付"), body()), 1, 2);
    txtDay = new DateEntry(0, body());
    txtDay->setObjectName(QStringLiteral("txtDay"));
    txtDay->setToolTip(QStringLiteral("入金日を入力して下さい"));
    input->addWidget(txtDay, 1, 3);
    cmdOK = button(QStringLiteral("cmdOK"), QStringLiteral("ＯＫ"), body());
    cmdOK->setToolTip(QStringLiteral("読込を開始します"));
    input->addWidget(cmdOK, 1, 5);
    input->setColumnStretch(1, 1);
    input->setColumnStretch(3, 1);
    outer->addLayout(input);

    ListView = new QTreeWidget(body());
    ListView->setObjectName(QStringLiteral("ListView"));
    ListView->setRootIsDecorated(false);
    ListView->setUniformRowHeights(true);
    ListView->setHeaderLabels({QStringLiteral("結果"), QStringLiteral("区分"), QStringLiteral("入金日"),
                               QStringLiteral("伝票金額"), QStringLiteral("読込金額"), QStringLiteral("伝票番号"),
                               QStringLiteral("顧客コード"), QStringLiteral("顧客氏名")});
    // the outcome text whole, the amounts right-aligned
    const int widths[] = {330, 50, 85, 80, 80, 80, 75, 160};
    for (int i = 0; i < 8; ++i)
        ListView->setColumnWidth(i, widths[i]);
    for (const int c : {3, 4})
        ListView->headerItem()->setTextAlignment(c, Qt::AlignRight | Qt::AlignVCenter);
    connect(ListView->model(), &QAbstractItemModel::rowsInserted, this,
            [this](const QModelIndex&, int first, int last) {
                for (int r = first; r <= last; ++r)
                    for (const int c : {3, 4})
                        ListView->topLevelItem(r)->setTextAlignment(c, Qt::AlignRight | Qt::AlignVCenter);
            });
    outer->addWidget(ListView, 1);

    // the four frames: 正常 (0, 1), エラー (2, 3), 取消 (4, 5), 合計 (6..9)
    auto* frames = new QHBoxLayout;
    const QString titles[] = {QStringLiteral("正常"), QStringLiteral("エラー"), QStringLiteral("取消"),
                              QStringLiteral("合計")};
    for (int i = 0; i < 10; ++i)
        lblTotal[static_cast<size_t>(i)] = totalLabel(i, body());
    for (int f = 0; f < 4; ++f) {
        auto* box = new QGroupBox(titles[f], body());
        auto* g = new QGridLayout(box);
        const auto row = [&](int r, const QString& caption, int index) {
            g->addWidget(new QLabel(caption, box), r, 0);
            g->addWidget(lblTotal[static_cast<size_t>(index)], r, 1);
        };
        if (f < 2) {
            row(0, QStringLiteral("件数"), f * 2);
            row(1, QStringLiteral("金額"), f * 2 + 1);
        } else if (f == 2) {
            row(0, QStringLiteral("取消件数"), 4);
            row(1, QStringLiteral("取消金額"), 5);
        } else {
            row(0, QStringLiteral("件数"), 6);
            row(1, QStringLiteral("金額"), 7);
            row(2, QStringLiteral("取消件数"), 8);
            row(3, QStringLiteral("取消金額"), 9);
        }
        auto* buttons = new QHBoxLayout;
        cmdPreview[static_cast<size_t>(f)] =
            button(QStringLiteral("cmdPreview_%1").arg(f), QStringLiteral("確認"), box);
        cmdPrint[static_cast<size_t>(f)] = button(QStringLiteral("cmdPrint_%1").arg(f), QStringLiteral("印刷"), box);
        buttons->addWidget(cmdPreview[static_cast<size_t>(f)]);
        buttons->addWidget(cmdPrint[static_cast<size_t>(f)]);
        g->addLayout(buttons, 4, 0, 1, 2);
        g->setRowStretch(3 + (f < 3 ? 0 : 1), 1);
        frames->addWidget(box);
        connect(cmdPreview[static_cast<size_t>(f)], &QPushButton::clicked, this, [this, f] { openReport(f, true); });
        connect(cmdPrint[static_cast<size_t>(f)], &QPushButton::clicked, this, [this, f] { openReport(f, false); });
    }
    outer->addLayout(frames);

    prbCnt = new QProgressBar(body());
    prbCnt->setObjectName(QStringLiteral("prbCnt"));
    prbCnt->setRange(0, 100);
    prbCnt->setValue(0);
    lblMsg = new QLabel(body());
    lblMsg->setObjectName(QStringLiteral("lblMsg"));
    outer->addWidget(prbCnt);
    outer->addWidget(lblMsg);
    resize(980, 640);

    job_ = std::make_unique<PaymentImportJob>(mclsDb, idle_);
    job_->totalsChanged = [this] { showTotals(); };
    job_->listCleared = [this] { ListView->clear(); };

    connect(cmdOK, &QPushButton::clicked, this, &frmReadCVSMT::cmdOK_Click);
    connect(cmdFile, &QPushButton::clicked, this, &frmReadCVSMT::cmdFile_Click);
    connect(cmdFchk, &QPushButton::clicked, this, &frmReadCVSMT::cmdFchk_Click);
    connect(cboDkbn, &QComboBox::currentIndexChanged, this, &frmReadCVSMT::dateKindChanged);
    setAction(QStringLiteral("F4"), [this] {
        if (txtFname->hasFocus())
            cmdFile_Click();
    });
    setAction(QStringLiteral("F5"), [this] { cmdOK_Click(); });
    setAction(QStringLiteral("F6"), [this] {
        if (running_)
            running_->requestCancel();
    });
    setAction(QStringLiteral("F12"), [this] { close(); });
}

frmReadCVSMT::~frmReadCVSMT() = default;

void frmReadCVSMT::onLoad()
{
    useToolbar(QString::fromLatin1(kIdleMask));
    txtDay->setYmd(QDate::currentDate().toString(QStringLiteral("yyyyMMdd")).toLongLong());
    Recordset rs;
    if (!mclsDb.DbSql(
            Sql("select code,name,kubun from cvsini where code in (select cfcode1 from cvsset) order by code"), rs) ||
        rs.eof()) {
        msgBox(QStringLiteral("ファイナンス会社の登録がありません"), mb::OkOnly, kProductTitle);
        closeAtActivation_ = true;
    }
    cboDkbn->setCurrentIndex(0);
    dateKindChanged(0);
}

void frmReadCVSMT::readSettings()
{
    txtFname->setText(getSetting(QStringLiteral("CvsRead"), QStringLiteral("ReadFile")));
}

void frmReadCVSMT::writeSettings()
{
    putSetting(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), txtFname->text());
}

void frmReadCVSMT::changeEvent(QEvent* event)
{
    Form::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow() && closeAtActivation_)
        QTimer::singleShot(0, this, &QWidget::close);
}

void frmReadCVSMT::dateKindChanged(int index)
{
    const bool screenDate = index == PaymentImportJob::ScreenDate;
    txtDay->txtYy()->setEnabled(screenDate);
    txtDay->txtMm()->setEnabled(screenDate);
    txtDay->txtDd()->setEnabled(screenDate);
    txtDay->dtpDay()->setEnabled(screenDate);
}

void frmReadCVSMT::showTotals()
{
    for (size_t i = 0; i < 10; ++i)
        lblTotal[i]->setText(job_->totals()[i]);
}

void frmReadCVSMT::cmdOK_Click()
{
    txtFname->setText(fnTrim(txtFname->text()));
    if (job_->busy()) {
        txtFname->setFocus();
        return;
    }
    running_ = std::make_unique<FormInteraction>(this, QString::fromLatin1(kBusyMask), QString::fromLatin1(kIdleMask),
                                                 FormInteraction::Widgets{prbCnt, lblMsg, ListView});
    job_->setInteraction(*running_);
    job_->run({txtFname->text(), cboDkbn->currentIndex(), static_cast<qint32>(txtDay->ymd())});
    job_->setInteraction(idle_);
    running_.reset();
    txtFname->setFocus();
}

void frmReadCVSMT::cmdFile_Click()
{
    const QString name = fnTrim(txtFname->text());
    if (!name.contains(u'\\') && !name.contains(u'/'))
        msgBox(QStringLiteral("ファイル名を指定してください。"), mb::OkOnly, QStringLiteral("確認"));
    const QString start = startFolder(name, getSetting(QStringLiteral("CvsRead"), QStringLiteral("ReadFile")));
    if (const auto chosen = idle_.chooseFile(DialogService::FileChoice::Open, QStringLiteral("読込ファイル選択"), start,
                                             QStringLiteral("MTデータ (*.txt *.csv);;すべてのファイル (*)")))
        txtFname->setText(*chosen);
}

void frmReadCVSMT::cmdFchk_Click()
{
    const QString name = fnTrim(txtFname->text());
#ifdef Q_OS_WIN
    QProcess::startDetached(QStringLiteral("notepad.exe"), {name});
#else
    QDesktopServices::openUrl(QUrl::fromLocalFile(name));
#endif
}

void frmReadCVSMT::openReport(int selector, bool preview)
{
    reportSelector_ = selector;
    rptCVSMTPrint report(ListView, selector);
    if (preview)
        report.preview(this);
    else
        report.print(this);
}

} // namespace pel
