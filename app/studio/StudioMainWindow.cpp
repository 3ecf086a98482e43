#include "StudioMainWindow.h"

#include "OsgQWidget.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QImage>
#include <QImageWriter>
#include <QPixmap>
#include <QStatusBar>
#include <QTimer>

namespace {
// Frames to wait for before a screenshot: the first one may still show the
// view before its first layout on some platforms.
constexpr int kScreenshotFrames = 2;
constexpr int kScreenshotTimeoutMs = 10000;
}  // namespace

StudioMainWindow::StudioMainWindow(const QString& sourcePath, QWidget* parent)
    : QMainWindow(parent), m_view(new osgHelper::OsgQWidget(this, true))
{
    setCentralWidget(m_view);
    resize(1280, 800);
    if (sourcePath.isEmpty()) {
        setWindowTitle(tr("PtCloud Studio"));
        statusBar()->showMessage(tr("No project open"));
    } else {
        const QString shown = QDir::toNativeSeparators(QFileInfo(sourcePath).absoluteFilePath());
        setWindowTitle(tr("PtCloud Studio - %1").arg(shown));
        statusBar()->showMessage(tr("Opening files is not available yet: %1").arg(shown));
    }
}

osgHelper::OsgQWidget* StudioMainWindow::view() const { return m_view; }

bool StudioMainWindow::saveScreenshot(const QString& filePath, QString* error)
{
    int frames = 0;
    QEventLoop loop;
    const QMetaObject::Connection counted = connect(m_view, &QOpenGLWidget::frameSwapped, &loop, [&] {
        if (++frames >= kScreenshotFrames)
            loop.quit();
        else
            m_view->requestRedraw();
    });
    QTimer::singleShot(kScreenshotTimeoutMs, &loop, &QEventLoop::quit);
    show();
    m_view->requestRedraw();
    loop.exec();
    disconnect(counted);
    if (frames < kScreenshotFrames) {
        if (error) *error = tr("the 3D view drew no frame within %1 s").arg(kScreenshotTimeoutMs / 1000);
        return false;
    }
    // QWidget::grab reads the view's framebuffer for its part of the window.
    const QImage image = grab().toImage();
    QImageWriter writer(filePath);
    if (!writer.write(image)) {
        if (error) *error = tr("cannot write %1: %2").arg(filePath, writer.errorString());
        return false;
    }
    return true;
}
