#include "DataSetViewer.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QRegularExpression>
#include <QTreeWidget>

#include "ContentProperties.h"
#include "Dlg_Do_MakeMesh.h"
#include "Dlg_Do_Sample.h"
#include "Dlg_Do_Split.h"
#include "Dlg_Progress_P3DWrapper.h"
#include "Func_Cut_Widget.h"
#include "Func_Measure_Widget.h"
#include "Func_Section_Widget.h"
#include "Func_Volume_Widget.h"
#include "PtCloudDataSet.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "VolumeCalcAreaList.h"
#include "ui_DataSetViewer.h"

using namespace ptCloud;

// Texts of the viewer belong to its form's translation context, "dataset_shown_widget".

namespace {

// What each tree row carries besides its text.
enum ERowRole {
    Role_Kind = Qt::UserRole,
    Role_Name,       // content name for named kinds
    Role_Group,      // a branch heading, not a content
    Role_Removable,  // has a delete control
};

// The top-level rows, in tree order.
enum EBranch { Branch_Points, Branch_Meshes, Branch_Dem, Branch_Splits, Branch_EarthVolume, Branch_Peacees };

EBranch branchOf(PtCloudScene::EContentKind kind)
{
    switch (kind) {
    case PtCloudScene::Content_Points: return Branch_Points;
    case PtCloudScene::Content_Mesh: return Branch_Meshes;
    case PtCloudScene::Content_Split: return Branch_Splits;
    case PtCloudScene::Content_EarthVolume: return Branch_EarthVolume;
    case PtCloudScene::Content_Cut: return Branch_Peacees;
    default: return Branch_Dem;
    }
}

DataSetViewer::EPage pageOf(PtCloudScene::EContentKind kind)
{
    switch (kind) {
    case PtCloudScene::Content_Points: return DataSetViewer::Page_Points;
    case PtCloudScene::Content_Mesh: return DataSetViewer::Page_Mesh;
    case PtCloudScene::Content_DemMesh: return DataSetViewer::Page_DemMesh;
    case PtCloudScene::Content_DemHeightMap: return DataSetViewer::Page_DemHeightMap;
    case PtCloudScene::Content_DemContour: return DataSetViewer::Page_DemContour;
    case PtCloudScene::Content_DemClassify: return DataSetViewer::Page_DemClassify;
    case PtCloudScene::Content_Split: return DataSetViewer::Page_Split;
    case PtCloudScene::Content_EarthVolume: return DataSetViewer::Page_Volume;
    case PtCloudScene::Content_Cut: return DataSetViewer::Page_Cut;
    }
    return DataSetViewer::Page_DataSet;
}

QString deleteQuestion(PtCloudScene::EContentKind kind)
{
    switch (kind) {
    case PtCloudScene::Content_Mesh: return QCoreApplication::translate("dataset_shown_widget", "Do you want to delete the mesh?");
    case PtCloudScene::Content_DemMesh: return QCoreApplication::translate("dataset_shown_widget", "Do you want to delete the dem mesh?");
    case PtCloudScene::Content_DemHeightMap: return QCoreApplication::translate("dataset_shown_widget", "Do you want to delete the dem height map?");
    case PtCloudScene::Content_DemContour: return QCoreApplication::translate("dataset_shown_widget", "Do you want to delete the dem contour?");
    case PtCloudScene::Content_DemClassify: return QCoreApplication::translate("dataset_shown_widget", "Do you want to delete the dem classify?");
    case PtCloudScene::Content_Split: return QCoreApplication::translate("dataset_shown_widget", "Do you want to delete the split?");
    case PtCloudScene::Content_EarthVolume: return QCoreApplication::translate("dataset_shown_widget", "Do you want to delete the earth volume?");
    case PtCloudScene::Content_Cut: return QCoreApplication::translate("dataset_shown_widget", "Do you want to delete the cut?");
    case PtCloudScene::Content_Points: break;
    }
    return QString();
}

// A file of a DEM product that the long action wrote and that can be adopted.
bool readable(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return false;
    file.close();
    return true;
}

}  // namespace

DataSetViewer::DataSetViewer(PtCloudScene* scene, PtCloudWidget* view)
    : MovableSubWidget(view), m_scene(scene), m_view(view), ui(new Ui::dataset_shown_widget)
{
    ui->setupUi(this);
    QHeaderView* header = ui->treeWidget_dataset->header();
    header->setStretchLastSection(false);
    header->setSectionResizeMode(Column_Name, QHeaderView::Stretch);
    header->setSectionResizeMode(Column_Visible, QHeaderView::Fixed);
    header->setSectionResizeMode(Column_Delete, QHeaderView::Fixed);
    header->resizeSection(Column_Visible, 24);
    header->resizeSection(Column_Delete, 24);
    // The properties get the larger share: a dataset's page is ten rows and
    // its folder wraps, while the tree starts with six short branches.
    ui->splitter->setStretchFactor(0, 2);
    ui->splitter->setStretchFactor(1, 3);
    ui->splitter->setSizes({200, 300});

    connect(ui->toolButton_sample, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_Sample()), Qt::UniqueConnection);
    connect(ui->toolButton_erase_noise, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_EraseNoise()),
            Qt::UniqueConnection);
    connect(ui->toolButton_smooth, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_Smooth()), Qt::UniqueConnection);
    connect(ui->toolButton_mesh, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_Mesh()), Qt::UniqueConnection);
    connect(ui->toolButton_dem, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_DEM()), Qt::UniqueConnection);
    connect(ui->toolButton_split, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_Split()), Qt::UniqueConnection);
    connect(ui->toolButton_volumn, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_Volumn()), Qt::UniqueConnection);
    connect(ui->toolButton_drive_line, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_DriveLine()),
            Qt::UniqueConnection);
    connect(ui->toolButton_cut, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_Cut()), Qt::UniqueConnection);
    connect(ui->toolButton_section, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_Section()), Qt::UniqueConnection);
    connect(ui->toolButton_measure, SIGNAL(clicked(bool)), this, SLOT(onClickedTool_Measure()), Qt::UniqueConnection);
    connect(ui->treeWidget_dataset, SIGNAL(itemClicked(QTreeWidgetItem*, int)), this,
            SLOT(onTreeWidgetItemClicked(QTreeWidgetItem*, int)), Qt::UniqueConnection);
    ui->stackedWidget_properties->setCurrentIndex(Page_DataSet);
}

// The panels are children of the view and would outlive the scene controller
// they point into; they go first, while the view's root and manipulator they
// clean up are still there.
DataSetViewer::~DataSetViewer() { closeToolPanels(); }

PtCloudDataSet* DataSetViewer::dataSet() const
{
    PtCloud_Controller* controller = m_scene->controller();
    return controller && !m_dataSetName.isEmpty() ? controller->getDataSet(m_dataSetName) : nullptr;
}

void DataSetViewer::setDataSetName(const QString& name)
{
    m_dataSetName = name;
    rebuildTree();
    showProperties(PtCloudScene::Content_Points, QString(), true);
}

void DataSetViewer::reset()
{
    m_dataSetName.clear();
    rebuildTree();
    for (QLabel* info : findChildren<QLabel*>(QRegularExpression(QStringLiteral("^label_info_")))) info->clear();
    ui->stackedWidget_properties->setCurrentIndex(Page_DataSet);
    // A closed panel no longer brings the viewer back when it is destroyed.
    if (closeToolPanels()) show();
}

// ---- tool panels

MovableSubWidget* DataSetViewer::toolPanel(EToolPanel which) const
{
    switch (which) {
    case Tool_Cut: return m_pFuncCut;
    case Tool_Measure: return m_pFuncMeasure;
    case Tool_Section: return m_pFuncSection;
    case Tool_Volume: return m_pFuncVolume;
    }
    return nullptr;
}

QPoint DataSetViewer::toolPanelPosition(const QSize& view, const QSize& panel)
{
    int x = std::max(view.width() - 50 - panel.width(), 0);
    int y = 50;
    if (x + panel.width() > view.width()) x = view.width() - panel.width();
    if (y + panel.height() > view.height()) y = view.height() - panel.height();
    return QPoint(x, y);
}

bool DataSetViewer::closeToolPanels()
{
    bool closed = false;
    for (MovableSubWidget** slot : {&m_pFuncCut, &m_pFuncMeasure, &m_pFuncSection, &m_pFuncVolume}) {
        MovableSubWidget* panel = *slot;
        if (!panel) continue;
        closed = true;
        // A closed panel is deleted later; its end must not reset the slot of
        // the panel opened after it.
        disconnect(panel, SIGNAL(destroyed(QObject*)), this, SLOT(onWindowDestory_func()));
        *slot = nullptr;
        panel->close();
    }
    return closed;
}

template <class Panel>
void DataSetViewer::openTool(EToolPanel which)
{
    if (dataSet()) openToolPanel(which, new Panel(m_scene, m_view));
}

void DataSetViewer::openToolPanel(EToolPanel which, MovableSubWidget* panel)
{
    closeToolPanels();
    switch (which) {
    case Tool_Cut: m_pFuncCut = panel; break;
    case Tool_Measure: m_pFuncMeasure = panel; break;
    case Tool_Section: m_pFuncSection = panel; break;
    case Tool_Volume: m_pFuncVolume = panel; break;
    }
    connect(panel, SIGNAL(destroyed(QObject*)), this, SLOT(onWindowDestory_func()), Qt::UniqueConnection);
    hide();
    panel->show();
    panel->move(toolPanelPosition(m_view->size(), panel->size()));
}

void DataSetViewer::onWindowDestory_func()
{
    m_pFuncCut = nullptr;
    m_pFuncMeasure = nullptr;
    m_pFuncSection = nullptr;
    m_pFuncVolume = nullptr;
    show();
}

bool DataSetViewer::routeMousePress(QMouseEvent* event)
{
    for (MovableSubWidget* panel : {m_pFuncCut, m_pFuncMeasure, m_pFuncSection, m_pFuncVolume})
        if (panel) return panel->viewMousePressEvent(event);
    return false;
}

bool DataSetViewer::routeMouseMove(QMouseEvent* event)
{
    if (m_pFuncCut || m_pFuncMeasure || m_pFuncSection || !m_pFuncVolume) return false;
    return m_pFuncVolume->viewMouseMoveEvent(event);
}

bool DataSetViewer::routeKeyPress(QKeyEvent* event)
{
    if (m_pFuncCut || m_pFuncMeasure || m_pFuncSection || !m_pFuncVolume) return false;
    return m_pFuncVolume->viewKeyPressEvent(event);
}

// ---- tool slots

void DataSetViewer::onClickedTool_Sample() { runSampling(true); }

void DataSetViewer::onClickedTool_EraseNoise() { runSampling(false); }

void DataSetViewer::onClickedTool_Smooth() { onClickedTool_EraseNoise(); }

void DataSetViewer::onClickedTool_Mesh()
{
    PtCloudDataSet* ds = dataSet();
    if (!ds) return;
    Dlg_Do_MakeMesh dialog(existingNames(ds->getContent_Meshs()), this);
    runNamedAction(dialog, &PtCloudDataSet::createEmptyLocatedContent_Mesh, &PtCloudDataSet::addContent_Mesh,
                   PtCloudScene::Content_Mesh);
}

void DataSetViewer::onClickedTool_DEM()
{
    PtCloudDataSet* ds = dataSet();
    if (!ds) return;
    const PtCloud_DataSetFile* demMesh = ds->getContent_Dem_Mesh();
    if (demMesh && demMesh->isValid()) {
        if (QMessageBox::question(this, QCoreApplication::translate("dataset_shown_widget", "Question"),
                                  QCoreApplication::translate("dataset_shown_widget", "You will remove the existed dem mesh, and then create a new one.\n"
                                       "Are you sure?"),
                                  QMessageBox::Yes | QMessageBox::No) != QMessageBox::Yes)
            return;
        ds->removeContent_AllDem();
        rebuildBranch(PtCloudScene::Content_DemMesh);
    }
    const QStringList paths{ds->getFilePath_Dem_Mesh(), ds->getFilePath_Dem_HeightMap(), ds->getFilePath_Dem_Contour(),
                            ds->getFilePath_Dem_Classify()};
    const QVariantList params{paths[0], paths[1], 1920, paths[2], 50, paths[3]};
    Dlg_Progress_P3DWrapper progress(m_scene->controller(), m_dataSetName, 3, params, QString(), this);
    if (progress.exec() != QDialog::Accepted) return;
    ds = dataSet();
    if (!ds) return;
    if (readable(paths[0])) ds->setContent_Dem_Mesh();
    if (readable(paths[1])) ds->setContent_Dem_HeightMap();
    if (readable(paths[2])) ds->setContent_Dem_Contour();
    if (readable(paths[3])) ds->setContent_Dem_Classify();
    rebuildBranch(PtCloudScene::Content_DemMesh);
}

void DataSetViewer::onClickedTool_Split()
{
    PtCloudDataSet* ds = dataSet();
    if (!ds) return;
    Dlg_Do_Split dialog(existingNames(ds->getContent_Splits()), this);
    runNamedAction(dialog, &PtCloudDataSet::createEmptyLocatedContent_Split, &PtCloudDataSet::addContent_Split,
                   PtCloudScene::Content_Split);
}

void DataSetViewer::onClickedTool_Volumn() { openTool<Func_Volume_Widget>(Tool_Volume); }

void DataSetViewer::onClickedTool_DriveLine()
{
    QMessageBox::information(this, QCoreApplication::translate("dataset_shown_widget", "warning"), QCoreApplication::translate("dataset_shown_widget", "Not surpported"));
}

void DataSetViewer::onClickedTool_Cut() { openTool<Func_Cut_Widget>(Tool_Cut); }

void DataSetViewer::onClickedTool_Section() { openTool<Func_Section_Widget>(Tool_Section); }

void DataSetViewer::onClickedTool_Measure() { openTool<Func_Measure_Widget>(Tool_Measure); }

QSet<QString> DataSetViewer::existingNames(const QMap<QString, PtCloud_DataSetFile*>* contents) const
{
    QSet<QString> names;
    QMap<QString, QString> dataSets;
    if (m_scene->controller()) m_scene->controller()->getDataSetFilepaths(dataSets);
    for (auto it = dataSets.cbegin(); it != dataSets.cend(); ++it) names.insert(it.key());
    // A content of the same name would be replaced without a word.
    if (contents)
        for (auto it = contents->cbegin(); it != contents->cend(); ++it) names.insert(it.key());
    return names;
}

void DataSetViewer::runSampling(bool adoptResult)
{
    PtCloudDataSet* ds = dataSet();
    if (!ds) return;
    Dlg_Do_Sample dialog(this);
    if (dialog.exec() != QDialog::Accepted) return;
    const QString target = ds->createEmptyLocatedContent_Points();
    Dlg_Progress_P3DWrapper progress(m_scene->controller(), m_dataSetName, dialog.func(), dialog.params(), target,
                                     this);
    const int result = progress.exec();
    if (!adoptResult || result != QDialog::Accepted) return;
    if (PtCloudDataSet* after = dataSet()) after->updateContent_Points();
}

void DataSetViewer::runNamedAction(Dlg_Do_Named& dialog, CreateContent create, AddContent add,
                                   PtCloudScene::EContentKind kind)
{
    if (dialog.exec() != QDialog::Accepted) return;
    PtCloudDataSet* ds = dataSet();
    if (!ds) return;
    const QString name = dialog.name();
    PtCloud_DataSetFile* file = (ds->*create)(name);
    if (!file) return;
    Dlg_Progress_P3DWrapper progress(m_scene->controller(), m_dataSetName, dialog.func(), dialog.params(),
                                     file->getFilepath(), this);
    const bool done = progress.exec() == QDialog::Accepted;
    ds = dataSet();
    if (!done || !ds || !(ds->*add)(name, file)) {
        delete file;
        return;
    }
    rebuildBranch(kind);
}

// ---- tree

void DataSetViewer::rebuildTree()
{
    QTreeWidget* tree = ui->treeWidget_dataset;
    tree->clear();
    if (!dataSet()) return;
    const char* const headings[] = {QT_TRANSLATE_NOOP("dataset_shown_widget", "Points"),
                                    QT_TRANSLATE_NOOP("dataset_shown_widget", "Meshes"),
                                    QT_TRANSLATE_NOOP("dataset_shown_widget", "DEM"),
                                    QT_TRANSLATE_NOOP("dataset_shown_widget", "Splits"),
                                    QT_TRANSLATE_NOOP("dataset_shown_widget", "EarthVolume"),
                                    QT_TRANSLATE_NOOP("dataset_shown_widget", "Peacees")};
    const PtCloudScene::EContentKind kinds[] = {PtCloudScene::Content_Points,      PtCloudScene::Content_Mesh,
                                                PtCloudScene::Content_DemMesh,     PtCloudScene::Content_Split,
                                                PtCloudScene::Content_EarthVolume, PtCloudScene::Content_Cut};
    for (int i = 0; i < 6; ++i) {
        auto* top = new QTreeWidgetItem(tree, QStringList(QCoreApplication::translate("dataset_shown_widget", headings[i])));
        top->setData(Column_Name, Role_Kind, int(kinds[i]));
        top->setData(Column_Name, Role_Group, true);
    }
    for (PtCloudScene::EContentKind kind : kinds) rebuildBranch(kind);
}

QTreeWidgetItem* DataSetViewer::branch(PtCloudScene::EContentKind kind) const
{
    return ui->treeWidget_dataset->topLevelItem(branchOf(kind));
}

QTreeWidgetItem* DataSetViewer::addRow(QTreeWidgetItem* parent, const QString& rowText,
                                       PtCloudScene::EContentKind kind, const QString& name, bool removable)
{
    auto* row = new QTreeWidgetItem(parent, QStringList(rowText));
    row->setData(Column_Name, Role_Kind, int(kind));
    row->setData(Column_Name, Role_Name, name);
    row->setData(Column_Name, Role_Group, false);
    row->setData(Column_Name, Role_Removable, removable);
    if (removable) row->setIcon(Column_Delete, QIcon(QStringLiteral(":res/ptcloud/clear.png")));
    updateVisibilityIcon(row);
    return row;
}

void DataSetViewer::updateVisibilityIcon(QTreeWidgetItem* row)
{
    const auto kind = PtCloudScene::EContentKind(row->data(Column_Name, Role_Kind).toInt());
    const QString name = row->data(Column_Name, Role_Name).toString();
    if (row->data(Column_Name, Role_Group).toBool() || !m_scene->hasContentItem(kind, name)) {
        row->setIcon(Column_Visible, QIcon());
        return;
    }
    row->setIcon(Column_Visible, QIcon(m_scene->isContentVisible(kind, name)
                                           ? QStringLiteral(":res/graph_option_view.png")
                                           : QStringLiteral(":res/graph_option_view_unchecked.png")));
}

void DataSetViewer::rebuildBranch(PtCloudScene::EContentKind kind)
{
    QTreeWidgetItem* top = branch(kind);
    PtCloudDataSet* ds = dataSet();
    if (!top || !ds) return;
    qDeleteAll(top->takeChildren());
    switch (branchOf(kind)) {
    case Branch_Points:
        // The points are the row itself; they cannot be deleted.
        top->setData(Column_Name, Role_Group, false);
        updateVisibilityIcon(top);
        break;
    case Branch_Meshes: fillNamedBranch(PtCloudScene::Content_Mesh, ds->getContent_Meshs()); break;
    case Branch_Dem: fillDemBranch(); break;
    case Branch_Splits: fillNamedBranch(PtCloudScene::Content_Split, ds->getContent_Splits()); break;
    case Branch_EarthVolume: {
        const bool present = ds->getContent_EarthVolume() != nullptr;
        top->setData(Column_Name, Role_Group, false);
        top->setData(Column_Name, Role_Removable, present);
        top->setIcon(Column_Delete, present ? QIcon(QStringLiteral(":res/ptcloud/clear.png")) : QIcon());
        updateVisibilityIcon(top);
        break;
    }
    case Branch_Peacees: fillNamedBranch(PtCloudScene::Content_Cut, ds->getContent_Cuts()); break;
    }
    top->setExpanded(true);
    // The page shown may count what just changed; a content that is gone
    // leaves the dataset's page.
    const bool gone = !m_shownPage.name.isEmpty() && !m_shownPage.group &&
                      !m_scene->hasContentItem(m_shownPage.kind, m_shownPage.name);
    if (gone)
        showProperties(PtCloudScene::Content_Points, QString(), true);
    else
        showProperties(m_shownPage.kind, m_shownPage.name, m_shownPage.group);
}

void DataSetViewer::fillNamedBranch(PtCloudScene::EContentKind kind,
                                    const QMap<QString, PtCloud_DataSetFile*>* contents)
{
    if (!contents) return;
    for (auto it = contents->cbegin(); it != contents->cend(); ++it) addRow(branch(kind), it.key(), kind, it.key(), true);
}

void DataSetViewer::fillDemBranch()
{
    const PtCloudDataSet* ds = dataSet();
    QTreeWidgetItem* top = branch(PtCloudScene::Content_DemMesh);
    if (ds->getContent_Dem_Mesh()) addRow(top, QCoreApplication::translate("dataset_shown_widget", "Mesh"), PtCloudScene::Content_DemMesh, QString(), true);
    if (ds->getContent_Dem_HeightMap())
        addRow(top, QCoreApplication::translate("dataset_shown_widget", "HeightMap"), PtCloudScene::Content_DemHeightMap, QString(), true);
    if (ds->getContent_Dem_Contour()) addRow(top, QCoreApplication::translate("dataset_shown_widget", "Contour"), PtCloudScene::Content_DemContour, QString(), true);
    if (ds->getContent_Dem_Classify())
        addRow(top, QCoreApplication::translate("dataset_shown_widget", "Classify"), PtCloudScene::Content_DemClassify, QString(), true);
}

void DataSetViewer::onTreeWidgetItemClicked(QTreeWidgetItem* item, int column)
{
    if (!item) return;
    const auto kind = PtCloudScene::EContentKind(item->data(Column_Name, Role_Kind).toInt());
    const QString name = item->data(Column_Name, Role_Name).toString();
    const bool group = item->data(Column_Name, Role_Group).toBool();
    if (column == Column_Visible && !group && m_scene->hasContentItem(kind, name)) {
        m_scene->setContentVisible(kind, name, !m_scene->isContentVisible(kind, name));
        updateVisibilityIcon(item);
        return;
    }
    if (column == Column_Delete && item->data(Column_Name, Role_Removable).toBool()) {
        askAndRemove(kind, name);
        return;
    }
    showProperties(kind, name, group);
}

void DataSetViewer::askAndRemove(PtCloudScene::EContentKind kind, const QString& name)
{
    if (QMessageBox::question(this, QCoreApplication::translate("dataset_shown_widget", "Confirm"), deleteQuestion(kind), QMessageBox::Yes | QMessageBox::No) !=
        QMessageBox::Yes)
        return;
    PtCloudDataSet* ds = dataSet();
    if (!ds) return;
    switch (kind) {
    case PtCloudScene::Content_Mesh: ds->removeContent_Mesh(name); break;
    case PtCloudScene::Content_DemMesh: ds->removeContent_Dem_Mesh(); break;
    case PtCloudScene::Content_DemHeightMap: ds->removeContent_Dem_HeightMap(); break;
    case PtCloudScene::Content_DemContour: ds->removeContent_Dem_Contour(); break;
    case PtCloudScene::Content_DemClassify: ds->removeContent_Dem_Classify(); break;
    case PtCloudScene::Content_Split: ds->removeContent_Split(name); break;
    case PtCloudScene::Content_EarthVolume: ds->removeContent_EarthVolume(); break;
    case PtCloudScene::Content_Cut: ds->removeContent_Cut(name); break;
    case PtCloudScene::Content_Points: return;
    }
    rebuildBranch(kind);
}

// ---- property pages

QString DataSetViewer::pointFileProperties(PtCloudScene::EContentKind kind, const QString& name,
                                           const PtCloud_DataSetFile* file)
{
    if (!file) return QString();
    const QFileInfo info(file->getFilepath());
    const QString key = QStringLiteral("%1|%2|%3|%4")
                            .arg(int(kind))
                            .arg(info.absoluteFilePath())
                            .arg(info.size())
                            .arg(info.lastModified().toMSecsSinceEpoch());
    auto cached = m_propertiesCache.constFind(key);
    if (cached != m_propertiesCache.constEnd()) return cached.value();
    const QString html = ContentProperties::toHtml(ContentProperties::ofPointFile(kind, name, file->getFilepath()));
    m_propertiesCache.insert(key, html);
    return html;
}

void DataSetViewer::showProperties(PtCloudScene::EContentKind kind, const QString& name, bool group)
{
    m_shownPage = {kind, name, group};
    PtCloudDataSet* ds = dataSet();
    const EPage page = group || !ds ? Page_DataSet : pageOf(kind);
    QString html;
    if (ds) {
        switch (page) {
        case Page_DataSet: html = ContentProperties::toHtml(ContentProperties::ofDataSet(ds)); break;
        case Page_Points: html = pointFileProperties(kind, m_dataSetName, ds->getContent_PointDataSetFile()); break;
        case Page_Mesh: html = pointFileProperties(kind, name, ds->getContent_Meshs()->value(name)); break;
        case Page_DemMesh: html = pointFileProperties(kind, QString(), ds->getContent_Dem_Mesh()); break;
        case Page_DemHeightMap:
            html = ContentProperties::toHtml(
                ContentProperties::ofHeightMap(ds->getContent_Dem_HeightMap(), ds->getFilePath_Dem_HeightMap()));
            break;
        case Page_DemContour:
            if (ds->getContent_Dem_Contour())
                html = ContentProperties::toHtml(ContentProperties::ofContour(ds->getFilePath_Dem_Contour()));
            break;
        case Page_DemClassify: html = pointFileProperties(kind, QString(), ds->getContent_Dem_Classify()); break;
        case Page_Split: html = pointFileProperties(kind, name, ds->getContent_Splits()->value(name)); break;
        case Page_Volume:
            html = ContentProperties::toHtml(ContentProperties::ofEarthVolume(ds->getContent_EarthVolume()));
            break;
        case Page_Cut: html = pointFileProperties(kind, name, ds->getContent_Cuts()->value(name)); break;
        case Page_DriveLine: break;
        }
    }
    ui->stackedWidget_properties->setCurrentIndex(page);
    const QList<QLabel*> info = ui->stackedWidget_properties->widget(page)->findChildren<QLabel*>(
        QRegularExpression(QStringLiteral("^label_info_")));
    if (!info.isEmpty()) info.first()->setText(html);
}
