#pragma once

#include <QPointF>

namespace tk {

// Plane geometry helpers. Angles are in degrees, measured counter-clockwise
// from the +x axis (east) towards +y (north), normalised to [0, 360).
// lineEnd_byStartAngleLength is the exact inverse of calc_angle: the point it
// gives lies at that angle from the start.
class Geometry {
public:
    // Direction of the line from (x1, y1) to (x2, y2); 0 for a zero-length line.
    static double calc_angle(double x1, double y1, double x2, double y2);
    // Brings an angle into [0, 360), in place.
    static void clampAngle(double& angle);
    // The point at distance length from start in direction angle.
    static QPointF lineEnd_byStartAngleLength(double angle, const QPointF& start, double length);
    // Whether (px, py) lies inside or on the edge of the convex quadrilateral
    // with corners (x1, y1) .. (x4, y4), given in either winding.
    static bool isPointInPolyRect(double x1, double y1, double x2, double y2, double x3, double y3,
                                  double x4, double y4, double px, double py);
};

}  // namespace tk
