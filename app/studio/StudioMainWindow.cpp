#include "StudioMainWindow.h"

#include <QApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QUrl>
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
#include <QSettings>
#include <QStatusBar>
#include <QThread>
#include <QTimer>

#include "AppConfig.h"
#include "DataSetViewer.h"
#include "LasReader.h"
#include "OsgGraphItem_PcDataSet.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_Project.h"
#include "PtCloud_SimpleProgress.h"
#include "StudioViewControls.h"

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
      m_statusCursor(new QLabel(this)),
      m_statusTimer(new QTimer(this)),
      m_viewControls(new StudioViewControls(m_view, m_statusCursor))
{
    setCentralWidget(m_view);
    resize(1280, 800);
    setWindowTitle(tr("PtCloud Studio"));
    setAcceptDrops(true);
    statusBar()->addWidget(m_statusDataSet, 1);
    statusBar()->addWidget(m_statusMessage, 1);
    statusBar()->addPermanentWidget(m_statusCursor);
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

    m_viewControls->fillMenu(menuBar()->addMenu(tr("&View")));

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
    const QString previous = projectFolder();
    closeProject();
    if (!m_scene.getPointsCloud()->openProject(folder, error)) {
        reopen(previous);
        return false;
    }
    m_view->onSceneOpened(&m_scene);
    // Back where the user left the project.
    const QString last = QSettings().value(lastShownKey(projectFolder())).toString();
    if (!last.isEmpty() && m_scene.getPointsCloud()->getPointsCloudProject()->getController()->getDataSet(last))
        m_view->ptCloudScene()->showDataSet(last);
    setWindowTitle(tr("PtCloud Studio - %1").arg(QDir::toNativeSeparators(QDir(folder).absolutePath())));
    updateStatus();
    return true;
}

QString StudioMainWindow::lastShownKey(const QString& folder)
{
    return QStringLiteral("studio/lastShownDataSet/") +
           QString::fromLatin1(QDir(folder).absolutePath().toUtf8().toBase64(QByteArray::Base64UrlEncoding));
}

QString StudioMainWindow::projectFolder()
{
    const ptCloud::PtCloud_Project* project = m_scene.getPointsCloud()->getPointsCloudProject();
    return project ? project->getFolder() : QString();
}

void StudioMainWindow::reopen(const QString& previous)
{
    QString ignored;
    if (!previous.isEmpty() && m_scene.getPointsCloud()->openProject(previous, &ignored)) {
        m_view->onSceneOpened(&m_scene);
        setWindowTitle(tr("PtCloud Studio - %1").arg(QDir::toNativeSeparators(previous)));
    }
    updateStatus();
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
    // What can be checked is checked before anything is touched, and said
    // as the command line says it.
    {
        LasReader reader;
        QString why;
        if (!reader.open(path, &why)) {
            *error = QStringLiteral("%1: %2").arg(path, why);
            return false;
        }
    }
    const QString previous = projectFolder();
    const QString folder = info.absoluteDir().filePath(info.completeBaseName() + QStringLiteral(".ptcloud"));
    const bool folderExisted = QFileInfo::exists(folder);
    if (!openProject(folder, error)) return false;
    PtCloud_Controller* controller = m_scene.getPointsCloud()->getPointsCloudProject()->getController();
    if (controller->getDataSet(info.completeBaseName())) {
        m_view->ptCloudScene()->showDataSet(info.completeBaseName());
        return true;
    }
    if (importLasAsDataSet(info.absoluteFilePath(), error)) return true;
    // Nothing of the failed attempt stays behind: the project made for the
    // file goes, and the one open before comes back.
    closeProject();
    if (!folderExisted) QDir(folder).removeRecursively();
    reopen(previous);
    return false;
}

bool StudioMainWindow::importLasAsDataSet(const QString& lasPath, QString* error)
{
    ptCloud::PtCloud_Project* project = m_scene.getPointsCloud()->getPointsCloudProject();
    if (!project) {
        *error = tr("no project is open");
        return false;
    }
    PtCloud_Controller* controller = project->getController();
    QMap<QString, QString> referenced;
    controller->getLasFilepaths(referenced);
    QString key;
    if (controller->doCmd_LasFile_Import({lasPath}, &key) != PCAR_Success) {
        *error = QStringLiteral("%1: %2").arg(lasPath, key);
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
        // The project keeps only what it held before.
        if (!referenced.contains(key)) controller->doCmd_LasFile_Remove({key});
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
    openOrImport(file);
}

void StudioMainWindow::openOrImport(const QString& path)
{
    QString error;
    const bool into = m_scene.getPointsCloud()->getPointsCloudProject() && !QFileInfo(path).isDir();
    const bool ok = into ? importLasAsDataSet(path, &error) : openSource(path, &error);
    if (!ok) reportError(tr("Cannot open %1").arg(QFileInfo(path).fileName()), error);
}

void StudioMainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() == 1 && urls.first().isLocalFile()) event->acceptProposedAction();
}

void StudioMainWindow::dropEvent(QDropEvent* event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() != 1 || !urls.first().isLocalFile()) return;
    event->acceptProposedAction();
    // The drag's source waits for the drop to return: open after it.
    const QString path = urls.first().toLocalFile();
    QTimer::singleShot(0, this, [this, path] { openOrImport(path); });
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
    if (m_view) m_viewControls->refresh();
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
        const QString key = lastShownKey(projectFolder());
        QSettings settings;
        if (settings.value(key).toString() != name) settings.setValue(key, name);
        m_statusDataSet->setText(tr("Dataset: %1").arg(name));
        m_statusPoints->setText(tr("%1 points, %2 drawn")
                                    .arg(locale.toString(qulonglong(item->pointCount())),
                                         locale.toString(qulonglong(scene->drawnPointCount()))));
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
