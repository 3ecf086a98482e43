#pragma once

#include <QDeadlineTimer>
#include <QJsonValue>
#include <QMap>
#include <QObject>
#include <QRect>
#include <QString>
#include <QTimer>

#include <osg/Quat>

#include "PtCloudEnums.h"
#include <osg/ref_ptr>

#include "PtCloudEnums.h"

class DataSetViewer;
class OsgGraphItem_Contour;
class OsgGraphItem_DemMesh;
class OsgGraphItem_PcDataSet;
class OsgGraphItem_VolumeArea;
class PtCloudWidget;
class QEvent;
class QKeyEvent;
class QMouseEvent;
class QWheelEvent;
namespace ptCloud {
class PtCloud_Controller;
class PtCloud_DataSetFile;
class PtCloudDataSet;
class VolumeCalcArea;
}  // namespace ptCloud

// The spine of the editor: binds the view to the project's controller, shows
// one dataset at a time as graph items under the view's root group, keeps
// the items in step with the dataset's content signals, owns the dataset
// viewer panel, routes input to the open tool panel and runs the dataset
// dialogs. Every point-type item is a camera monitor of the view's trackball
// and is unregistered before it is dropped.
class PtCloudScene : public QObject {
    Q_OBJECT
public:
    // The kinds of content a dataset holds, as the viewer's tree lists them.
    enum EContentKind {
        Content_Points,
        Content_Mesh,
        Content_DemMesh,
        Content_DemHeightMap,
        Content_DemContour,
        Content_DemClassify,
        Content_Split,
        Content_EarthVolume,
        Content_Cut
    };

    explicit PtCloudScene(PtCloudWidget* view);
    ~PtCloudScene() override;

    // Binds the controller (null unbinds) and shows its first dataset by name.
    void setController(ptCloud::PtCloud_Controller* controller);
    void onSceneClosed();
    // Shows the named dataset in place of the current one; "" shows none.
    void showDataSet(const QString& name);

    QString currentDataSetName() const { return m_currentDataSetName; }
    ptCloud::PtCloud_Controller* controller() const { return m_controller; }
    PtCloudWidget* view() const { return m_view; }
    DataSetViewer* dataSetViewer() const { return m_dataSetViewer; }
    // The current dataset, looked up afresh; null when none is shown.
    ptCloud::PtCloudDataSet* currentDataSet() const;
    // The current dataset's points item; null when none is shown.
    OsgGraphItem_PcDataSet* pointsItem() const;
    // The item that shows a point-type content; null for other kinds.
    OsgGraphItem_PcDataSet* pointItem(EContentKind kind, const QString& name) const;

    // The largest part of the view beside the dataset viewer panel (right
    // of it, below, left or above, whichever holds the largest square), in
    // the view's logical pixels; the whole view when the panel is hidden.
    QRect freeViewArea() const;
    // Frames the shown dataset from the orientation (see
    // OsgTackballManipulate) in the free part of the view.
    void fitView(const osg::Quat& rotation);
    // From the south, above at an angle: a level view of a wide, flat site
    // shows a thin strip.
    void viewHome();
    // Points drawn now by the items that are shown.
    quint64 drawnPointCount() const;

    // Colours the shown dataset's points in the mode (one its columns
    // allow) and keeps the choice with the dataset.
    void setColoringMode(ptCloud::EColoringMode mode);

    // Whether the scene holds an item for the content (for the earth volume:
    // at least one area item; the height map never has one).
    bool hasContentItem(EContentKind kind, const QString& name = QString()) const;
    // Shows or hides the content's items and keeps that with the dataset;
    // false when there is none.
    bool setContentVisible(EContentKind kind, const QString& name, bool visible);
    // False when hidden or absent.
    bool isContentVisible(EContentKind kind, const QString& name = QString()) const;

    // The shown dataset's earth-volume areas keep exactly one item each.
    // Adds the area and its item; null when the name is taken or the dataset
    // has no earth-volume content.
    ptCloud::VolumeCalcArea* addVolumeArea(const QString& name);
    // Drops the area's item, then the area: no item outlives its area.
    void removeVolumeArea(const QString& name);
    // Items follow the area list (areas gone lose theirs, new ones get one)
    // and show the results of function, from now on also in new items.
    void syncVolumeAreaItems(ptCloud::EVolumeCalcFunction function);

    // Input from the view; true when a tool panel used the event.
    bool keyPressEvent(QKeyEvent* event);
    bool keyReleaseEvent(QKeyEvent* event);
    bool mousePressEvent(QMouseEvent* event);
    bool mouseReleaseEvent(QMouseEvent* event);
    bool mouseDoubleClickEvent(QMouseEvent* event);
    bool mouseMoveEvent(QMouseEvent* event);
    bool wheelEvent(QWheelEvent* event);

    // After each frame: the point items take in finished blocks; more frames
    // are asked for while any of them is still loading.
    void onPainted();

    // The widget's window commands; each does nothing without a controller.
    void doCmd_ShowWindow_DataSet_Create();
    void doCmd_ShowWindow_DataSet_Copy();
    void doCmd_ShowWindow_DataSet_Merge();
    void doCmd_ShowWindow_FileManage();
    void doCmd_ShowWindow_DataSet_Focuse();

signals:
    void sgNeedSaveProject();

public slots:
    void onWindowDestory_shown();
    void onDataSet_Added(QString strDataSetName);
    void onDataSet_Removed(QString strDataSetName);
    void onDataSet_Renamed(QString strOldName, QString strNewName);
    void onDataSetContentUpdated_Points(QString strDataSetName);
    void onDataSetContentAdded_Mesh(QString strDataSetName, QString strMeshName);
    void onDataSetContentRemoved_Mesh(QString strDataSetName, QString strMeshName);
    void onDataSetContentAdded_Dem_Mesh(QString strDataSetName);
    void onDataSetContentRemoved_Dem_Mesh(QString strDataSetName);
    void onDataSetContentAdded_Dem_Contour(QString strDataSetName);
    void onDataSetContentRemoved_Dem_Contour(QString strDataSetName);
    void onDataSetContentAdded_Dem_Classify(QString strDataSetName);
    void onDataSetContentRemoved_Dem_Classify(QString strDataSetName);
    void onDataSetContentAdded_Split(QString strDataSetName, QString strSplitName);
    void onDataSetContentRemoved_Split(QString strDataSetName, QString strSplitName);
    void onDataSetContentAdded_EarthVolume(QString strDataSetName);
    void onDataSetContentRemoved_EarthVolume(QString strDataSetName);
    void onDataSetContentAdded_Cut(QString strDataSetName, QString strCutName);
    void onDataSetContentRemoved_Cut(QString strDataSetName, QString strCutName);

protected:
    // Places the dataset viewer again when the view is first shown: the
    // view's size at construction is not the one the host gives it.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    using PointItems = QMap<QString, osg::ref_ptr<OsgGraphItem_PcDataSet>>;

    // The dataset viewer at (20, 20), pulled back inside the view.
    void placeDataSetViewer();
    // A point-type item for the file: shown, loaded, added to the root group.
    // product: a content made from the points (mesh, split, cut, DEM
    // classification), drawn over them where both are shown.
    osg::ref_ptr<OsgGraphItem_PcDataSet> makePointItem(ptCloud::PtCloud_DataSetFile* file, bool product);
    // Unregisters from the trackball, detaches and drops.
    void dropPointItem(osg::ref_ptr<OsgGraphItem_PcDataSet>& item);
    void addNamedPointItem(EContentKind kind, PointItems& items, const QString& strDataSetName, const QString& name,
                           const QMap<QString, ptCloud::PtCloud_DataSetFile*>* contents);
    void removeNamedPointItem(EContentKind kind, PointItems& items, const QString& strDataSetName,
                              const QString& name);
    void removeAllItems();
    void connectDataSet(ptCloud::PtCloudDataSet* dataSet);
    // The points item anew from the dataset's points file.
    void createPointsItem(ptCloud::PtCloudDataSet* dataSet);
    // The tree shows what the scene holds; the view draws it.
    void contentChanged(EContentKind kind);
    // Every point-type item there is.
    template <class Apply> void forEachPointItem(const Apply& apply) const;
    // The shown dataset's display settings: one key replaced.
    void storeDisplaySetting(const QString& key, const QJsonValue& value);
    // Applies the stored colouring and hidden contents.
    void restoreDisplaySettings();
    // While blocks load: takes finished blocks in, and draws once the
    // loaders are done or the pause is over.
    void onLoadingPacer();

    PtCloudWidget* m_view;
    ptCloud::PtCloud_Controller* m_controller = nullptr;
    QString m_currentDataSetName;
    DataSetViewer* m_dataSetViewer = nullptr;
    osg::ref_ptr<OsgGraphItem_PcDataSet> m_pointsItem;
    PointItems m_meshItems;
    osg::ref_ptr<OsgGraphItem_DemMesh> m_demMeshItem;
    osg::ref_ptr<OsgGraphItem_Contour> m_contourItem;
    osg::ref_ptr<OsgGraphItem_PcDataSet> m_demClassifyItem;
    PointItems m_splitItems;
    QMap<QString, osg::ref_ptr<OsgGraphItem_VolumeArea>> m_volumeAreaItems;
    ptCloud::EVolumeCalcFunction m_volumeFunction = ptCloud::VCF_Grid;
    PointItems m_cutItems;
    bool m_viewShown = false;
    QTimer m_loadingPacer;
    QDeadlineTimer m_loadingPause;
};
