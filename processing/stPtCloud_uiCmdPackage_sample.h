#pragma once

#include <QVariant>

// A thinning command as the host exchanges it.
struct stPtCloud_uiCmdPackage_sample {
    qint32 func = 0;                          // 0 Poisson Disk, the only one
    double PoissonDisk_TargetPercents = 0.5;  // share of points to keep, 0..1
    double PoissonDisk_Init_Factor = 5.0;
    double PoissonDisk_MakeMeshAlpha = 100.0;  // thousandths of a metre

    stPtCloud_uiCmdPackage_sample() = default;
    stPtCloud_uiCmdPackage_sample(const stPtCloud_uiCmdPackage_sample&) = default;
    stPtCloud_uiCmdPackage_sample(stPtCloud_uiCmdPackage_sample&&) = default;
    stPtCloud_uiCmdPackage_sample& operator=(const stPtCloud_uiCmdPackage_sample&) = default;
    stPtCloud_uiCmdPackage_sample& operator=(stPtCloud_uiCmdPackage_sample&&) = default;

    // An unknown function is written as function 0 without parameters.
    void toPackage(QVariant& out) const;
    // Reads the Poisson-disk keys only for function 0; other fields keep their values.
    void fromPackage(const QVariant& in);
};
