#pragma once
// frmICatRead: the carrier's result file read back; each tracking number stored on its order, lines of unknown
// orders written to the error log.
#include "shipping/trackingjob.h"
#include "ui/form.h"

#include <memory>

class QLabel;
class QLineEdit;
class QPushButton;

namespace pel {

class FormInteraction;

class frmICatRead : public Form
{
    Q_OBJECT
public:
    explicit frmICatRead(QWidget* parent = nullptr);
    ~frmICatRead() override;

    QLineEdit* txtFile[2]; // 0: the result file, 1: the error log
    QPushButton* cmdRead;
    QLabel* lblMsg;

    // F6 while the import runs.
    void requestCancel();
    void cmdRead_Click();

protected:
    void readSettings() override;
    void writeSettings() override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void chooseFile();

    TrackingImportJob job_;
    std::unique_ptr<FormInteraction> ui_;
    int fileIndex_ = 0; // the txtFile box that last had the focus
};

} // namespace pel
