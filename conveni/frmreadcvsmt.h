#pragma once
// frmReadCVSMT: the payment import screen. The user picks the agency's result file and the payment-date kind,
// starts the import (F5), follows it in the list and the totals, and opens the result report by group.
#include "app/interaction.h"
#include "conveni/importjob.h"
#include "ui/form.h"

#include <array>
#include <memory>

class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTreeWidget;

namespace pel {

class DateEntry;
class FormInteraction;
class Screen;

class frmReadCVSMT : public Form {
    Q_OBJECT
public:
    static constexpr const char* kIdleMask = "1001-1000-0001";
    static constexpr const char* kBusyMask = "0000-0100-0000";

    explicit frmReadCVSMT(QWidget* parent = nullptr);
    ~frmReadCVSMT() override;

    QLineEdit* txtFname;
    QPushButton* cmdFile;
    QPushButton* cmdFchk;
    QComboBox* cboDkbn;
    DateEntry* txtDay;
    QPushButton* cmdOK;
    QTreeWidget* ListView;
    std::array<QLabel*, 10> lblTotal{};
    std::array<QPushButton*, 4> cmdPreview{};
    std::array<QPushButton*, 4> cmdPrint{};
    QProgressBar* prbCnt;
    QLabel* lblMsg;

    // Set by the load when no agency is registered: the screen closes as soon as it is activated.
    bool closeAtActivation() const { return closeAtActivation_; }
    // The program ends without showing the screen (no agency registered).
    bool ended() const { return closeAtActivation_; }
    PaymentImportJob& job() { return *job_; }
    // The last report's group (0 正常, 1 エラー, 2 取消, 3 合計).
    int reportSelector() const { return reportSelector_; }

    void cmdOK_Click();
    void cmdFile_Click();
    void cmdFchk_Click();

protected:
    void onLoad() override;
    void readSettings() override;
    void writeSettings() override;
    void changeEvent(QEvent* event) override;

private:
    void dateKindChanged(int index);
    void showTotals();
    void openReport(int selector, bool preview);

    Interaction idle_; // the dialogs of the screen's own actions
    std::unique_ptr<FormInteraction> running_;
    std::unique_ptr<PaymentImportJob> job_;
    bool closeAtActivation_ = false;
    int reportSelector_ = 0;
};

// The screen as start-up shows it for "5".

} // namespace pel
