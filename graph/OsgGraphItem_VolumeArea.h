#pragma once

#include <QString>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/ref_ptr>
#include <osgText/Text>

#include "PtCloudEnums.h"

namespace ptCloud {
class VolumeCalcArea;
}

// An earth-volume area: its boundary as a closed yellow line and, over its
// middle, the dig and fill volumes of the chosen method ("to dig: 12.50 m³."
// and "to fill: 3.00 m³.") or "error." when the last calculation failed.
class OsgGraphItem_VolumeArea : public osg::Geode {
public:
    // area: not owned.
    OsgGraphItem_VolumeArea(const QString& name, ptCloud::VolumeCalcArea* area);

    // Which volumes the label shows (the grid method by default).
    void setFunction(ptCloud::EVolumeCalcFunction function);
    void setVisible(bool visible);
    bool isVisible() const;
    // Follows the area's boundary and results after a change.
    void rebuild();

    QString name() const;
    QString labelString() const;

protected:
    ~OsgGraphItem_VolumeArea() override;

private:
    QString m_name;
    ptCloud::VolumeCalcArea* m_area;
    ptCloud::EVolumeCalcFunction m_function = ptCloud::VCF_Grid;
    osg::ref_ptr<osg::Geometry> m_boundary;
    osg::ref_ptr<osgText::Text> m_label;
};
