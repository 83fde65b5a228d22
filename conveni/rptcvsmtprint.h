#pragma once
// rptCVSMTPrint: the printed list of one import, one group of the screen's result list, with a paged preview,
// printing through the system's print dialog, and PDF.
#include "conveni/reportdata.h"

#include <QDate>
#include <QString>

class QPagedPaintDevice;
class QPainter;
class QTreeWidget;
class QWidget;

namespace pel {

class rptCVSMTPrint {
public:
    rptCVSMTPrint(const QTreeWidget* list, int selector, const QDate& created = QDate::currentDate());
    rptCVSMTPrint(CvsMtReportData data, const QDate& created = QDate::currentDate());

    const CvsMtReportData& data() const { return data_; }
    // Pages of the report on the device (printer or PDF), headings on each, the count and totals at the end.
    int render(QPagedPaintDevice* device) const;
    bool savePdf(const QString& path) const;
    // The preview with its keys (F2 next, F3 previous, F9 smaller, Shift+F9 larger, F12 close, page box + Enter).
    void preview(QWidget* parent) const;
    // The system's print dialog, then the pages.
    void print(QWidget* parent) const;

private:
    CvsMtReportData data_;
    QDate created_;
};

} // namespace pel
