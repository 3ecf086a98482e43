#include "PtCloudScene.h"

#include <QEvent>
#include <QJsonArray>
#include <QJsonObject>

#include <osg/BoundingSphere>
#include <osg/Depth>
#include <osgViewer/Viewer>

#include <algorithm>

#include "DataSetViewer.h"
#include "Dlg_CopyDataSet.h"
#include "Dlg_CreateDataSet.h"
#include "Dlg_LasFiles.h"
#include "Dlg_MergeDataSet.h"
#include "Dlg_SelectDataSet.h"
#include "OsgGraphItem_Contour.h"
#include "OsgGraphItem_DemMesh.h"
#include "OsgGraphItem_PcDataSet.h"
#include "OsgGraphItem_VolumeArea.h"
#include "OsgTackballManipulate.h"
#include "PtCloudDataSet.h"
#include "PtCloudWidget.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

namespace {

// Frames while blocks load: the longest pause between two, and how often
// the loaders are asked for finished blocks during a pause.
constexpr int kLongestLoadingPauseMs = 500;
constexpr int kLoadingPollMs = 10;

// Keys of the dataset's display settings.
const QString kColoringKey = QStringLiteral("coloring");
const QString kHiddenKey = QStringLiteral("hidden");

// A content in the hidden list: "kind/name".
QString contentKey(PtCloudScene::EContentKind kind, const QString& name)
{
    return QStringLiteral("%1/%2").arg(int(kind)).arg(name);
}

// Shows or hides an item of any graph item class; false when there is none.
template <class Item>
bool setItemVisible(Item* item, bool visible)
{
    if (!item) return false;
    item->setVisible(visible);
    return true;
}

// A shown item for a DEM mesh or contour file that can be read.
template <class Item, class File>
bool addFileItem(osg::Group* root, osg::ref_ptr<Item>& slot, File* file)
{
    if (!file || !file->isValid()) return false;
    slot = new Item(file);
    slot->setVisible(true);
    root->addChild(slot.get());
    return true;
}

template <class Item>
void removeItem(osg::Group* root, osg::ref_ptr<Item>& slot)
{
    if (slot) root->removeChild(slot.get());
    slot = nullptr;
}

}  // namespace

PtCloudScene::PtCloudScene(PtCloudWidget* view) : QObject(nullptr), m_view(view)
{
    m_dataSetViewer = new DataSetViewer(this, view);
    connect(m_dataSetViewer, SIGNAL(destroyed()), this, SLOT(onWindowDestory_shown()), Qt::UniqueConnection);
    m_dataSetViewer->show();
    placeDataSetViewer();
    view->installEventFilter(this);
    m_loadingPacer.setInterval(kLoadingPollMs);
    connect(&m_loadingPacer, &QTimer::timeout, this, &PtCloudScene::onLoadingPacer);
}

PtCloudScene::~PtCloudScene()
{
    m_view->removeEventFilter(this);
    removeAllItems();
    if (m_dataSetViewer) {
        disconnect(m_dataSetViewer, SIGNAL(destroyed()), this, SLOT(onWindowDestory_shown()));
        delete m_dataSetViewer;
    }
}

void PtCloudScene::placeDataSetViewer()
{
    if (!m_dataSetViewer) return;
    int x = 20, y = 20;
    if (x + m_dataSetViewer->width() > m_view->width()) x = m_view->width() - m_dataSetViewer->width();
    if (y + m_dataSetViewer->height() > m_view->height()) y = m_view->height() - m_dataSetViewer->height();
    m_dataSetViewer->move(x, y);
}

QRect PtCloudScene::freeViewArea() const
{
    const QRect view = m_view->rect();
    if (!m_dataSetViewer || m_dataSetViewer->isHidden()) return view;
    const QRect panel = m_dataSetViewer->geometry().intersected(view);
    if (panel.isEmpty()) return view;
    const QRect sides[] = {
        QRect(QPoint(panel.right() + 1, 0), view.bottomRight()),
        QRect(QPoint(0, panel.bottom() + 1), view.bottomRight()),
        QRect(view.topLeft(), QPoint(panel.left() - 1, view.bottom())),
        QRect(view.topLeft(), QPoint(view.right(), panel.top() - 1)),
    };
    QRect best;
    for (const QRect& side : sides)
        if (std::min(side.width(), side.height()) > std::min(best.width(), best.height())) best = side;
    return best.isEmpty() ? view : best;
}

void PtCloudScene::fitView(const osg::Quat& rotation) { m_view->fitView(rotation, freeViewArea()); }

void PtCloudScene::viewHome() { fitView(osg::Quat(osg::DegreesToRadians(50.0), osg::X_AXIS)); }

quint64 PtCloudScene::drawnPointCount() const
{
    quint64 drawn = 0;
    forEachPointItem([&drawn](OsgGraphItem_PcDataSet* item) {
        if (item->isVisible()) drawn += item->drawnPointCount();
    });
    return drawn;
}

bool PtCloudScene::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_view && event->type() == QEvent::Show && !m_viewShown) {
        m_viewShown = true;
        placeDataSetViewer();
        // A dataset shown before the view had its final size was framed
        // for another one.
        if (m_pointsItem) viewHome();
    }
    return QObject::eventFilter(watched, event);
}

// ---- controller and the shown dataset

void PtCloudScene::setController(PtCloud_Controller* controller)
{
    if (m_controller) {
        showDataSet(QString());
        disconnect(m_controller, nullptr, this, nullptr);
        m_controller = nullptr;
        if (m_dataSetViewer) m_dataSetViewer->reset();
    }
    if (!controller) return;
    m_controller = controller;
    QMap<QString, QString> paths;
    controller->getDataSetFilepaths(paths);
    for (auto it = paths.cbegin(); it != paths.cend() && m_currentDataSetName.isEmpty(); ++it) showDataSet(it.key());
    connect(controller, SIGNAL(sg_DataSet_Added(QString)), this, SLOT(onDataSet_Added(QString)),
            Qt::UniqueConnection);
    connect(controller, SIGNAL(sg_DataSet_Removed(QString)), this, SLOT(onDataSet_Removed(QString)),
            Qt::UniqueConnection);
    connect(controller, SIGNAL(sg_DataSet_Renamed(QString, QString)), this,
            SLOT(onDataSet_Renamed(QString, QString)), Qt::UniqueConnection);
}

void PtCloudScene::onSceneClosed()
{
    showDataSet(QString());
    if (m_controller) disconnect(m_controller, nullptr, this, nullptr);
    m_controller = nullptr;
    if (m_dataSetViewer) m_dataSetViewer->reset();
}

PtCloudDataSet* PtCloudScene::currentDataSet() const
{
    return m_controller && !m_currentDataSetName.isEmpty() ? m_controller->getDataSet(m_currentDataSetName) : nullptr;
}

OsgGraphItem_PcDataSet* PtCloudScene::pointsItem() const { return m_pointsItem.get(); }

void PtCloudScene::showDataSet(const QString& name)
{
    if (name == m_currentDataSetName || !m_dataSetViewer) return;
    if (!m_currentDataSetName.isEmpty()) {
        m_dataSetViewer->reset();
        removeAllItems();
    }
    m_currentDataSetName = name;
    m_view->requestRedraw();
    if (name.isEmpty()) return;
    PtCloudDataSet* ds = m_controller ? m_controller->getDataSet(name) : nullptr;
    if (!ds) return;
    connectDataSet(ds);
    createPointsItem(ds);
    if (m_pointsItem) {
        const osg::BoundingBox bounds = m_pointsItem->dataBounds();
        if (bounds.valid()) {
            m_view->setHomeBound(osg::BoundingSphere(bounds));
            viewHome();
        }
    }
    if (const QMap<QString, PtCloud_DataSetFile*>* meshes = ds->getContent_Meshs())
        for (const QString& mesh : meshes->keys()) onDataSetContentAdded_Mesh(name, mesh);
    onDataSetContentAdded_Dem_Mesh(name);
    onDataSetContentAdded_Dem_Contour(name);
    onDataSetContentAdded_Dem_Classify(name);
    if (const QMap<QString, PtCloud_DataSetFile*>* splits = ds->getContent_Splits())
        for (const QString& split : splits->keys()) onDataSetContentAdded_Split(name, split);
    if (const VolumeCalcAreaList* areas = ds->getContent_EarthVolume())
        if (!areas->isEmpty()) onDataSetContentAdded_EarthVolume(name);
    if (const QMap<QString, PtCloud_DataSetFile*>* cuts = ds->getContent_Cuts())
        for (const QString& cut : cuts->keys()) onDataSetContentAdded_Cut(name, cut);
    restoreDisplaySettings();
    m_dataSetViewer->setDataSetName(name);
}

void PtCloudScene::connectDataSet(PtCloudDataSet* ds)
{
    connect(ds, SIGNAL(sgContentUpdated_Points(QString)), this, SLOT(onDataSetContentUpdated_Points(QString)),
            Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentAdded_Mesh(QString, QString)), this,
            SLOT(onDataSetContentAdded_Mesh(QString, QString)), Qt::UniqueConnection);
    connect(ds, SIGNAL(sgRemoved_Mesh(QString, QString)), this, SLOT(onDataSetContentRemoved_Mesh(QString, QString)),
            Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentAdded_Dem_Mesh(QString)), this, SLOT(onDataSetContentAdded_Dem_Mesh(QString)),
            Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentRemoved_Dem_Mesh(QString)), this, SLOT(onDataSetContentRemoved_Dem_Mesh(QString)),
            Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentAdded_Dem_Contour(QString)), this, SLOT(onDataSetContentAdded_Dem_Contour(QString)),
            Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentRemoved_Dem_Contour(QString)), this,
            SLOT(onDataSetContentRemoved_Dem_Contour(QString)), Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentAdded_Dem_Classify(QString)), this,
            SLOT(onDataSetContentAdded_Dem_Classify(QString)), Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentRemoved_Dem_Classify(QString)), this,
            SLOT(onDataSetContentRemoved_Dem_Classify(QString)), Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentAdded_Split(QString, QString)), this,
            SLOT(onDataSetContentAdded_Split(QString, QString)), Qt::UniqueConnection);
    connect(ds, SIGNAL(sgRemoved_Split(QString, QString)), this,
            SLOT(onDataSetContentRemoved_Split(QString, QString)), Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentAdded_EarthVolume(QString)), this,
            SLOT(onDataSetContentAdded_EarthVolume(QString)), Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentRemoved_EarthVolume(QString)), this,
            SLOT(onDataSetContentRemoved_EarthVolume(QString)), Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentAdded_Cut(QString, QString)), this, SLOT(onDataSetContentAdded_Cut(QString, QString)),
            Qt::UniqueConnection);
    connect(ds, SIGNAL(sgContentRemoved_Cut(QString, QString)), this,
            SLOT(onDataSetContentRemoved_Cut(QString, QString)), Qt::UniqueConnection);
}

// ---- items

osg::ref_ptr<OsgGraphItem_PcDataSet> PtCloudScene::makePointItem(PtCloud_DataSetFile* file, bool product)
{
    osg::ref_ptr<OsgGraphItem_PcDataSet> item = new OsgGraphItem_PcDataSet(m_view->getViewer(), m_view->getManipulate());
    if (product) {
        // A product lies exactly where the points are: drawn after them and
        // passing the depth test at equal depth, it shows over them instead
        // of losing to them pixel by pixel. Hiding it shows the points again.
        osg::StateSet* state = item->getOrCreateStateSet();
        state->setRenderBinDetails(1, "RenderBin");
        state->setAttributeAndModes(new osg::Depth(osg::Depth::LEQUAL));
    }
    item->setVisible(true);
    item->load(file, m_currentDataSetName);
    m_view->getRoot()->addChild(item);
    // An item draws nothing before its first camera change. A content that
    // arrives while the view stands still (a split just made, points
    // rewritten by a cut or a thinning) is shown from the camera as it is.
    item->onCameraChanged();
    m_view->requestRedraw();
    return item;
}

void PtCloudScene::dropPointItem(osg::ref_ptr<OsgGraphItem_PcDataSet>& item)
{
    if (!item) return;
    m_view->getManipulate()->removeMonitor(item.get());
    m_view->getRoot()->removeChild(item.get());
    item = nullptr;
}

void PtCloudScene::createPointsItem(PtCloudDataSet* ds)
{
    if (PtCloud_DataSetFile* file = ds->getContent_PointDataSetFile()) m_pointsItem = makePointItem(file, false);
}

void PtCloudScene::removeAllItems()
{
    osg::Group* root = m_view->getRoot();
    dropPointItem(m_pointsItem);
    for (auto& item : m_meshItems) dropPointItem(item);
    m_meshItems.clear();
    removeItem(root, m_demMeshItem);
    removeItem(root, m_contourItem);
    dropPointItem(m_demClassifyItem);
    for (auto& item : m_splitItems) dropPointItem(item);
    m_splitItems.clear();
    for (auto& item : m_volumeAreaItems) root->removeChild(item.get());
    m_volumeAreaItems.clear();
    for (auto& item : m_cutItems) dropPointItem(item);
    m_cutItems.clear();
}

void PtCloudScene::addNamedPointItem(EContentKind kind, PointItems& items, const QString& strDataSetName,
                                     const QString& name, const QMap<QString, PtCloud_DataSetFile*>* contents)
{
    if (strDataSetName != m_currentDataSetName || items.contains(name) || !contents) return;
    PtCloud_DataSetFile* file = contents->value(name, nullptr);
    if (!file) return;
    items.insert(name, makePointItem(file, true));
    contentChanged(kind);
}

void PtCloudScene::removeNamedPointItem(EContentKind kind, PointItems& items, const QString& strDataSetName,
                                        const QString& name)
{
    if (strDataSetName != m_currentDataSetName || !items.contains(name)) return;
    dropPointItem(items[name]);
    items.remove(name);
    contentChanged(kind);
}

void PtCloudScene::contentChanged(EContentKind kind)
{
    if (m_dataSetViewer && m_dataSetViewer->dataSetName() == m_currentDataSetName)
        m_dataSetViewer->rebuildBranch(kind);
    m_view->requestRedraw();
}

OsgGraphItem_PcDataSet* PtCloudScene::pointItem(EContentKind kind, const QString& name) const
{
    switch (kind) {
    case Content_Points: return m_pointsItem.get();
    case Content_Mesh: return m_meshItems.value(name).get();
    case Content_DemClassify: return m_demClassifyItem.get();
    case Content_Split: return m_splitItems.value(name).get();
    case Content_Cut: return m_cutItems.value(name).get();
    default: return nullptr;
    }
}

bool PtCloudScene::hasContentItem(EContentKind kind, const QString& name) const
{
    switch (kind) {
    case Content_DemMesh: return m_demMeshItem.valid();
    case Content_DemContour: return m_contourItem.valid();
    case Content_EarthVolume: return !m_volumeAreaItems.isEmpty();
    case Content_DemHeightMap: return false;
    default: return pointItem(kind, name) != nullptr;
    }
}

bool PtCloudScene::setContentVisible(EContentKind kind, const QString& name, bool visible)
{
    bool done = false;
    switch (kind) {
    case Content_DemMesh: done = setItemVisible(m_demMeshItem.get(), visible); break;
    case Content_DemContour: done = setItemVisible(m_contourItem.get(), visible); break;
    case Content_DemHeightMap: break;
    case Content_EarthVolume:
        for (auto& item : m_volumeAreaItems) done = setItemVisible(item.get(), visible);
        break;
    default: done = setItemVisible(pointItem(kind, name), visible); break;
    }
    if (!done) return false;
    m_view->requestRedraw();
    PtCloudDataSet* ds = currentDataSet();
    QJsonArray hidden = ds ? ds->getDisplaySettings().value(kHiddenKey).toArray() : QJsonArray();
    const QString key = contentKey(kind, name);
    for (int i = hidden.size() - 1; i >= 0; --i)
        if (hidden.at(i).toString() == key) hidden.removeAt(i);
    if (!visible) hidden.append(key);
    storeDisplaySetting(kHiddenKey, hidden);
    return true;
}

void PtCloudScene::setColoringMode(EColoringMode mode)
{
    if (!m_pointsItem || !m_pointsItem->coloringModes().contains(mode)) return;
    m_pointsItem->setColoringMode(mode);
    storeDisplaySetting(kColoringKey, int(mode));
    m_view->requestRedraw();
}

void PtCloudScene::storeDisplaySetting(const QString& key, const QJsonValue& value)
{
    PtCloudDataSet* ds = currentDataSet();
    if (!ds) return;
    QJsonObject settings = ds->getDisplaySettings();
    settings.insert(key, value);
    QString error;
    if (!ds->setDisplaySettings(settings, &error))
        qWarning("dataset %s: display settings not saved: %s", qPrintable(ds->getName()), qPrintable(error));
}

void PtCloudScene::restoreDisplaySettings()
{
    PtCloudDataSet* ds = currentDataSet();
    if (!ds) return;
    const QJsonObject settings = ds->getDisplaySettings();
    if (m_pointsItem && settings.contains(kColoringKey))
        m_pointsItem->setColoringMode(EColoringMode(settings.value(kColoringKey).toInt()));
    const QJsonArray hidden = settings.value(kHiddenKey).toArray();
    for (const QJsonValue& entry : hidden) {
        const QString key = entry.toString();
        const int slash = key.indexOf(QLatin1Char('/'));
        if (slash > 0) setContentVisible(EContentKind(key.left(slash).toInt()), key.mid(slash + 1), false);
    }
}

bool PtCloudScene::isContentVisible(EContentKind kind, const QString& name) const
{
    switch (kind) {
    case Content_DemMesh: return m_demMeshItem && m_demMeshItem->isVisible();
    case Content_DemContour: return m_contourItem && m_contourItem->isVisible();
    case Content_DemHeightMap: return false;
    case Content_EarthVolume:
        return !m_volumeAreaItems.isEmpty() && m_volumeAreaItems.first()->isVisible();
    default: {
        const OsgGraphItem_PcDataSet* item = pointItem(kind, name);
        return item && item->isVisible();
    }
    }
}

// ---- input

bool PtCloudScene::keyPressEvent(QKeyEvent* event) { return m_dataSetViewer && m_dataSetViewer->routeKeyPress(event); }

bool PtCloudScene::keyReleaseEvent(QKeyEvent*) { return false; }

bool PtCloudScene::mousePressEvent(QMouseEvent* event)
{
    return m_dataSetViewer && m_dataSetViewer->routeMousePress(event);
}

bool PtCloudScene::mouseReleaseEvent(QMouseEvent*) { return false; }

bool PtCloudScene::mouseDoubleClickEvent(QMouseEvent*) { return false; }

bool PtCloudScene::mouseMoveEvent(QMouseEvent* event)
{
    return m_dataSetViewer && m_dataSetViewer->routeMouseMove(event);
}

bool PtCloudScene::wheelEvent(QWheelEvent*) { return false; }

template <class Apply>
void PtCloudScene::forEachPointItem(const Apply& apply) const
{
    for (OsgGraphItem_PcDataSet* item : {m_pointsItem.get(), m_demClassifyItem.get()})
        if (item) apply(item);
    for (const PointItems* items : {&m_meshItems, &m_splitItems, &m_cutItems})
        for (const auto& item : *items)
            if (item) apply(item.get());
}

void PtCloudScene::onPainted()
{
    bool loading = false;
    forEachPointItem([&loading](OsgGraphItem_PcDataSet* item) {
        item->updateFrame();
        loading = loading || item->hasPendingWork();
    });
    if (!loading) return;

    // Blocks keep arriving from the loaders without any input: draw again,
    // after a pause as long as this frame took. A software renderer draws on
    // every core, and frames back to back would leave the loaders little of
    // the machine, delaying the complete picture by seconds. During the pause
    // the blocks are taken in as they come, and the frame comes at once when
    // the loaders are done. Input still draws without waiting.
    osgViewer::Viewer* viewer = m_view->getViewer();
    const double frameMs = (viewer->elapsedTime() - viewer->getFrameStamp()->getReferenceTime()) * 1000.0;
    m_loadingPause.setRemainingTime(qint64(std::clamp(frameMs, 0.0, double(kLongestLoadingPauseMs))));
    m_loadingPacer.start();
}

void PtCloudScene::onLoadingPacer()
{
    bool building = false;
    forEachPointItem([&building](OsgGraphItem_PcDataSet* item) {
        item->updateFrame();
        building = building || item->isBuilding();
    });
    if (building && !m_loadingPause.hasExpired()) return;
    m_loadingPacer.stop();
    m_view->requestRedraw();
}

// ---- window commands

void PtCloudScene::doCmd_ShowWindow_DataSet_Create()
{
    if (!m_controller) return;
    Dlg_CreateDataSet dialog(this, m_view);
    dialog.exec();
}

void PtCloudScene::doCmd_ShowWindow_DataSet_Copy()
{
    if (!m_controller) return;
    Dlg_CopyDataSet dialog(this, m_view);
    dialog.exec();
}

void PtCloudScene::doCmd_ShowWindow_DataSet_Merge()
{
    if (!m_controller) return;
    Dlg_MergeDataSet dialog(this, m_view);
    dialog.exec();
}

void PtCloudScene::doCmd_ShowWindow_FileManage()
{
    if (!m_controller) return;
    Dlg_LasFiles dialog(this, m_view);
    dialog.setController(m_controller);
    dialog.exec();
}

void PtCloudScene::doCmd_ShowWindow_DataSet_Focuse()
{
    if (!m_controller) return;
    Dlg_SelectDataSet dialog(m_controller, m_controller->getDataSets().keys(), m_currentDataSetName, m_view);
    if (dialog.exec() == QDialog::Accepted) showDataSet(dialog.selectedName());
}

// ---- slots

void PtCloudScene::onWindowDestory_shown() { m_dataSetViewer = nullptr; }

void PtCloudScene::onDataSet_Added(QString strDataSetName)
{
    // The first dataset of a project that had none comes into view.
    if (m_currentDataSetName.isEmpty()) showDataSet(strDataSetName);
    emit sgNeedSaveProject();
}

void PtCloudScene::onDataSet_Removed(QString strDataSetName)
{
    if (strDataSetName == m_currentDataSetName) {
        showDataSet(QString());
        QMap<QString, QString> paths;
        if (m_controller) m_controller->getDataSetFilepaths(paths);
        for (auto it = paths.cbegin(); it != paths.cend() && m_currentDataSetName.isEmpty(); ++it)
            showDataSet(it.key());
    }
    emit sgNeedSaveProject();
}

void PtCloudScene::onDataSet_Renamed(QString strOldName, QString strNewName)
{
    if (strOldName == m_currentDataSetName) {
        m_currentDataSetName = strNewName;
        if (m_dataSetViewer) m_dataSetViewer->setDataSetName(strNewName);
    }
    emit sgNeedSaveProject();
}

void PtCloudScene::onDataSetContentUpdated_Points(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName) return;
    PtCloudDataSet* ds = currentDataSet();
    if (!ds) return;
    const bool visible = !m_pointsItem || m_pointsItem->isVisible();
    dropPointItem(m_pointsItem);
    createPointsItem(ds);
    if (m_pointsItem) m_pointsItem->setVisible(visible);
    contentChanged(Content_Points);
}

void PtCloudScene::onDataSetContentAdded_Mesh(QString strDataSetName, QString strMeshName)
{
    const PtCloudDataSet* ds = currentDataSet();
    addNamedPointItem(Content_Mesh, m_meshItems, strDataSetName, strMeshName, ds ? ds->getContent_Meshs() : nullptr);
}

void PtCloudScene::onDataSetContentRemoved_Mesh(QString strDataSetName, QString strMeshName)
{
    removeNamedPointItem(Content_Mesh, m_meshItems, strDataSetName, strMeshName);
}

void PtCloudScene::onDataSetContentAdded_Dem_Mesh(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName || m_demMeshItem) return;
    const PtCloudDataSet* ds = currentDataSet();
    if (ds && addFileItem(m_view->getRoot(), m_demMeshItem, ds->getContent_Dem_Mesh())) contentChanged(Content_DemMesh);
}

void PtCloudScene::onDataSetContentRemoved_Dem_Mesh(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName || !m_demMeshItem) return;
    removeItem(m_view->getRoot(), m_demMeshItem);
    contentChanged(Content_DemMesh);
}

void PtCloudScene::onDataSetContentAdded_Dem_Contour(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName || m_contourItem) return;
    const PtCloudDataSet* ds = currentDataSet();
    if (ds && addFileItem(m_view->getRoot(), m_contourItem, ds->getContent_Dem_Contour()))
        contentChanged(Content_DemContour);
}

// Acts only while the DEM mesh is shown, whether or not a contour item is.
void PtCloudScene::onDataSetContentRemoved_Dem_Contour(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName || !m_demMeshItem) return;
    removeItem(m_view->getRoot(), m_contourItem);
    contentChanged(Content_DemContour);
}

void PtCloudScene::onDataSetContentAdded_Dem_Classify(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName || m_demClassifyItem) return;
    const PtCloudDataSet* ds = currentDataSet();
    PtCloud_DataSetFile* file = ds ? ds->getContent_Dem_Classify() : nullptr;
    if (!file || !file->isValid()) return;
    m_demClassifyItem = makePointItem(file, true);
    contentChanged(Content_DemClassify);
}

// Acts only while the DEM mesh is shown, whether or not a classify item is.
void PtCloudScene::onDataSetContentRemoved_Dem_Classify(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName || !m_demMeshItem) return;
    dropPointItem(m_demClassifyItem);
    contentChanged(Content_DemClassify);
}

void PtCloudScene::onDataSetContentAdded_Split(QString strDataSetName, QString strSplitName)
{
    const PtCloudDataSet* ds = currentDataSet();
    addNamedPointItem(Content_Split, m_splitItems, strDataSetName, strSplitName,
                      ds ? ds->getContent_Splits() : nullptr);
}

void PtCloudScene::onDataSetContentRemoved_Split(QString strDataSetName, QString strSplitName)
{
    removeNamedPointItem(Content_Split, m_splitItems, strDataSetName, strSplitName);
}

void PtCloudScene::onDataSetContentAdded_EarthVolume(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName) return;
    syncVolumeAreaItems(m_volumeFunction);
}

VolumeCalcArea* PtCloudScene::addVolumeArea(const QString& name)
{
    const PtCloudDataSet* ds = currentDataSet();
    VolumeCalcAreaList* list = ds ? ds->getContent_EarthVolume() : nullptr;
    VolumeCalcArea* area = list ? list->addArea(name) : nullptr;
    if (area) syncVolumeAreaItems(m_volumeFunction);
    return area;
}

void PtCloudScene::removeVolumeArea(const QString& name)
{
    const PtCloudDataSet* ds = currentDataSet();
    VolumeCalcAreaList* list = ds ? ds->getContent_EarthVolume() : nullptr;
    if (!list) return;
    if (osg::ref_ptr<OsgGraphItem_VolumeArea> item = m_volumeAreaItems.take(name))
        m_view->getRoot()->removeChild(item.get());
    list->removeArea(name);
    contentChanged(Content_EarthVolume);
}

void PtCloudScene::syncVolumeAreaItems(EVolumeCalcFunction function)
{
    m_volumeFunction = function;
    const PtCloudDataSet* ds = currentDataSet();
    VolumeCalcAreaList* list = ds ? ds->getContent_EarthVolume() : nullptr;
    QMap<QString, VolumeCalcArea*> areas;
    if (list) list->getAreas(areas);
    // An item whose area went behind the scene's back is dropped by name,
    // without a look at the area it was made for.
    for (auto it = m_volumeAreaItems.begin(); it != m_volumeAreaItems.end();) {
        if (areas.contains(it.key())) {
            ++it;
            continue;
        }
        m_view->getRoot()->removeChild(it.value().get());
        it = m_volumeAreaItems.erase(it);
    }
    // New items take the visibility of the others.
    const bool visible = m_volumeAreaItems.isEmpty() || m_volumeAreaItems.first()->isVisible();
    for (auto it = areas.cbegin(); it != areas.cend(); ++it) {
        osg::ref_ptr<OsgGraphItem_VolumeArea>& item = m_volumeAreaItems[it.key()];
        if (!item) {
            item = new OsgGraphItem_VolumeArea(it.key(), it.value());
            item->setVisible(visible);
            m_view->getRoot()->addChild(item.get());
        }
        item->setFunction(function);
    }
    contentChanged(Content_EarthVolume);
}

void PtCloudScene::onDataSetContentRemoved_EarthVolume(QString strDataSetName)
{
    if (strDataSetName != m_currentDataSetName || m_volumeAreaItems.isEmpty()) return;
    for (auto& item : m_volumeAreaItems) m_view->getRoot()->removeChild(item.get());
    m_volumeAreaItems.clear();
    contentChanged(Content_EarthVolume);
}

void PtCloudScene::onDataSetContentAdded_Cut(QString strDataSetName, QString strCutName)
{
    const PtCloudDataSet* ds = currentDataSet();
    addNamedPointItem(Content_Cut, m_cutItems, strDataSetName, strCutName, ds ? ds->getContent_Cuts() : nullptr);
}

void PtCloudScene::onDataSetContentRemoved_Cut(QString strDataSetName, QString strCutName)
{
    removeNamedPointItem(Content_Cut, m_cutItems, strDataSetName, strCutName);
}
