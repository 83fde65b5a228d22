#include "conveni/rptcvsmtprint.h"

#include "app/outputfile.h"

#include <QAction>
#include <QDialog>
#include <QFontMetricsF>
#include <QIntValidator>
#include <QLineEdit>
#include <QPainter>
#include <QPdfWriter>
#include <QPrintDialog>
#include <QPrintPreviewWidget>
#include <QPrinter>
#include <QShortcut>
#include <QToolBar>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <cmath>

namespace pel {
namespace {

struct Column {
    const char16_t* caption;
    double width; // mm
    bool right;
};
// 区分, 入金日, 伝票金額, 読込金額, 伝票番号, 顧客コード, 顧客氏名, the outcome text
// the outcome text takes what is left of the line
const Column kColumns[] = {{u"区分", 16, false},     {u"入金日", 24, false},   {u"伝票金額", 24, true},
                           {u"読込金額", 24, true},  {u"伝票番号", 22, true},  {u"顧客コード", 24, false},
                           {u"顧客氏名", 56, false}, {u"エラー内容", 0, false}};

QString cell(const CvsMtReportRow& r, int column)
{
    switch (column) {
    case 0:
        return r.kubun;
    case 1:
        return r.nday;
    case 2:
        return r.dmoney;
    case 3:
        return r.ymoney;
    case 4:
        return r.denno;
    case 5:
        return r.mcode;
    case 6:
        return r.mname;
    default:
        return r.err;
    }
}

const QString kFont = QStringLiteral("IPAexGothic");
constexpr double kMargin = 12;   // mm
constexpr double kHeadTop = 30;  // mm from the top margin to the column headings
constexpr double kRowHeight = 6; // mm

} // namespace

rptCVSMTPrint::rptCVSMTPrint(const QTreeWidget* list, int selector, const QDate& created) : created_(created)
{
    QList<QStringList> rows;
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = list->topLevelItem(i);
        QStringList row;
        for (int c = 0; c < 8; ++c)
            row << item->text(c);
        rows << row;
    }
    data_ = CvsMtReportData::build(rows, selector);
}

rptCVSMTPrint::rptCVSMTPrint(CvsMtReportData data, const QDate& created) : data_(std::move(data)), created_(created) {}

int rptCVSMTPrint::render(QPagedPaintDevice* device) const
{
    device->setPageLayout(QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Landscape, QMarginsF(0, 0, 0, 0)));
    QPainter p;
    if (!p.begin(device))
        return 0;
    const double mm = device->logicalDpiY() / 25.4;
    const double pageW = device->width() / mm, pageH = device->height() / mm;
    const double bodyTop = kMargin + kHeadTop + kRowHeight + 2;
    const int perPage = std::max(1, static_cast<int>((pageH - kMargin - 10 - bodyTop) / kRowHeight));
    const int lines = static_cast<int>(data_.rows.size()) + 2; // the rows, a gap and the totals line
    const int pages = std::max(1, (lines + perPage - 1) / perPage);
    const auto at = [&](double x, double y, double w, double h) { return QRectF(x * mm, y * mm, w * mm, h * mm); };
    QFont body(kFont);
    body.setPointSizeF(9);
    QFont title(kFont);
    title.setPointSizeF(16);
    title.setBold(true);

    const auto row = [&](double y, const QStringList& texts) {
        double x = kMargin;
        for (int c = 0; c < 8; ++c) {
            const double width = kColumns[c].width > 0 ? kColumns[c].width : pageW - kMargin - x;
            // a text column after a number column keeps clear of its digits
            const double indent = c > 0 && kColumns[c - 1].right && !kColumns[c].right ? 5 : 1;
            const QRectF r = at(x + indent, y, width - indent - 1, kRowHeight);
            const QString t = QFontMetricsF(p.font()).elidedText(texts.value(c), Qt::ElideRight, r.width());
            p.drawText(r, Qt::AlignVCenter | (kColumns[c].right ? Qt::AlignRight : Qt::AlignLeft), t);
            x += kColumns[c].width;
        }
    };
    int next = 0;
    for (int page = 1; page <= pages; ++page) {
        if (page > 1)
            device->newPage();
        p.setFont(title);
        p.drawText(at(kMargin, kMargin, pageW - 2 * kMargin, 12), Qt::AlignCenter, data_.title);
        p.setFont(body);
        p.drawText(at(kMargin, kMargin + 16, pageW - 2 * kMargin, 6), Qt::AlignRight | Qt::AlignVCenter,
                   QStringLiteral("作成日:") + created_.toString(QStringLiteral("yyyy/MM/dd")));
        QStringList heads;
        for (const Column& c : kColumns)
            heads << QString::fromUtf16(c.caption);
        const double headY = kMargin + kHeadTop;
        row(headY, heads);
        p.drawLine(at(kMargin, headY + kRowHeight, pageW - 2 * kMargin, 0).topLeft(),
                   at(kMargin, headY + kRowHeight, pageW - 2 * kMargin, 0).topRight());
        double y = bodyTop;
        for (int k = 0; k < perPage && next < lines; ++k, ++next, y += kRowHeight) {
            if (next < data_.rows.size()) {
                QStringList texts;
                for (int c = 0; c < 8; ++c)
                    texts << cell(data_.rows[next], c);
                row(y, texts);
            } else if (next == data_.rows.size() + 1) {
                p.drawLine(at(kMargin, y, pageW - 2 * kMargin, 0).topLeft(),
                           at(kMargin, y, pageW - 2 * kMargin, 0).topRight());
                row(y, {QStringLiteral("合計"), data_.countText(), CvsMtReportData::amountText(data_.dmoney),
                        CvsMtReportData::amountText(data_.ymoney)});
            }
        }
        p.drawText(at(kMargin, pageH - kMargin - 6, pageW - 2 * kMargin, 6), Qt::AlignCenter,
                   QStringLiteral("%1 / %2").arg(page).arg(pages));
    }
    p.end();
    return pages;
}

bool rptCVSMTPrint::savePdf(const QString& path) const
{
    // drawn into a file beside it and put in place only when every byte reached the disk
    OutputFile out(path);
    if (!out.open())
        return false;
    {
        QPdfWriter pdf(out.device());
        pdf.setResolution(300);
        pdf.setTitle(data_.title);
        pdf.setCreator(QStringLiteral("pel008"));
        if (render(&pdf) <= 0)
            return false;
    }
    return out.commit();
}

void rptCVSMTPrint::print(QWidget* parent) const
{
    QPrinter printer(QPrinter::HighResolution);
    QPrintDialog dialog(&printer, parent);
    if (dialog.exec() == QDialog::Accepted)
        render(&printer);
}

void rptCVSMTPrint::preview(QWidget* parent) const
{
    QPrinter printer(QPrinter::HighResolution);
    QDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("rptCVSMTPrint"));
    dialog.setWindowTitle(data_.title);
    auto* layout = new QVBoxLayout(&dialog);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* bar = new QToolBar(&dialog);
    auto* view = new QPrintPreviewWidget(&printer, &dialog);
    view->setObjectName(QStringLiteral("view"));
    QObject::connect(view, &QPrintPreviewWidget::paintRequested, view, [this](QPrinter* pr) { render(pr); });
    auto* pageBox = new QLineEdit(&dialog);
    pageBox->setObjectName(QStringLiteral("pageBox"));
    pageBox->setMaximumWidth(60);
    pageBox->setValidator(new QIntValidator(1, 99999, pageBox));
    pageBox->setToolTip(QStringLiteral("ﾍﾟｰｼﾞ数を入力し[Enter]ｷｰを押すとジャンプします。"));

    const auto add = [&](const QString& name, const QString& text, const QKeySequence& key, auto fn) {
        QAction* a = bar->addAction(text);
        a->setObjectName(name);
        a->setShortcut(key);
        a->setShortcutContext(Qt::WindowShortcut);
        QObject::connect(a, &QAction::triggered, &dialog, fn);
        return a;
    };
    add(QStringLiteral("next"), QStringLiteral("(F2)次のﾍﾟｰｼﾞ"), QKeySequence(Qt::Key_F2), [view] {
        if (view->currentPage() < view->pageCount())
            view->setCurrentPage(view->currentPage() + 1);
    });
    add(QStringLiteral("previous"), QStringLiteral("(F3)前のﾍﾟｰｼﾞ"), QKeySequence(Qt::Key_F3), [view] {
        if (view->currentPage() > 1)
            view->setCurrentPage(view->currentPage() - 1);
    });
    add(QStringLiteral("zoomOut"), QStringLiteral("(F9) 縮小"), QKeySequence(Qt::Key_F9), [view] { view->zoomOut(); });
    add(QStringLiteral("zoomIn"), QStringLiteral("(Shift&F9) 拡大"), QKeySequence(Qt::SHIFT | Qt::Key_F9),
        [view] { view->zoomIn(); });
    add(QStringLiteral("print"), QStringLiteral("印刷"), QKeySequence(), [this, &dialog] { print(&dialog); });
    bar->addWidget(pageBox);
    add(QStringLiteral("close"), QStringLiteral("(F12)ﾌﾟﾚﾋﾞｭｰを閉じる"), QKeySequence(Qt::Key_F12),
        [&dialog] { dialog.accept(); });
    QObject::connect(pageBox, &QLineEdit::returnPressed, view, [view, pageBox] {
        const int n = pageBox->text().toInt();
        if (n >= 1 && n <= view->pageCount())
            view->setCurrentPage(n);
    });
    QObject::connect(view, &QPrintPreviewWidget::previewChanged, pageBox,
                     [view, pageBox] { pageBox->setText(QString::number(view->currentPage())); });
    layout->addWidget(bar);
    layout->addWidget(view, 1);
    dialog.resize(1000, 760);
    dialog.exec();
}

} // namespace pel
