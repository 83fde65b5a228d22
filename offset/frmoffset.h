#pragma once
// frmOffset: where one printed form lands on the paper, as top, left and height offsets.
#include "ui/form.h"

class QLabel;
class QLineEdit;
class QPushButton;

namespace pel {

class frmOffset : public Form {
    Q_OBJECT
public:
    explicit frmOffset(QWidget* parent = nullptr);

    // Set by the opener before load(): the form kind and code, and the form's name for lblName.
    int kubun = 0;
    int code = 0;
    void setFormName(const QString& name);

    QLabel* lblName;
    QLineEdit* txtTop;
    QLineEdit* txtLeft;
    QLineEdit* txtHight;
    QPushButton* cmdOk;

protected:
    void onLoad() override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void cmdOk_Click();
    QString formName_;
};

} // namespace pel
