#include "OsgTackballManipulate.h"
#include "RecordingMonitor.h"

#include <QtTest>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/MatrixTransform>
#include <osgGA/EventQueue>
#include <osgViewer/View>

#include <cmath>
#include <map>

using osgHelper::OsgTackballManipulate;

Q_DECLARE_METATYPE(osg::Vec3d)
Q_DECLARE_METATYPE(osg::Quat)

namespace {

bool near(const osg::Vec3d& a, const osg::Vec3d& b, double tolerance = 1e-9)
{
    return (a - b).length() <= tolerance * (1.0 + b.length());
}

QByteArray text(const osg::Vec3d& v)
{
    return QStringLiteral("(%1, %2, %3)").arg(v.x(), 0, 'g', 12).arg(v.y(), 0, 'g', 12).arg(v.z(), 0, 'g', 12).toUtf8();
}

// A node whose bound is centred on centre: two points either side of it.
osg::ref_ptr<osg::Geode> pointPair(const osg::Vec3& centre)
{
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->push_back(centre - osg::Vec3(1, 0, 0));
    vertices->push_back(centre + osg::Vec3(1, 0, 0));
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 2));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

void moveBy(osg::Geode* geode, const osg::Vec3& offset)
{
    osg::Geometry* geometry = geode->getDrawable(0)->asGeometry();
    auto* vertices = static_cast<osg::Vec3Array*>(geometry->getVertexArray());
    for (osg::Vec3& v : *vertices) v += offset;
    vertices->dirty();
    geometry->dirtyBound();
    geode->dirtyBound();
}

osg::ref_ptr<osgGA::GUIEventAdapter> frameEvent(double time)
{
    osg::ref_ptr<osgGA::GUIEventAdapter> event = new osgGA::GUIEventAdapter;
    event->setEventType(osgGA::GUIEventAdapter::FRAME);
    event->setTime(time);
    return event;
}

osg::Vec3d lookDirection(const OsgTackballManipulate* m, osg::Vec3d* up)
{
    osg::Vec3d eye, centre;
    m->getInverseMatrix().getLookAt(eye, centre, *up);
    osg::Vec3d look = centre - eye;
    look.normalize();
    up->normalize();
    return look;
}

enum Change { SetTransformation, SetCenter, SetDistance, SetRotation, Home, SameCenter };

}  // namespace

class TestOsgTackballManipulate : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void notifiesOncePerChange_data();
    void notifiesOncePerChange();
    void removedMonitorIsNeverCalled();
    void removalDuringCallback_data();
    void removalDuringCallback();
    void monitorMovingTheCamera();
    void dragThroughEvents_data();
    void dragThroughEvents();
    void trackNode_data();
    void trackNode();
    void deletedTrackNode();
    void homePosition_data();
    void homePosition();
    void enterView_data();
    void enterView();

private:
    osg::ref_ptr<OsgTackballManipulate> m_manipulator;
    osg::ref_ptr<osgViewer::View> m_view;  // stands in for the viewer as the action adapter
};

void TestOsgTackballManipulate::init()
{
    m_manipulator = new OsgTackballManipulate;
    m_manipulator->setTransformation(osg::Vec3d(0, -100, 0), osg::Vec3d(), osg::Vec3d(0, 0, 1));
    m_view = new osgViewer::View;
}

// The monitors of a test live on its stack: the manipulator that knows them
// goes with them.
void TestOsgTackballManipulate::cleanup() { m_manipulator = nullptr; }

void TestOsgTackballManipulate::notifiesOncePerChange_data()
{
    QTest::addColumn<int>("change");
    QTest::addColumn<int>("calls");
    QTest::newRow("eye, centre and up") << int(SetTransformation) << 1;
    QTest::newRow("centre") << int(SetCenter) << 1;
    QTest::newRow("distance") << int(SetDistance) << 1;
    QTest::newRow("rotation") << int(SetRotation) << 1;
    QTest::newRow("home") << int(Home) << 1;
    QTest::newRow("the same centre again") << int(SameCenter) << 0;
}

void TestOsgTackballManipulate::notifiesOncePerChange()
{
    QFETCH(int, change);
    QFETCH(int, calls);
    RecordingMonitor a(m_manipulator.get()), b(m_manipulator.get());
    m_manipulator->addMonitor(&a);
    m_manipulator->addMonitor(&b);
    // The first check reports the view the monitors have never seen.
    m_manipulator->notifyIfCameraChanged();
    QCOMPARE(int(a.views.size()), 1);

    switch (Change(change)) {
    case SetTransformation:
        m_manipulator->setTransformation(osg::Vec3d(5, 5, 50), osg::Vec3d(5, 5, 0), osg::Vec3d(0, 1, 0));
        break;
    case SetCenter: m_manipulator->setCenter(osg::Vec3d(1, 2, 3)); break;
    case SetDistance: m_manipulator->setDistance(m_manipulator->getDistance() * 2.0); break;
    case SetRotation: m_manipulator->setRotation(osg::Quat(0.3, osg::Z_AXIS)); break;
    case Home: m_manipulator->home(0.0); break;
    case SameCenter: m_manipulator->setCenter(m_manipulator->getCenter()); break;
    }
    m_manipulator->notifyIfCameraChanged();
    m_manipulator->notifyIfCameraChanged();
    QCOMPARE(int(a.views.size()), 1 + calls);
    QCOMPARE(int(b.views.size()), 1 + calls);
    QCOMPARE(a.views.back(), m_manipulator->getInverseMatrix());
}

void TestOsgTackballManipulate::removedMonitorIsNeverCalled()
{
    RecordingMonitor removed(m_manipulator.get()), twice(m_manipulator.get());
    m_manipulator->addMonitor(&removed);
    m_manipulator->addMonitor(&twice);
    m_manipulator->addMonitor(&twice);
    m_manipulator->removeMonitor(&removed);
    for (int i = 1; i <= 3; ++i) {
        m_manipulator->setDistance(100.0 + i);
        m_manipulator->notifyIfCameraChanged();
    }
    QCOMPARE(int(removed.views.size()), 0);
    QCOMPARE(int(twice.views.size()), 3);
}

void TestOsgTackballManipulate::removalDuringCallback_data()
{
    QTest::addColumn<QString>("order");
    QTest::addColumn<QChar>("removed");
    QTest::addColumn<QString>("calls");  // per monitor D, E, F after two changes

    QTest::newRow("D removes itself") << "DEF" << QChar('D') << "122";
    QTest::newRow("D removes E, told after it") << "DEF" << QChar('E') << "202";
    QTest::newRow("D removes E, told before it") << "EDF" << QChar('E') << "212";
}

void TestOsgTackballManipulate::removalDuringCallback()
{
    QFETCH(QString, order);
    QFETCH(QChar, removed);
    QFETCH(QString, calls);
    std::map<QChar, RecordingMonitor> monitors;
    for (QChar name : QStringLiteral("DEF")) monitors.emplace(name, m_manipulator.get());
    monitors.at('D').action = [&] { m_manipulator->removeMonitor(&monitors.at(removed)); };
    for (QChar name : order) m_manipulator->addMonitor(&monitors.at(name));

    m_manipulator->notifyIfCameraChanged();
    m_manipulator->setDistance(250.0);
    m_manipulator->notifyIfCameraChanged();

    QString actual;
    for (QChar name : QStringLiteral("DEF")) actual += QString::number(monitors.at(name).views.size());
    QCOMPARE(actual, calls);
}

void TestOsgTackballManipulate::monitorMovingTheCamera()
{
    RecordingMonitor mover(m_manipulator.get()), other(m_manipulator.get());
    mover.action = [&] {
        if (mover.views.size() == 1) m_manipulator->setDistance(m_manipulator->getDistance() * 2.0);
    };
    m_manipulator->addMonitor(&mover);
    m_manipulator->addMonitor(&other);
    const osg::Matrixd before = m_manipulator->getInverseMatrix();
    m_manipulator->notifyIfCameraChanged();
    const osg::Matrixd after = m_manipulator->getInverseMatrix();
    QVERIFY(before != after);

    // The mover hears of both views; the other only of the one that stands.
    QCOMPARE(int(mover.views.size()), 2);
    QCOMPARE(mover.views[0], before);
    QCOMPARE(mover.views[1], after);
    QCOMPARE(int(other.views.size()), 1);
    QCOMPARE(other.views[0], after);
}

void TestOsgTackballManipulate::dragThroughEvents_data()
{
    QTest::addColumn<int>("button");
    QTest::newRow("left: rotate") << 1;
    QTest::newRow("middle: pan") << 2;
    QTest::newRow("right: zoom") << 3;
}

void TestOsgTackballManipulate::dragThroughEvents()
{
    QFETCH(int, button);
    RecordingMonitor monitor(m_manipulator.get());
    m_manipulator->addMonitor(&monitor);
    m_manipulator->notifyIfCameraChanged();
    const osg::Matrixd start = m_manipulator->getInverseMatrix();

    osg::ref_ptr<osgGA::EventQueue> queue = new osgGA::EventQueue;
    queue->windowResize(0, 0, 400, 300, 0.0);
    const int moves = 4;
    queue->mouseButtonPress(200, 150, button, 0.1);
    for (int i = 1; i <= moves; ++i) queue->mouseMotion(200 + 15 * i, 150 + 10 * i, 0.1 + 0.05 * i);
    // Released well after the last move: no throw.
    queue->mouseButtonRelease(200 + 15 * moves, 150 + 10 * moves, button, 1.0);
    osgGA::EventQueue::Events events;
    queue->takeEvents(events);
    for (const osg::ref_ptr<osgGA::Event>& event : events)
        m_manipulator->handle(*event->asGUIEventAdapter(), *m_view);
    m_manipulator->handle(*frameEvent(2.0), *m_view);

    QCOMPARE(int(monitor.views.size()), 1 + moves);
    for (int i = 1; i <= moves; ++i) QVERIFY(monitor.views[i] != monitor.views[i - 1]);
    QVERIFY(monitor.views.back() != start);
    QCOMPARE(monitor.views.back(), m_manipulator->getInverseMatrix());
}

void TestOsgTackballManipulate::trackNode_data()
{
    QTest::addColumn<int>("parents");  // 0: none, 1: a group, 2: a translation
    QTest::addColumn<osg::Vec3d>("worldCentre");
    QTest::newRow("no parent") << 0 << osg::Vec3d(100, 50, 10);
    QTest::newRow("in a group") << 1 << osg::Vec3d(100, 50, 10);
    QTest::newRow("under a translation") << 2 << osg::Vec3d(1100, 30, 15);
}

void TestOsgTackballManipulate::trackNode()
{
    QFETCH(int, parents);
    QFETCH(osg::Vec3d, worldCentre);
    osg::ref_ptr<osg::Geode> node = pointPair(osg::Vec3(100, 50, 10));
    osg::ref_ptr<osg::Group> parent;
    if (parents == 1) parent = new osg::Group;
    if (parents == 2) parent = new osg::MatrixTransform(osg::Matrixd::translate(1000, -20, 5));
    if (parent) parent->addChild(node);

    RecordingMonitor monitor(m_manipulator.get());
    m_manipulator->addMonitor(&monitor);
    m_manipulator->notifyIfCameraChanged();
    const osg::Quat rotation = m_manipulator->getRotation();
    const double distance = m_manipulator->getDistance();

    m_manipulator->setTrackNode(node);
    QVERIFY2(near(m_manipulator->getCenter(), worldCentre), text(m_manipulator->getCenter()));
    QCOMPARE(m_manipulator->getRotation(), rotation);
    QCOMPARE(m_manipulator->getDistance(), distance);
    QCOMPARE(int(monitor.views.size()), 2);

    // The view follows the node as it moves.
    moveBy(node, osg::Vec3(0, 0, 7));
    m_manipulator->handle(*frameEvent(1.0), *m_view);
    QVERIFY2(near(m_manipulator->getCenter(), worldCentre + osg::Vec3d(0, 0, 7)), text(m_manipulator->getCenter()));
    QCOMPARE(int(monitor.views.size()), 3);

    // Untracked, the view stays where it is and no longer follows.
    m_manipulator->setTrackNode(nullptr);
    moveBy(node, osg::Vec3(0, 0, 7));
    m_manipulator->handle(*frameEvent(2.0), *m_view);
    QVERIFY2(near(m_manipulator->getCenter(), worldCentre + osg::Vec3d(0, 0, 7)), text(m_manipulator->getCenter()));
    QCOMPARE(int(monitor.views.size()), 3);
}

void TestOsgTackballManipulate::deletedTrackNode()
{
    osg::ref_ptr<osg::Geode> node = pointPair(osg::Vec3(-40, 0, 0));
    m_manipulator->setTrackNode(node);
    const osg::Vec3d centre = m_manipulator->getCenter();
    node = nullptr;
    QCOMPARE(m_manipulator->getTrackNode(), static_cast<osg::Node*>(nullptr));
    m_manipulator->handle(*frameEvent(1.0), *m_view);
    QCOMPARE(m_manipulator->getCenter(), centre);
}

void TestOsgTackballManipulate::homePosition_data()
{
    QTest::addColumn<bool>("useHomeBound");
    QTest::addColumn<bool>("withScene");
    QTest::addColumn<double>("aspect");  // 0: no camera
    QTest::addColumn<osg::Vec3d>("centre");
    QTest::addColumn<double>("distance");

    const double halfFov = osg::DegreesToRadians(15.0);
    const osg::Vec3d homeCentre(10, 20, 30);
    // The scene: a pair of points far from the home bound, as labels are.
    const osg::Vec3d sceneCentre(1000, 0, 0);
    const double sceneRadius = 1.0;
    QTest::newRow("home bound, no camera") << true << true << 0.0 << homeCentre << 3.5 * 5.0;
    QTest::newRow("home bound, 30 deg landscape") << true << true << 4.0 / 3.0 << homeCentre << 5.0 / std::sin(halfFov);
    QTest::newRow("home bound, 30 deg portrait")
        << true << true << 0.5 << homeCentre << 5.0 / std::sin(std::atan(std::tan(halfFov) * 0.5));
    QTest::newRow("scene bound") << false << true << 1.0 << sceneCentre << sceneRadius / std::sin(halfFov);
    QTest::newRow("empty scene: a unit sphere at the origin") << false << false << 0.0 << osg::Vec3d() << 3.5;
}

void TestOsgTackballManipulate::homePosition()
{
    QFETCH(bool, useHomeBound);
    QFETCH(bool, withScene);
    QFETCH(double, aspect);
    QFETCH(osg::Vec3d, centre);
    QFETCH(double, distance);

    osg::ref_ptr<osg::Group> scene = new osg::Group;
    if (withScene) scene->addChild(pointPair(osg::Vec3(1000, 0, 0)));
    m_manipulator->setNode(scene);
    if (useHomeBound) m_manipulator->setHomeBound(osg::BoundingSphere(osg::Vec3d(10, 20, 30), 5.0));
    osg::ref_ptr<osg::Camera> camera = new osg::Camera;
    camera->setProjectionMatrixAsPerspective(30.0, aspect, 1.0, 10000.0);
    m_manipulator->computeHomePosition(aspect > 0.0 ? camera.get() : nullptr);

    osg::Vec3d eye, homeCentre, up;
    m_manipulator->getHomePosition(eye, homeCentre, up);
    QVERIFY2(near(homeCentre, centre), text(homeCentre));
    QVERIFY2(near(eye, centre + osg::Vec3d(0, -distance, 0)), text(eye));
    QVERIFY2(near(up, osg::Vec3d(0, 0, 1)), text(up));
}

void TestOsgTackballManipulate::enterView_data()
{
    QTest::addColumn<osg::Quat>("rotation");
    QTest::addColumn<osg::Vec3d>("look");
    QTest::addColumn<osg::Vec3d>("up");

    QTest::newRow("identity: top") << osg::Quat() << osg::Vec3d(0, 0, -1) << osg::Vec3d(0, 1, 0);
    QTest::newRow("+90 about x: the home direction")
        << osg::Quat(osg::PI_2, osg::X_AXIS) << osg::Vec3d(0, 1, 0) << osg::Vec3d(0, 0, 1);
    QTest::newRow("-90 about x: from the north, upside down")
        << osg::Quat(-osg::PI_2, osg::X_AXIS) << osg::Vec3d(0, -1, 0) << osg::Vec3d(0, 0, -1);
    QTest::newRow("+90 about y") << osg::Quat(osg::PI_2, osg::Y_AXIS) << osg::Vec3d(-1, 0, 0) << osg::Vec3d(0, 1, 0);
    QTest::newRow("180 about z: top, south up")
        << osg::Quat(osg::PI, osg::Z_AXIS) << osg::Vec3d(0, 0, -1) << osg::Vec3d(0, -1, 0);
}

void TestOsgTackballManipulate::enterView()
{
    QFETCH(osg::Quat, rotation);
    QFETCH(osg::Vec3d, look);
    QFETCH(osg::Vec3d, up);
    m_manipulator->setHomeBound(osg::BoundingSphere(osg::Vec3d(7, 8, 9), 2.0));
    RecordingMonitor monitor(m_manipulator.get());
    m_manipulator->addMonitor(&monitor);

    m_manipulator->enterView(rotation, std::tan(osg::DegreesToRadians(15.0)), 1.0, osg::Vec4d(-1, -1, 1, 1));
    osg::Vec3d actualUp;
    const osg::Vec3d actualLook = lookDirection(m_manipulator.get(), &actualUp);
    QVERIFY2(near(actualLook, look), text(actualLook));
    QVERIFY2(near(actualUp, up), text(actualUp));
    QVERIFY(near(m_manipulator->getCenter(), osg::Vec3d(7, 8, 9)));
    QVERIFY(std::fabs(m_manipulator->getDistance() - 2.0 / std::sin(osg::DegreesToRadians(15.0))) < 1e-9);
    QCOMPARE(int(monitor.views.size()), 1);
}

QTEST_APPLESS_MAIN(TestOsgTackballManipulate)
#include "tst_OsgTackballManipulate.moc"
