#pragma once

#include <QHash>
#include <QString>
#include <memory>

#include "MovableSubWidget.h"
#include "PtCloudScene.h"

class Dlg_Do_Named;
class PtCloudWidget;
class QKeyEvent;
class QMouseEvent;
class QTreeWidgetItem;
namespace ptCloud {
class PtCloud_DataSetFile;
class PtCloudDataSet;
}  // namespace ptCloud
namespace Ui {
class dataset_shown_widget;
}

// The floating panel over the view through which the user works on the
// shown dataset: a tree of its contents with visibility and delete
// controls, property pages, and tool buttons that open the tool panels or
// run processing actions. At most one tool panel is open; the viewer hides
// while it is.
class DataSetViewer : public MovableSubWidget {
    Q_OBJECT
public:
    // The tool panels, in the order input is offered to them.
    enum EToolPanel { Tool_Cut, Tool_Measure, Tool_Section, Tool_Volume };
    // Columns of the content tree.
    enum ETreeColumn { Column_Name = 0, Column_Visible = 1, Column_Delete = 2 };
    // Property pages, in the form's order.
    enum EPage {
        Page_DataSet,
        Page_Points,
        Page_Mesh,
        Page_DemMesh,
        Page_DemHeightMap,
        Page_DemContour,
        Page_DemClassify,
        Page_Split,
        Page_Volume,
        Page_DriveLine,
        Page_Cut
    };

    DataSetViewer(PtCloudScene* scene, PtCloudWidget* view);
    ~DataSetViewer() override;

    QString dataSetName() const { return m_dataSetName; }
    // The dataset whose contents the viewer lists; rebuilds the tree.
    void setDataSetName(const QString& name);
    // No dataset: empty tree, first page, no tool panel open.
    void reset();
    // Rebuilds the tree branch that lists contents of this kind.
    void rebuildBranch(PtCloudScene::EContentKind kind);

    // Input from the view for the open tool panel; true when it was used.
    bool routeMousePress(QMouseEvent* event);
    bool routeMouseMove(QMouseEvent* event);
    bool routeKeyPress(QKeyEvent* event);

    MovableSubWidget* toolPanel(EToolPanel which) const;
    // Closes any open panel, keeps this one in its slot until it is
    // destroyed, hides the viewer and places the panel over the view.
    void openToolPanel(EToolPanel which, MovableSubWidget* panel);
    // Where a tool panel goes: 50 pixels in from the view's top-right corner,
    // pulled back inside the view when it does not fit.
    static QPoint toolPanelPosition(const QSize& view, const QSize& panel);

public slots:
    void onClickedTool_Sample();
    void onClickedTool_EraseNoise();
    void onClickedTool_Smooth();
    void onClickedTool_Mesh();
    void onClickedTool_DEM();
    void onClickedTool_Split();
    void onClickedTool_Volumn();
    void onClickedTool_DriveLine();
    void onClickedTool_Cut();
    void onClickedTool_Section();
    void onClickedTool_Measure();
    void onTreeWidgetItemClicked(QTreeWidgetItem* item, int column);
    void onWindowDestory_func();

private:
    using CreateContent = ptCloud::PtCloud_DataSetFile* (ptCloud::PtCloudDataSet::*)(const QString&);
    using AddContent = bool (ptCloud::PtCloudDataSet::*)(const QString&, ptCloud::PtCloud_DataSetFile*);

    ptCloud::PtCloudDataSet* dataSet() const;
    // The sample dialog and the runner on a fresh points file; adopts the
    // result only when asked to.
    void runSampling(bool adoptResult);
    // The mesh or split action: the named dialog, a new empty content, the
    // runner, and the content kept only when the runner succeeded.
    void runNamedAction(Dlg_Do_Named& dialog, CreateContent create, AddContent add, PtCloudScene::EContentKind kind);
    QSet<QString> existingNames(const QMap<QString, ptCloud::PtCloud_DataSetFile*>* contents) const;
    // Opens a panel of this class, made with (scene, view), on the shown dataset.
    template <class Panel> void openTool(EToolPanel which);
    // Closes every open panel; true when one was open.
    bool closeToolPanels();

    void rebuildTree();
    QTreeWidgetItem* branch(PtCloudScene::EContentKind kind) const;
    // A row for one content: its icons as the scene shows it.
    QTreeWidgetItem* addRow(QTreeWidgetItem* parent, const QString& text, PtCloudScene::EContentKind kind,
                            const QString& name, bool removable);
    void updateVisibilityIcon(QTreeWidgetItem* row);
    void fillNamedBranch(PtCloudScene::EContentKind kind, const QMap<QString, ptCloud::PtCloud_DataSetFile*>* contents);
    void fillDemBranch();
    void askAndRemove(PtCloudScene::EContentKind kind, const QString& name);
    void showProperties(PtCloudScene::EContentKind kind, const QString& name, bool group);
    QString pointFileProperties(PtCloudScene::EContentKind kind, const QString& name,
                                const ptCloud::PtCloud_DataSetFile* file);

    PtCloudScene* m_scene;
    PtCloudWidget* m_view;
    QString m_dataSetName;
    // The tool panels (cut, measure, section, volume); null while closed.
    MovableSubWidget* m_pFuncCut = nullptr;
    MovableSubWidget* m_pFuncMeasure = nullptr;
    MovableSubWidget* m_pFuncSection = nullptr;
    MovableSubWidget* m_pFuncVolume = nullptr;
    std::unique_ptr<Ui::dataset_shown_widget> ui;
    // Page text of point files by path, size and time: reading every block
    // of a large split takes seconds.
    QHash<QString, QString> m_propertiesCache;
    // What the properties page shows, to show it afresh after a change.
    struct ShownPage {
        PtCloudScene::EContentKind kind = PtCloudScene::Content_Points;
        QString name;
        bool group = true;
    } m_shownPage;
};
