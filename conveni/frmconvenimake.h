#pragma once
// frmConveniMake: the billing upload files of the agency for the shipped convenience-store orders of a date and
// order number range.
#include "ui/form.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace pel
{

class DateRange;
class FormInteraction;

class frmConveniMake : public Form
{
    Q_OBJECT
public:
    static inline const QString kOpenMask = QStringLiteral("1000-0100-0001");
    static inline const QString kIdleMask = QStringLiteral("1000-0000-0001");
    static inline const QString kBusyMask = QStringLiteral("1000-0100-0000");

    explicit frmConveniMake(QWidget* parent = nullptr);
    ~frmConveniMake() override;
    bool ended() const { return false; } // a missing company code closes the screen once it is shown

    QComboBox* cboConveni;
    QLineEdit* txtDenno[2];
    DateRange* dates;
    QCheckBox* chkSaiPrint;
    QPushButton* cmdFile;
    QLabel* lblMsg;
    QLineEdit* txtDummy;

    QLineEdit* txtYy(int i) const;
    QLineEdit* txtMm(int i) const;
    QLineEdit* txtDd(int i) const;
    // The remembered output folder.
    const QString& folder() const { return folder_; }

protected:
    void onLoad() override;
    void readSettings() override;
    void writeSettings() override;
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void activate();
    // A date into its year/month/day boxes and its picker.
    void setDay(int i, long long ymd);
    bool entryCheck();
    void cmdFile_Click();
    void abortKey();

    QString folder_;
    QString companyCode_;
    QString openingError_; // the engine's text when the opening read failed
    FormInteraction* running_ = nullptr;
};

} // namespace pel
