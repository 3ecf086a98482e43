#include "Algo_NormalEstimation.h"

#include <Eigen/Eigenvalues>
#include <limits>

namespace ptCloud {

namespace {

// Fits the plane of the given points; returns false when they span none.
bool fitPlane(const std::vector<pcVec3f>& points, const std::vector<Algo_KdTree::Neighbour>& near, pcVec3f& normal,
              float& curvature) {
    if (near.size() < 3) return false;
    Eigen::Vector3d mean = Eigen::Vector3d::Zero();
    for (const Algo_KdTree::Neighbour& nb : near) {
        const pcVec3f& p = points[static_cast<size_t>(nb.index)];
        mean += Eigen::Vector3d(p.x, p.y, p.z);
    }
    mean /= double(near.size());
    Eigen::Matrix3d cov = Eigen::Matrix3d::Zero();
    for (const Algo_KdTree::Neighbour& nb : near) {
        const pcVec3f& p = points[static_cast<size_t>(nb.index)];
        const Eigen::Vector3d d = Eigen::Vector3d(p.x, p.y, p.z) - mean;
        cov += d * d.transpose();
    }
    const double trace = cov.trace();
    if (!(trace > 0.0)) return false;
    Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver;
    solver.computeDirect(cov / trace);  // scaled: the closed form is most accurate near unit size
    const Eigen::Vector3d values = solver.eigenvalues();  // ascending
    const double sum = values.sum();
    Eigen::Vector3d n = solver.eigenvectors().col(0).normalized();
    if (!n.allFinite()) return false;
    if (n.z() < 0.0 || (n.z() == 0.0 && (n.x() < 0.0 || (n.x() == 0.0 && n.y() < 0.0)))) n = -n;
    normal = pcVec3f(float(n.x()), float(n.y()), float(n.z()));
    curvature = sum > 0.0 ? float(std::max(0.0, values(0)) / sum) : 0.f;
    return true;
}

}  // namespace

bool Algo_NormalEstimation::run(const std::vector<pcVec3f>& points, const Params& params,
                                std::vector<pcVec3f>& normals, std::vector<float>& curvature,
                                ILongLiveActionProgress* progress, QString* error) {
    normals.clear();
    curvature.clear();
    if (params.neighbours < 3)
        return Algo_KdTree::Job::fail(error, QStringLiteral("normals: need at least 3 neighbours a point"));
    Algo_KdTree::Job job(progress);
    Algo_KdTree tree;
    if (!job.phase(QStringLiteral("normals: building the search tree"), 0, 20) || !tree.build(points, &job) ||
        !job.phase(QStringLiteral("normals: fitting planes"), 20, 100) ||
        !estimate(tree, points, params.neighbours, normals, curvature, job))
        return Algo_KdTree::Job::cancelled(error);
    return true;
}

bool Algo_NormalEstimation::estimate(const Algo_KdTree& tree, const std::vector<pcVec3f>& points, int neighbours,
                                     std::vector<pcVec3f>& normals, std::vector<float>& curvature,
                                     Algo_KdTree::Job& job, std::vector<int32_t>* table) {
    const size_t k = static_cast<size_t>(neighbours);
    if (table) table->assign(points.size() * k, -1);
    std::vector<pcVec3f> n(points.size());
    std::vector<float> c(points.size());
    const std::vector<int32_t>& order = tree.order();
    const float unlimited = std::numeric_limits<float>::infinity();
    if (!job.parallelFor(points.size(), 256, [&](size_t begin, size_t end) {
            std::vector<Algo_KdTree::Neighbour> near;
            for (size_t at = begin; at < end; ++at) {
                const size_t i = static_cast<size_t>(order[at]);
                tree.knn(points[i], k, unlimited, near);
                if (table)
                    for (size_t j = 0; j < near.size(); ++j) (*table)[i * k + j] = near[j].index;
                if (!fitPlane(points, near, n[i], c[i])) {
                    n[i] = pcVec3f(0.f, 0.f, 1.f);
                    c[i] = 0.f;
                }
            }
        })) {
        normals.clear();
        curvature.clear();
        if (table) table->clear();
        return false;
    }
    normals.swap(n);
    curvature.swap(c);
    return true;
}

}  // namespace ptCloud
