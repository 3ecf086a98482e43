// Embeds the editor widget and exits once it has drawn a frame; fails when
// no frame comes.
#include <PtCloudWidget.h>

#include <QApplication>
#include <QTimer>

#include <cstdio>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    PtCloudWidget widget;
    widget.resize(400, 300);
    int frames = 0;
    QObject::connect(&widget, &QOpenGLWidget::frameSwapped, &app, [&frames] {
        if (++frames == 1) QTimer::singleShot(0, qApp, &QApplication::quit);
    });
    QTimer::singleShot(20000, &app, [] { QApplication::exit(1); });
    widget.show();
    const int code = app.exec();
    std::printf("%d frame(s)\n", frames);
    return frames > 0 ? code : 1;
}
