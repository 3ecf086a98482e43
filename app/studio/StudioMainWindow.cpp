#include "StudioMainWindow.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QFileInfo>
#include <QImageWriter>
#include <QLabel>
#include <QLocale>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressDialog>
#include <QStatusBar>
#include <QThread>
#include <QTimer>

#include "AppConfig.h"
#include "DataSetViewer.h"
#include "OsgGraphItem_PcDataSet.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_Project.h"
#include "PtCloud_SimpleProgress.h"

using namespace ptCloud;

namespace {
const char* const kProjectHistory = "dir_his_studio_project";
const char* const kLasHistory = "dir_his_points_cloud_import_las";
// A screenshot waits for the loader at most this long.
constexpr int kSettleTimeoutMs = 60000;
}  // namespace

StudioMainWindow::StudioMainWindow(QWidget* parent)
    : QMainWindow(parent),
      m_view(new PtCloudWidget(this)),
      m_statusDataSet(new QLabel(this)),
      m_statusPoints(new QLabel(this)),
      m_statusMessage(new QLabel(this)),
      m_statusTimer(new QTimer(this))
{
    setCentralWidget(m_view);
    resize(1280, 800);
    setWindowTitle(tr("PtCloud Studio"));
    statusBar()->addWidget(m_statusDataSet, 1);
    statusBar()->addWidget(m_statusMessage, 1);
    statusBar()->addPermanentWidget(m_statusPoints);
    buildMenus();
    connect(m_view, &PtCloudWidget::sgNeedSaveProject, this, &StudioMainWindow::onProjectChanged);
    connect(m_statusTimer, &QTimer::timeout, this, &StudioMainWindow::updateStatus);
    m_statusTimer->start(500);
    updateStatus();
}

StudioMainWindow::~StudioMainWindow()
{
    // The editor's items read the project's files: the view goes first.
    m_view->onSceneClosed();
    delete m_view;
    m_view = nullptr;
    m_scene.getPointsCloud()->closeProject();
}

void StudioMainWindow::buildMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&New Project..."), this, &StudioMainWindow::onNewProject, QKeySequence::New);
    file->addAction(tr("&Open Project..."), this, &StudioMainWindow::onOpenProject, QKeySequence::Open);
    file->addAction(tr("&Import LAS..."), this, &StudioMainWindow::onImportLas);
    file->addAction(tr("&Close Project"), this, &StudioMainWindow::onCloseProject);
    file->addSeparator();
    file->addAction(tr("&Quit"), this, &QWidget::close, QKeySequence::Quit);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    edit->addAction(tr("Undo"), this, &StudioMainWindow::onUndo, QKeySequence::Undo);

    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addAction(tr("Perspective"), m_view, &PtCloudWidget::doCmd_View_Perspective);
    view->addAction(tr("Ortho"), m_view, &PtCloudWidget::doCmd_View_Ortho);
    view->addSeparator();
    view->addAction(tr("From Top"), m_view, &PtCloudWidget::doCmd_View_From_Top);
    view->addAction(tr("From Bottom"), m_view, &PtCloudWidget::doCmd_View_From_Bottom);
    view->addAction(tr("From Front"), m_view, &PtCloudWidget::doCmd_View_From_Front);
    view->addAction(tr("From Back"), m_view, &PtCloudWidget::doCmd_View_From_Back);
    view->addAction(tr("From Left"), m_view, &PtCloudWidget::doCmd_View_From_Left);
    view->addAction(tr("From Right"), m_view, &PtCloudWidget::doCmd_View_From_Right);

    QMenu* shade = menuBar()->addMenu(tr("&Shade"));
    shade->addAction(tr("Normal"), m_view, &PtCloudWidget::doCmd_Shade_Normal);
    shade->addAction(tr("Eye-Dome Lighting"), m_view, &PtCloudWidget::doCmd_Shade_EDL);

    QMenu* window = menuBar()->addMenu(tr("&Window"));
    window->addAction(tr("LAS Files..."), m_view, &PtCloudWidget::doCmd_ShowWindow_FileManage);
    window->addAction(tr("Create DataSet..."), m_view, &PtCloudWidget::doCmd_ShowWindow_DataSet_Create);
    window->addAction(tr("Copy DataSet..."), m_view, &PtCloudWidget::doCmd_ShowWindow_DataSet_Copy);
    window->addAction(tr("Merge DataSets..."), m_view, &PtCloudWidget::doCmd_ShowWindow_DataSet_Merge);
    window->addAction(tr("Show DataSet..."), m_view, &PtCloudWidget::doCmd_ShowWindow_DataSet_Focuse);

    // The dataset viewer's tool panels, for the shown dataset.
    QMenu* tools = menuBar()->addMenu(tr("&Tools"));
    auto addTool = [&](const QString& name, const QString& text, void (DataSetViewer::*open)()) {
        QAction* action = tools->addAction(text, this, [this, open] {
            if (PtCloudScene* scene = m_view->ptCloudScene()) (scene->dataSetViewer()->*open)();
        });
        action->setObjectName(QStringLiteral("action_tool_") + name);
    };
    addTool(QStringLiteral("cut"), tr("Cut"), &DataSetViewer::onClickedTool_Cut);
    addTool(QStringLiteral("measure"), tr("Measure"), &DataSetViewer::onClickedTool_Measure);
    addTool(QStringLiteral("section"), tr("Section"), &DataSetViewer::onClickedTool_Section);
    addTool(QStringLiteral("volume"), tr("Volume"), &DataSetViewer::onClickedTool_Volumn);
}

bool StudioMainWindow::openTool(const QString& name)
{
    QAction* action = findChild<QAction*>(QStringLiteral("action_tool_") + name);
    if (!action) return false;
    action->trigger();
    return true;
}

void StudioMainWindow::onUndo()
{
    PtCloudScene* scene = m_view ? m_view->ptCloudScene() : nullptr;
    PtCloudDataSet* dataSet = scene ? scene->currentDataSet() : nullptr;
    const bool undone = dataSet && dataSet->undoContent_Points();
    m_statusMessage->setText(undone ? tr("Points of %1 put back as they were").arg(dataSet->getName())
                                    : tr("Nothing to undo"));
    QTimer::singleShot(3000, m_statusMessage, &QLabel::clear);
}

bool StudioMainWindow::openProject(const QString& folder, QString* error)
{
    closeProject();
    if (!m_scene.getPointsCloud()->openProject(folder, error)) return false;
    m_view->onSceneOpened(&m_scene);
    setWindowTitle(tr("PtCloud Studio - %1").arg(QDir::toNativeSeparators(QDir(folder).absolutePath())));
    updateStatus();
    return true;
}

void StudioMainWindow::closeProject()
{
    if (!m_scene.getPointsCloud()->getPointsCloudProject()) return;
    m_view->onSceneClosed();
    m_scene.getPointsCloud()->closeProject();
    setWindowTitle(tr("PtCloud Studio"));
    updateStatus();
}

bool StudioMainWindow::openSource(const QString& path, QString* error)
{
    const QFileInfo info(path);
    if (info.isDir()) return openProject(path, error);
    if (!info.exists()) {
        *error = tr("%1 does not exist").arg(path);
        return false;
    }
    const QString folder = info.absoluteDir().filePath(info.completeBaseName() + QStringLiteral(".ptcloud"));
    if (!openProject(folder, error)) return false;
    PtCloud_Controller* controller = m_scene.getPointsCloud()->getPointsCloudProject()->getController();
    if (controller->getDataSet(info.completeBaseName())) {
        m_view->ptCloudScene()->showDataSet(info.completeBaseName());
        return true;
    }
    return importLasAsDataSet(info.absoluteFilePath(), error);
}

bool StudioMainWindow::importLasAsDataSet(const QString& lasPath, QString* error)
{
    ptCloud::PtCloud_Project* project = m_scene.getPointsCloud()->getPointsCloudProject();
    if (!project) {
        *error = tr("no project is open");
        return false;
    }
    PtCloud_Controller* controller = project->getController();
    QString key;
    if (controller->doCmd_LasFile_Import({lasPath}, &key) != PCAR_Success) {
        *error = key;
        return false;
    }
    QList<EDataSetColumn> columns;
    controller->getLasFileColumns(key, columns);
    QString name = QFileInfo(lasPath).completeBaseName();
    for (int i = 2; !controller->isValidNewDataSetName(name); ++i)
        name = QStringLiteral("%1 %2").arg(QFileInfo(lasPath).completeBaseName()).arg(i);

    // The import runs here on the GUI thread; the progress dialog keeps the
    // window painting and offers a cancel.
    QProgressDialog dialog(tr("Importing %1").arg(QFileInfo(lasPath).fileName()), tr("Cancel"), 0, 100, this);
    dialog.setWindowModality(Qt::WindowModal);
    dialog.setMinimumDuration(500);
    PtCloud_SimpleProgress progress([&](int value, const QString& text) {
        if (!text.isEmpty()) dialog.setLabelText(text);
        dialog.setValue(value);
        QApplication::processEvents();
    });
    QObject::connect(&dialog, &QProgressDialog::canceled, [&progress] { progress.requestStop(); });
    if (controller->makeDataSet({{key}, columns, name}, &progress) != PCAR_Success) {
        *error = controller->lastError();
        return false;
    }
    m_view->ptCloudScene()->showDataSet(name);
    return true;
}

void StudioMainWindow::reportError(const QString& what, const QString& error)
{
    m_statusMessage->setText(what);
    QMessageBox::critical(this, tr("error"), what + QStringLiteral("\n") + error);
}

void StudioMainWindow::onNewProject()
{
    OpenSaveDirectoryHistory& history = AppConfig::getInstance().module_openSaveHistory();
    const QString folder = QFileDialog::getExistingDirectory(this, tr("New project folder"),
                                                             history.getHistory(kProjectHistory));
    if (folder.isEmpty()) return;
    history.setHistory(kProjectHistory, folder);
    QString error;
    if (!openProject(folder, &error)) reportError(tr("Cannot create the project"), error);
}

void StudioMainWindow::onOpenProject()
{
    OpenSaveDirectoryHistory& history = AppConfig::getInstance().module_openSaveHistory();
    const QString folder =
        QFileDialog::getExistingDirectory(this, tr("Open project"), history.getHistory(kProjectHistory));
    if (folder.isEmpty()) return;
    history.setHistory(kProjectHistory, folder);
    QString error;
    if (!openProject(folder, &error)) reportError(tr("Cannot open the project"), error);
}

void StudioMainWindow::onImportLas()
{
    OpenSaveDirectoryHistory& history = AppConfig::getInstance().module_openSaveHistory();
    const QString file = QFileDialog::getOpenFileName(this, tr("Import LAS file"), history.getHistory(kLasHistory),
                                                      tr("LAS files (*.las *.laz);;All files (*)"));
    if (file.isEmpty()) return;
    history.setHistory(kLasHistory, file);
    QString error;
    const bool ok = m_scene.getPointsCloud()->getPointsCloudProject() ? importLasAsDataSet(file, &error)
                                                                      : openSource(file, &error);
    if (!ok) reportError(tr("Cannot import %1").arg(QFileInfo(file).fileName()), error);
}

void StudioMainWindow::onCloseProject() { closeProject(); }

void StudioMainWindow::onProjectChanged()
{
    // Every change reaches the disk as it is made; say so.
    m_statusMessage->setText(tr("Project saved"));
    QTimer::singleShot(3000, m_statusMessage, &QLabel::clear);
}

void StudioMainWindow::updateStatus()
{
    PtCloudScene* scene = m_view ? m_view->ptCloudScene() : nullptr;
    const QString name = scene ? scene->currentDataSetName() : QString();
    OsgGraphItem_PcDataSet* item = scene ? scene->pointsItem() : nullptr;
    if (!m_scene.getPointsCloud()->getPointsCloudProject()) {
        m_statusDataSet->setText(tr("No project open"));
        m_statusPoints->clear();
    } else if (name.isEmpty() || !item) {
        m_statusDataSet->setText(tr("No dataset shown"));
        m_statusPoints->clear();
    } else {
        const QLocale locale;
        m_statusDataSet->setText(tr("Dataset: %1").arg(name));
        m_statusPoints->setText(tr("%1 points, %2 drawn")
                                    .arg(locale.toString(qulonglong(item->pointCount())),
                                         locale.toString(qulonglong(item->drawnPointCount()))));
    }
}

bool StudioMainWindow::loadingSettled() const
{
    PtCloudScene* scene = m_view->ptCloudScene();
    OsgGraphItem_PcDataSet* item = scene ? scene->pointsItem() : nullptr;
    return !item || item->blockCount() == 0 || (item->isReady() && !item->hasPendingWork());
}

bool StudioMainWindow::saveScreenshot(const QString& filePath, QString* error)
{
    show();
    QElapsedTimer clock;
    clock.start();
    // Frames are drawn on demand: keep asking while the loader works.
    int quietFrames = 0;
    while (clock.elapsed() < kSettleTimeoutMs && quietFrames < 3) {
        m_view->requestRedraw();
        QApplication::processEvents(QEventLoop::AllEvents, 50);
        QThread::msleep(20);
        quietFrames = loadingSettled() ? quietFrames + 1 : 0;
    }
    updateStatus();
    m_view->requestRedraw();
    QApplication::processEvents(QEventLoop::AllEvents, 100);
    const QImage image = grab().toImage();
    QImageWriter writer(filePath);
    if (!writer.write(image)) {
        *error = tr("cannot write %1: %2").arg(filePath, writer.errorString());
        return false;
    }
    return true;
}
