// The floating panel base: where its resize bands are and which cursor each
// shows, dragging kept inside the parent, resizing within the size limits,
// the background of each skin, and wheel and key events kept from the view.

#include <QApplication>
#include <QPainter>
#include <QTemporaryDir>
#include <QWheelEvent>
#include <QtTest>

#include "AppConfig.h"
#include "MovableSubWidget.h"
#include "TestProject.h"

Q_DECLARE_METATYPE(Qt::CursorShape)

namespace {

// Counts the wheel turns and keys that reach it.
class RecordingParent : public QWidget {
public:
    int wheels = 0;
    int keys = 0;

protected:
    void wheelEvent(QWheelEvent* event) override
    {
        ++wheels;
        event->accept();
    }
    void keyPressEvent(QKeyEvent* event) override
    {
        ++keys;
        event->accept();
    }
};

void sendMouse(QWidget* w, QEvent::Type type, const QPoint& local, Qt::MouseButton button, Qt::MouseButtons buttons)
{
    QMouseEvent event(type, QPointF(local), QPointF(w->mapTo(w->window(), local)), QPointF(w->mapToGlobal(local)),
                      button, buttons, Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}

// A left-button drag from one point of the panel by a displacement.
void drag(QWidget* w, const QPoint& from, const QPoint& by)
{
    sendMouse(w, QEvent::MouseMove, from, Qt::NoButton, Qt::NoButton);
    sendMouse(w, QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton);
    // After the press the panel may have moved: the cursor's global position
    // is what counts, so aim at the point the drag ends on.
    const QPoint globalEnd = w->mapToGlobal(from) + by;
    sendMouse(w, QEvent::MouseMove, w->mapFromGlobal(globalEnd), Qt::NoButton, Qt::LeftButton);
    sendMouse(w, QEvent::MouseButtonRelease, w->mapFromGlobal(globalEnd), Qt::LeftButton, Qt::NoButton);
}

}  // namespace

class TestMovableSubWidget : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void regionsAndCursors_data();
    void regionsAndCursors();
    void cursorFollowsTheEdges();
    void dragMovesOrResizesWithinLimits_data();
    void dragMovesOrResizesWithinLimits();
    void skinBackground_data();
    void skinBackground();
    void wheelAndKeysStayOnPanel();

private:
    QTemporaryDir m_settings;
};

void TestMovableSubWidget::initTestCase()
{
    QVERIFY(m_settings.isValid());
    TestProject::isolateSettings(m_settings.path());
}

void TestMovableSubWidget::regionsAndCursors_data()
{
    QTest::addColumn<QPoint>("pos");
    QTest::addColumn<int>("region");
    QTest::addColumn<Qt::CursorShape>("cursor");
    // A 100 x 80 panel with the 4-pixel band: 0..3 and 96..99 (x), 76..79 (y).
    QTest::newRow("top-left") << QPoint(0, 0) << 5 << Qt::SizeFDiagCursor;
    QTest::newRow("top-left inner corner") << QPoint(3, 3) << 5 << Qt::SizeFDiagCursor;
    QTest::newRow("top") << QPoint(50, 2) << 1 << Qt::SizeVerCursor;
    QTest::newRow("top, last column before the band") << QPoint(96, 0) << 1 << Qt::SizeVerCursor;
    QTest::newRow("top-right") << QPoint(97, 1) << 9 << Qt::SizeBDiagCursor;
    QTest::newRow("left") << QPoint(1, 40) << 4 << Qt::SizeHorCursor;
    QTest::newRow("inside") << QPoint(50, 40) << 0 << Qt::ArrowCursor;
    QTest::newRow("inside at the band's edge") << QPoint(4, 4) << 0 << Qt::ArrowCursor;
    QTest::newRow("right") << QPoint(99, 40) << 8 << Qt::SizeHorCursor;
    QTest::newRow("bottom-left") << QPoint(2, 78) << 6 << Qt::SizeBDiagCursor;
    QTest::newRow("bottom") << QPoint(50, 79) << 2 << Qt::SizeVerCursor;
    QTest::newRow("bottom-right") << QPoint(98, 77) << 10 << Qt::SizeFDiagCursor;
    QTest::newRow("above the bottom band") << QPoint(50, 76) << 0 << Qt::ArrowCursor;
}

void TestMovableSubWidget::regionsAndCursors()
{
    QFETCH(QPoint, pos);
    QFETCH(int, region);
    QFETCH(Qt::CursorShape, cursor);
    QCOMPARE(MovableSubWidget::regionAt(QSize(100, 80), pos, 4), region);
    QCOMPARE(MovableSubWidget::cursorFor(region), cursor);
}

void TestMovableSubWidget::cursorFollowsTheEdges()
{
    QWidget parent;
    parent.resize(400, 300);
    MovableSubWidget panel(&parent);
    panel.setGeometry(50, 50, 100, 80);
    parent.show();
    sendMouse(&panel, QEvent::MouseMove, QPoint(99, 40), Qt::NoButton, Qt::NoButton);
    QCOMPARE(panel.activeRegion(), 8);
    QCOMPARE(panel.cursor().shape(), Qt::SizeHorCursor);
    sendMouse(&panel, QEvent::MouseMove, QPoint(50, 40), Qt::NoButton, Qt::NoButton);
    QCOMPARE(panel.cursor().shape(), Qt::ArrowCursor);
}

void TestMovableSubWidget::dragMovesOrResizesWithinLimits_data()
{
    QTest::addColumn<QRect>("start");
    QTest::addColumn<QPoint>("grab");
    QTest::addColumn<QPoint>("by");
    QTest::addColumn<QRect>("expected");
    // Parent 400 x 300. A grab inside moves the panel, kept inside the parent.
    const QRect panel(50, 50, 100, 80);
    const QPoint inside(20, 20);
    QTest::newRow("free move") << panel << inside << QPoint(30, 20) << QRect(80, 70, 100, 80);
    QTest::newRow("past the left edge") << panel << inside << QPoint(-200, 10) << QRect(0, 60, 100, 80);
    QTest::newRow("past the top edge") << panel << inside << QPoint(10, -200) << QRect(60, 0, 100, 80);
    QTest::newRow("past the right edge") << panel << inside << QPoint(500, 0) << QRect(300, 50, 100, 80);
    QTest::newRow("past the bottom edge") << panel << inside << QPoint(0, 500) << QRect(50, 220, 100, 80);
    QTest::newRow("wider than the parent")
        << QRect(50, 50, 500, 80) << inside << QPoint(-20, 0) << QRect(-100, 50, 500, 80);
    QTest::newRow("taller than the parent")
        << QRect(50, 50, 100, 400) << inside << QPoint(0, 30) << QRect(50, -100, 100, 400);
    // A grab on a band resizes it between 60 x 50 and 160 x 120.
    const QRect sized(100, 100, 100, 80);
    QTest::newRow("right edge out") << sized << QPoint(99, 40) << QPoint(30, 0) << QRect(100, 100, 130, 80);
    QTest::newRow("right edge past the maximum")
        << sized << QPoint(99, 40) << QPoint(200, 0) << QRect(100, 100, 160, 80);
    QTest::newRow("left edge in") << sized << QPoint(1, 40) << QPoint(20, 0) << QRect(120, 100, 80, 80);
    QTest::newRow("left edge past the minimum") << sized << QPoint(1, 40) << QPoint(90, 0) << QRect(140, 100, 60, 80);
    QTest::newRow("left edge past the maximum")
        << sized << QPoint(1, 40) << QPoint(-90, 0) << QRect(40, 100, 160, 80);
    QTest::newRow("top edge up") << sized << QPoint(50, 1) << QPoint(0, -30) << QRect(100, 70, 100, 110);
    QTest::newRow("top edge past the minimum") << sized << QPoint(50, 1) << QPoint(0, 60) << QRect(100, 130, 100, 50);
    QTest::newRow("bottom edge past the maximum")
        << sized << QPoint(50, 79) << QPoint(0, 90) << QRect(100, 100, 100, 120);
    QTest::newRow("bottom-right corner") << sized << QPoint(98, 78) << QPoint(-70, -50) << QRect(100, 100, 60, 50);
    QTest::newRow("top-left corner") << sized << QPoint(1, 1) << QPoint(-10, -15) << QRect(90, 85, 110, 95);
}

void TestMovableSubWidget::dragMovesOrResizesWithinLimits()
{
    QFETCH(QRect, start);
    QFETCH(QPoint, grab);
    QFETCH(QPoint, by);
    QFETCH(QRect, expected);
    QWidget parent;
    parent.resize(400, 300);
    MovableSubWidget panel(&parent);
    panel.setGeometry(start);
    // Panels larger than the resize limit keep their own size as the limit.
    panel.setMinimumSize(60, 50);
    panel.setMaximumSize(start.size().expandedTo(QSize(160, 120)));
    parent.show();
    drag(&panel, grab, by);
    QCOMPARE(panel.geometry(), expected);
}

void TestMovableSubWidget::skinBackground_data()
{
    QTest::addColumn<int>("skin");
    QTest::addColumn<QString>("picture");
    QTest::newRow("light") << 0 << ":res/ptcloud/sub_widget_bg_light.png";
    QTest::newRow("dark") << 1 << ":res/ptcloud/sub_widget_bg.png";
    QTest::newRow("another dark skin") << 2 << ":res/ptcloud/sub_widget_bg.png";
}

void TestMovableSubWidget::skinBackground()
{
    QFETCH(int, skin);
    QFETCH(QString, picture);
    AppConfig::getInstance().module_userSettings().setSelectedSkin(skin);
    MovableSubWidget panel(nullptr);
    panel.resize(120, 90);
    QCOMPARE(MovableSubWidget::backgroundPicture(), picture);
    // What the panel paints is the picture stretched over it.
    QImage expected(panel.size(), QImage::Format_ARGB32_Premultiplied);
    expected.fill(Qt::transparent);
    QPainter painter(&expected);
    painter.drawPixmap(QRect(QPoint(0, 0), panel.size()), QPixmap(picture));
    painter.end();
    const QImage painted = panel.grab().toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QVERIFY(!QPixmap(picture).isNull());
    for (const QPoint& p : {QPoint(60, 5), QPoint(60, 45), QPoint(60, 85), QPoint(0, 0)})
        QCOMPARE(QColor(painted.pixel(p)), QColor(expected.pixel(p)));
    // Light and dark differ where it matters: the middle of the panel.
    const int lightness = QColor(painted.pixel(60, 45)).lightness();
    QVERIFY2(skin == 0 ? lightness > 180 : lightness < 90, qPrintable(QString::number(lightness)));
}

void TestMovableSubWidget::wheelAndKeysStayOnPanel()
{
    RecordingParent parent;
    parent.resize(300, 200);
    MovableSubWidget panel(&parent);
    panel.setGeometry(10, 10, 100, 80);
    parent.show();
    QWheelEvent wheel(QPointF(20, 20), panel.mapToGlobal(QPoint(20, 20)), QPoint(), QPoint(0, 120), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&panel, &wheel);
    QCOMPARE(parent.wheels, 0);
    QKeyEvent key(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "));
    QApplication::sendEvent(&panel, &key);
    QCOMPARE(parent.keys, 0);
    // The same turn next to the panel reaches the parent.
    QWheelEvent beside(QPointF(250, 150), parent.mapToGlobal(QPoint(250, 150)), QPoint(), QPoint(0, 120),
                       Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&parent, &beside);
    QCOMPARE(parent.wheels, 1);
}

QTEST_MAIN(TestMovableSubWidget)
#include "tst_MovableSubWidget.moc"
