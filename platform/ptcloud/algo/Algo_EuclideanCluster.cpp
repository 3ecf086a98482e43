#include "Algo_EuclideanCluster.h"

#include <atomic>
#include <cmath>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

// Four parts on two cores: a part that grows slower than its twin leaves
// the other core a part to take instead of idling.
constexpr int kPartLevels = 2;

// Grows the clusters of one part as if its points were the whole cloud,
// each labelled with the index of its first point; clusters that cross
// into other parts come out as fragments. Returns early when stopped.
void growPart(const Algo_KdTree& tree, const Algo_KdTree::Part& part, float r2, std::vector<int>& labels,
              std::atomic<size_t>& visited, const std::function<bool()>& going) {
    const std::vector<int32_t>& order = tree.order();
    Algo_KdTree::Remaining rest(tree, part);
    std::vector<int32_t> queue;  // positions in the tree's order
    std::vector<int32_t> near;
    size_t unreported = 0;
    // seeds in tree order keep the searches of a growing cluster cache-warm
    for (size_t seed = part.begin; seed < part.end; ++seed) {
        if (rest.taken(seed)) continue;
        const int id = order[seed];
        rest.take(seed);
        queue.assign(1, static_cast<int32_t>(seed));
        for (size_t head = 0; head < queue.size(); ++head) {
            const size_t at = static_cast<size_t>(queue[head]);
            labels[static_cast<size_t>(order[at])] = id;
            rest.radius(tree.position(at), r2, near);
            for (const int32_t j : near) {
                rest.take(static_cast<size_t>(j));
                queue.push_back(j);
            }
            if (++unreported == 2048) {
                visited.fetch_add(unreported, std::memory_order_relaxed);
                unreported = 0;
                if (!going()) return;
            }
        }
    }
    visited.fetch_add(unreported, std::memory_order_relaxed);
}

}  // namespace

bool Algo_EuclideanCluster::run(const std::vector<pcVec3f>& points, const Params& params,
                                std::vector<int>& labels, ILongLiveActionProgress* progress,
                                QString* error) {
    labels.clear();
    if (!(params.tolerance > 0.0) || !std::isfinite(params.tolerance))
        return Algo_KdTree::Job::fail(error, QStringLiteral("Euclidean: tolerance must be a positive distance"));
    if (params.minCluster < 1 || params.maxCluster < params.minCluster)
        return Algo_KdTree::Job::fail(
            error, QStringLiteral("Euclidean: need 1 <= min cluster <= max cluster"));
    Algo_KdTree::Job job(progress);
    Algo_KdTree tree;
    if (!job.phase(QStringLiteral("Euclidean: building the search tree"), 0, 15) || !tree.build(points, &job))
        return Algo_KdTree::Job::cancelled(error);

    const size_t n = points.size();
    const float r2 = static_cast<float>(params.tolerance * params.tolerance);
    const std::vector<int32_t>& order = tree.order();
    const std::vector<Algo_KdTree::Part> parts = tree.parts(kPartLevels);
    std::vector<int> result(n, -1);
    std::atomic<size_t> visited{0};
    if (!job.phase(QStringLiteral("Euclidean: growing clusters"), 15, 85) ||
        !job.runTasks(parts.size(), visited, n, [&](size_t p, const std::function<bool()>& going) {
            growPart(tree, parts[p], r2, result, visited, going);
        }))
        return Algo_KdTree::Job::cancelled(error);

    // A cluster crossing parts is split into fragments, joined here through
    // its close pairs across the parts' boundaries: only points within the
    // tolerance of a later part's box can have such a pair, each is found
    // once from its point in the earlier part.
    Algo_KdTree::Components fragments(n);
    if (!job.phase(QStringLiteral("Euclidean: joining clusters across parts"), 85, 95) ||
        !job.parallelFor(n, 4096, [&](size_t begin, size_t end) {
            std::vector<int> near;
            size_t part = 0;
            for (size_t at = begin; at < end; ++at) {
                while (at >= parts[part].end) ++part;
                const size_t id = static_cast<size_t>(order[at]);
                const pcVec3f& p = tree.position(at);
                for (size_t other = part + 1; other < parts.size(); ++other) {
                    if (tree.partDist2(parts[other], p) > r2) continue;
                    tree.radius(p, r2, near, parts[other]);
                    for (const int j : near) fragments.join(result[id], result[static_cast<size_t>(j)]);
                }
            }
        }))
        return Algo_KdTree::Job::cancelled(error);

    if (!job.phase(QStringLiteral("Euclidean: numbering clusters"), 95, 100) ||
        !job.parallelFor(n, 4096, [&](size_t begin, size_t end) {
            for (size_t i = begin; i < end; ++i) result[i] = fragments.find(result[i]);
        }))
        return Algo_KdTree::Job::cancelled(error);
    Algo_KdTree::Job::compactLabels(result, static_cast<size_t>(params.minCluster),
                                    static_cast<size_t>(params.maxCluster));
    labels.swap(result);
    job.step(1.0);
    return true;
}

}  // namespace ptCloud
