#include "Algo_Contours.h"

#include <QObject>
#include <array>
#include <cstdint>
#include <deque>
#include <unordered_map>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

// A cell edge: the one leaving node (c, r) eastwards has id 2 * node, the
// one leaving it northwards 2 * node + 1, so neighbouring cells name a shared
// edge alike and the crossings on it join exactly.
using EdgeId = uint64_t;

struct Segment {
    EdgeId a, b;
};

class LevelTracer {
public:
    LevelTracer(const Algo_DemGrid::Grid& grid, double level) : g(grid), L(level) {}

    void collect(std::vector<Segment>& out) const
    {
        for (int r = 0; r + 1 < g.rows; ++r)
            for (int c = 0; c + 1 < g.cols; ++c) cell(c, r, out);
    }

    pcVec3f crossing(EdgeId e) const
    {
        const size_t node = size_t(e / 2);
        const int c = int(node % size_t(g.cols)), r = int(node / size_t(g.cols));
        const bool north = e % 2;
        const int c2 = north ? c : c + 1, r2 = north ? r + 1 : r;
        const double za = g.at(c, r), zb = g.at(c2, r2);
        const double t = (L - za) / (zb - za);
        return pcVec3f(float(g.x0 + (c + t * (c2 - c)) * g.cell), float(g.y0 + (r + t * (r2 - r)) * g.cell), float(L));
    }

private:
    EdgeId east(int c, int r) const { return 2 * (EdgeId(r) * EdgeId(g.cols) + EdgeId(c)); }
    EdgeId north(int c, int r) const { return east(c, r) + 1; }

    // Marching squares on cell (c, r): corners sw, se, ne, nw are bits 0..3
    // when at or above the level.
    void cell(int c, int r, std::vector<Segment>& out) const
    {
        const float sw = g.at(c, r), se = g.at(c + 1, r), ne = g.at(c + 1, r + 1), nw = g.at(c, r + 1);
        const int code = (sw >= L) | (se >= L) << 1 | (ne >= L) << 2 | (nw >= L) << 3;
        if (code == 0 || code == 15) return;
        const EdgeId S = east(c, r), N = east(c, r + 1), W = north(c, r), E = north(c + 1, r);
        const bool centreAbove = (double(sw) + se + ne + nw) / 4 >= L;
        switch (code) {
        case 1: case 14: out.push_back({W, S}); break;
        case 2: case 13: out.push_back({S, E}); break;
        case 3: case 12: out.push_back({W, E}); break;
        case 4: case 11: out.push_back({E, N}); break;
        case 6: case 9: out.push_back({S, N}); break;
        case 7: case 8: out.push_back({W, N}); break;
        case 5:  // sw and ne above
            if (centreAbove) out.insert(out.end(), {{S, E}, {N, W}});
            else out.insert(out.end(), {{W, S}, {E, N}});
            break;
        case 10:  // se and nw above
            if (centreAbove) out.insert(out.end(), {{W, S}, {E, N}});
            else out.insert(out.end(), {{S, E}, {N, W}});
            break;
        default: break;
        }
    }

    const Algo_DemGrid::Grid& g;
    double L;
};

// Chains the segments of one level: every crossing belongs to at most two
// segments (one in each cell beside its edge).
void chain(const LevelTracer& tracer, const std::vector<Segment>& segs, double absolute,
           std::vector<PtCloud_ContourFile::Polyline>& lines)
{
    std::unordered_map<EdgeId, std::array<int, 2>> at;
    at.reserve(segs.size() * 2);
    for (int s = 0; s < int(segs.size()); ++s)
        for (EdgeId e : {segs[s].a, segs[s].b}) {
            auto it = at.try_emplace(e, std::array<int, 2>{-1, -1}).first;
            it->second[it->second[0] < 0 ? 0 : 1] = s;
        }
    std::vector<bool> used(segs.size(), false);
    auto otherEnd = [&](int s, EdgeId e) { return segs[s].a == e ? segs[s].b : segs[s].a; };
    // The unused segment at edge e, or -1.
    auto nextAt = [&](EdgeId e) {
        for (int s : at[e])
            if (s >= 0 && !used[s]) return s;
        return -1;
    };
    for (int first = 0; first < int(segs.size()); ++first) {
        if (used[first]) continue;
        used[first] = true;
        std::deque<EdgeId> edges{segs[first].a, segs[first].b};
        bool closed = false;
        for (int s; (s = nextAt(edges.back())) >= 0;) {
            used[s] = true;
            const EdgeId e = otherEnd(s, edges.back());
            if (e == edges.front()) {
                closed = true;
                break;
            }
            edges.push_back(e);
        }
        for (int s; !closed && (s = nextAt(edges.front())) >= 0;) {
            used[s] = true;
            edges.push_front(otherEnd(s, edges.front()));
        }
        PtCloud_ContourFile::Polyline line;
        line.level = absolute;
        line.closed = closed;
        line.points.reserve(edges.size());
        for (EdgeId e : edges) line.points.push_back(tracer.crossing(e));
        lines.push_back(std::move(line));
    }
}

}  // namespace

double Algo_Contours::level(double lo, double hi, int k, int count)
{
    return lo + (hi - lo) * k / (count + 1);
}

bool Algo_Contours::trace(const Algo_DemGrid::Grid& grid, const Params& params, double originZ,
                          std::vector<PtCloud_ContourFile::Polyline>* lines, ILongLiveActionProgress* progress,
                          QString* error)
{
    if (!lines) return Algo_KdTree::Job::fail(error, QObject::tr("no output for the contours"));
    if (params.levels < 1 || params.levels > 10000)
        return Algo_KdTree::Job::fail(error, QObject::tr("the number of contour levels must be 1 to 10000"));
    if (grid.z.size() != size_t(grid.cols) * size_t(grid.rows))
        return Algo_KdTree::Job::fail(error, QObject::tr("the grid's heights do not match its size"));
    Algo_KdTree::Job job(progress);
    if (!job.phase(QObject::tr("Contours: tracing levels"), 0, 100)) return Algo_KdTree::Job::cancelled(error);
    float lo = 0, hi = 0;
    grid.range(&lo, &hi);
    std::vector<PtCloud_ContourFile::Polyline> out;
    std::vector<Segment> segs;
    for (int k = 1; k <= params.levels && hi > lo; ++k) {
        const double L = level(lo, hi, k, params.levels);
        const LevelTracer tracer(grid, L);
        segs.clear();
        tracer.collect(segs);
        chain(tracer, segs, L + originZ, out);
        if (!job.step(double(k) / params.levels)) return Algo_KdTree::Job::cancelled(error);
    }
    if (!job.step(1.0)) return Algo_KdTree::Job::cancelled(error);
    lines->swap(out);
    return true;
}

}  // namespace ptCloud
