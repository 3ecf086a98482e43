#include "Algo_RegionGrowing.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "Algo_KdTree.h"
#include "Algo_NormalEstimation.h"

namespace ptCloud {

namespace {

using Job = Algo_KdTree::Job;

// Neighbour tables above this many entries are not kept (256 MB).
constexpr size_t kTableLimit = size_t(64) << 20;
constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180.0;

}  // namespace

bool Algo_RegionGrowing::run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>& labels,
                             ILongLiveActionProgress* progress, QString* error) {
    labels.clear();
    if (params.neighbours < 1)
        return Job::fail(error, QStringLiteral("region growing: tolerance must be at least 1 neighbour"));
    if (!(params.smoothDegrees >= 0.0 && params.smoothDegrees <= 180.0))
        return Job::fail(error, QStringLiteral("region growing: smooth must be an angle of 0 to 180 degrees"));
    if (!(params.curvature >= 0.0) || !std::isfinite(params.curvature))
        return Job::fail(error, QStringLiteral("region growing: cure must be a curvature of 0 or more"));
    if (params.minCluster < 1 || params.maxCluster < params.minCluster)
        return Job::fail(error, QStringLiteral("region growing: need 1 <= min cluster <= max cluster"));

    const size_t n = points.size();
    // the point comes back as its own nearest neighbour
    const size_t k = static_cast<size_t>(params.neighbours) + 1;
    const int fit = static_cast<int>(std::max<size_t>(k, 3));
    Job job(progress);
    Algo_KdTree tree;
    std::vector<pcVec3f> normals;
    std::vector<float> curvature;
    std::vector<int32_t> table;
    const bool keepTable = n * size_t(fit) <= kTableLimit;
    if (!job.phase(QStringLiteral("region growing: building the search tree"), 0, 10) || !tree.build(points, &job) ||
        !job.phase(QStringLiteral("region growing: estimating normals"), 10, 55) ||
        !Algo_NormalEstimation::estimate(tree, points, fit, normals, curvature, job, keepTable ? &table : nullptr) ||
        !job.phase(QStringLiteral("region growing: ordering seeds"), 55, 60))
        return Job::cancelled(error);

    std::vector<int32_t> seeds(n);
    for (size_t i = 0; i < n; ++i) seeds[i] = static_cast<int32_t>(i);
    std::sort(seeds.begin(), seeds.end(), [&](int32_t a, int32_t b) {
        const float ca = curvature[static_cast<size_t>(a)], cb = curvature[static_cast<size_t>(b)];
        return ca < cb || (ca == cb && a < b);
    });

    const float cosLimit = static_cast<float>(std::cos(params.smoothDegrees * kRadiansPerDegree));
    const float cure = static_cast<float>(std::min(params.curvature, double(std::numeric_limits<float>::max())));
    const float unlimited = std::numeric_limits<float>::infinity();
    std::vector<int> result(n, -1);
    std::vector<int32_t> queue;
    std::vector<Algo_KdTree::Neighbour> near;
    std::vector<int32_t> found;
    size_t visited = 0;
    // a visit costs about k steps (a k-NN search without the table): poll
    // every ~64k steps
    const size_t pollEvery = std::max<size_t>(1, (size_t(1) << 16) / k);
    if (!job.phase(QStringLiteral("region growing: growing regions"), 60, 98)) return Job::cancelled(error);
    for (const int32_t seed : seeds) {
        if (result[static_cast<size_t>(seed)] >= 0) continue;
        const pcVec3f& seedNormal = normals[static_cast<size_t>(seed)];
        result[static_cast<size_t>(seed)] = seed;
        queue.assign(1, seed);  // the seed grows whatever its curvature
        for (size_t head = 0; head < queue.size(); ++head) {
            const size_t cur = static_cast<size_t>(queue[head]);
            const int32_t* nb;
            size_t count;
            if (keepTable) {
                nb = table.data() + cur * size_t(fit);
                count = std::min(k, size_t(fit));
            } else {
                tree.knn(points[cur], k, unlimited, near);
                found.clear();
                for (const Algo_KdTree::Neighbour& x : near) found.push_back(x.index);
                nb = found.data();
                count = found.size();
            }
            for (size_t j = 0; j < count; ++j) {
                const int32_t other = nb[j];
                if (other < 0 || result[static_cast<size_t>(other)] >= 0) continue;
                const pcVec3f& on = normals[static_cast<size_t>(other)];
                const float dot = seedNormal.x * on.x + seedNormal.y * on.y + seedNormal.z * on.z;
                if (std::fabs(dot) < cosLimit) continue;
                result[static_cast<size_t>(other)] = seed;
                if (curvature[static_cast<size_t>(other)] < cure) queue.push_back(other);
            }
            if (++visited % pollEvery == 0 && !job.step(double(visited) / double(n))) return Job::cancelled(error);
        }
    }
    if (!job.phase(QStringLiteral("region growing: numbering regions"), 98, 100)) return Job::cancelled(error);
    Job::compactLabels(result, static_cast<size_t>(params.minCluster), static_cast<size_t>(params.maxCluster));
    labels.swap(result);
    job.step(1.0);
    return true;
}

}  // namespace ptCloud
