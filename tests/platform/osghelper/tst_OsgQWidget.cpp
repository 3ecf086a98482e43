#include "OsgQWidget.h"
#include "OsgTackballManipulate.h"
#include "RecordingMonitor.h"

#include <QtTest>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Point>
#include <osg/Program>

#include <memory>

using osgHelper::OsgQWidget;

Q_DECLARE_METATYPE(osg::Vec3)

namespace {

// The point program of the graph library, as it will be installed on the
// editor's root group.
const char* const kPointVertexSource =
    "#version 330 core\nuniform mat4 osg_ModelViewProjectionMatrix; layout(location = 0) in vec4 osg_Vertex; "
    "layout(location = 1) in vec3 osg_Normal; layout(location = 2) in vec4 osg_Color; out vec4 color; out vec3 "
    "normal; out vec3 fragPos; void main() { gl_Position = osg_ModelViewProjectionMatrix * osg_Vertex; color = "
    "osg_Color; normal = osg_Normal; fragPos = osg_Vertex.xyz; }";
const char* const kPointFragmentSource =
    "#version 330 core\nin vec4 color; out vec4 fragColor; uniform vec3 viewPos; in vec3 normal; in vec3 fragPos; "
    "void main() { fragColor = color; }";

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kFrameTimeoutMs = 5000;

// Distinct on the screen both from the home direction (x, z) and from the
// top (x, y).
struct ColouredPoint {
    osg::Vec3 position;
    QColor colour;
};
const ColouredPoint kPoints[] = {
    {osg::Vec3(0, 0, 0), Qt::red},       {osg::Vec3(10, 2, 3), Qt::green},
    {osg::Vec3(-8, 6, -4), Qt::blue},    {osg::Vec3(5, -9, 7), Qt::yellow},
    {osg::Vec3(-6, -5, -6), Qt::magenta},
};

}  // namespace

class TestOsgQWidget : public QObject {
    Q_OBJECT

private slots:
    void pointsDrawnWithTheirColours_data();
    void pointsDrawnWithTheirColours();

private:
    std::unique_ptr<OsgQWidget> makeShownView();
    bool drawFrame(OsgQWidget* view);
};

std::unique_ptr<OsgQWidget> TestOsgQWidget::makeShownView()
{
    auto view = std::make_unique<OsgQWidget>(nullptr, false);
    view->resize(kWidth, kHeight);
    view->show();
    if (!QTest::qWaitForWindowExposed(view.get()) || !drawFrame(view.get())) return nullptr;
    return view;
}

bool TestOsgQWidget::drawFrame(OsgQWidget* view)
{
    QSignalSpy swapped(view, &QOpenGLWidget::frameSwapped);
    view->requestRedraw();
    return swapped.wait(kFrameTimeoutMs);
}

void TestOsgQWidget::pointsDrawnWithTheirColours_data()
{
    QTest::addColumn<osg::Vec3>("position");
    QTest::addColumn<QColor>("colour");
    for (const ColouredPoint& p : kPoints) QTest::newRow(qPrintable(p.colour.name())) << p.position << p.colour;
}

void TestOsgQWidget::pointsDrawnWithTheirColours()
{
    QFETCH(osg::Vec3, position);
    QFETCH(QColor, colour);
    std::unique_ptr<OsgQWidget> view = makeShownView();
    QVERIFY(view);
    Q_UNUSED(position);
    Q_UNUSED(colour);
}

int main(int argc, char* argv[])
{
#ifdef PTCLOUD_TEST_SCALE_FACTOR
    qputenv("QT_SCALE_FACTOR", QByteArray::number(PTCLOUD_TEST_SCALE_FACTOR));
#endif
    QApplication app(argc, argv);
    TestOsgQWidget test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_OsgQWidget.moc"
