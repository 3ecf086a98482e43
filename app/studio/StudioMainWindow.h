#pragma once

#include <QMainWindow>
#include <QString>

#include "Scene.h"

class PtCloudWidget;
class QLabel;
class QTimer;
class StudioViewControls;

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
    // a dataset named after the file, imports the file as one. On failure
    // the project open before is open again and no folder made for the file
    // is left behind.
    bool openSource(const QString& path, QString* error);
    bool openProject(const QString& folder, QString* error);
    void closeProject();

    // Opens the Tools menu's panel of that name (as the action's object
    // name ends) for the shown dataset; false for an unknown name.
    bool openTool(const QString& name);

    // Shows the window, waits until the shown dataset has loaded what the
    // camera wants (or a timeout) and saves a picture of the whole window.
    bool saveScreenshot(const QString& filePath, QString* error);

    // A message box with what failed and why, and the first in the status bar.
    void reportError(const QString& what, const QString& error);

protected:
    // A LAS file or project folder dropped on the window opens as from the
    // File menu.
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

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
    // Into the open project when there is one, else as openSource; a
    // failure is reported.
    void openOrImport(const QString& path);
    // The user setting that remembers the dataset shown last in the folder.
    static QString lastShownKey(const QString& folder);
    // Empty when no project is open.
    QString projectFolder();
    // Opens the folder again after a failed switch; empty: none.
    void reopen(const QString& previous);

    Scene m_scene;
    PtCloudWidget* m_view;
    QLabel* m_statusDataSet;
    QLabel* m_statusPoints;
    QLabel* m_statusMessage;
    QLabel* m_statusCursor;
    QTimer* m_statusTimer;
    StudioViewControls* m_viewControls;
};
