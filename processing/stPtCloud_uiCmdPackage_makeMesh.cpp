#include "stPtCloud_uiCmdPackage_makeMesh.h"

#include <QVariantMap>

void stPtCloud_uiCmdPackage_makeMesh::toPackage(QVariant& out) const
{
    QVariantMap m;
    switch (func) {
    case 0:
        m.insert("func", func);
        m.insert("alphaValue", alphaValue);
        break;
    case 1:
        m.insert("func", func);
        m.insert("ball_radius", ball_radius);
        break;
    case 2:
        m.insert("func", func);
        m.insert("poisson_details", poisson_details);
        m.insert("poisson_width", poisson_width);
        m.insert("poisson_density_divide", poisson_density_divide);
        break;
    default:
        break;
    }
    m.insert("fast_normal", fast_normal);
    if (!m.contains("func")) m.insert("func", 0);
    out = QVariant(m);
}

void stPtCloud_uiCmdPackage_makeMesh::fromPackage(const QVariant& in)
{
    const QVariantMap m = in.toMap();
    func = m.value("func", 0).toInt();
    fast_normal = m.value("fast_normal", true).toBool();
    switch (func) {
    case 0:
        alphaValue = m.value("alphaValue", 1000.0).toDouble();
        break;
    case 1:
        ball_radius = m.value("ball_radius", 600.0).toDouble();
        break;
    case 2:
        poisson_details = m.value("poisson_details", 8u).toUInt();
        poisson_width = m.value("poisson_width", 120u).toUInt();
        poisson_density_divide = m.value("poisson_density_divide", 1.0).toDouble();
        break;
    default:
        break;
    }
}
