#include "offset/frmoffset.h"

#include "offset/offsetjob.h"
#include "ui/forminteraction.h"

#include <QFocusEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace pel {
namespace {

QLineEdit* offsetBox(const QString& name, QWidget* parent)
{
    auto* box = new QLineEdit(parent);
    box->setObjectName(name);
    box->setMaxLength(OffsetJob::kFieldWidth);
    setFieldKind(box, QStringLiteral("3"));
    box->setAlignment(Qt::AlignRight);
    box->setFixedWidth(box->fontMetrics().horizontalAdvance(QStringLiteral("-30.0")) + 20);
    return box;
}

} // namespace

frmOffset::frmOffset(QWidget* parent) : Form(Options{false, false}, parent)
{
    setObjectName(QStringLiteral("frmOffset"));
    setWindowTitle(QStringLiteral("印刷位置の調整"));
    auto* outer = new QVBoxLayout(body());
    outer->setContentsMargins(16, 12, 16, 12);
    outer->setSpacing(10);
    lblName = new QLabel(body());
    lblName->setObjectName(QStringLiteral("lblName"));
    outer->addWidget(lblName);

    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(8);
    txtTop = offsetBox(QStringLiteral("txtTop"), body());
    txtLeft = offsetBox(QStringLiteral("txtLeft"), body());
    txtHight = offsetBox(QStringLiteral("txtHight"), body());
    const QString captions[] = {QStringLiteral("上"), QStringLiteral("左"), QStringLiteral("高さ")};
    QLineEdit* boxes[] = {txtTop, txtLeft, txtHight};
    for (int i = 0; i < 3; ++i) {
        grid->addWidget(new QLabel(captions[i], body()), i, 0);
        grid->addWidget(boxes[i], i, 1);
        grid->addWidget(new QLabel(QStringLiteral("mm"), body()), i, 2);
        boxes[i]->installEventFilter(this);
    }
    grid->addWidget(new QLabel(QStringLiteral("（-30.0 ～ 30.0）"), body()), 3, 0, 1, 3);
    grid->setColumnStretch(3, 1);
    outer->addLayout(grid);

    cmdOk = new QPushButton(QStringLiteral("OK"), body());
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setAutoDefault(false);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdOk);
    outer->addLayout(buttons);
    connect(cmdOk, &QPushButton::clicked, this, &frmOffset::cmdOk_Click);
}

void frmOffset::setFormName(const QString& name)
{
    formName_ = name;
    lblName->setText(name);
}

void frmOffset::onLoad()
{
    if (formName_.isEmpty())
        lblName->setText(QStringLiteral("帳票区分 %1　帳票コード %2").arg(kubun).arg(code));
    if (const auto v = OffsetJob(kubun, code).read()) {
        txtTop->setText(OffsetJob::format(v->top, txtTop->maxLength()));
        txtLeft->setText(OffsetJob::format(v->left, txtLeft->maxLength()));
        txtHight->setText(OffsetJob::format(v->hight, txtHight->maxLength()));
    }
}

bool frmOffset::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::FocusOut) {
        const Qt::FocusReason r = static_cast<QFocusEvent*>(event)->reason();
        auto* box = qobject_cast<QLineEdit*>(watched);
        if (box && r != Qt::ActiveWindowFocusReason && r != Qt::PopupFocusReason)
            box->setText(OffsetJob::fieldText(box->text(), box->maxLength()));
    }
    return Form::eventFilter(watched, event);
}

void frmOffset::cmdOk_Click()
{
    FormInteraction ui(this, QString(), QString());
    OffsetJob job(kubun, code);
    if (job.save(txtTop->text(), txtLeft->text(), txtHight->text(), ui))
        accept();
}

} // namespace pel
