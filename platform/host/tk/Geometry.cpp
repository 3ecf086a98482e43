#include "Geometry.h"

#include <cmath>

namespace tk {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

double Geometry::calc_angle(double x1, double y1, double x2, double y2)
{
    const double dx = x2 - x1, dy = y2 - y1;
    if (dx == 0.0 && dy == 0.0) return 0.0;
    double a = std::atan2(dy, dx) * 180.0 / kPi;
    clampAngle(a);
    return a;
}

void Geometry::clampAngle(double& angle)
{
    if (!std::isfinite(angle)) {
        angle = 0.0;
        return;
    }
    angle = std::fmod(angle, 360.0);
    if (angle < 0.0) angle += 360.0;
    // fmod of a tiny negative number plus 360 rounds to 360 itself.
    if (angle >= 360.0) angle = 0.0;
}

QPointF Geometry::lineEnd_byStartAngleLength(double angle, const QPointF& start, double length)
{
    const double r = angle * kPi / 180.0;
    return QPointF(start.x() + length * std::cos(r), start.y() + length * std::sin(r));
}

bool Geometry::isPointInPolyRect(double x1, double y1, double x2, double y2, double x3, double y3,
                                 double x4, double y4, double px, double py)
{
    // Survey coordinates are large: work relative to the first corner so the
    // cross products keep their precision.
    const double xs[4] = {0.0, x2 - x1, x3 - x1, x4 - x1};
    const double ys[4] = {0.0, y2 - y1, y3 - y1, y4 - y1};
    const double qx = px - x1, qy = py - y1;
    double scale = std::fabs(qx) + std::fabs(qy);
    for (int i = 0; i < 4; ++i) scale = std::fmax(scale, std::fabs(xs[i]) + std::fabs(ys[i]));
    // Points on an edge count as inside despite rounding.
    const double eps = 1e-12 * scale * scale;
    bool anyPositive = false, anyNegative = false;
    for (int i = 0; i < 4; ++i) {
        const int j = (i + 1) % 4;
        const double cross = (xs[j] - xs[i]) * (qy - ys[i]) - (ys[j] - ys[i]) * (qx - xs[i]);
        if (cross > eps) anyPositive = true;
        if (cross < -eps) anyNegative = true;
        if (anyPositive && anyNegative) return false;
    }
    return true;
}

}  // namespace tk
