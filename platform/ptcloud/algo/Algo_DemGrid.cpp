#include "Algo_DemGrid.h"

#include <QObject>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

constexpr float kHole = std::numeric_limits<float>::quiet_NaN();
// Fewest neighbours that can carry a plane; a node with fewer is left to
// hole filling, which follows the slope of the nodes around it, where one
// or two points would have pulled the node to their own height.
constexpr size_t kPlanePoints = 3;
// Over-relaxation factor of the hole smoothing: converges in rounds of the
// order of the hole's width rather than its square.
constexpr double kOverRelax = 1.85;
// Most smoothing rounds, bounding the time spent on very wide holes.
constexpr int kMostRelaxRounds = 2000;

// Ground points bucketed by their nearest grid node, so a node finds its
// neighbours by looking at the buckets around it.
struct PlanIndex {
    std::vector<uint32_t> start;  // cols * rows + 1 offsets into pts
    std::vector<pcVec3f> pts;     // in bucket order
};

// Height of a node from its neighbours (offsets in cells, heights): the
// inverse-distance weighted least-squares plane, or the weighted mean when
// the neighbours do not pin a plane down. The plane's value is kept within
// one height range of the neighbours' heights, so a nearly degenerate fit
// cannot throw a node far off.
float interpolate(const std::vector<pcVec3f>& nb)
{
    double s = 0, sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0, sz = 0, sxz = 0, syz = 0;
    float lo = std::numeric_limits<float>::max(), hi = -lo;
    for (const pcVec3f& p : nb) {
        const double w = 1.0 / (double(p.x) * p.x + double(p.y) * p.y + 0.01);
        s += w;
        sx += w * p.x;
        sy += w * p.y;
        sxx += w * p.x * p.x;
        sxy += w * p.x * p.y;
        syy += w * p.y * p.y;
        sz += w * p.z;
        sxz += w * p.x * p.z;
        syz += w * p.y * p.z;
        lo = std::min(lo, p.z);
        hi = std::max(hi, p.z);
    }
    const double mean = sz / s;
    // Cramer's rule on the 3 x 3 normal equations of z = a + b x + c y.
    const double det = s * (sxx * syy - sxy * sxy) - sx * (sx * syy - sxy * sy) + sy * (sx * sxy - sxx * sy);
    if (!(std::fabs(det) > 1e-9 * s * std::max(sxx * syy, 1e-12))) return float(mean);
    const double a = (sz * (sxx * syy - sxy * sxy) - sx * (sxz * syy - sxy * syz) + sy * (sxz * sxy - sxx * syz)) / det;
    const double range = double(hi) - lo;
    return float(std::clamp(a, lo - range, hi + range));
}

// Fills the holes outside in: each hole takes the mean of its neighbours
// that were known before it (its breadth-first layer). Then the filled nodes
// relax towards the mean of their four neighbours, which makes the patch
// the smoothest surface through its border: a plane stays a plane. False
// on stop.
bool fillHoles(Algo_DemGrid::Grid& g, Algo_KdTree::Job& job)
{
    const size_t n = g.z.size();
    std::vector<int> layer(n, -1);
    std::deque<size_t> queue;
    for (size_t i = 0; i < n; ++i)
        if (!std::isnan(g.z[i])) {
            layer[i] = 0;
            queue.push_back(i);
        }
    std::vector<size_t> order;
    auto around = [&g](size_t i, auto&& fn) {
        const int c = int(i % size_t(g.cols)), r = int(i / size_t(g.cols));
        for (int rr = std::max(0, r - 1); rr <= std::min(g.rows - 1, r + 1); ++rr)
            for (int cc = std::max(0, c - 1); cc <= std::min(g.cols - 1, c + 1); ++cc)
                if (rr != r || cc != c) fn(size_t(rr) * size_t(g.cols) + size_t(cc));
    };
    while (!queue.empty()) {
        const size_t i = queue.front();
        queue.pop_front();
        around(i, [&](size_t j) {
            if (layer[j] >= 0) return;
            layer[j] = layer[i] + 1;
            order.push_back(j);
            queue.push_back(j);
        });
    }
    for (size_t i : order) {
        double sum = 0;
        int count = 0;
        around(i, [&](size_t j) {
            if (layer[j] < layer[i]) {
                sum += g.z[j];
                ++count;
            }
        });
        g.z[i] = float(sum / count);
    }
    const int rounds = order.empty() ? 0 : std::min(kMostRelaxRounds, 10 * layer[order.back()] + 20);
    for (int round = 0; round < rounds; ++round) {
        if (!job.step(double(round) / rounds)) return false;
        for (size_t i : order) {
            double sum = 0;
            int count = 0;
            const size_t c = i % size_t(g.cols), r = i / size_t(g.cols);
            if (c > 0) sum += g.z[i - 1], ++count;
            if (c + 1 < size_t(g.cols)) sum += g.z[i + 1], ++count;
            if (r > 0) sum += g.z[i - size_t(g.cols)], ++count;
            if (r + 1 < size_t(g.rows)) sum += g.z[i + size_t(g.cols)], ++count;
            g.z[i] = float(g.z[i] + kOverRelax * (sum / count - g.z[i]));
        }
    }
    return true;
}

}  // namespace

float Algo_DemGrid::Grid::sample(double x, double y) const
{
    const double fx = std::clamp((x - x0) / cell, 0.0, double(cols - 1));
    const double fy = std::clamp((y - y0) / cell, 0.0, double(rows - 1));
    const int c = std::min(int(fx), std::max(cols - 2, 0)), r = std::min(int(fy), std::max(rows - 2, 0));
    const int c1 = std::min(c + 1, cols - 1), r1 = std::min(r + 1, rows - 1);
    const double tx = fx - c, ty = fy - r;
    const double south = at(c, r) * (1 - tx) + at(c1, r) * tx;
    const double north = at(c, r1) * (1 - tx) + at(c1, r1) * tx;
    return float(south * (1 - ty) + north * ty);
}

void Algo_DemGrid::Grid::range(float* lo, float* hi) const
{
    const auto mm = std::minmax_element(z.begin(), z.end());
    *lo = mm.first == z.end() ? 0.f : *mm.first;
    *hi = mm.second == z.end() ? 0.f : *mm.second;
}

size_t Algo_DemGrid::maxNodes(size_t pointCount)
{
    return std::max<size_t>(1u << 20, 4 * pointCount);
}

double Algo_DemGrid::meanSpacing(const std::vector<pcVec3f>& points)
{
    if (points.size() < 2) return 0.0;
    pcBoundingBoxf box;
    for (const pcVec3f& p : points) box.expandBy(p);
    const double w = double(box.max.x) - box.min.x, h = double(box.max.y) - box.min.y;
    const double n = double(points.size());
    double spacing = w * h > 0 ? std::sqrt(w * h / n) : std::max(w, h) / n;
    if (!(spacing > 0)) return 0.0;
    // The bounding box overstates the area of a ragged or diagonal cloud;
    // counting the cells that hold points on a raster a few spacings wide
    // gets closer, and a second round on the finer estimate closer still.
    for (int round = 0; round < 2; ++round) {
        const double cell = 3.0 * spacing;
        const size_t cols = size_t(w / cell) + 1, rows = size_t(h / cell) + 1;
        if (double(cols) * double(rows) > 4.0 * n) break;
        std::vector<uint8_t> used(cols * rows, 0);
        for (const pcVec3f& p : points)
            used[size_t((p.y - box.min.y) / cell) * cols + size_t((p.x - box.min.x) / cell)] = 1;
        const double occupied = double(std::count(used.begin(), used.end(), uint8_t(1)));
        // the raster can only overstate the area of a very small cloud
        spacing = std::min(spacing, std::sqrt(occupied * cell * cell / n));
    }
    return spacing;
}

bool Algo_DemGrid::build(const std::vector<pcVec3f>& points, const std::vector<int>& labels, int groundLabel,
                         const Params& params, Grid* grid, ILongLiveActionProgress* progress, QString* error)
{
    if (!grid) return Algo_KdTree::Job::fail(error, QObject::tr("no output for the grid"));
    if (!labels.empty() && labels.size() != points.size())
        return Algo_KdTree::Job::fail(error, QObject::tr("labels do not match the points"));
    if (params.cellSize < 0 || !(params.searchCells >= 0.5 && params.searchCells <= 10))
        return Algo_KdTree::Job::fail(error, QObject::tr("cell size must not be negative and the search 0.5 to 10 cells"));
    Algo_KdTree::Job job(progress);
    if (!job.phase(QObject::tr("DEM: indexing ground points"), 0, 10)) return Algo_KdTree::Job::cancelled(error);

    std::vector<pcVec3f> ground;
    if (labels.empty()) {
        ground = points;
    } else {
        for (size_t i = 0; i < points.size(); ++i)
            if (labels[i] == groundLabel) ground.push_back(points[i]);
    }
    if (ground.empty()) return Algo_KdTree::Job::fail(error, QObject::tr("no ground points to build a DEM from"));
    pcBoundingBoxf box;
    for (const pcVec3f& p : points) box.expandBy(p);

    Grid g;
    g.cell = params.cellSize > 0 ? params.cellSize : 2.0 * meanSpacing(ground);
    if (!(g.cell > 0)) g.cell = 1.0;  // all ground on one spot: any cell will do
    g.x0 = box.min.x;
    g.y0 = box.min.y;
    const double cols = std::ceil((box.max.x - g.x0) / g.cell) + 1, rows = std::ceil((box.max.y - g.y0) / g.cell) + 1;
    if (cols * rows > double(maxNodes(points.size())))
        return Algo_KdTree::Job::fail(error, QObject::tr("cell size %1 m is too fine for a %2 x %3 m cloud")
                                                 .arg(g.cell)
                                                 .arg(double(box.max.x - box.min.x), 0, 'f', 1)
                                                 .arg(double(box.max.y - box.min.y), 0, 'f', 1));
    g.cols = int(cols);
    g.rows = int(rows);
    const size_t nodes = size_t(g.cols) * size_t(g.rows);

    PlanIndex index;
    std::vector<uint32_t> bucketOf(ground.size());
    index.start.assign(nodes + 1, 0);
    for (size_t i = 0; i < ground.size(); ++i) {
        const int c = std::clamp(int(std::lround((ground[i].x - g.x0) / g.cell)), 0, g.cols - 1);
        const int r = std::clamp(int(std::lround((ground[i].y - g.y0) / g.cell)), 0, g.rows - 1);
        bucketOf[i] = uint32_t(size_t(r) * size_t(g.cols) + size_t(c));
        ++index.start[bucketOf[i] + 1];
    }
    for (size_t b = 0; b < nodes; ++b) index.start[b + 1] += index.start[b];
    index.pts.resize(ground.size());
    {
        std::vector<uint32_t> fill(index.start.begin(), index.start.end() - 1);
        for (size_t i = 0; i < ground.size(); ++i) index.pts[fill[bucketOf[i]]++] = ground[i];
    }
    if (!job.phase(QObject::tr("DEM: interpolating the grid"), 10, 90)) return Algo_KdTree::Job::cancelled(error);

    g.z.assign(nodes, kHole);
    const double reach2 = params.searchCells * params.searchCells;
    const int ring = int(std::ceil(params.searchCells + 0.5));
    const bool ok = job.parallelFor(size_t(g.rows), std::max<size_t>(1, 65536 / size_t(g.cols)), [&](size_t b, size_t e) {
        std::vector<pcVec3f> nb;
        for (int r = int(b); r < int(e); ++r)
            for (int c = 0; c < g.cols; ++c) {
                const double nx = g.x0 + c * g.cell, ny = g.y0 + r * g.cell;
                nb.clear();
                for (int rr = std::max(0, r - ring); rr <= std::min(g.rows - 1, r + ring); ++rr)
                    for (int cc = std::max(0, c - ring); cc <= std::min(g.cols - 1, c + ring); ++cc) {
                        const size_t bucket = size_t(rr) * size_t(g.cols) + size_t(cc);
                        for (uint32_t k = index.start[bucket]; k < index.start[bucket + 1]; ++k) {
                            const pcVec3f& p = index.pts[k];
                            const float dx = float((p.x - nx) / g.cell), dy = float((p.y - ny) / g.cell);
                            if (double(dx) * dx + double(dy) * dy <= reach2) nb.emplace_back(dx, dy, p.z);
                        }
                    }
                if (nb.size() >= kPlanePoints) g.z[size_t(r) * size_t(g.cols) + size_t(c)] = interpolate(nb);
            }
    });
    if (!ok) return Algo_KdTree::Job::cancelled(error);

    if (!job.phase(QObject::tr("DEM: filling holes"), 90, 100)) return Algo_KdTree::Job::cancelled(error);
    if (std::all_of(g.z.begin(), g.z.end(), [](float z) { return std::isnan(z); })) {
        // Too few ground points for any plane: the best surface they give is
        // level at their mean height.
        double sum = 0;
        for (const pcVec3f& p : ground) sum += p.z;
        std::fill(g.z.begin(), g.z.end(), float(sum / double(ground.size())));
    }
    if (!fillHoles(g, job) || !job.step(1.0)) return Algo_KdTree::Job::cancelled(error);
    *grid = std::move(g);
    return true;
}

void Algo_DemGrid::triangulate(const Grid& grid, std::vector<pcVec3f>* vertices, std::vector<unsigned int>* triangles)
{
    vertices->clear();
    triangles->clear();
    vertices->reserve(grid.z.size());
    for (int r = 0; r < grid.rows; ++r)
        for (int c = 0; c < grid.cols; ++c)
            vertices->emplace_back(float(grid.x0 + c * grid.cell), float(grid.y0 + r * grid.cell), grid.at(c, r));
    if (grid.cols < 2 || grid.rows < 2) return;
    triangles->reserve(size_t(grid.cols - 1) * size_t(grid.rows - 1) * 6);
    const unsigned int cols = unsigned(grid.cols);
    for (unsigned int r = 0; r + 1 < unsigned(grid.rows); ++r)
        for (unsigned int c = 0; c + 1 < cols; ++c) {
            const unsigned int sw = r * cols + c, se = sw + 1, nw = sw + cols, ne = nw + 1;
            triangles->insert(triangles->end(), {sw, se, ne, sw, ne, nw});
        }
}

}  // namespace ptCloud
