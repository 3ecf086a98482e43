#pragma once
// Normals by a plane fit to each point's k nearest neighbours (the point
// itself included): the direction of least spread of their covariance,
// turned to point up (+z; a horizontal normal points to +x, else +y), with
// the surface variation lambda0 / (lambda0 + lambda1 + lambda2) of the
// eigenvalues as curvature: 0 on a plane, at most 1/3 for spread in all
// directions. Where the neighbours span no plane (fewer than three points,
// or all on one spot) the normal is +z and the curvature 0.
//
// Cost: a k-d tree (O(n log n), ~24 bytes a point) and one k-NN search and a
// 3x3 eigen-decomposition per point, O(n k log n) time on both cores; memory
// 16 bytes a point for the results.

#include <QString>
#include <vector>

#include "Algo_KdTree.h"
#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

class Algo_NormalEstimation {
public:
    struct Params {
        int neighbours = 20;  // points in each plane fit, the point included, >= 3
    };

    // False with "cancelled" when stopped, or a reason for bad parameters;
    // normals and curvature are then left empty.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<pcVec3f>& normals,
                    std::vector<float>& curvature, ILongLiveActionProgress* progress, QString* error);
    // The same with a tree already built over `points`, reporting through
    // the job's current phase; false when stopped. With `table`, also keeps
    // every point's neighbours (nearest first, the point itself included):
    // `neighbours` entries a point, -1 where the cloud has fewer points.
    static bool estimate(const Algo_KdTree& tree, const std::vector<pcVec3f>& points, int neighbours,
                         std::vector<pcVec3f>& normals, std::vector<float>& curvature, Algo_KdTree::Job& job,
                         std::vector<int32_t>* table = nullptr);
};

}  // namespace ptCloud
