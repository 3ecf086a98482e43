#pragma once

#include <memory>

#include "Dlg_Do_Named.h"

namespace Ui {
class do_split_parameters_dlg;
}

// Collects the segmentation or classification function, its parameters and
// the new split's name. Accepted, it holds code 100 + the function's entry
// (100 DbScan ... 106 Patchwork++, 107 CSF) and the page's positional
// parameter list, lengths in metres.
class Dlg_Do_Split : public Dlg_Do_Named {
    Q_OBJECT
public:
    explicit Dlg_Do_Split(const QSet<QString>& existingNames, QWidget* parent = nullptr);
    ~Dlg_Do_Split() override;

protected:
    bool pageParams(int page, QVariantList* out) const override;

private:
    std::unique_ptr<Ui::do_split_parameters_dlg> ui;
};
