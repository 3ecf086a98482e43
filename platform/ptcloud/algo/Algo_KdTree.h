#pragma once
// Static k-d tree over single-precision points, shared by the processing
// stages, and the run context (progress, stop, both cores) they share.
//
// Cost: build O(n log n) time; memory about 24 bytes a point (a reordered
// copy of the positions, their original indices, one 40-byte node per
// 8..16 points). k-NN and fixed-radius queries take O(log n + result) on
// well-spread points and are const, so any number of threads may query one
// tree, each with its own result buffers.

#include <QString>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

class Algo_KdTree {
public:
    struct Neighbour {
        int index;    // index into the points the tree was built on
        float dist2;  // squared distance to the query
    };

    // Progress, stop and threads of one stage run. A stage runs in phases,
    // each mapped onto a slice of the 0..100 bar. Only the calling thread
    // talks to the progress sink, as the sink expects; helper threads of
    // parallelFor only see an atomic stop flag.
    class Job {
    public:
        explicit Job(ILongLiveActionProgress* progress);

        // Starts a phase covering [from, to] of the bar. False once a stop
        // was requested.
        bool phase(const QString& text, int from, int to);
        // Reports `fraction` (0..1) of the current phase; false once a stop
        // was requested. Polls the sink, so call it every few milliseconds
        // of work, not per item.
        bool step(double fraction);
        // Runs fn(begin, end) over [0, count) in chunks of `grain` items on
        // every core, the calling thread included; fn must be safe to run
        // concurrently on disjoint ranges. Keep a chunk to a few
        // milliseconds: the stop is polled between chunks. False when a stop
        // was requested (chunks not yet started are then skipped).
        bool parallelFor(size_t count, size_t grain, const std::function<void(size_t, size_t)>& fn);
        bool stopped() const { return m_stopped; }

        // The error of a stopped run, for `return Job::cancelled(error);`.
        static bool cancelled(QString* error);
        // Sets *error (when given) and returns false.
        static bool fail(QString* error, const QString& reason);
        // Renumbers the non-negative ids in `labels` (each below
        // labels.size()) to 0..m-1 in the order of their first point, and
        // sets -1 for ids with fewer than minSize or more than maxSize
        // points (and keeps -1 as it is). Returns m.
        static int compactLabels(std::vector<int>& labels, size_t minSize, size_t maxSize);
        static int threadCount();

    private:
        ILongLiveActionProgress* m_progress;
        int m_from = 0;
        int m_to = 100;
        int m_reported = -1;
        bool m_stopped = false;
    };

    Algo_KdTree();
    ~Algo_KdTree();
    Algo_KdTree(const Algo_KdTree&) = delete;
    Algo_KdTree& operator=(const Algo_KdTree&) = delete;

    // Builds the tree over `points` (copied; the vector may go afterwards).
    // Reports through the job's current phase; false when stopped, leaving
    // the tree empty.
    bool build(const std::vector<pcVec3f>& points, Job* job = nullptr);
    size_t size() const { return m_ids.size(); }
    // Point indices in leaf order. Visiting points in this order keeps the
    // queries of neighbouring points on warm cache lines, several times
    // faster than file order on large clouds.
    const std::vector<int32_t>& order() const { return m_ids; }

    // The k nearest points within sqrt(maxDist2) of q, nearest first, ties
    // broken by the lower index so the answer does not depend on the tree's
    // shape. Replaces `out`.
    void knn(const pcVec3f& q, size_t k, float maxDist2, std::vector<Neighbour>& out) const;
    // Indices of all points with squared distance <= r2 to q, in tree order
    // (deterministic for one tree). Replaces `out`.
    void radius(const pcVec3f& q, float r2, std::vector<int>& out) const;
    // Number of points with squared distance <= r2 to q, counting no
    // further than `limit`.
    size_t countWithin(const pcVec3f& q, float r2, size_t limit) const;

    // Squared distance as every query computes it; a brute-force check that
    // uses it agrees with the tree bit for bit.
    static float dist2(const pcVec3f& a, const pcVec3f& b) {
        const float dx = a.x - b.x, dy = a.y - b.y, dz = a.z - b.z;
        return dx * dx + dy * dy + dz * dz;
    }

private:
    struct Node {
        float lo[3];
        float hi[3];
        int32_t begin;  // range in m_points / m_ids
        int32_t end;
        int32_t right;  // second child; the first is the next node; -1: leaf
        int32_t pad;
    };
    struct Entry {
        pcVec3f p;
        int32_t id;
    };
    int32_t buildNode(int32_t begin, int32_t end, std::vector<Entry>& entries, Job* job, size_t& done);
    // Calls whole(begin, end) for node ranges inside the ball and one(i) for
    // single leaf points inside it (positions in m_points); either returning
    // false ends the walk.
    template <class WholeRange, class OnePoint>
    void visitWithin(const pcVec3f& q, float r2, WholeRange whole, OnePoint one) const;
    static float boxDist2(const Node& n, const pcVec3f& q);
    static float boxFarDist2(const Node& n, const pcVec3f& q);

    std::vector<Node> m_nodes;
    std::vector<pcVec3f> m_points;  // in leaf order
    std::vector<int32_t> m_ids;     // original index of m_points[i]
};

}  // namespace ptCloud
