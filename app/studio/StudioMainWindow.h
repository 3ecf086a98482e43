#pragma once

#include <QMainWindow>
#include <QString>

namespace osgHelper {
class OsgQWidget;
}

// The studio's main window: the 3D view in the middle and a status bar.
class StudioMainWindow : public QMainWindow {
    Q_OBJECT

public:
    // sourcePath: the LAS file or project folder named on the command line,
    // empty when none.
    explicit StudioMainWindow(const QString& sourcePath, QWidget* parent = nullptr);

    osgHelper::OsgQWidget* view() const;

    // Shows the window, waits until the view has drawn its first frames and
    // saves a picture of the whole window. False with a one-line reason.
    bool saveScreenshot(const QString& filePath, QString* error);

private:
    osgHelper::OsgQWidget* m_view;
};
