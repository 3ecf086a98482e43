#pragma once

#include <memory>

#include <osg/ref_ptr>

#include "MovableSubWidget.h"
#include "PtCloud_PointsCut.h"
#include "ToolViewLink.h"

class OsgGraphItem_Box;
class OsgGraphItem_Point;
class OsgGraphItem_Sphere;
class PtCloudScene;
namespace osgHelper {
class OsgQWidget;
}
namespace Ui {
class func_cut_widget;
}

// The cut panel: removes from the shown dataset's points, in place, every
// point inside ("Cut Inner") or outside ("Cut Outter") a box or a sphere
// typed in absolute coordinates or centred on a picked point. The chosen
// shape is drawn over the view. The cut streams the points file on the
// long-action worker behind a progress dialog, keeps the previous points
// for undo, and the view reloads the points once they are replaced.
class Func_Cut_Widget : public MovableSubWidget {
    Q_OBJECT
public:
    Func_Cut_Widget(PtCloudScene* scene, osgHelper::OsgQWidget* view);
    ~Func_Cut_Widget() override;

    // A left press while "Select Center" is checked picks the centre.
    bool viewMousePressEvent(QMouseEvent* event) override;

public slots:
    void onClicked_SelectCenter();
    void onSelectorChanged();
    void onBoxParameterChanged(double);
    void onSphereParameterChanged(double);
    void onClicked_CutOutter();
    void onClicked_CutInner();
    void onClicked_Close();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    // The shapes as the spin boxes give them, in the points' relative frame.
    ptCloud::pcBoundingBoxf box() const;
    ptCloud::pcBoundingSpheref sphere() const;
    // Creates the overlay of the chosen shape, drops the other.
    void updateOverlays();
    void updateCutButtons();
    void cut(ptCloud::PtCloud_PointsCut::ESide side);

    std::unique_ptr<Ui::func_cut_widget> ui;
    ToolViewLink m_link;
    osg::ref_ptr<OsgGraphItem_Point> m_centre;
    osg::ref_ptr<OsgGraphItem_Box> m_box;
    osg::ref_ptr<OsgGraphItem_Sphere> m_sphere;
};
