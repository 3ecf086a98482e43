#include "Algo_EuclideanCluster.h"

#include <cmath>

#include "Algo_KdTree.h"

namespace ptCloud {

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
    std::vector<int> result(n, -1);
    const std::vector<int32_t>& order = tree.order();
    Algo_KdTree::Remaining rest(tree);
    std::vector<int32_t> queue;  // positions in the tree's order
    std::vector<int32_t> near;
    size_t visited = 0;
    if (!job.phase(QStringLiteral("Euclidean: growing clusters"), 15, 95))
        return Algo_KdTree::Job::cancelled(error);
    // seeds in tree order keep the searches of a growing cluster cache-warm
    for (size_t seed = 0; seed < n; ++seed) {
        if (rest.taken(seed)) continue;
        const int id = order[seed];
        rest.take(seed);
        queue.assign(1, static_cast<int32_t>(seed));
        for (size_t head = 0; head < queue.size(); ++head) {
            const size_t at = static_cast<size_t>(queue[head]);
            result[static_cast<size_t>(order[at])] = id;
            rest.radius(points[static_cast<size_t>(order[at])], r2, near);
            for (const int32_t j : near) {
                rest.take(static_cast<size_t>(j));
                queue.push_back(j);
            }
            if ((++visited & 2047) == 0 && !job.step(double(visited) / double(n)))
                return Algo_KdTree::Job::cancelled(error);
        }
    }
    if (!job.phase(QStringLiteral("Euclidean: numbering clusters"), 95, 100))
        return Algo_KdTree::Job::cancelled(error);
    Algo_KdTree::Job::compactLabels(result, static_cast<size_t>(params.minCluster),
                                    static_cast<size_t>(params.maxCluster));
    labels.swap(result);
    job.step(1.0);
    return true;
}

}  // namespace ptCloud
