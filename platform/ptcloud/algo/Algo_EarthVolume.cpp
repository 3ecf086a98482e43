#include "Algo_EarthVolume.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

constexpr quint8 kInside = 1;  // cell centre inside the boundary
constexpr quint8 kBand = 2;    // cell may hold samples within one grid size of the outline
constexpr quint8 kQueued = 4;  // cell waits in the fill front

// Items between two stop polls: a few milliseconds of work each.
constexpr size_t kPointsPerPoll = 1 << 16;
constexpr size_t kTrianglesPerPoll = 1 << 14;
constexpr qint64 kCellsPerPoll = 1 << 20;
constexpr size_t kFrontPerPoll = 1 << 16;  // cells being filled

struct Edge {
    double ax, ay, bx, by;

    double distanceTo(double x, double y) const {
        const double dx = bx - ax, dy = by - ay;
        const double len2 = dx * dx + dy * dy;
        double t = len2 > 0.0 ? ((x - ax) * dx + (y - ay) * dy) / len2 : 0.0;
        t = std::clamp(t, 0.0, 1.0);
        const double ex = ax + t * dx - x, ey = ay + t * dy - y;
        return std::sqrt(ex * ex + ey * ey);
    }
};

double distanceToOutline(const std::vector<Edge>& edges, double x, double y) {
    double best = std::numeric_limits<double>::max();
    for (const Edge& e : edges) best = std::min(best, e.distanceTo(x, y));
    return best;
}

// The grid over the boundary's box with a one-cell margin, so that samples
// just outside the outline are there for the boundary average and for
// filling the inside cells next to the outline.
struct Raster {
    double x0 = 0.0, y0 = 0.0, g = 1.0;
    qint64 nx = 0, ny = 0;
    std::vector<float> height;  // NaN where no sample fell
    std::vector<quint8> flags;

    qint64 size() const { return nx * ny; }
    double centreX(qint64 i) const { return x0 + (double(i) + 0.5) * g; }
    double centreY(qint64 j) const { return y0 + (double(j) + 0.5) * g; }
    bool cellOf(double x, double y, qint64& cell) const {
        const double fi = std::floor((x - x0) / g), fj = std::floor((y - y0) / g);
        if (!(fi >= 0.0 && fj >= 0.0 && fi < double(nx) && fj < double(ny))) return false;
        cell = qint64(fj) * nx + qint64(fi);
        return true;
    }
};

class VolumeRun {
public:
    VolumeRun(const Algo_EarthVolume::Params& params, ILongLiveActionProgress* progress, QString* error)
        : m_params(params), m_job(progress), m_error(error) {}

    bool prepare(const std::vector<pcVec3f>& boundary);
    bool binPoints(const std::vector<pcVec3f>& points);
    bool sampleMesh(const std::vector<pcVec3f>& vertices, const std::vector<unsigned int>& triangles);
    bool finish(Algo_EarthVolume::Result& result);

private:
    bool markInside();
    bool markBand();
    bool bandAverageOfCells();
    bool fillEmptyCells(qint64& filledInside);
    bool fail(const QString& why) { return Algo_KdTree::Job::fail(m_error, why); }
    bool cancelled() { return Algo_KdTree::Job::cancelled(m_error); }

    const Algo_EarthVolume::Params& m_params;
    Algo_KdTree::Job m_job;
    QString* m_error;
    std::vector<Edge> m_edges;
    Raster m_raster;
    double m_bandSum = 0.0;
    qint64 m_bandCount = 0;
    bool m_sampleInside = false;
};

bool VolumeRun::prepare(const std::vector<pcVec3f>& boundary) {
    if (!m_job.phase(QStringLiteral("preparing the grid"), 0, 5)) return cancelled();
    const double g = m_params.gridSize;
    if (!(g > 0.0) || !std::isfinite(g)) return fail(QStringLiteral("the grid size must be positive"));
    std::vector<pcVec3f> ring = boundary;
    if (ring.size() > 1 && ring.front().x == ring.back().x && ring.front().y == ring.back().y) ring.pop_back();
    if (ring.size() < 3) return fail(QStringLiteral("the boundary needs at least three points"));
    double area2 = 0.0;
    double minX = std::numeric_limits<double>::max(), minY = minX;
    double maxX = -minX, maxY = -minX;
    for (size_t k = 0; k < ring.size(); ++k) {
        const pcVec3f& a = ring[k];
        const pcVec3f& b = ring[(k + 1) % ring.size()];
        if (!std::isfinite(a.x) || !std::isfinite(a.y))
            return fail(QStringLiteral("the boundary has a point that is not a number"));
        m_edges.push_back({a.x, a.y, b.x, b.y});
        area2 += double(a.x) * b.y - double(b.x) * a.y;
        minX = std::min(minX, double(a.x));
        maxX = std::max(maxX, double(a.x));
        minY = std::min(minY, double(a.y));
        maxY = std::max(maxY, double(a.y));
    }
    if (std::abs(area2) <= 1e-12 * std::max(1.0, (maxX - minX) * (maxY - minY)))
        return fail(QStringLiteral("the boundary encloses no area"));
    Raster& r = m_raster;
    r.g = g;
    r.x0 = (std::floor(minX / g) - 1.0) * g;
    r.y0 = (std::floor(minY / g) - 1.0) * g;
    const double nx = std::floor((maxX - r.x0) / g) + 2.0;
    const double ny = std::floor((maxY - r.y0) / g) + 2.0;
    if (nx * ny > double(Algo_EarthVolume::maxCells)) {
        const double finest = std::sqrt((maxX - minX + 2 * g) * (maxY - minY + 2 * g) /
                                        double(Algo_EarthVolume::maxCells));
        return fail(QStringLiteral("grid size %1 m is too fine for this boundary; use at least %2 m")
                        .arg(g)
                        .arg(finest, 0, 'g', 3));
    }
    r.nx = qint64(nx);
    r.ny = qint64(ny);
    r.height.assign(size_t(r.size()), std::numeric_limits<float>::quiet_NaN());
    r.flags.assign(size_t(r.size()), 0);
    if (!markInside() || !markBand()) return cancelled();
    if (std::none_of(r.flags.begin(), r.flags.end(), [](quint8 f) { return f & kInside; }))
        return fail(QStringLiteral("no grid cell centre lies inside the boundary; use a smaller grid size"));
    return true;
}

// Scanline at each row's centre height: the crossings with the outline pair
// up into runs of inside cell centres.
bool VolumeRun::markInside() {
    Raster& r = m_raster;
    std::vector<double> xs;
    for (qint64 j = 0; j < r.ny; ++j) {
        if (!m_job.step(0.5 * double(j) / double(r.ny))) return false;
        const double y = r.centreY(j);
        xs.clear();
        for (const Edge& e : m_edges) {
            if ((e.ay > y) != (e.by > y)) xs.push_back(e.ax + (y - e.ay) * (e.bx - e.ax) / (e.by - e.ay));
        }
        std::sort(xs.begin(), xs.end());
        for (size_t k = 0; k + 1 < xs.size(); k += 2) {
            // Centres x0 + (i + 0.5) g in [xs[k], xs[k+1]).
            const qint64 i0 = std::max<qint64>(0, qint64(std::ceil((xs[k] - r.x0) / r.g - 0.5)));
            const qint64 i1 = std::min<qint64>(r.nx, qint64(std::ceil((xs[k + 1] - r.x0) / r.g - 0.5)));
            for (qint64 i = i0; i < i1; ++i) r.flags[size_t(j * r.nx + i)] |= kInside;
        }
    }
    return true;
}

// Walks every edge in steps of half a cell and marks the 5 x 5 cells around
// each step: a superset of the cells holding samples within one grid size of
// the outline (such a sample is at most 1.25 cells from some step).
bool VolumeRun::markBand() {
    Raster& r = m_raster;
    for (size_t k = 0; k < m_edges.size(); ++k) {
        if (!m_job.step(0.5 + 0.5 * double(k) / double(m_edges.size()))) return false;
        const Edge& e = m_edges[k];
        const double len = std::hypot(e.bx - e.ax, e.by - e.ay);
        const qint64 steps = qint64(std::ceil(len / (0.5 * r.g))) + 1;
        for (qint64 s = 0; s <= steps; ++s) {
            const double t = double(s) / double(steps);
            const qint64 ci = qint64(std::floor((e.ax + t * (e.bx - e.ax) - r.x0) / r.g));
            const qint64 cj = qint64(std::floor((e.ay + t * (e.by - e.ay) - r.y0) / r.g));
            for (qint64 j = std::max<qint64>(0, cj - 2); j <= std::min(r.ny - 1, cj + 2); ++j)
                for (qint64 i = std::max<qint64>(0, ci - 2); i <= std::min(r.nx - 1, ci + 2); ++i)
                    r.flags[size_t(j * r.nx + i)] |= kBand;
        }
    }
    return true;
}

bool VolumeRun::binPoints(const std::vector<pcVec3f>& points) {
    Raster& r = m_raster;
    std::vector<quint32> count(size_t(r.size()), 0);
    std::fill(r.height.begin(), r.height.end(), 0.f);
    const float top = float(m_params.maxTopHeight);
    if (!m_job.phase(QStringLiteral("binning points"), 5, 65)) return cancelled();
    for (size_t k = 0; k < points.size(); ++k) {
        if (k % kPointsPerPoll == 0 && !m_job.step(0.9 * double(k) / double(points.size()))) return cancelled();
        const pcVec3f& p = points[k];
        qint64 cell = 0;
        if (!(p.z <= top) || !std::isfinite(p.z) || !r.cellOf(p.x, p.y, cell)) continue;
        const size_t c = size_t(cell);
        r.height[c] += p.z;
        ++count[c];
        if ((r.flags[c] & kBand) && distanceToOutline(m_edges, p.x, p.y) <= r.g) {
            m_bandSum += p.z;
            ++m_bandCount;
        }
    }
    for (size_t c = 0; c < count.size(); ++c) {
        if (qint64(c) % kCellsPerPoll == 0 && !m_job.step(0.9 + 0.1 * double(c) / double(count.size())))
            return cancelled();
        if (count[c] == 0) {
            r.height[c] = std::numeric_limits<float>::quiet_NaN();
        } else {
            r.height[c] /= float(count[c]);
            if (r.flags[c] & kInside) m_sampleInside = true;
        }
    }
    if (!m_sampleInside) return fail(QStringLiteral("no points inside the boundary"));
    return true;
}

bool VolumeRun::sampleMesh(const std::vector<pcVec3f>& vertices, const std::vector<unsigned int>& triangles) {
    if (triangles.size() % 3 != 0) return fail(QStringLiteral("the mesh's triangle list is not a multiple of three"));
    Raster& r = m_raster;
    const double top = m_params.maxTopHeight;
    const size_t nTri = triangles.size() / 3;
    if (!m_job.phase(QStringLiteral("sampling the mesh"), 5, 65)) return cancelled();
    for (size_t t = 0; t < nTri; ++t) {
        if (t % kTrianglesPerPoll == 0 && !m_job.step(double(t) / double(nTri))) return cancelled();
        const unsigned int* idx = &triangles[3 * t];
        if (idx[0] >= vertices.size() || idx[1] >= vertices.size() || idx[2] >= vertices.size())
            return fail(QStringLiteral("the mesh refers to a vertex it does not have"));
        const pcVec3f &a = vertices[idx[0]], &b = vertices[idx[1]], &c = vertices[idx[2]];
        const double det = (double(b.x) - a.x) * (double(c.y) - a.y) - (double(c.x) - a.x) * (double(b.y) - a.y);
        if (std::abs(det) < 1e-12) continue;  // vertical in plan: no height of its own
        const double lo[2] = {std::min({a.x, b.x, c.x}) - r.x0, std::min({a.y, b.y, c.y}) - r.y0};
        const double hi[2] = {std::max({a.x, b.x, c.x}) - r.x0, std::max({a.y, b.y, c.y}) - r.y0};
        const qint64 i0 = std::max<qint64>(0, qint64(std::ceil(lo[0] / r.g - 0.5)));
        const qint64 i1 = std::min<qint64>(r.nx - 1, qint64(std::floor(hi[0] / r.g - 0.5)));
        const qint64 j0 = std::max<qint64>(0, qint64(std::ceil(lo[1] / r.g - 0.5)));
        const qint64 j1 = std::min<qint64>(r.ny - 1, qint64(std::floor(hi[1] / r.g - 0.5)));
        // Edge-inclusive with a relative tolerance, so that shared edges leave no holes.
        const double eps = 1e-9;
        for (qint64 j = j0; j <= j1; ++j) {
            const double y = r.centreY(j);
            for (qint64 i = i0; i <= i1; ++i) {
                const double x = r.centreX(i);
                const double wb = ((x - a.x) * (double(c.y) - a.y) - (double(c.x) - a.x) * (y - a.y)) / det;
                const double wc = ((double(b.x) - a.x) * (y - a.y) - (x - a.x) * (double(b.y) - a.y)) / det;
                const double wa = 1.0 - wb - wc;
                if (wa < -eps || wb < -eps || wc < -eps) continue;
                const double z = wa * a.z + wb * b.z + wc * c.z;
                if (!(z <= top)) continue;
                float& h = r.height[size_t(j * r.nx + i)];
                if (std::isnan(h) || float(z) > h) h = float(z);
            }
        }
    }
    for (size_t c = 0; c < r.height.size(); ++c)
        if (!std::isnan(r.height[c]) && (r.flags[c] & kInside)) m_sampleInside = true;
    if (!m_sampleInside) return fail(QStringLiteral("the mesh does not reach inside the boundary"));
    return bandAverageOfCells();
}

bool VolumeRun::bandAverageOfCells() {
    const Raster& r = m_raster;
    for (qint64 j = 0; j < r.ny; ++j) {
        if (!m_job.step(1.0)) return cancelled();
        for (qint64 i = 0; i < r.nx; ++i) {
            const size_t c = size_t(j * r.nx + i);
            if (!(r.flags[c] & kBand) || std::isnan(r.height[c])) continue;
            if (distanceToOutline(m_edges, r.centreX(i), r.centreY(j)) <= r.g) {
                m_bandSum += r.height[c];
                ++m_bandCount;
            }
        }
    }
    return true;
}

// Front by front: every empty cell next to a known one takes the mean of its
// known neighbours, all of a front from the cells known before it.
bool VolumeRun::fillEmptyCells(qint64& filledInside) {
    Raster& r = m_raster;
    std::vector<qint64> front, next;
    std::vector<float> values;
    auto enqueueEmptyNeighbours = [&](qint64 i, qint64 j, std::vector<qint64>& into) {
        for (qint64 dj = -1; dj <= 1; ++dj)
            for (qint64 di = -1; di <= 1; ++di) {
                const qint64 ni = i + di, nj = j + dj;
                if (ni < 0 || nj < 0 || ni >= r.nx || nj >= r.ny) continue;
                const size_t c = size_t(nj * r.nx + ni);
                if (std::isnan(r.height[c]) && !(r.flags[c] & kQueued)) {
                    r.flags[c] |= kQueued;
                    into.push_back(nj * r.nx + ni);
                }
            }
    };
    qint64 empty = 0;
    for (float h : r.height) empty += std::isnan(h) ? 1 : 0;
    for (qint64 j = 0; j < r.ny; ++j) {
        if (!m_job.step(0.0)) return cancelled();
        for (qint64 i = 0; i < r.nx; ++i)
            if (!std::isnan(r.height[size_t(j * r.nx + i)])) enqueueEmptyNeighbours(i, j, front);
    }
    filledInside = 0;
    qint64 filled = 0;
    auto poll = [&](size_t k) { return k % kFrontPerPoll != 0 || m_job.step(double(filled) / double(empty)); };
    while (!front.empty()) {
        values.resize(front.size());
        for (size_t k = 0; k < front.size(); ++k) {
            if (!poll(k)) return cancelled();
            const qint64 i = front[k] % r.nx, j = front[k] / r.nx;
            double sum = 0.0;
            int known = 0;
            for (qint64 nj = std::max<qint64>(0, j - 1); nj <= std::min(r.ny - 1, j + 1); ++nj)
                for (qint64 ni = std::max<qint64>(0, i - 1); ni <= std::min(r.nx - 1, i + 1); ++ni) {
                    const float h = r.height[size_t(nj * r.nx + ni)];
                    if (!std::isnan(h)) {
                        sum += h;
                        ++known;
                    }
                }
            values[k] = float(sum / known);
        }
        next.clear();
        for (size_t k = 0; k < front.size(); ++k) {
            const size_t c = size_t(front[k]);
            r.height[c] = values[k];
            if (r.flags[c] & kInside) ++filledInside;
        }
        for (size_t k = 0; k < front.size(); ++k) {
            if (!poll(k)) return cancelled();
            enqueueEmptyNeighbours(front[k] % r.nx, front[k] / r.nx, next);
        }
        filled += qint64(front.size());
        front.swap(next);
    }
    return true;
}

bool VolumeRun::finish(Algo_EarthVolume::Result& result) {
    Algo_EarthVolume::Result out;
    out.hasBoundaryAverage = m_bandCount > 0;
    out.boundaryAverage = out.hasBoundaryAverage ? m_bandSum / double(m_bandCount) : 0.0;
    if (m_params.groundMode == Algo_EarthVolume::GroundMode::Fixed) {
        out.groundHeight = m_params.groundHeight;
    } else if (out.hasBoundaryAverage) {
        out.groundHeight = out.boundaryAverage;
    } else {
        return fail(QStringLiteral("no samples within one grid size of the boundary to average"));
    }
    if (!m_job.phase(QStringLiteral("filling empty cells"), 65, 90) || !fillEmptyCells(out.filledCells) ||
        !m_job.phase(QStringLiteral("summing volumes"), 90, 100))
        return cancelled();
    const Raster& r = m_raster;
    const double cellArea = r.g * r.g;
    for (qint64 c = 0; c < r.size(); ++c) {
        if (c % kCellsPerPoll == 0 && !m_job.step(double(c) / double(r.size()))) return cancelled();
        if (!(r.flags[size_t(c)] & kInside)) continue;
        ++out.insideCells;
        const double d = double(r.height[size_t(c)]) - out.groundHeight;
        if (d > 0.0)
            out.digVolume += d * cellArea;
        else
            out.fillVolume -= d * cellArea;
    }
    if (!m_job.step(1.0)) return cancelled();
    result = out;
    return true;
}

}  // namespace

bool Algo_EarthVolume::computeGrid(const std::vector<pcVec3f>& points, const std::vector<pcVec3f>& boundary,
                                   const Params& params, Result& result, ILongLiveActionProgress* progress,
                                   QString* error) {
    VolumeRun run(params, progress, error);
    return run.prepare(boundary) && run.binPoints(points) && run.finish(result);
}

bool Algo_EarthVolume::computeDtm(const std::vector<pcVec3f>& vertices, const std::vector<unsigned int>& triangles,
                                  const std::vector<pcVec3f>& boundary, const Params& params, Result& result,
                                  ILongLiveActionProgress* progress, QString* error) {
    VolumeRun run(params, progress, error);
    return run.prepare(boundary) && run.sampleMesh(vertices, triangles) && run.finish(result);
}

}  // namespace ptCloud
