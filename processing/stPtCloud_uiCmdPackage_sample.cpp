#include "stPtCloud_uiCmdPackage_sample.h"

#include <QVariantMap>

void stPtCloud_uiCmdPackage_sample::toPackage(QVariant& out) const
{
    QVariantMap m;
    if (func == 0) {
        m.insert("func", func);
        m.insert("PoissonDisk_TargetPercents", PoissonDisk_TargetPercents);
        m.insert("PoissonDisk_Init_Factor", PoissonDisk_Init_Factor);
        m.insert("PoissonDisk_MakeMeshAlpha", PoissonDisk_MakeMeshAlpha);
    }
    if (!m.contains("func")) m.insert("func", 0);
    out = QVariant(m);
}

void stPtCloud_uiCmdPackage_sample::fromPackage(const QVariant& in)
{
    const QVariantMap m = in.toMap();
    func = m.value("func", 0).toInt();
    if (func != 0) return;
    PoissonDisk_TargetPercents = m.value("PoissonDisk_TargetPercents", 0.5).toDouble();
    PoissonDisk_Init_Factor = m.value("PoissonDisk_Init_Factor", 5.0).toDouble();
    PoissonDisk_MakeMeshAlpha = m.value("PoissonDisk_MakeMeshAlpha", 100.0).toDouble();
}
