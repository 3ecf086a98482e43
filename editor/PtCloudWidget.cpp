#include "PtCloudWidget.h"

#include <QCloseEvent>
#include <QMessageBox>

#include "PointShader.h"
#include "PtCloudResources.h"
#include "PtCloudScene.h"
#include "PtCloud_Project.h"
#include "Scene.h"

PtCloudWidget::PtCloudWidget(QWidget* parent) : OsgQWidget(parent, false)
{
    PtCloudResources::initialize();
    m_pPtCloudScene = new PtCloudScene(this);
    connect(m_pPtCloudScene, SIGNAL(sgNeedSaveProject()), this, SIGNAL(sgNeedSaveProject()), Qt::UniqueConnection);
}

// A widget destroyed without being closed still stops its loaders first.
PtCloudWidget::~PtCloudWidget() { delete m_pPtCloudScene; }

void PtCloudWidget::onSceneOpened(Scene* pScene)
{
    m_pScene = pScene;
    if (!m_pPtCloudScene || !pScene) return;
    const ptCloud::PtCloud_Project* project = pScene->getPointsCloud()->getPointsCloudProject();
    m_pPtCloudScene->setController(project ? project->getController() : nullptr);
}

void PtCloudWidget::onSceneClosed()
{
    if (m_pPtCloudScene) m_pPtCloudScene->onSceneClosed();
    m_pScene = nullptr;
}

void PtCloudWidget::showUnsupported()
{
    QMessageBox::critical(this, tr("error"), tr("sorry, the function has not supported"), QMessageBox::Ok);
}

void PtCloudWidget::doCmd_View_Perspective() { showUnsupported(); }
void PtCloudWidget::doCmd_View_Ortho() { showUnsupported(); }
void PtCloudWidget::doCmd_View_From_Top() { showUnsupported(); }
void PtCloudWidget::doCmd_View_From_Bottom() { showUnsupported(); }
void PtCloudWidget::doCmd_View_From_Front() { showUnsupported(); }
void PtCloudWidget::doCmd_View_From_Back() { showUnsupported(); }
void PtCloudWidget::doCmd_View_From_Left() { showUnsupported(); }
void PtCloudWidget::doCmd_View_From_Right() { showUnsupported(); }
void PtCloudWidget::doCmd_Shade_Normal() { showUnsupported(); }
void PtCloudWidget::doCmd_Shade_EDL() { showUnsupported(); }

void PtCloudWidget::doCmd_ShowWindow_DataSet_Create()
{
    if (m_pPtCloudScene) m_pPtCloudScene->doCmd_ShowWindow_DataSet_Create();
}

void PtCloudWidget::doCmd_ShowWindow_DataSet_Copy()
{
    if (m_pPtCloudScene) m_pPtCloudScene->doCmd_ShowWindow_DataSet_Copy();
}

void PtCloudWidget::doCmd_ShowWindow_DataSet_Merge()
{
    if (m_pPtCloudScene) m_pPtCloudScene->doCmd_ShowWindow_DataSet_Merge();
}

void PtCloudWidget::doCmd_ShowWindow_FileManage()
{
    if (m_pPtCloudScene) m_pPtCloudScene->doCmd_ShowWindow_FileManage();
}

void PtCloudWidget::doCmd_ShowWindow_DataSet_Focuse()
{
    if (m_pPtCloudScene) m_pPtCloudScene->doCmd_ShowWindow_DataSet_Focuse();
}

void PtCloudWidget::keyPressEvent(QKeyEvent* event)
{
    if (!m_pPtCloudScene || !m_pPtCloudScene->keyPressEvent(event)) OsgQWidget::keyPressEvent(event);
}

void PtCloudWidget::keyReleaseEvent(QKeyEvent* event)
{
    if (!m_pPtCloudScene || !m_pPtCloudScene->keyReleaseEvent(event)) OsgQWidget::keyReleaseEvent(event);
}

void PtCloudWidget::mousePressEvent(QMouseEvent* event)
{
    if (!m_pPtCloudScene || !m_pPtCloudScene->mousePressEvent(event)) OsgQWidget::mousePressEvent(event);
}

void PtCloudWidget::mouseReleaseEvent(QMouseEvent* event)
{
    if (!m_pPtCloudScene || !m_pPtCloudScene->mouseReleaseEvent(event)) OsgQWidget::mouseReleaseEvent(event);
}

void PtCloudWidget::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (!m_pPtCloudScene || !m_pPtCloudScene->mouseDoubleClickEvent(event)) OsgQWidget::mouseDoubleClickEvent(event);
}

void PtCloudWidget::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_pPtCloudScene || !m_pPtCloudScene->mouseMoveEvent(event)) OsgQWidget::mouseMoveEvent(event);
}

void PtCloudWidget::wheelEvent(QWheelEvent* event)
{
    if (!m_pPtCloudScene || !m_pPtCloudScene->wheelEvent(event)) OsgQWidget::wheelEvent(event);
}

void PtCloudWidget::onInitialized()
{
    OsgQWidget::onInitialized();
    applyPointShader(getRoot());
}

void PtCloudWidget::onPainted()
{
    if (m_pPtCloudScene) m_pPtCloudScene->onPainted();
}

void PtCloudWidget::onResized(int, int) {}

void PtCloudWidget::closeEvent(QCloseEvent* event)
{
    delete m_pPtCloudScene;
    m_pPtCloudScene = nullptr;
    OsgQWidget::closeEvent(event);
}
