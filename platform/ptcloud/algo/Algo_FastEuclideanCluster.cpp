#include "Algo_FastEuclideanCluster.h"

#include <algorithm>
#include <cmath>

#include "Algo_KdTree.h"

namespace ptCloud {

bool Algo_FastEuclideanCluster::run(const std::vector<pcVec3f>& points, const Params& params,
                                    std::vector<int>& labels, ILongLiveActionProgress* progress,
                                    QString* error) {
    labels.clear();
    if (!(params.distanceThreshold > 0.0) || !std::isfinite(params.distanceThreshold))
        return Algo_KdTree::Job::fail(
            error, QStringLiteral("Fast Euclidean: distance threshold must be a positive distance"));
    if (params.maxSize < 1)
        return Algo_KdTree::Job::fail(error, QStringLiteral("Fast Euclidean: max size must be at least 1"));
    Algo_KdTree::Job job(progress);
    Algo_KdTree tree;
    if (!job.phase(QStringLiteral("Fast Euclidean: building the search tree"), 0, 20) ||
        !tree.build(points, &job))
        return Algo_KdTree::Job::cancelled(error);

    const size_t n = points.size();
    const float r2 = static_cast<float>(params.distanceThreshold * params.distanceThreshold);
    const float reach = Algo_KdTree::gatherReach(params.distanceThreshold);
    const size_t k = static_cast<size_t>(params.maxSize);
    // Beyond this many gathered points a capped search per point does less
    // work than measuring them all.
    const size_t batchLimit = 1024 + 32 * k;
    const std::vector<int32_t>& order = tree.order();
    auto nearer = [](const Algo_KdTree::Neighbour& a, const Algo_KdTree::Neighbour& b) {
        return a.dist2 < b.dist2 || (a.dist2 == b.dist2 && a.index < b.index);
    };
    Algo_KdTree::Components components(n);
    if (!job.phase(QStringLiteral("Fast Euclidean: propagating labels"), 20, 95) ||
        !job.parallelFor(tree.leafCount(), 16, [&](size_t begin, size_t end) {
            Algo_KdTree::LeafScratch s;
            std::vector<Algo_KdTree::Neighbour> capped;
            for (size_t leaf = begin; leaf < end; ++leaf) {
                const bool batch = tree.gatherLeaf(leaf, reach, s) <= batchLimit;
                size_t first, last;
                tree.leafRange(leaf, first, last);
                for (size_t at = first; at < last; ++at) {
                    const int i = order[at];
                    const pcVec3f& p = points[static_cast<size_t>(i)];
                    const std::vector<Algo_KdTree::Neighbour>* near = &s.within;
                    if (batch) {
                        Algo_KdTree::withinGathered(p, r2, at - first + 1, s);
                        if (s.within.size() > k) {
                            std::nth_element(s.within.begin(), s.within.begin() + long(k - 1), s.within.end(),
                                             nearer);
                            s.within.resize(k);
                        }
                    } else {
                        tree.knn(p, k, r2, capped, at + 1);
                        near = &capped;
                    }
                    for (const Algo_KdTree::Neighbour& nb : *near) components.join(i, nb.index);
                }
            }
        }))
        return Algo_KdTree::Job::cancelled(error);

    if (!job.phase(QStringLiteral("Fast Euclidean: numbering clusters"), 95, 100))
        return Algo_KdTree::Job::cancelled(error);
    std::vector<int> result;
    components.roots(result);
    Algo_KdTree::Job::compactLabels(result, 1, n);
    labels.swap(result);
    job.step(1.0);
    return true;
}

}  // namespace ptCloud
