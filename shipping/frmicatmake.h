#pragma once
// frmICatMake: the orders of a ship-date and order-number range, of one label kind, written as the I-CAT shipping
// file; afterwards they can be marked label-printed.
#include "shipping/icatexportjob.h"
#include "ui/form.h"

#include <memory>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace pel {

class DateRange;
class FormInteraction;

class frmICatMake : public Form
{
    Q_OBJECT
public:
    explicit frmICatMake(QWidget* parent = nullptr);
    ~frmICatMake() override;

    // Presets by which another screen opens this one with a selection.
    void setHcode(qint16 value);
    void setSday(qint32 value);
    void setDenno(qint32 value);
    void setSaiPrint(qint16 value);

    DateRange* dates;
    QLineEdit* txtDenno[2];
    QComboBox* cboHaisou;
    QCheckBox* chkSaiPrint;
    QLineEdit* txtFile;
    QPushButton* cmdFile;
    QLabel* lblMsg;

    // F6 while the export runs.
    void requestCancel();
    void cmdFile_Click();

protected:
    void onLoad() override;
    void readSettings() override;
    void writeSettings() override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void chooseFile();
    void focusKind();
    void setDate(int index, long long ymd);

    IcatExportJob job_;
    std::unique_ptr<FormInteraction> ui_;
    bool preset_ = false; // set by the presets; nothing here reads it
};

} // namespace pel
