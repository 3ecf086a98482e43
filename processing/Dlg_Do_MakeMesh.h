#pragma once

#include <memory>

#include "Dlg_Do_Named.h"

namespace Ui {
class do_make_mesh_paramter_dlg;
}

// Collects the meshing function, its parameters and the new mesh's name.
// Accepted, it holds code 0 (Alpha), 1 (Ball Pivoting) or 2 (Poisson) and
// the page's list, lengths in metres: (fast normal, alpha), (fast normal,
// radius) or (fast normal, depth as unsigned int, width, density divide).
class Dlg_Do_MakeMesh : public Dlg_Do_Named {
    Q_OBJECT
public:
    explicit Dlg_Do_MakeMesh(const QSet<QString>& existingNames, QWidget* parent = nullptr);
    ~Dlg_Do_MakeMesh() override;

protected:
    bool pageParams(int page, QVariantList* out) const override;

private:
    std::unique_ptr<Ui::do_make_mesh_paramter_dlg> ui;
};
