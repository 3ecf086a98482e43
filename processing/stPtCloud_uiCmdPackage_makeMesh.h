#pragma once

#include <QVariant>

// A mesh-making command as the host exchanges it. Lengths are in thousandths
// of the metre values the mesh dialog shows.
struct stPtCloud_uiCmdPackage_makeMesh {
    qint32 func = 0;  // 0 Alpha, 1 Ball Pivoting, 2 Poisson
    bool fast_normal = true;
    double alphaValue = 1000.0;
    double ball_radius = 600.0;
    quint32 poisson_details = 8;  // octree depth
    quint32 poisson_width = 120;
    double poisson_density_divide = 1.0;

    stPtCloud_uiCmdPackage_makeMesh() = default;
    stPtCloud_uiCmdPackage_makeMesh(const stPtCloud_uiCmdPackage_makeMesh&) = default;
    stPtCloud_uiCmdPackage_makeMesh(stPtCloud_uiCmdPackage_makeMesh&&) = default;
    stPtCloud_uiCmdPackage_makeMesh& operator=(const stPtCloud_uiCmdPackage_makeMesh&) = default;
    stPtCloud_uiCmdPackage_makeMesh& operator=(stPtCloud_uiCmdPackage_makeMesh&&) = default;

    // A function the record does not know is written as function 0 without
    // parameters, so that a reader never meets an unknown code.
    void toPackage(QVariant& out) const;
    // Only the keys of the package's function are read; the other fields keep
    // their values.
    void fromPackage(const QVariant& in);
};
