#pragma once
// Static k-d tree over single-precision points (up to 2^31 - 1 of them),
// shared by the processing stages, with what the stages share besides: the
// run context (progress, stop, both cores), lock-free disjoint sets, and the
// bookkeeping of points a growing stage has taken.
//
// Cost: build O(n log n) time on both cores; memory about 24 bytes a point (a reordered
// copy of the positions, their original indices, one 40-byte node per
// 8..16 points). k-NN and fixed-radius queries take O(log n + result) on
// well-spread points and are const, so any number of threads may query one
// tree, each with its own result buffers.

#include <QString>
#include <atomic>
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
        // Runs fn(begin, end) over [0, count) in chunks on every core, the
        // calling thread included; fn must be safe to run concurrently on
        // disjoint ranges. Chunks start at `grain` items and grow or shrink
        // to take a few milliseconds each, so the stop, polled between the
        // calling thread's chunks, takes effect within about 10 ms whatever
        // an item costs. False when a stop was requested (chunks not yet
        // started are then skipped).
        bool parallelFor(size_t count, size_t grain, const std::function<void(size_t, size_t)>& fn);
        // Runs fn(task, going) for every task in [0, count), one task per
        // core at a time, the calling thread included, for long tasks that
        // cannot be cut into chunks. fn must call going() every few
        // milliseconds and return soon once it says false (a stop was
        // requested). On the calling thread going() also reports
        // done / total of the current phase, so fn should add its finished
        // items to `done` before calling it. False when stopped.
        bool runTasks(size_t count, const std::atomic<size_t>& done, size_t total,
                      const std::function<void(size_t, const std::function<bool()>&)>& fn);
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

    // Disjoint sets over point indices that several threads may join at
    // once without locks. A root only ever links under a smaller root, so
    // each set ends with its smallest index as root whatever the order of
    // the joins: the result is deterministic.
    class Components {
    public:
        explicit Components(size_t n);
        int find(int i);
        void join(int a, int b);
        // out[i] = the smallest index of i's set, ready for compactLabels.
        void roots(std::vector<int>& out);

    private:
        std::vector<std::atomic<int>> m_parent;
    };

    // A subtree: its nodes are consecutive, [node, nodeEnd), and so are its
    // points, positions [begin, end) of order().
    struct Part {
        int32_t node;
        int32_t nodeEnd;
        size_t begin;
        size_t end;
    };
    // The subtrees `levels` below the root (a leaf met higher up stands for
    // itself), in point order: disjoint runs of order() covering every
    // point, which separate threads may work on. Empty for an empty tree.
    std::vector<Part> parts(int levels) const;
    // Squared distance from q to the box of the part's points: no point of
    // the part is closer.
    float partDist2(const Part& part, const pcVec3f& q) const;

    // The points a growing stage has not taken yet. Each node counts its
    // untaken points, so searches skip whole subtrees once they are taken:
    // growth that takes every point once searches ever smaller trees.
    class Remaining {
    public:
        explicit Remaining(const Algo_KdTree& tree);
        // Only the points of `part`: takes (of its positions only) and
        // searches stay inside it, so parts may grow on separate threads.
        Remaining(const Algo_KdTree& tree, const Part& part);
        bool taken(size_t at) const { return m_taken[at - m_part.begin] != 0; }
        // Takes the point at position `at` of order(); O(depth).
        void take(size_t at);
        // Positions (in order()) of the untaken points with squared
        // distance <= r2 to q. Replaces `out`.
        void radius(const pcVec3f& q, float r2, std::vector<int32_t>& out) const;

    private:
        const Algo_KdTree& m_tree;
        Part m_part;
        std::vector<int32_t> m_left;  // untaken points of each node, from m_part.node
        std::vector<char> m_taken;    // by position, from m_part.begin
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
    // The point at position `at` of order(), from the tree's own copy: the
    // copy is in that order, so walking positions reads memory in sequence.
    const pcVec3f& position(size_t at) const { return m_points[at]; }

    // The k nearest points within sqrt(maxDist2) of q, nearest first, ties
    // broken by the lower index so the answer does not depend on the tree's
    // shape. Only points at position `from` or later in order() take part
    // (0: all). Replaces `out`.
    void knn(const pcVec3f& q, size_t k, float maxDist2, std::vector<Neighbour>& out,
             size_t from = 0) const;
    // Indices of all points with squared distance <= r2 to q, in tree order
    // (deterministic for one tree). Replaces `out`.
    void radius(const pcVec3f& q, float r2, std::vector<int>& out) const;
    // The same among the points of one part only.
    void radius(const pcVec3f& q, float r2, std::vector<int>& out, const Part& part) const;

    // Whole-leaf neighbourhoods, for stages that look at every close pair
    // once: one walk of the tree gathers the points near a leaf, then each of
    // the leaf's 8..16 points is measured against that short list in a tight
    // loop, and only against the points after it in order(), so each pair
    // is seen once, from its earlier point. Several times cheaper than a
    // search per point while the gathered list stays short (a few hundred
    // points); with a far larger list a per-point search does less work.
    struct LeafScratch {
        std::vector<float> x, y, z;     // gathered positions
        std::vector<int32_t> ids;       // their original indices
        std::vector<Neighbour> within;  // result of withinGathered
    };
    size_t leafCount() const { return m_leaves.size(); }
    // The leaf's points as positions [begin, end) in order().
    void leafRange(size_t leaf, size_t& begin, size_t& end) const;
    // Gathers, in the order of order(), the points from the leaf's first one
    // on that lie within the leaf's box grown by r on each side: for each of
    // the leaf's points a superset of the later points within r. The leaf's
    // own points come first. Returns the number gathered.
    size_t gatherLeaf(size_t leaf, float r, LeafScratch& s) const;
    // The r to gather with for a search radius: a hair wider, so that no
    // point whose rounded squared distance passes the test is left out.
    static float gatherReach(double radius) { return static_cast<float>(radius * (1.0 + 1e-5)) + 1e-6f; }
    // The gathered points from the from-th on with squared distance <= r2
    // to q, in gathered order. For the leaf's t-th point, from = t + 1 gives
    // exactly the later points within sqrt(r2).
    static void withinGathered(const pcVec3f& q, float r2, size_t from, LeafScratch& s);

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
    struct Subtree {
        int32_t node, begin, end;
    };
    // Node index arithmetic: a subtree over m points always has the same
    // number of nodes, so every node's slot is known before it is built and
    // subtrees can be built on several threads at once.
    using NodeCounts = std::vector<std::pair<int32_t, int32_t>>;  // points -> nodes, sorted
    static int32_t nodeCount(const NodeCounts& counts, int32_t points);
    static int32_t countNodes(int32_t points, NodeCounts& counts);
    // Fills node `index` over entries [begin, end); for an inner node sorts
    // the range about its median and returns the split, else -1.
    int32_t makeNode(int32_t index, int32_t begin, int32_t end, std::vector<Entry>& entries,
                     const NodeCounts& counts);
    void buildSubtree(const Subtree& t, std::vector<Entry>& entries, const NodeCounts& counts);
    Part whole() const;
    // Depth-first walk in point order from node `root`. classify(node) says whether none, all
    // or some of its points qualify; for "some" at a leaf, test(position)
    // decides point by point. take(begin, end) receives qualifying ranges
    // of positions.
    enum class Reach { None, All, Some };
    template <class Classify, class Test, class Take>
    void walk(int32_t root, Classify classify, Test test, Take take) const;
    static float boxDist2(const Node& n, const pcVec3f& q);
    static float boxFarDist2(const Node& n, const pcVec3f& q);

    std::vector<Node> m_nodes;
    std::vector<int32_t> m_leaves;  // node index of each leaf, in order
    std::vector<pcVec3f> m_points;  // in leaf order
    std::vector<int32_t> m_ids;     // original index of m_points[i]
};

}  // namespace ptCloud
