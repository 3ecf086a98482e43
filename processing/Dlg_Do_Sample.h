#pragma once

#include <QDialog>
#include <QVariant>
#include <memory>

namespace Ui {
class do_sample_param_dlg;
}

// Collects the parameters of point thinning. Accepted, it holds code 200
// (Poisson disk) and the list (share of points to keep 0.01..1, initial
// factor, alpha of the auxiliary mesh in metres). The result replaces the
// dataset's points, so there is no name to give.
class Dlg_Do_Sample : public QDialog {
    Q_OBJECT
public:
    explicit Dlg_Do_Sample(QWidget* parent = nullptr);
    ~Dlg_Do_Sample() override;

    int func() const { return m_func; }
    QVariant params() const { return m_params; }

private slots:
    void onPossionDisk_targetPercentsChanged(int value);
    void onComboBoxFunctionChanged(int index);
    void onClickedOK();

private:
    std::unique_ptr<Ui::do_sample_param_dlg> ui;
    int m_func = -1;
    QVariant m_params;
};
