#include "EventRecorder.h"
#include "OsgQWidget.h"
#include "OsgTackballManipulate.h"
#include "RecordingMonitor.h"

#include <QtTest>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Point>
#include <osg/Program>

#include <cmath>
#include <memory>

using osgHelper::OsgQWidget;

Q_DECLARE_METATYPE(Qt::MouseButton)
Q_DECLARE_METATYPE(osg::Vec3d)

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
// Long enough for a frame that was asked for to be drawn.
constexpr int kSettleMs = 150;

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
// One point on each half axis, around the origin.
const ColouredPoint kAxisPoints[] = {
    {osg::Vec3(10, 0, 0), Qt::red},     {osg::Vec3(-10, 0, 0), Qt::cyan},  {osg::Vec3(0, 10, 0), Qt::green},
    {osg::Vec3(0, -10, 0), Qt::magenta}, {osg::Vec3(0, 0, 10), Qt::blue},   {osg::Vec3(0, 0, -10), Qt::yellow},
};

// Where the view's camera puts a point, in the pixels of an image of the
// framebuffer (rows counted from the top).
QPoint pixelOf(OsgQWidget* view, const osg::Vec3& position, int imageHeight)
{
    const osg::Camera* camera = view->getViewer()->getCamera();
    const osg::Matrixd toWindow =
        camera->getViewMatrix() * camera->getProjectionMatrix() * camera->getViewport()->computeWindowMatrix();
    const osg::Vec3d window = osg::Vec3d(position) * toWindow;
    return QPoint(int(std::floor(window.x())), imageHeight - 1 - int(std::floor(window.y())));
}

bool sameColour(const QColor& a, const QColor& b)
{
    return std::abs(a.red() - b.red()) <= 2 && std::abs(a.green() - b.green()) <= 2 &&
           std::abs(a.blue() - b.blue()) <= 2;
}

template <size_t N> std::vector<ColouredPoint> pointsOf(const ColouredPoint (&points)[N])
{
    return std::vector<ColouredPoint>(points, points + N);
}

// Centre of the pixels of the colour, in logical pixels with y counted from
// the bottom; false when there is none.
bool findColour(const QImage& image, const QColor& colour, double pixelScale, QPointF* centre)
{
    double sx = 0.0, sy = 0.0;
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (sameColour(image.pixelColor(x, y), colour)) {
                sx += x + 0.5;
                sy += image.height() - y - 0.5;
                ++n;
            }
    if (n == 0) return false;
    *centre = QPointF(sx / n, sy / n) / pixelScale;
    return true;
}

osg::ref_ptr<osg::Geode> makePoints(const std::vector<ColouredPoint>& points, double pixelScale)
{
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array;
    for (const ColouredPoint& p : points) {
        vertices->push_back(p.position);
        colours->push_back(osg::Vec4(p.colour.redF(), p.colour.greenF(), p.colour.blueF(), 1.0f));
    }
    // No normals: the program declares them but must draw without.
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->setColorArray(colours, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, GLsizei(vertices->size())));
    geometry->getOrCreateStateSet()->setAttributeAndModes(new osg::Point(float(16.0 * pixelScale)));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

void installPointProgram(osg::Group* root)
{
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, kPointVertexSource));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, kPointFragmentSource));
    root->getOrCreateStateSet()->setAttributeAndModes(program, osg::StateAttribute::ON);
}

osg::Vec3d lookDirection(const osg::Camera* camera, osg::Vec3d* up)
{
    osg::Vec3d eye, centre;
    camera->getViewMatrixAsLookAt(eye, centre, *up);
    osg::Vec3d look = centre - eye;
    look.normalize();
    up->normalize();
    return look;
}

bool near(const osg::Vec3d& a, const osg::Vec3d& b) { return (a - b).length() < 1e-6; }

void sendMouse(QWidget* widget, QEvent::Type type, const QPoint& at, Qt::MouseButton button)
{
    const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
    QMouseEvent event(type, at, type == QEvent::MouseMove ? Qt::NoButton : button, held, Qt::NoModifier);
    QApplication::sendEvent(widget, &event);
}

}  // namespace

class TestOsgQWidget : public QObject {
    Q_OBJECT

private slots:
    void pointsDrawnWithTheirColours_data();
    void pointsDrawnWithTheirColours();
    void sizesAndMouseInDevicePixels();
    void dragMovesCameraOncePerChange_data();
    void dragMovesCameraOncePerChange();
    void throwKeepsDrawingUntilClicked();
    void drawsOnlyOnDemand();
    void wheelForwardZoomsIn();
    void topViewThenSpaceGoesHome();
    void textAndCoordinationItems();
    void standardViewsPlaceAxesInArea_data();
    void standardViewsPlaceAxesInArea();

private:
    // A view of kWidth x kHeight showing the coloured points (kPoints by
    // default) through the point program, with one frame drawn.
    std::unique_ptr<OsgQWidget> makeShownView(const std::vector<ColouredPoint>& points = pointsOf(kPoints));
    bool drawFrame(OsgQWidget* view);
};

std::unique_ptr<OsgQWidget> TestOsgQWidget::makeShownView(const std::vector<ColouredPoint>& points)
{
    auto view = std::make_unique<OsgQWidget>(nullptr, false);
    view->getViewer()->getCamera()->setClearColor(osg::Vec4(0, 0, 0, 1));
    installPointProgram(view->getRoot());
    view->getRoot()->addChild(makePoints(points, view->getPixelScale()));
    view->resize(kWidth, kHeight);
    view->show();
    if (!QTest::qWaitForWindowExposed(view.get())) return nullptr;
    view->viewHome();
    if (!drawFrame(view.get())) return nullptr;
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
    QTest::addColumn<bool>("fromTop");
    QTest::newRow("home") << false;
    QTest::newRow("top") << true;
}

void TestOsgQWidget::pointsDrawnWithTheirColours()
{
    QFETCH(bool, fromTop);
    std::unique_ptr<OsgQWidget> view = makeShownView();
    QVERIFY(view);
    if (fromTop) view->EnterTopViewManipulate();
    QVERIFY(drawFrame(view.get()));

    const QImage image = view->grabFramebuffer();
    for (const ColouredPoint& p : kPoints) {
        const QPoint pixel = pixelOf(view.get(), p.position, image.height());
        const QString what = QStringLiteral("%1 drawn as %2 at (%3, %4)")
                                 .arg(p.colour.name(), image.pixelColor(pixel).name())
                                 .arg(pixel.x())
                                 .arg(pixel.y());
        QVERIFY2(image.rect().contains(pixel), qPrintable(what));
        QVERIFY2(sameColour(image.pixelColor(pixel), p.colour), qPrintable(what));
    }
    // The corner shows the background.
    QVERIFY(sameColour(image.pixelColor(2, 2), Qt::black));
}

void TestOsgQWidget::sizesAndMouseInDevicePixels()
{
    std::unique_ptr<OsgQWidget> view = makeShownView();
    QVERIFY(view);
    const double scale = view->getPixelScale();
    QCOMPARE(scale, view->devicePixelRatioF());
#ifdef PTCLOUD_TEST_SCALE_FACTOR
    QCOMPARE(scale, double(PTCLOUD_TEST_SCALE_FACTOR));
#endif
    const osg::Viewport* viewport = view->getViewer()->getCamera()->getViewport();
    QCOMPARE(int(viewport->width()), qRound(view->width() * scale));
    QCOMPARE(int(viewport->height()), qRound(view->height() * scale));
    QCOMPARE(view->grabFramebuffer().size(), QSize(int(viewport->width()), int(viewport->height())));

    osg::ref_ptr<EventRecorder> recorder = new EventRecorder;
    view->getViewer()->addEventHandler(recorder);
    const QPoint quarter(kWidth / 4, kHeight / 4);
    QTest::mousePress(view->windowHandle(), Qt::MiddleButton, Qt::NoModifier, quarter);
    QVERIFY(drawFrame(view.get()));
    QTest::mouseRelease(view->windowHandle(), Qt::MiddleButton, Qt::NoModifier, quarter);
    QVERIFY(drawFrame(view.get()));

    QCOMPARE(int(recorder->presses.size()), 1);
    const EventRecorder::Press& press = recorder->presses.front();
    // Handlers see device pixels with y counted up from the bottom row.
    QCOMPARE(double(press.x), quarter.x() * scale);
    QCOMPARE(double(press.y), qRound(kHeight * scale) - 1 - quarter.y() * scale);
    // A quarter from the left and from the top: half way to the left and
    // top edges in OSG's normalised frame.
    QVERIFY(std::fabs(press.xNormalised + 0.5f) < 0.01f);
    QVERIFY(std::fabs(press.yNormalised - 0.5f) < 0.01f);
    QCOMPARE(press.button, int(osgGA::GUIEventAdapter::MIDDLE_MOUSE_BUTTON));
}

void TestOsgQWidget::dragMovesCameraOncePerChange_data()
{
    QTest::addColumn<Qt::MouseButton>("button");
    QTest::newRow("left: rotate") << Qt::LeftButton;
    QTest::newRow("middle: pan") << Qt::MiddleButton;
    QTest::newRow("right: zoom") << Qt::RightButton;
}

void TestOsgQWidget::dragMovesCameraOncePerChange()
{
    QFETCH(Qt::MouseButton, button);
    std::unique_ptr<OsgQWidget> view = makeShownView();
    QVERIFY(view);
    osgHelper::OsgTackballManipulate* manipulator = view->getManipulate();
    RecordingMonitor first(manipulator), second(manipulator), removed(manipulator);
    manipulator->addMonitor(&first);
    manipulator->addMonitor(&removed);
    manipulator->addMonitor(&second);
    manipulator->removeMonitor(&removed);
    const osg::Matrixd start = manipulator->getInverseMatrix();

    QWindow* window = view->windowHandle();
    QPoint at(kWidth / 2, kHeight / 2);
    QTest::mousePress(window, button, Qt::NoModifier, at);
    QVERIFY(drawFrame(view.get()));
    const int moves = 4;
    for (int i = 0; i < moves; ++i) {
        at += QPoint(15, 10);
        QTest::mouseMove(window, at);
        QVERIFY(drawFrame(view.get()));
    }
    // A pause before the release, so that the camera is not thrown.
    QTest::qWait(kSettleMs);
    QTest::mouseRelease(window, button, Qt::NoModifier, at);
    QVERIFY(drawFrame(view.get()));
    QTest::qWait(kSettleMs);

    QCOMPARE(int(first.views.size()), moves);
    QCOMPARE(int(second.views.size()), moves);
    QCOMPARE(int(removed.views.size()), 0);
    QVERIFY(first.views.front() != start);
    for (int i = 1; i < moves; ++i) QVERIFY(first.views[i] != first.views[i - 1]);
    QCOMPARE(first.views.back(), manipulator->getInverseMatrix());
    // The frame on the screen shows the final camera.
    QCOMPARE(view->getViewer()->getCamera()->getViewMatrix(), manipulator->getInverseMatrix());
    manipulator->removeMonitor(&first);
    manipulator->removeMonitor(&second);
}

void TestOsgQWidget::throwKeepsDrawingUntilClicked()
{
    std::unique_ptr<OsgQWidget> view = makeShownView();
    QVERIFY(view);
    RecordingMonitor monitor(view->getManipulate());
    view->getManipulate()->addMonitor(&monitor);

    // A quick flick: the events reach the view together, without a frame
    // between them, and the button comes up while the mouse still moves.
    QPoint at(kWidth / 3, kHeight / 2);
    sendMouse(view.get(), QEvent::MouseButtonPress, at, Qt::LeftButton);
    for (int i = 0; i < 3; ++i) {
        QThread::msleep(5);
        at += QPoint(12, 2);
        sendMouse(view.get(), QEvent::MouseMove, at, Qt::LeftButton);
    }
    sendMouse(view.get(), QEvent::MouseButtonRelease, at, Qt::LeftButton);

    QSignalSpy frames(view.get(), &QOpenGLWidget::frameSwapped);
    QTest::qWait(500);
    QVERIFY2(frames.count() >= 3, qPrintable(QString::number(frames.count())));
    const size_t changes = monitor.views.size();
    QVERIFY(changes >= size_t(frames.count()));

    // A click catches the camera; then the view rests.
    sendMouse(view.get(), QEvent::MouseButtonPress, at, Qt::LeftButton);
    sendMouse(view.get(), QEvent::MouseButtonRelease, at, Qt::LeftButton);
    QVERIFY(drawFrame(view.get()));
    QTest::qWait(kSettleMs);
    frames.clear();
    const size_t caught = monitor.views.size();
    QTest::qWait(300);
    QCOMPARE(frames.count(), 0);
    QCOMPARE(monitor.views.size(), caught);
    view->getManipulate()->removeMonitor(&monitor);
}

void TestOsgQWidget::drawsOnlyOnDemand()
{
    std::unique_ptr<OsgQWidget> view = makeShownView();
    QVERIFY(view);
    QTest::qWait(kSettleMs);
    QSignalSpy frames(view.get(), &QOpenGLWidget::frameSwapped);
    QTest::qWait(300);
    QCOMPARE(frames.count(), 0);

    view->requestRedraw();
    QVERIFY(frames.wait(kFrameTimeoutMs));
    QTest::qWait(kSettleMs);
    QCOMPARE(frames.count(), 1);
}

void TestOsgQWidget::wheelForwardZoomsIn()
{
    std::unique_ptr<OsgQWidget> view = makeShownView();
    QVERIFY(view);
    const double before = view->getManipulate()->getDistance();
    const QPoint at(kWidth / 2, kHeight / 2);
    QWheelEvent wheel(at, view->mapToGlobal(at), QPoint(), QPoint(0, 120), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(view.get(), &wheel);
    QVERIFY(drawFrame(view.get()));
    QVERIFY2(view->getManipulate()->getDistance() < before,
             qPrintable(QStringLiteral("%1 -> %2").arg(before).arg(view->getManipulate()->getDistance())));
}

void TestOsgQWidget::topViewThenSpaceGoesHome()
{
    std::unique_ptr<OsgQWidget> view = makeShownView();
    QVERIFY(view);
    const osg::Matrixd home = view->getManipulate()->getInverseMatrix();
    view->EnterTopViewManipulate();
    QVERIFY(drawFrame(view.get()));
    osg::Vec3d up;
    const osg::Vec3d look = lookDirection(view->getViewer()->getCamera(), &up);
    QVERIFY(near(look, osg::Vec3d(0, 0, -1)));
    QVERIFY(near(up, osg::Vec3d(0, 1, 0)));
    QTest::keyClick(view.get(), Qt::Key_Space);
    QVERIFY(drawFrame(view.get()));
    QCOMPARE(view->getManipulate()->getInverseMatrix(), home);
}

void TestOsgQWidget::textAndCoordinationItems()
{
    OsgQWidget view(nullptr, false);
    osg::Group* root = view.getRoot();
    const unsigned int own = root->getNumChildren();
    osg::ref_ptr<osg::Node> scene = new osg::Node, label = new osg::Node, axis = new osg::Node;
    root->addChild(scene);
    view.addTextItem(label);
    view.addCoordinationItem(axis);
    // Both under the root, each in a group of its own.
    QCOMPARE(label->getParent(0)->getParent(0), root);
    QCOMPARE(axis->getParent(0)->getParent(0), root);
    QVERIFY(label->getParent(0) != axis->getParent(0));

    view.clearTextItem();
    QCOMPARE(label->getNumParents(), 0u);
    QCOMPARE(axis->getNumParents(), 1u);
    view.clearCoordinationItem();
    QCOMPARE(axis->getNumParents(), 0u);
    QVERIFY(root->containsNode(scene));
    QCOMPARE(root->getNumChildren(), own + 1);
}

void TestOsgQWidget::standardViewsPlaceAxesInArea_data()
{
    using M = osgHelper::OsgTackballManipulate;
    QTest::addColumn<int>("view");
    QTest::addColumn<bool>("orthographic");
    QTest::addColumn<QRect>("area");
    // The world directions that point right and up on the screen.
    QTest::addColumn<osg::Vec3d>("right");
    QTest::addColumn<osg::Vec3d>("up");

    const struct {
        const char* name;
        M::EStandardView view;
        osg::Vec3d right, up;
    } views[] = {
        {"top", M::View_Top, {1, 0, 0}, {0, 1, 0}},
        {"front", M::View_Front, {1, 0, 0}, {0, 0, 1}},
        {"back", M::View_Back, {-1, 0, 0}, {0, 0, 1}},
        {"left", M::View_Left, {0, -1, 0}, {0, 0, 1}},
        {"right", M::View_Right, {0, 1, 0}, {0, 0, 1}},
        {"isometric", M::View_Isometric, osg::Vec3d(1, -1, 0) / std::sqrt(2.0), osg::Vec3d(1, 1, 2) / std::sqrt(6.0)},
    };
    // A panel over the left part and the top of the view.
    const QRect besidePanel(kWidth * 2 / 5, 20, kWidth - kWidth * 2 / 5, kHeight - 20);
    for (const auto& v : views) {
        QTest::newRow(qPrintable(QStringLiteral("%1, perspective, whole view").arg(v.name)))
            << int(v.view) << false << QRect() << v.right << v.up;
        QTest::newRow(qPrintable(QStringLiteral("%1, orthographic, beside a panel").arg(v.name)))
            << int(v.view) << true << besidePanel << v.right << v.up;
    }
}

void TestOsgQWidget::standardViewsPlaceAxesInArea()
{
    QFETCH(int, view);
    QFETCH(bool, orthographic);
    QFETCH(QRect, area);
    QFETCH(osg::Vec3d, right);
    QFETCH(osg::Vec3d, up);
    std::unique_ptr<OsgQWidget> widget = makeShownView(pointsOf(kAxisPoints));
    QVERIFY(widget);
    widget->setOrthographic(orthographic);
    // The sphere through the six points.
    widget->setHomeBound(osg::BoundingSphere(osg::Vec3d(), 10.0));
    widget->fitView(osgHelper::OsgTackballManipulate::standardRotation(
                        osgHelper::OsgTackballManipulate::EStandardView(view)),
                    area);
    QVERIFY(drawFrame(widget.get()));

    const QRect part = area.isEmpty() ? widget->rect() : area;
    // The origin shows at the part's centre (y up from the bottom).
    const QPointF centre(part.left() + part.width() / 2.0, kHeight - part.top() - part.height() / 2.0);
    const QImage image = widget->grabFramebuffer();
    double reach = 0.0;
    for (const ColouredPoint& p : kAxisPoints) {
        const osg::Vec2d expected(osg::Vec3d(p.position) * right, osg::Vec3d(p.position) * up);
        QPointF found;
        const bool shown = findColour(image, p.colour, widget->getPixelScale(), &found);
        const QPointF offset = found - centre;
        const QString what = QStringLiteral("%1 expected towards (%2, %3), found %4 at offset (%5, %6)")
                                 .arg(p.colour.name())
                                 .arg(expected.x())
                                 .arg(expected.y())
                                 .arg(shown)
                                 .arg(offset.x())
                                 .arg(offset.y());
        if (expected.length() < 1e-9) {
            // Along the line of sight: hidden behind its opposite or at the centre.
            QVERIFY2(!shown || std::hypot(offset.x(), offset.y()) < 3.0, qPrintable(what));
            continue;
        }
        QVERIFY2(shown, qPrintable(what));
        const double cosine = (offset.x() * expected.x() + offset.y() * expected.y()) /
                              (std::hypot(offset.x(), offset.y()) * expected.length());
        QVERIFY2(cosine > std::cos(osg::DegreesToRadians(5.0)), qPrintable(what));
        const QPoint pixel(int(found.x()), kHeight - 1 - int(found.y()));
        QVERIFY2(part.contains(pixel), qPrintable(what));
        reach = std::max(reach, std::hypot(offset.x(), offset.y()));
    }
    // The cloud fills the part: its outermost points reach well towards
    // the part's nearer edge.
    const double halfSide = std::min(part.width(), part.height()) / 2.0;
    QVERIFY2(reach > 0.5 * halfSide, qPrintable(QStringLiteral("%1 of %2").arg(reach).arg(halfSide)));
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
