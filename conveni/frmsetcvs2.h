#pragma once
// frmSetCvs2: whether collection through a convenience-store agency is used, which agency, the company code.
#include "ui/form.h"

#include <QStringList>
#include <functional>

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace pel
{

class frmSetCvs2 : public Form
{
    Q_OBJECT
public:
    static inline const QString kMask = QStringLiteral("1000-1100-0001");

    explicit frmSetCvs2(QWidget* parent = nullptr);
    // The opening found no sysfile row or a missing layout, or could not read them: the program ends.
    bool ended() const { return ended_; }

    // The installed printers' names (Qt's printer list); tests replace it.
    static std::function<QStringList()> printerNames;

    QCheckBox* chkCvs;
    QGroupBox* fraConveni;
    QLabel* lblCf;
    QComboBox* cboCFcode;
    QLabel* lblCk;
    QLineEdit* txtCkcode;
    QPushButton* cmdOk;
    QPushButton* cmdCancel;

protected:
    void onLoad() override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void chkCvs_Click();
    bool loadSettings(); // false: the read failed, said, and nothing shown changed
    void save();
    void cancel();
    void focusAfterSave();

    bool ended_ = false;
};

} // namespace pel
