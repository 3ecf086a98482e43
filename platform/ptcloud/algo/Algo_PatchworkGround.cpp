#include "Algo_PatchworkGround.h"

#include <Eigen/Eigenvalues>
#include <QObject>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

constexpr int kGround = 2;
constexpr int kNonGround = 1;
// The zone model of Patchwork++: rings and sectors per zone of a vehicle
// scan, and the zone borders as shares of the farthest range
// (12.36, 22.44 and 41.7 of 80 m).
constexpr int kZones = 4;
constexpr int kRings[kZones] = {2, 4, 4, 4};
constexpr int kSectors[kZones] = {16, 32, 54, 32};
constexpr double kZoneShare[kZones - 1] = {12.36 / 80, 22.44 / 80, 41.7 / 80};
// A bin needs this many points for a plane worth judging.
constexpr size_t kMinBinPoints = 10;
// Low points averaged into a bin's lowest-point representative.
constexpr size_t kLowPoints = 20;
// Reflected noise is judged against this low quantile of a bin's heights,
// which a few noise points cannot drag down.
constexpr double kNoiseQuantile = 0.1;
// Vehicle scans crowd around the scanner: more than this share of the
// points within a tenth of the farthest range from the densest spot, where
// an airborne scan, evenly spread, puts a few percent (up to 9 % on
// the ISPRS samples, where flight strips overlap).
constexpr double kVehicleCrowding = 0.15;
constexpr int kDensityRaster = 32;
constexpr int kMeanShiftSteps = 5;
constexpr double kVehicleDistance = 0.2;
constexpr double kAirborneDistance = 0.5;
// Bins are cheap, but not a bin a point on a wide cloud with a tiny bin size.
constexpr size_t kMostBins = 1u << 20;

struct Bin {
    int zone = 0, ring = 0;  // ring counts across zones
    double a0 = 0, a1 = 0;   // angular span, radians in [0, 2 pi)
    std::vector<uint32_t> pts;
    bool fitted = false, upright = false, ground = false;
    Eigen::Vector3d normal = Eigen::Vector3d::UnitZ();
    Eigen::Vector3d mean = Eigen::Vector3d::Zero();
    double flatness = 0, elevation = 0;

    // Height of the bin's plane over a plan position.
    double planeZ(double x, double y) const
    {
        return mean.z() - (normal.x() * (x - mean.x()) + normal.y() * (y - mean.y())) / normal.z();
    }
};

struct Model {
    double cx = 0, cy = 0;
    double edge[kZones + 1] = {};
    int rings[kZones] = {}, sectors[kZones] = {};
    std::vector<Bin> bins;
    std::vector<int> ringFirst, ringSectors;  // per ring across zones

    void build()
    {
        for (int z = 0; z < kZones; ++z)
            for (int r = 0; r < rings[z]; ++r) {
                ringFirst.push_back(int(bins.size()));
                ringSectors.push_back(sectors[z]);
                for (int s = 0; s < sectors[z]; ++s) {
                    Bin b;
                    b.zone = z;
                    b.ring = int(ringFirst.size()) - 1;
                    b.a0 = 2 * M_PI * s / sectors[z];
                    b.a1 = 2 * M_PI * (s + 1) / sectors[z];
                    bins.push_back(std::move(b));
                }
            }
    }

    int binOf(double x, double y) const
    {
        const double dx = x - cx, dy = y - cy, r = std::hypot(dx, dy);
        if (r < edge[0] || r >= edge[kZones]) return -1;
        int z = 0, ring = 0;
        while (z + 1 < kZones && r >= edge[z + 1]) ring += rings[z++];
        ring += std::min(rings[z] - 1, int((r - edge[z]) / (edge[z + 1] - edge[z]) * rings[z]));
        return ringFirst[size_t(ring)] + sectorOf(std::atan2(dy, dx), ring);
    }

    int sectorOf(double angle, int ring) const
    {
        if (angle < 0) angle += 2 * M_PI;
        const int n = ringSectors[size_t(ring)];
        return std::clamp(int(angle / (2 * M_PI) * n), 0, n - 1);
    }

    // Bins beside bin b in its ring, and those of the rings inside and
    // outside whose angles overlap its own.
    void neighboursOf(const Bin& b, std::vector<int>& out) const
    {
        out.clear();
        const int n = ringSectors[size_t(b.ring)], s = sectorOf((b.a0 + b.a1) / 2, b.ring);
        out.push_back(ringFirst[size_t(b.ring)] + (s + 1) % n);
        out.push_back(ringFirst[size_t(b.ring)] + (s + n - 1) % n);
        for (int ring : {b.ring - 1, b.ring + 1}) {
            if (ring < 0 || ring >= int(ringFirst.size())) continue;
            const int from = sectorOf(b.a0 + 1e-9, ring), to = sectorOf(b.a1 - 1e-9, ring);
            for (int k = from; k <= to; ++k) out.push_back(ringFirst[size_t(ring)] + k);
        }
        std::sort(out.begin(), out.end());
        out.erase(std::unique(out.begin(), out.end()), out.end());
        out.erase(std::remove(out.begin(), out.end(), int(&b - bins.data())), out.end());
    }
};

// Median and median absolute deviation; zeros for no values.
void robustSpread(std::vector<double> v, double* median, double* mad)
{
    *median = *mad = 0;
    if (v.empty()) return;
    auto mid = v.begin() + v.size() / 2;
    std::nth_element(v.begin(), mid, v.end());
    *median = *mid;
    for (double& x : v) x = std::fabs(x - *median);
    std::nth_element(v.begin(), mid, v.end());
    *mad = *mid;
}

// Centre and zone borders, and the distance threshold when left to the
// layout. A vehicle scan is centred on its densest spot,
// an airborne one on the middle of its plan with the borders scaled to it.
Model layOut(const std::vector<pcVec3f>& points, Algo_PatchworkGround::Params& params)
{
    pcBoundingBoxf box;
    for (const pcVec3f& p : points) box.expandBy(p);
    const double w = std::max(1e-6, double(box.max.x) - box.min.x), h = std::max(1e-6, double(box.max.y) - box.min.y);
    std::vector<uint32_t> counts(kDensityRaster * kDensityRaster, 0);
    auto cellOf = [&](const pcVec3f& p) {
        const int c = std::min(kDensityRaster - 1, int((p.x - box.min.x) / w * kDensityRaster));
        const int r = std::min(kDensityRaster - 1, int((p.y - box.min.y) / h * kDensityRaster));
        return size_t(r) * kDensityRaster + size_t(c);
    };
    for (const pcVec3f& p : points) ++counts[cellOf(p)];
    // The densest spot: from the middle of the points in the densest raster
    // cell, a few mean-shift steps over two cells around, which settle on
    // the centre of a scanner's rings.
    const size_t densest = size_t(std::max_element(counts.begin(), counts.end()) - counts.begin());
    double dx = 0, dy = 0;
    for (const pcVec3f& p : points)
        if (cellOf(p) == densest) dx += p.x, dy += p.y;
    dx /= counts[densest];
    dy /= counts[densest];
    const double reach2 = 4 * (w * w + h * h) / (kDensityRaster * kDensityRaster);
    for (int step = 0; step < kMeanShiftSteps; ++step) {
        double sx = 0, sy = 0;
        size_t n = 0;
        for (const pcVec3f& p : points)
            if ((p.x - dx) * (p.x - dx) + (p.y - dy) * (p.y - dy) <= reach2) sx += p.x, sy += p.y, ++n;
        if (n == 0) break;
        dx = sx / double(n);
        dy = sy / double(n);
    }

    Algo_PatchworkGround::Layout layout = params.layout;
    if (layout == Algo_PatchworkGround::Layout::Auto) {
        double far2 = 0;
        for (const pcVec3f& p : points) far2 = std::max(far2, (p.x - dx) * (p.x - dx) + (p.y - dy) * (p.y - dy));
        size_t near = 0;
        for (const pcVec3f& p : points) near += (p.x - dx) * (p.x - dx) + (p.y - dy) * (p.y - dy) <= far2 / 100;
        layout = double(near) > kVehicleCrowding * double(points.size()) ? Algo_PatchworkGround::Layout::Vehicle
                                                                         : Algo_PatchworkGround::Layout::Airborne;
    }
    if (!(params.distanceThreshold > 0))
        params.distanceThreshold = layout == Algo_PatchworkGround::Layout::Vehicle ? kVehicleDistance : kAirborneDistance;
    Model m;
    double lo = params.minRange, hi = params.maxRange;
    if (layout == Algo_PatchworkGround::Layout::Vehicle) {
        m.cx = dx;
        m.cy = dy;
    } else {
        m.cx = (double(box.min.x) + box.max.x) / 2;
        m.cy = (double(box.min.y) + box.max.y) / 2;
        lo = 0;
        hi = std::hypot(w, h) / 2 * (1 + 1e-6) + 1e-3;
    }
    m.edge[0] = lo;
    for (int z = 1; z < kZones; ++z) m.edge[z] = std::max(lo, kZoneShare[z - 1] * hi);
    m.edge[kZones] = hi;
    for (int z = 0; z < kZones; ++z) {
        m.rings[z] = kRings[z];
        m.sectors[z] = kSectors[z];
        if (layout == Algo_PatchworkGround::Layout::Airborne) {
            // Zones scaled to a wide cloud would give bins far larger than
            // its buildings and bends, and to a small one bins too small to
            // hold a plane's worth of points: keep them about binSize across.
            m.rings[z] = std::max(1, int(std::lround((m.edge[z + 1] - m.edge[z]) / params.binSize)));
            m.sectors[z] = std::max(4, int(std::lround(2 * M_PI * m.edge[z + 1] / params.binSize)));
        }
    }
    m.build();
    return m;
}

// Drops reflected noise, then fits the bin's ground plane from its lowest
// points by repeated PCA.
void fitBin(Bin& bin, const std::vector<pcVec3f>& points, const Algo_PatchworkGround::Params& params,
            std::vector<uint8_t>& noise)
{
    if (bin.pts.size() < kMinBinPoints) return;
    std::vector<float> z;
    z.reserve(bin.pts.size());
    for (uint32_t i : bin.pts) z.push_back(points[i].z);
    std::sort(z.begin(), z.end());
    const float floor = z[size_t(kNoiseQuantile * double(z.size()))] - float(params.noiseDepth);
    std::vector<uint32_t> kept;
    kept.reserve(bin.pts.size());
    for (uint32_t i : bin.pts) {
        if (points[i].z < floor) noise[i] = 1;
        else kept.push_back(i);
    }
    const auto first = std::lower_bound(z.begin(), z.end(), floor);
    const size_t low = std::min<size_t>(kLowPoints, size_t(z.end() - first));
    if (kept.size() < kMinBinPoints || low == 0) return;
    double lpr = 0;
    for (size_t k = 0; k < low; ++k) lpr += first[long(k)];
    lpr /= double(low);

    std::vector<uint32_t> set;
    for (uint32_t i : kept)
        if (points[i].z < lpr + params.distanceThreshold) set.push_back(i);
    for (int it = 0; it < params.iterations && set.size() >= 3; ++it) {
        Eigen::Vector3d mean = Eigen::Vector3d::Zero();
        for (uint32_t i : set) mean += Eigen::Vector3d(points[i].x, points[i].y, points[i].z);
        mean /= double(set.size());
        Eigen::Matrix3d cov = Eigen::Matrix3d::Zero();
        for (uint32_t i : set) {
            const Eigen::Vector3d d = Eigen::Vector3d(points[i].x, points[i].y, points[i].z) - mean;
            cov += d * d.transpose();
        }
        cov /= double(set.size());
        const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> eig(cov);
        Eigen::Vector3d n = eig.eigenvectors().col(0);
        if (n.z() < 0) n = -n;
        bin.normal = n;
        bin.mean = mean;
        bin.flatness = eig.eigenvalues()(0);
        bin.fitted = n.z() > 1e-6;
        set.clear();
        for (uint32_t i : kept)
            if (std::fabs(n.dot(Eigen::Vector3d(points[i].x, points[i].y, points[i].z) - mean)) < params.distanceThreshold)
                set.push_back(i);
    }
    bin.upright = bin.fitted && bin.normal.z() >= std::cos(params.maxSlope * M_PI / 180);
}

// How far each bin's plane stands above its neighbours: the median, over
// the neighbouring fitted bins, of the bin's plane extended to the
// neighbour's centre less the neighbour's own ground height.
void measureElevation(Model& m)
{
    std::vector<int> nbs;
    for (Bin& b : m.bins) {
        if (!b.upright) continue;
        m.neighboursOf(b, nbs);
        std::vector<double> rise;
        for (int k : nbs) {
            const Bin& nb = m.bins[size_t(k)];
            if (nb.upright) rise.push_back(b.planeZ(nb.mean.x(), nb.mean.y()) - nb.mean.z());
        }
        double median = 0, mad = 0;
        robustSpread(rise, &median, &mad);
        b.elevation = median;
    }
}

// Zone by zone, thresholds from the zone's own upright bins, then the
// ground decision of each bin.
void judge(Model& m, const Algo_PatchworkGround::Params& params)
{
    const double leastFlatness = params.distanceThreshold * params.distanceThreshold / 9;
    for (int z = 0; z < kZones; ++z) {
        std::vector<double> elev, flat;
        for (const Bin& b : m.bins)
            if (b.zone == z && b.upright) {
                elev.push_back(b.elevation);
                flat.push_back(b.flatness);
            }
        double em, ed, fm, fd;
        robustSpread(elev, &em, &ed);
        robustSpread(flat, &fm, &fd);
        const double elevLimit = std::max(params.minElevation, em + 3 * ed);
        const double flatLimit = std::max(leastFlatness, fm + 3 * fd);
        for (Bin& b : m.bins)
            if (b.zone == z)
                b.ground = b.upright && (b.elevation <= elevLimit ||
                                         (b.flatness <= flatLimit && b.elevation <= 2 * elevLimit));
    }
}

}  // namespace

bool Algo_PatchworkGround::run(const std::vector<pcVec3f>& points, const Params& given, std::vector<int>* labels,
                               ILongLiveActionProgress* progress, QString* error)
{
    Params params = given;
    if (!labels) return Algo_KdTree::Job::fail(error, QObject::tr("no output for the labels"));
    if (!(params.distanceThreshold >= 0) || !(params.noiseDepth > 0) || !(params.minElevation > 0))
        return Algo_KdTree::Job::fail(error, QObject::tr("distance threshold, noise depth and least elevation must be positive"));
    if (!(params.maxSlope >= 1 && params.maxSlope <= 89))
        return Algo_KdTree::Job::fail(error, QObject::tr("the steepest ground must be 1 to 89 degrees"));
    if (params.iterations < 1 || params.iterations > 10)
        return Algo_KdTree::Job::fail(error, QObject::tr("plane fits must be 1 to 10"));
    if (params.layout == Layout::Vehicle && !(params.minRange >= 0 && params.minRange < params.maxRange))
        return Algo_KdTree::Job::fail(error, QObject::tr("the ranges must satisfy 0 <= nearest < farthest"));
    if (!(params.binSize > 0)) return Algo_KdTree::Job::fail(error, QObject::tr("bin size must be positive"));
    if (points.empty()) {
        labels->clear();
        return true;
    }
    Algo_KdTree::Job job(progress);
    if (!job.phase(QObject::tr("Ground segmentation: binning"), 0, 15)) return Algo_KdTree::Job::cancelled(error);
    Model m = layOut(points, params);
    if (m.bins.size() > std::max<size_t>(kMostBins, points.size()))
        return Algo_KdTree::Job::fail(error, QObject::tr("bin size %1 m is too small for this cloud").arg(params.binSize));
    for (uint32_t i = 0; i < uint32_t(points.size()); ++i) {
        const int b = m.binOf(points[i].x, points[i].y);
        if (b >= 0) m.bins[size_t(b)].pts.push_back(i);
    }
    if (!job.phase(QObject::tr("Ground segmentation: fitting planes"), 15, 90)) return Algo_KdTree::Job::cancelled(error);
    std::vector<uint8_t> noise(points.size(), 0);
    if (!job.parallelFor(m.bins.size(), 4, [&](size_t b, size_t e) {
            for (size_t k = b; k < e; ++k) fitBin(m.bins[k], points, params, noise);
        }))
        return Algo_KdTree::Job::cancelled(error);
    measureElevation(m);
    judge(m, params);

    if (!job.phase(QObject::tr("Ground segmentation: labelling"), 90, 100)) return Algo_KdTree::Job::cancelled(error);
    std::vector<int> out(points.size(), kNonGround);
    std::vector<int> nbs;
    for (const Bin& bin : m.bins) {
        if (bin.pts.empty()) continue;
        const Bin* plane = bin.ground ? &bin : nullptr;
        if (!bin.fitted) {
            // Too few points for a plane of its own (the slivers at the
            // centre, the edge of the cloud): the nearest neighbouring
            // ground plane judges them.
            double x = 0, y = 0;
            for (uint32_t i : bin.pts) x += points[i].x, y += points[i].y;
            x /= double(bin.pts.size());
            y /= double(bin.pts.size());
            m.neighboursOf(bin, nbs);
            double best = std::numeric_limits<double>::max();
            for (int k : nbs) {
                const Bin& nb = m.bins[size_t(k)];
                const double d = std::hypot(nb.mean.x() - x, nb.mean.y() - y);
                if (nb.ground && d < best) best = d, plane = &nb;
            }
        }
        if (!plane) continue;
        for (uint32_t i : bin.pts) {
            const Eigen::Vector3d p(points[i].x, points[i].y, points[i].z);
            if (!noise[i] && std::fabs(plane->normal.dot(p - plane->mean)) < params.distanceThreshold) out[i] = kGround;
        }
    }
    if (!job.step(1.0)) return Algo_KdTree::Job::cancelled(error);
    labels->swap(out);
    return true;
}

}  // namespace ptCloud
