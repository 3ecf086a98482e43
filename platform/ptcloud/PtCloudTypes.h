#pragma once
// Small value types of the point-cloud data model. Positions inside blocks are
// single precision and relative to the dataset's origin (pcVec3d, double).

#include <cmath>
#include <cstdint>
#include <limits>

namespace ptCloud {

struct pcVec3f {
    float x = 0.f, y = 0.f, z = 0.f;
    pcVec3f() = default;
    pcVec3f(float ax, float ay, float az) : x(ax), y(ay), z(az) {}
    pcVec3f operator+(const pcVec3f& o) const { return {x + o.x, y + o.y, z + o.z}; }
    pcVec3f operator-(const pcVec3f& o) const { return {x - o.x, y - o.y, z - o.z}; }
    pcVec3f operator*(float s) const { return {x * s, y * s, z * s}; }
    bool operator==(const pcVec3f& o) const { return x == o.x && y == o.y && z == o.z; }
    bool operator!=(const pcVec3f& o) const { return !(*this == o); }
    float length() const { return std::sqrt(x * x + y * y + z * z); }
};

struct pcVec3d {
    double x = 0.0, y = 0.0, z = 0.0;
    pcVec3d() = default;
    pcVec3d(double ax, double ay, double az) : x(ax), y(ay), z(az) {}
    bool operator==(const pcVec3d& o) const { return x == o.x && y == o.y && z == o.z; }
    bool operator!=(const pcVec3d& o) const { return !(*this == o); }
};

// A position in whole quanta of a grid (see stPtCloud_DataSetHeader::quantum).
struct pcVec3q {
    std::int64_t x = 0, y = 0, z = 0;
    pcVec3q() = default;
    pcVec3q(std::int64_t ax, std::int64_t ay, std::int64_t az) : x(ax), y(ay), z(az) {}
    bool operator==(const pcVec3q& o) const { return x == o.x && y == o.y && z == o.z; }
};

struct pcVec4f {
    float x = 0.f, y = 0.f, z = 0.f, w = 0.f;
    pcVec4f() = default;
    pcVec4f(float ax, float ay, float az, float aw) : x(ax), y(ay), z(az), w(aw) {}
    bool operator==(const pcVec4f& o) const { return x == o.x && y == o.y && z == o.z && w == o.w; }
};

// Axis-aligned box. The default box is empty (min > max) and grows by expandBy.
struct pcBoundingBoxf {
    pcVec3f min{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                std::numeric_limits<float>::max()};
    pcVec3f max{-std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
                -std::numeric_limits<float>::max()};

    pcBoundingBoxf() = default;
    pcBoundingBoxf(float minx, float miny, float minz, float maxx, float maxy, float maxz)
        : min(minx, miny, minz), max(maxx, maxy, maxz) {}

    bool valid() const { return min.x <= max.x && min.y <= max.y && min.z <= max.z; }
    void expandBy(const pcVec3f& p) {
        if (p.x < min.x) min.x = p.x;
        if (p.y < min.y) min.y = p.y;
        if (p.z < min.z) min.z = p.z;
        if (p.x > max.x) max.x = p.x;
        if (p.y > max.y) max.y = p.y;
        if (p.z > max.z) max.z = p.z;
    }
    void expandBy(const pcBoundingBoxf& b) {
        if (!b.valid()) return;
        expandBy(b.min);
        expandBy(b.max);
    }
    pcVec3f center() const { return (min + max) * 0.5f; }
    // Half the diagonal; 0 for an empty box.
    float radius() const { return valid() ? (max - min).length() * 0.5f : 0.f; }
    // Closed intervals: touching boxes intersect.
    bool intersects(const pcBoundingBoxf& b) const {
        return valid() && b.valid() && min.x <= b.max.x && b.min.x <= max.x &&
               min.y <= b.max.y && b.min.y <= max.y && min.z <= b.max.z && b.min.z <= max.z;
    }
    bool contains(const pcVec3f& p) const {
        return p.x >= min.x && p.x <= max.x && p.y >= min.y && p.y <= max.y &&
               p.z >= min.z && p.z <= max.z;
    }
};

struct pcBoundingSpheref {
    pcVec3f center;
    float radius = -1.f;  // negative: empty

    pcBoundingSpheref() = default;
    pcBoundingSpheref(float cx, float cy, float cz, float r) : center(cx, cy, cz), radius(r) {}

    bool valid() const { return radius >= 0.f; }
    bool contains(const pcVec3f& p) const {
        const pcVec3f d = p - center;
        return d.x * d.x + d.y * d.y + d.z * d.z <= radius * radius;
    }
    // True when the sphere and the box share at least one point.
    bool intersects(const pcBoundingBoxf& b) const {
        if (!valid() || !b.valid()) return false;
        auto clampf = [](float v, float lo, float hi) { return v < lo ? lo : (v > hi ? hi : v); };
        const pcVec3f q(clampf(center.x, b.min.x, b.max.x), clampf(center.y, b.min.y, b.max.y),
                        clampf(center.z, b.min.z, b.max.z));
        return contains(q);
    }
};

}  // namespace ptCloud
