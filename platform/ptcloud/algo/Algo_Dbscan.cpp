#include "Algo_Dbscan.h"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>

#include "Algo_KdTree.h"

namespace ptCloud {

bool Algo_Dbscan::run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>& labels,
                      ILongLiveActionProgress* progress, QString* error) {
    labels.clear();
    if (!(params.epsilon > 0.0) || !std::isfinite(params.epsilon))
        return Algo_KdTree::Job::fail(error, QStringLiteral("DBSCAN: epsilon must be a positive distance"));
    if (params.minPts < 1)
        return Algo_KdTree::Job::fail(error, QStringLiteral("DBSCAN: min pts must be at least 1"));
    Algo_KdTree::Job job(progress);
    Algo_KdTree tree;
    if (!job.phase(QStringLiteral("DBSCAN: building the search tree"), 0, 10) || !tree.build(points, &job))
        return Algo_KdTree::Job::cancelled(error);

    const size_t n = points.size();
    const float r2 = static_cast<float>(params.epsilon * params.epsilon);
    const float reach = Algo_KdTree::gatherReach(params.epsilon);
    const uint32_t minPts = static_cast<uint32_t>(params.minPts);
    const std::vector<int32_t>& order = tree.order();
    constexpr size_t kLeavesPerChunk = 16;
    // Calls pair(i, j, d2) once for every two points within epsilon.
    auto forEachPair = [&](const std::function<void(int, int, float)>& pair) {
        return job.parallelFor(tree.leafCount(), kLeavesPerChunk, [&](size_t begin, size_t end) {
            Algo_KdTree::LeafScratch s;
            for (size_t leaf = begin; leaf < end; ++leaf) {
                tree.gatherLeaf(leaf, reach, s);
                size_t first, last;
                tree.leafRange(leaf, first, last);
                for (size_t at = first; at < last; ++at) {
                    const int i = order[at];
                    Algo_KdTree::withinGathered(points[static_cast<size_t>(i)], r2, at - first + 1, s);
                    for (const Algo_KdTree::Neighbour& nb : s.within) pair(i, nb.index, nb.dist2);
                }
            }
        });
    };

    std::vector<std::atomic<uint32_t>> density(n);
    for (std::atomic<uint32_t>& d : density) d.store(1, std::memory_order_relaxed);  // itself
    if (!job.phase(QStringLiteral("DBSCAN: finding core points"), 10, 45) ||
        !forEachPair([&](int i, int j, float) {
            density[static_cast<size_t>(i)].fetch_add(1, std::memory_order_relaxed);
            density[static_cast<size_t>(j)].fetch_add(1, std::memory_order_relaxed);
        }))
        return Algo_KdTree::Job::cancelled(error);
    std::vector<char> core(n);
    for (size_t i = 0; i < n; ++i) core[i] = density[i].load(std::memory_order_relaxed) >= minPts;
    std::vector<std::atomic<uint32_t>>().swap(density);

    // Core pairs join; a core point offers itself to a non-core neighbour,
    // which keeps the nearest offer. The offer packs the squared distance
    // (a non-negative float, whose bits order like its value) above the
    // index, so the smallest key is the nearest core point, ties going to
    // the lower index, whatever the order in which offers arrive.
    Algo_KdTree::Components components(n);
    constexpr uint64_t kNoOffer = ~uint64_t(0);
    std::vector<std::atomic<uint64_t>> nearestCore(n);
    for (std::atomic<uint64_t>& o : nearestCore) o.store(kNoOffer, std::memory_order_relaxed);
    auto offer = [&](int from, int to, float d2) {
        uint32_t bits;
        std::memcpy(&bits, &d2, sizeof bits);
        const uint64_t key = (uint64_t(bits) << 32) | uint32_t(from);
        std::atomic<uint64_t>& slot = nearestCore[static_cast<size_t>(to)];
        uint64_t seen = slot.load(std::memory_order_relaxed);
        while (key < seen && !slot.compare_exchange_weak(seen, key, std::memory_order_relaxed)) {
        }
    };
    if (!job.phase(QStringLiteral("DBSCAN: linking core points"), 45, 95) ||
        !forEachPair([&](int i, int j, float d2) {
            const bool ci = core[static_cast<size_t>(i)], cj = core[static_cast<size_t>(j)];
            if (ci && cj)
                components.join(i, j);
            else if (ci)
                offer(i, j, d2);
            else if (cj)
                offer(j, i, d2);
        }))
        return Algo_KdTree::Job::cancelled(error);
    std::vector<int> result(n);
    for (size_t i = 0; i < n; ++i) {
        const uint64_t o = nearestCore[i].load(std::memory_order_relaxed);
        const int root = core[i] ? static_cast<int>(i) : (o == kNoOffer ? -1 : static_cast<int>(o & 0xffffffffu));
        result[i] = root < 0 ? -1 : components.find(root);
    }

    if (!job.phase(QStringLiteral("DBSCAN: numbering clusters"), 95, 100))
        return Algo_KdTree::Job::cancelled(error);
    const int clusters = Algo_KdTree::Job::compactLabels(result, 1, n);
    if (params.retainNoise)
        for (int& l : result)
            if (l < 0) l = clusters;
    labels.swap(result);
    job.step(1.0);
    return true;
}

}  // namespace ptCloud
