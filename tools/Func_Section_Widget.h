#pragma once

#include <QPointer>
#include <memory>

#include <osg/Node>
#include <osg/Vec3f>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include "MovableSubWidget.h"

class OsgGraphItem_LineWithPedal;
class OsgGraphItem_PcDataSet;
class OsgGraphItem_Point_Draggable;
class PtCloudScene;
class SectionViewWidget;
class QCloseEvent;
namespace osgHelper {
class OsgQWidget;
}
namespace Ui {
class func_section_widget;
}

// The section panel over the 3D view: the user clicks the two ends of a
// section line on the shown dataset, and the "Section" window shows the
// points of the strip of the panel's width around the line from the side.
// A click after both ends stand starts a new line. Changes no data.
class Func_Section_Widget : public MovableSubWidget {
    Q_OBJECT
public:
    // The shown dataset of the scene, over view (its parent).
    Func_Section_Widget(PtCloudScene* scene, osgHelper::OsgQWidget* view);
    ~Func_Section_Widget() override;

    // A left press on a point of the dataset places the next end of the line.
    bool viewMousePressEvent(QMouseEvent* event) override;
    // What a press that hit this point (relative frame, as drawn) does.
    void pickPoint(const osg::Vec3f& position);

    // The profile window; null once closed.
    SectionViewWidget* sectionView() const;

public slots:
    void onClickedClear();
    void onWidthChanged();
    void onClickedClose();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    // Reads the strip again; lookAcross for a new line.
    void showSection(bool lookAcross);
    void removeOverlays();

    osgHelper::OsgQWidget* m_view;
    QPointer<PtCloudScene> m_scene;
    osg::observer_ptr<OsgGraphItem_PcDataSet> m_item;
    osg::observer_ptr<osg::Node> m_savedTrackNode;
    osg::ref_ptr<OsgGraphItem_Point_Draggable> m_startMarker;
    osg::ref_ptr<OsgGraphItem_Point_Draggable> m_endMarker;
    osg::ref_ptr<OsgGraphItem_LineWithPedal> m_line;
    QPointer<SectionViewWidget> m_sectionView;
    std::unique_ptr<Ui::func_section_widget> ui;
};
