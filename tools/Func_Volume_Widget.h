#pragma once

#include <QPointer>
#include <QString>
#include <memory>

#include <osg/Node>
#include <osg/Vec3f>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include "MovableSubWidget.h"
#include "PtCloudEnums.h"

class OsgGraphItem_PcDataSet;
class OsgGraphItem_PointList;
class PtCloudScene;
class QCloseEvent;
namespace osgHelper {
class OsgQWidget;
}
namespace ptCloud {
class PtCloudDataSet;
class VolumeCalcArea;
class VolumeCalcAreaList;
}  // namespace ptCloud
namespace Ui {
class volume_calc_widget;
}

// The volume panel over the 3D view: named areas of the shown dataset, each
// with a boundary clicked in the view and its parameters, and their dig and
// fill volumes against the DEM mesh (DTM) or the points (Grid), per area and
// in total. The areas live in the dataset's earth-volume content, which the
// panel makes when the dataset has none; the scene draws one item per area.
//
// Heights the user reads or types (ground height, max top height, boundary
// average) are absolute; the areas keep them relative to the dataset's origin.
class Func_Volume_Widget : public MovableSubWidget {
    Q_OBJECT
public:
    // New areas start with cells of this size: fine enough for a stockpile,
    // coarse enough for the calculator's cell cap on a site-sized area.
    static constexpr double kDefaultGridSize = 0.5;

    Func_Volume_Widget(PtCloudScene* scene, osgHelper::OsgQWidget* view);
    ~Func_Volume_Widget() override;

    // While a boundary is being selected, a left press on a point of the
    // dataset adds it to the active area's boundary.
    bool viewMousePressEvent(QMouseEvent* event) override;
    // While selecting: Backspace takes the last boundary point back, Return
    // or Escape ends the selection.
    bool viewKeyPressEvent(QKeyEvent* event) override;
    // What a press that hit this point (relative frame, as drawn) does.
    void pickPoint(const osg::Vec3f& position);
    // The area whose parameters the panel shows; "" when none.
    QString activeAreaName() const { return m_activeArea; }

public slots:
    void onFunctionCmbChanged();
    void onClickedAddArea();
    void onActiveAreaChanged(int row, int column);
    void onClickedRemoveArea();
    void onClickedBeginOrEndBoundarySelect();
    void onGroundHeight_byBoundaryAvgToggled(bool checked);
    void onGroundHeight_byFixedToggled(bool checked);
    void onGroundHeight_byFixed_valueChanged();
    void onGridFunc_maxTopHeight_valueChanged();
    void onGridFunc_gridSize_valueChanged();
    void onClickedCalc();
    void onClickedClose();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    ptCloud::EVolumeCalcFunction function() const;
    // Null once the dataset or its earth-volume content is gone.
    ptCloud::VolumeCalcAreaList* areaList() const;
    ptCloud::VolumeCalcArea* activeArea() const;
    // One row per area in name order, then the total row; results refreshed.
    void rebuildRows();
    void refreshResults();
    // The active area's parameters into the fields (absolute heights).
    void showActiveArea();
    void setSelecting(bool selecting);
    // The active area's boundary points as markers; the area items follow.
    void boundaryChanged();

    osgHelper::OsgQWidget* m_view;
    QPointer<PtCloudScene> m_scene;
    QPointer<ptCloud::PtCloudDataSet> m_dataSet;
    osg::observer_ptr<OsgGraphItem_PcDataSet> m_item;
    osg::observer_ptr<osg::Node> m_savedTrackNode;
    double m_originZ = 0.0;
    QString m_activeArea;
    bool m_selecting = false;
    osg::ref_ptr<OsgGraphItem_PointList> m_boundaryMarkers;
    std::unique_ptr<Ui::volume_calc_widget> ui;
};
