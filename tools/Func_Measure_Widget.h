#pragma once

#include <memory>

#include <osg/ref_ptr>

#include "MovableSubWidget.h"
#include "ToolViewLink.h"

class OsgGraphItem_Line_WithPlane;
class OsgGraphItem_Point;
class OsgGraphItem_TriangleLine_WithPlane;
class QTableWidget;
namespace Ui {
class func_measure_widget;
}

// The measure panel: reads the attributes of picked points of the shown
// dataset ("Point"), the distance between two ("Length") and the area of the
// triangle of three ("Area"), each also projected onto the horizontal plane.
// It changes no data. Picks are drawn as labelled points, the line and the
// triangle over the view.
class Func_Measure_Widget : public MovableSubWidget {
    Q_OBJECT
public:
    Func_Measure_Widget(PtCloudScene* scene, osgHelper::OsgQWidget* view);
    ~Func_Measure_Widget() override;

    // A left press in a mode picks the next point.
    bool viewMousePressEvent(QMouseEvent* event) override;

public slots:
    void onSelectTypeChanged_selectPoint();
    void onSelectTypeChanged_measureDistance();
    void onSelectTypeChanged_measureArea();
    void onClickedClose();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    enum EMode { Mode_Point, Mode_Distance, Mode_Area };
    // Tables, height and the other buttons of a mode just chosen.
    void enterMode(EMode mode);
    // A point overlay with its label, shown, and its attributes in table.
    osg::ref_ptr<OsgGraphItem_Point> addPoint(const ToolViewLink::Pick& pick, const QString& label,
                                              QTableWidget* table);
    void fillTable(QTableWidget* table, const QMap<ptCloud::EDataSetColumn, QVariant>& attributes);
    void clearResults();
    // Every overlay gone, every table empty.
    void clearAll();

    std::unique_ptr<Ui::func_measure_widget> ui;
    ToolViewLink m_link;
    osg::ref_ptr<OsgGraphItem_Point> m_a, m_b, m_c;
    osg::ref_ptr<OsgGraphItem_Line_WithPlane> m_line;
    osg::ref_ptr<OsgGraphItem_TriangleLine_WithPlane> m_triangle;
};
