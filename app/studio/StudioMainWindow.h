#pragma once

#include <QMainWindow>
#include <QString>

#include "Scene.h"

class PtCloudWidget;
class QLabel;
class QTimer;

// The studio's main window: the point-cloud editor in the middle, menus that
// drive its commands, and a status bar with the shown dataset.
class StudioMainWindow : public QMainWindow {
    Q_OBJECT

public:
    explicit StudioMainWindow(QWidget* parent = nullptr);
    ~StudioMainWindow() override;

    PtCloudWidget* view() const { return m_view; }

    // A project folder is opened (created when empty); a LAS file opens the
    // project beside it (FILE.ptcloud) and, unless that project already has
    // a dataset named after the file, imports the file as one.
    bool openSource(const QString& path, QString* error);
    bool openProject(const QString& folder, QString* error);
    void closeProject();

    // Opens the Tools menu's panel of that name (as the action's object
    // name ends) for the shown dataset; false for an unknown name.
    bool openTool(const QString& name);

    // Shows the window, waits until the shown dataset has loaded what the
    // camera wants (or a timeout) and saves a picture of the whole window.
    bool saveScreenshot(const QString& filePath, QString* error);

private slots:
    void onNewProject();
    void onOpenProject();
    void onImportLas();
    void onCloseProject();
    // One level of undo of the shown dataset's last change of its points.
    void onUndo();
    void onProjectChanged();
    void updateStatus();

private:
    void buildMenus();
    bool importLasAsDataSet(const QString& lasPath, QString* error);
    bool loadingSettled() const;
    void reportError(const QString& what, const QString& error);

    Scene m_scene;
    PtCloudWidget* m_view;
    QLabel* m_statusDataSet;
    QLabel* m_statusPoints;
    QLabel* m_statusMessage;
    QTimer* m_statusTimer;
};
