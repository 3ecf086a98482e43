#pragma once

#include "OsgQWidget.h"
#include "PtCloudWidgetExport.h"

class PtCloudScene;
class Scene;

// The point-cloud editor as the host sees it: a 3D view that the host
// embeds, tells when its scene opens and closes, and drives with commands.
// Everything is forwarded to the scene controller, which also gets the
// first look at every input event.
class PTCLOUDWIDGET_EXPORT PtCloudWidget : public osgHelper::OsgQWidget {
    Q_OBJECT
public:
    explicit PtCloudWidget(QWidget* parent = nullptr);
    ~PtCloudWidget() override;

    // Null after closeEvent.
    PtCloudScene* ptCloudScene() const { return m_pPtCloudScene; }

signals:
    void sgNeedSaveProject();

public slots:
    void onSceneOpened(Scene* pScene);
    void onSceneClosed();

    // Exported for the host's menus but not supported: each says so.
    void doCmd_View_Perspective();
    void doCmd_View_Ortho();
    void doCmd_View_From_Top();
    void doCmd_View_From_Bottom();
    void doCmd_View_From_Front();
    void doCmd_View_From_Back();
    void doCmd_View_From_Left();
    void doCmd_View_From_Right();
    void doCmd_Shade_Normal();
    void doCmd_Shade_EDL();

    // Modal dataset dialogs; nothing happens while no scene is open.
    void doCmd_ShowWindow_DataSet_Create();
    void doCmd_ShowWindow_DataSet_Copy();
    void doCmd_ShowWindow_DataSet_Merge();
    void doCmd_ShowWindow_FileManage();
    void doCmd_ShowWindow_DataSet_Focuse();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void onInitialized() override;
    void onPainted() override;
    void onResized(int width, int height) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void showUnsupported();

    Scene* m_pScene = nullptr;
    PtCloudScene* m_pPtCloudScene = nullptr;
};
