#include "Geometry.h"

#include <QtTest>

#include <cmath>

using tk::Geometry;

namespace {

// Difference of two directions in degrees, ignoring whole turns.
double angleDistance(double a, double b)
{
    const double d = std::fmod(std::fabs(a - b), 360.0);
    return std::min(d, 360.0 - d);
}

QVector<QPointF> reversed(const QVector<QPointF>& polygon)
{
    QVector<QPointF> r;
    for (int i = polygon.size() - 1; i >= 0; --i) r << polygon[i];
    return r;
}

bool inside(const QVector<QPointF>& q, const QPointF& p)
{
    return Geometry::isPointInPolyRect(q[0].x(), q[0].y(), q[1].x(), q[1].y(), q[2].x(), q[2].y(), q[3].x(),
                                       q[3].y(), p.x(), p.y());
}

}  // namespace

class TestGeometry : public QObject {
    Q_OBJECT

private slots:
    void calcAngle_data();
    void calcAngle();
    void lineEndRoundTrip_data();
    void lineEndRoundTrip();
    void zeroLengthLine();
    void clampAngle_data();
    void clampAngle();
    void pointInQuadrilateral_data();
    void pointInQuadrilateral();
};

void TestGeometry::calcAngle_data()
{
    QTest::addColumn<QPointF>("start");
    QTest::addColumn<QPointF>("end");
    QTest::addColumn<double>("angle");

    const QPointF s(1000.5, -250.25);
    QTest::newRow("east (+x axis)") << s << s + QPointF(7, 0) << 0.0;
    QTest::newRow("north (+y axis)") << s << s + QPointF(0, 7) << 90.0;
    QTest::newRow("west (-x axis)") << s << s + QPointF(-7, 0) << 180.0;
    QTest::newRow("south (-y axis)") << s << s + QPointF(0, -7) << 270.0;
    QTest::newRow("first quadrant") << s << s + QPointF(3, 3) << 45.0;
    QTest::newRow("second quadrant") << s << s + QPointF(-3, 3) << 135.0;
    QTest::newRow("third quadrant") << s << s + QPointF(-3, -3) << 225.0;
    QTest::newRow("fourth quadrant") << s << s + QPointF(3, -3) << 315.0;
    // tan(60 deg) = sqrt(3): a 1 : sqrt(3) triangle.
    QTest::newRow("60 deg") << QPointF(0, 0) << QPointF(1, std::sqrt(3.0)) << 60.0;
    QTest::newRow("210 deg") << QPointF(0, 0) << QPointF(-std::sqrt(3.0), -1) << 210.0;
    QTest::newRow("just below east") << QPointF(0, 0) << QPointF(1, -1e-9) << 360.0 - 1e-9 * 180.0 / M_PI;
}

void TestGeometry::calcAngle()
{
    QFETCH(QPointF, start);
    QFETCH(QPointF, end);
    QFETCH(double, angle);
    const double a = Geometry::calc_angle(start.x(), start.y(), end.x(), end.y());
    QVERIFY2(a >= 0.0 && a < 360.0, qPrintable(QString::number(a, 'g', 17)));
    QVERIFY2(angleDistance(a, angle) < 1e-9, qPrintable(QString::number(a, 'g', 17)));

    // The inverse: the end point lies at that angle and distance from the start.
    const double length = std::hypot(end.x() - start.x(), end.y() - start.y());
    const QPointF back = Geometry::lineEnd_byStartAngleLength(a, start, length);
    QVERIFY2(std::hypot(back.x() - end.x(), back.y() - end.y()) < 1e-9 * (1.0 + length),
             qPrintable(QStringLiteral("(%1, %2)").arg(back.x(), 0, 'g', 17).arg(back.y(), 0, 'g', 17)));
}

void TestGeometry::lineEndRoundTrip_data()
{
    QTest::addColumn<double>("angle");
    QTest::addColumn<double>("length");
    QTest::addColumn<QPointF>("start");

    const QPointF utm(512345.678, 4123456.789);
    for (double a : {0.0, 30.0, 90.0, 120.0, 180.0, 250.0, 270.0, 300.0, 359.5}) {
        QTest::addRow("%g deg, 10 m from the origin", a) << a << 10.0 << QPointF(0, 0);
        QTest::addRow("%g deg, 0.25 m from a survey coordinate", a) << a << 0.25 << utm;
    }
    // Angles outside the range give the same direction as their clamped value.
    QTest::newRow("-90 deg") << -90.0 << 5.0 << QPointF(1, 1);
    QTest::newRow("450 deg") << 450.0 << 5.0 << QPointF(1, 1);
}

void TestGeometry::lineEndRoundTrip()
{
    QFETCH(double, angle);
    QFETCH(double, length);
    QFETCH(QPointF, start);
    const QPointF end = Geometry::lineEnd_byStartAngleLength(angle, start, length);
    QVERIFY(std::fabs(std::hypot(end.x() - start.x(), end.y() - start.y()) - length) < 1e-9);
    const double back = Geometry::calc_angle(start.x(), start.y(), end.x(), end.y());
    // Survey coordinates keep about 1e-10 m of precision: over 0.25 m that is
    // a few 1e-8 degrees.
    QVERIFY2(angleDistance(back, angle) < 1e-6, qPrintable(QString::number(back, 'g', 17)));
}

void TestGeometry::zeroLengthLine()
{
    QCOMPARE(Geometry::calc_angle(3.5, -2.0, 3.5, -2.0), 0.0);
    const QPointF start(3.5, -2.0);
    QCOMPARE(Geometry::lineEnd_byStartAngleLength(123.0, start, 0.0), start);
}

void TestGeometry::clampAngle_data()
{
    QTest::addColumn<double>("angle");
    QTest::addColumn<double>("clamped");

    QTest::newRow("0") << 0.0 << 0.0;
    QTest::newRow("negative zero") << -0.0 << 0.0;
    QTest::newRow("360") << 360.0 << 0.0;
    QTest::newRow("-360") << -360.0 << 0.0;
    QTest::newRow("just below 360") << 359.75 << 359.75;
    QTest::newRow("just above 360") << 360.5 << 0.5;
    QTest::newRow("-90") << -90.0 << 270.0;
    QTest::newRow("-450") << -450.0 << 270.0;
    QTest::newRow("1000") << 1000.0 << 280.0;
    // 360 minus a number below half its spacing rounds to 360 itself.
    QTest::newRow("tiny negative") << -1e-300 << 0.0;
    QTest::newRow("negative, still representable") << -0.5 << 359.5;
}

void TestGeometry::clampAngle()
{
    QFETCH(double, angle);
    QFETCH(double, clamped);
    double a = angle;
    Geometry::clampAngle(a);
    QVERIFY2(a >= 0.0 && a < 360.0, qPrintable(QString::number(a, 'g', 17)));
    QCOMPARE(a, clamped);
}

void TestGeometry::pointInQuadrilateral_data()
{
    QTest::addColumn<QVector<QPointF>>("corners");
    QTest::addColumn<QPointF>("point");
    QTest::addColumn<bool>("inside");

    const QVector<QPointF> square({QPointF(0, 0), QPointF(4, 0), QPointF(4, 4), QPointF(0, 4)});
    QTest::newRow("square: centre") << square << QPointF(2, 2) << true;
    QTest::newRow("square: near a corner inside") << square << QPointF(0.001, 3.999) << true;
    QTest::newRow("square: right of it") << square << QPointF(5, 2) << false;
    QTest::newRow("square: below it") << square << QPointF(2, -0.001) << false;
    QTest::newRow("square: beyond a corner diagonally") << square << QPointF(4.001, 4.001) << false;
    QTest::newRow("square: on an edge") << square << QPointF(4, 1.5) << true;
    QTest::newRow("square: at a corner") << square << QPointF(0, 4) << true;
    QTest::newRow("square: on the line of an edge, outside") << square << QPointF(6, 0) << false;

    // A strip 2 wide along the line from (10, 10) at 30 degrees, 8 long, as
    // the section tool builds it.
    const double c = std::cos(M_PI / 6), s = std::sin(M_PI / 6);
    const QPointF a(10, 10), b(10 + 8 * c, 10 + 8 * s), n(-s, c);
    const QVector<QPointF> strip({a + n, a - n, b - n, b + n});
    QTest::newRow("strip: on the line") << strip << (a + b) / 2 << true;
    QTest::newRow("strip: 0.99 off the line") << strip << (a + b) / 2 + 0.99 * n << true;
    QTest::newRow("strip: 1.01 off the line") << strip << (a + b) / 2 - 1.01 * n << false;
    QTest::newRow("strip: past its end") << strip << b + 0.01 * (b - a) / 8 << false;
    // Inside the bounding box of the tilted strip but outside the strip.
    QTest::newRow("strip: in its box, not in it") << strip << QPointF(b.x() - 0.2, a.y() + 0.2) << false;

    // A trapezoid at survey coordinates: the edge test must not drown in
    // the size of the numbers.
    const QVector<QPointF> trapezoid({QPointF(500000, 4000000), QPointF(500008, 4000000), QPointF(500006, 4000004),
                               QPointF(500002, 4000004)});
    QTest::newRow("trapezoid: inside") << trapezoid << QPointF(500004, 4000002) << true;
    QTest::newRow("trapezoid: on the slanted edge") << trapezoid << QPointF(500007, 4000002) << true;
    QTest::newRow("trapezoid: 1 mm beyond the slanted edge") << trapezoid << QPointF(500007.001, 4000002) << false;
    QTest::newRow("trapezoid: at the top corner") << trapezoid << QPointF(500002, 4000004) << true;
    QTest::newRow("trapezoid: beside the top, outside") << trapezoid << QPointF(500001, 4000004) << false;
}

void TestGeometry::pointInQuadrilateral()
{
    QFETCH(QVector<QPointF>, corners);
    QFETCH(QPointF, point);
    QFETCH(bool, inside);
    // Every case holds in both windings, and from every starting corner.
    for (const QVector<QPointF>& q : {corners, reversed(corners)}) {
        for (int shift = 0; shift < 4; ++shift) {
            const QVector<QPointF> rotated({q[shift], q[(shift + 1) % 4], q[(shift + 2) % 4], q[(shift + 3) % 4]});
            QCOMPARE(::inside(rotated, point), inside);
        }
    }
}

QTEST_APPLESS_MAIN(TestGeometry)
#include "tst_Geometry.moc"
