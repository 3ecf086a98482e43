#include "OsgGraphItem_VolumeArea.h"

#include "MarkerColors.h"
#include "MarkerParts.h"
#include "VolumeCalcArea.h"
#include "tk/Toolkits.h"

#include <QCoreApplication>

OsgGraphItem_VolumeArea::OsgGraphItem_VolumeArea(const QString& name, ptCloud::VolumeCalcArea* area)
    : m_name(name), m_area(area)
{
    rebuild();
}

OsgGraphItem_VolumeArea::~OsgGraphItem_VolumeArea()
{
    m_label = nullptr;
    m_boundary = nullptr;
}

void OsgGraphItem_VolumeArea::setFunction(ptCloud::EVolumeCalcFunction function)
{
    m_function = function;
    rebuild();
}

void OsgGraphItem_VolumeArea::setVisible(bool visible) { setNodeMask(visible ? ~0u : 0u); }

bool OsgGraphItem_VolumeArea::isVisible() const { return getNodeMask() != 0u; }

QString OsgGraphItem_VolumeArea::name() const { return m_name; }

QString OsgGraphItem_VolumeArea::labelString() const
{
    if (!m_area || !m_area->lastCalcOk())
        return QCoreApplication::translate("OsgGraphItem_VolumeArea", "error.");
    const bool grid = m_function == ptCloud::VCF_Grid;
    const double dig = grid ? m_area->getDigVolume_grid() : m_area->getDigVolume_dtm();
    const double fill = grid ? m_area->getFillVolume_grid() : m_area->getFillVolume_dtm();
    const QString unit = QStringLiteral("m\u00b3");
    return QCoreApplication::translate("OsgGraphItem_VolumeArea", "to dig: %1 %2.")
               .arg(tk::Toolkits::DoubleToString(dig, 2), unit) +
           QLatin1Char('\n') +
           QCoreApplication::translate("OsgGraphItem_VolumeArea", "to fill: %1 %2.")
               .arg(tk::Toolkits::DoubleToString(fill, 2), unit);
}

void OsgGraphItem_VolumeArea::rebuild()
{
    removeDrawables(0, getNumDrawables());
    m_boundary = nullptr;
    m_label = nullptr;
    if (!m_area) return;

    osg::ref_ptr<osg::Vec3Array> corners = new osg::Vec3Array;
    osg::Vec3 middle;
    for (const ptCloud::pcVec3f& p : m_area->boundary()) {
        corners->push_back(osg::Vec3(p.x, p.y, p.z));
        middle += corners->back();
    }
    if (!corners->empty()) {
        m_boundary = MarkerParts::addLines(this, corners.get(), GL_LINE_LOOP, MarkerColors::lineYellow());
        middle /= float(corners->size());
    }
    m_label = MarkerParts::makeLabel(labelString());
    m_label->setPosition(middle);
    addDrawable(m_label.get());
}
