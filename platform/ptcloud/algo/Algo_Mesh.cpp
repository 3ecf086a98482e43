#include "Algo_Mesh.h"

#include <open3d/geometry/KDTreeSearchParam.h>
#include <open3d/geometry/PointCloud.h>
#include <open3d/geometry/TriangleMesh.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "Algo_KdTree.h"
#include "Algo_Random.h"

namespace ptCloud {

namespace {

using open3d::geometry::PointCloud;
using open3d::geometry::TriangleMesh;
using Job = Algo_KdTree::Job;

constexpr size_t kConvertPoll = 1 << 16;  // points, vertices or triangles between stop polls
// No point of a kept triangle lies farther than this many mean point
// spacings from the nearest input point.
constexpr double kReachSpacings = 2.0;
constexpr auto kWorkerPoll = std::chrono::milliseconds(50);

// Held by the worker during a library call. Never destroyed: a call left
// running after a stop may still hold it while the process shuts down.
std::mutex& libraryGate() {
    static std::mutex* gate = new std::mutex;
    return *gate;
}

struct WorkerState {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    std::atomic<bool> abandoned{false};
    std::string failure;
};

// Open3D's messages carry colour codes and the source location before the
// reason; qhull's run over many lines. The first line's reason is enough.
QString reasonOf(const std::string& what) {
    std::string text;
    for (size_t i = 0; i < what.size(); ++i) {
        if (what[i] == '\x1b') {
            while (i < what.size() && what[i] != 'm') ++i;
        } else if (what[i] == '\n') {
            if (!text.empty()) break;
        } else {
            text += what[i];
        }
    }
    const size_t located = text.find(".cpp:");
    const size_t colon = located == std::string::npos ? located : text.find(": ", located);
    if (colon != std::string::npos) text = text.substr(colon + 2);
    return QString::fromStdString(text).trimmed();
}

// Runs an uninterruptible library call on a worker thread and polls for
// stop meanwhile. work must own (through shared pointers) everything it
// touches: after a stop it is left to finish on its own.
bool runInterruptibly(Job& job, std::function<void()> work, QString* error) {
    auto state = std::make_shared<WorkerState>();
    try {
        std::thread([state, work = std::move(work)]() {
            std::string failure;
            {
                std::lock_guard<std::mutex> gate(libraryGate());
                if (!state->abandoned.load()) {
                    try {
                        work();
                    } catch (const std::exception& e) {
                        failure = *e.what() ? e.what() : "the library failed";
                    } catch (...) {
                        failure = "the library failed";
                    }
                }
            }
            std::lock_guard<std::mutex> lock(state->mutex);
            state->failure = failure;
            state->done = true;
            state->finished.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        return Job::fail(error, QStringLiteral("could not start a worker thread"));
    }
    std::unique_lock<std::mutex> lock(state->mutex);
    while (!state->finished.wait_for(lock, kWorkerPoll, [&] { return state->done; })) {
        lock.unlock();
        const bool goOn = job.step(0.0);
        lock.lock();
        if (!goOn) {
            state->abandoned = true;
            return Job::cancelled(error);
        }
    }
    if (!state->failure.empty()) return Job::fail(error, reasonOf(state->failure));
    return job.step(1.0) || Job::cancelled(error);
}

// A fixed pseudo-random value in [-1, 1) per key.
double unitNoise(uint64_t key) { return double(Algo_Random::splitMix(key) >> 11) * 0x1.0p-52 - 1.0; }

// Hash of a position's exact bits.
size_t bitsHash(const Eigen::Vector3d& v) {
    uint64_t bits[3];
    std::memcpy(bits, v.data(), sizeof(bits));
    return size_t(bits[0] * 0x9E3779B97F4A7C15ull ^ bits[1] * 0xC2B2AE3D27D4EB4Full ^ bits[2] * 0x165667B19E3779F9ull);
}

struct Built {
    std::shared_ptr<TriangleMesh> mesh;
    std::vector<double> densities;  // Poisson only
};

class MeshRun {
public:
    MeshRun(const std::vector<pcVec3f>& points, const Algo_Mesh::Params& params, ILongLiveActionProgress* progress,
            QString* error)
        : m_points(points), m_params(params), m_job(progress), m_error(error),
          m_cloud(std::make_shared<PointCloud>()), m_built(std::make_shared<Built>()) {}

    bool prepareCloud();
    bool estimateNormals();
    bool reconstruct();
    bool collect(std::vector<pcVec3f>& vertices, std::vector<unsigned int>& triangles,
                 std::vector<pcVec3f>* normals);

private:
    bool cancelled() { return Job::cancelled(m_error); }
    bool mapVerticesToPoints(std::vector<int>& source);
    void markSparseVertices(std::vector<char>& drop) const;
    bool measureReach(bool fromPoints, std::vector<float>& vertexDistance, double* limit);
    bool strays(const Eigen::Vector3i& t, const std::vector<float>& vertexDistance, double limit) const;

    const std::vector<pcVec3f>& m_points;
    const Algo_Mesh::Params& m_params;
    Job m_job;
    QString* m_error;
    std::shared_ptr<PointCloud> m_cloud;
    std::shared_ptr<Built> m_built;
};

// The one double-precision copy Open3D works on, joggled by about 1e-7 of
// the extent: far below any scanner's noise, yet enough that flat or
// cospherical input (a planar grid, a sampled sphere) still tetrahedralises.
bool MeshRun::prepareCloud() {
    if (!m_job.phase(QStringLiteral("preparing points"), 0, 5)) return cancelled();
    pcBoundingBoxf box;
    for (const pcVec3f& p : m_points) box.expandBy(p);
    const double jog = 2e-7 * double(box.radius());
    std::vector<Eigen::Vector3d>& out = m_cloud->points_;
    out.resize(m_points.size());
    for (size_t i = 0; i < m_points.size(); ++i) {
        if (i % kConvertPoll == 0 && !m_job.step(double(i) / double(m_points.size()))) return cancelled();
        const pcVec3f& p = m_points[i];
        out[i] = Eigen::Vector3d(double(p.x) + jog * unitNoise(3 * i), double(p.y) + jog * unitNoise(3 * i + 1),
                                 double(p.z) + jog * unitNoise(3 * i + 2));
    }
    return true;
}

bool MeshRun::estimateNormals() {
    const bool fast = m_params.fastNormal;
    const int k = m_params.normalNeighbours;
    std::shared_ptr<PointCloud> cloud = m_cloud;
    if (!m_job.phase(QStringLiteral("estimating normals"), 5, fast ? 25 : 15)) return cancelled();
    if (!runInterruptibly(m_job, [cloud, k] { cloud->EstimateNormals(open3d::geometry::KDTreeSearchParamKNN(k)); },
                          m_error))
        return false;
    if (fast) {
        m_cloud->OrientNormalsToAlignWithDirection(Eigen::Vector3d(0.0, 0.0, 1.0));
        return true;
    }
    const size_t graph = size_t(m_params.orientNeighbours);
    if (!m_job.phase(QStringLiteral("orienting normals consistently"), 15, 45)) return cancelled();
    return runInterruptibly(m_job, [cloud, graph] { cloud->OrientNormalsConsistentTangentPlane(graph); }, m_error);
}

bool MeshRun::reconstruct() {
    std::shared_ptr<PointCloud> cloud = m_cloud;
    std::shared_ptr<Built> built = m_built;
    const int from = m_params.fastNormal ? 25 : 45;
    std::function<void()> work;
    QString text;
    switch (m_params.method) {
    case Algo_Mesh::Method::AlphaShape: {
        const double alpha = m_params.alpha;
        text = QStringLiteral("building the alpha shape");
        work = [cloud, built, alpha] { built->mesh = TriangleMesh::CreateFromPointCloudAlphaShape(*cloud, alpha); };
        break;
    }
    case Algo_Mesh::Method::BallPivoting: {
        // The larger ball bridges the gaps the first one fell through.
        const std::vector<double> radii{m_params.ballRadius, 2.0 * m_params.ballRadius};
        text = QStringLiteral("pivoting the ball");
        work = [cloud, built, radii] { built->mesh = TriangleMesh::CreateFromPointCloudBallPivoting(*cloud, radii); };
        break;
    }
    case Algo_Mesh::Method::Poisson: {
        // A width asks for the level whose cells (1.1 times the largest
        // extent, halved per level) first reach it; depth stays the cap so
        // that a tiny width cannot exhaust memory.
        int depth = int(m_params.depth);
        if (m_params.width > 0.0) {
            const Eigen::Vector3d extent = cloud->GetMaxBound() - cloud->GetMinBound();
            const double levels = std::ceil(std::log2(1.1 * extent.maxCoeff() / m_params.width));
            depth = std::min(depth, int(std::max(levels, 1.0)));
        }
        depth = std::max(depth, 2);
        text = QStringLiteral("solving the Poisson surface");
        work = [cloud, built, depth] {
            std::tie(built->mesh, built->densities) =
                TriangleMesh::CreateFromPointCloudPoisson(*cloud, size_t(depth), 0.f, 1.1f, false, 1);
        };
        break;
    }
    }
    if (!m_job.phase(text, from, 85)) return cancelled();
    if (!runInterruptibly(m_job, std::move(work), m_error)) return false;
    if (!m_built->mesh) return Job::fail(m_error, QStringLiteral("the library returned no mesh"));
    return true;
}

// Alpha shape and ball pivoting vertices are copies of the (joggled, hence
// distinct) cloud points: an exact-bits lookup finds each one's input index.
bool MeshRun::mapVerticesToPoints(std::vector<int>& source) {
    const std::vector<Eigen::Vector3d>& verts = m_built->mesh->vertices_;
    // Open addressing over flat arrays: no per-entry allocation to build or free.
    size_t capacity = 16;
    while (capacity < 2 * verts.size()) capacity *= 2;
    const size_t mask = capacity - 1;
    std::vector<int> table(capacity, -1);
    for (size_t v = 0; v < verts.size(); ++v) {
        if (v % kConvertPoll == 0 && !m_job.step(0.2 * double(v) / double(verts.size()))) return cancelled();
        size_t h = bitsHash(verts[v]) & mask;
        while (table[h] >= 0) h = (h + 1) & mask;
        table[h] = int(v);
    }
    source.assign(verts.size(), -1);
    const std::vector<Eigen::Vector3d>& cloud = m_cloud->points_;
    for (size_t i = 0; i < cloud.size(); ++i) {
        if (i % kConvertPoll == 0 && !m_job.step(0.2 + 0.2 * double(i) / double(cloud.size()))) return cancelled();
        for (size_t h = bitsHash(cloud[i]) & mask; table[h] >= 0; h = (h + 1) & mask) {
            if (verts[size_t(table[h])] == cloud[i]) {
                source[size_t(table[h])] = int(i);
                break;
            }
        }
    }
    if (std::find(source.begin(), source.end(), -1) != source.end())
        return Job::fail(m_error, QStringLiteral("the mesh has a vertex that is not an input point"));
    return true;
}

// Keeps the densest 1/divide of the Poisson vertices.
void MeshRun::markSparseVertices(std::vector<char>& drop) const {
    const std::vector<double>& density = m_built->densities;
    drop.assign(m_built->mesh->vertices_.size(), 0);
    if (m_params.densityDivide <= 1.0 || density.size() != drop.size() || drop.empty()) return;
    std::vector<double> sorted = density;
    const size_t cut = std::min(sorted.size() - 1, size_t((1.0 - 1.0 / m_params.densityDivide) * double(sorted.size())));
    std::nth_element(sorted.begin(), sorted.begin() + std::ptrdiff_t(cut), sorted.end());
    const double threshold = sorted[cut];
    for (size_t v = 0; v < drop.size(); ++v) drop[v] = density[v] < threshold ? 1 : 0;
}

// The reach a triangle may have (kReachSpacings times the mean distance from
// an input point to its nearest neighbour) and each vertex's distance to the
// nearest input point (0 for vertices that are input points).
bool MeshRun::measureReach(bool fromPoints, std::vector<float>& vertexDistance, double* limit) {
    if (!m_job.phase(QStringLiteral("measuring the point spacing"), 85, 87)) return cancelled();
    Algo_KdTree tree;
    if (!tree.build(m_points, &m_job)) return cancelled();
    if (!m_job.phase(QStringLiteral("measuring the point spacing"), 87, 89)) return cancelled();
    std::vector<double> nearest(m_points.size(), 0.0);
    const bool measured = m_job.parallelFor(m_points.size(), 4096, [&](size_t begin, size_t end) {
        std::vector<Algo_KdTree::Neighbour> found;
        for (size_t i = begin; i < end; ++i) {
            tree.knn(m_points[i], 2, std::numeric_limits<float>::max(), found);
            if (found.size() == 2) nearest[i] = std::sqrt(double(found[1].dist2));
        }
    });
    if (!measured) return cancelled();
    double sum = 0.0;
    for (double d : nearest) sum += d;
    *limit = kReachSpacings * sum / double(nearest.size());
    const std::vector<Eigen::Vector3d>& verts = m_built->mesh->vertices_;
    vertexDistance.assign(verts.size(), 0.f);
    if (fromPoints) return true;
    if (!m_job.phase(QStringLiteral("measuring the mesh's distance to the points"), 89, 90)) return cancelled();
    const bool done = m_job.parallelFor(verts.size(), 4096, [&](size_t begin, size_t end) {
        std::vector<Algo_KdTree::Neighbour> found;
        for (size_t v = begin; v < end; ++v) {
            const pcVec3f q(float(verts[v].x()), float(verts[v].y()), float(verts[v].z()));
            tree.knn(q, 1, std::numeric_limits<float>::max(), found);
            vertexDistance[v] = found.empty() ? std::numeric_limits<float>::max() : std::sqrt(found[0].dist2);
        }
    });
    return done || cancelled();
}

// Every point of a triangle lies within longest edge / sqrt(3) of one of its
// corners (the circumradius of the worst, equilateral, case), so it lies
// within that plus the corner's own distance of an input point.
bool MeshRun::strays(const Eigen::Vector3i& t, const std::vector<float>& vertexDistance, double limit) const {
    const std::vector<Eigen::Vector3d>& verts = m_built->mesh->vertices_;
    const Eigen::Vector3d& a = verts[size_t(t[0])];
    const Eigen::Vector3d& b = verts[size_t(t[1])];
    const Eigen::Vector3d& c = verts[size_t(t[2])];
    const double edge2 = std::max({(a - b).squaredNorm(), (b - c).squaredNorm(), (c - a).squaredNorm()});
    const double corner = std::max({vertexDistance[size_t(t[0])], vertexDistance[size_t(t[1])],
                                    vertexDistance[size_t(t[2])]});
    return corner + std::sqrt(edge2 / 3.0) > limit;
}

bool MeshRun::collect(std::vector<pcVec3f>& vertices, std::vector<unsigned int>& triangles,
                      std::vector<pcVec3f>* normals) {
    TriangleMesh& mesh = *m_built->mesh;
    const bool fromPoints = m_params.method != Algo_Mesh::Method::Poisson;
    std::vector<float> vertexDistance;
    double limit = 0.0;
    if (!measureReach(fromPoints, vertexDistance, &limit)) return false;
    if (!m_job.phase(QStringLiteral("collecting the mesh"), 90, 100)) return cancelled();
    std::vector<int> source;
    std::vector<char> drop;
    if (fromPoints) {
        if (!mapVerticesToPoints(source)) return false;
        drop.assign(mesh.vertices_.size(), 0);
    } else {
        markSparseVertices(drop);
        if (normals && !mesh.HasVertexNormals()) mesh.ComputeVertexNormals();
    }
    // Vertices used by a kept triangle, renumbered in their original order.
    std::vector<int> renumber(mesh.vertices_.size(), -1);
    std::vector<unsigned int> outTriangles;
    outTriangles.reserve(3 * mesh.triangles_.size());
    for (size_t k = 0; k < mesh.triangles_.size(); ++k) {
        if (k % kConvertPoll == 0 && !m_job.step(0.4 + 0.3 * double(k) / double(mesh.triangles_.size())))
            return cancelled();
        const Eigen::Vector3i& t = mesh.triangles_[k];
        if (drop[size_t(t[0])] || drop[size_t(t[1])] || drop[size_t(t[2])] || strays(t, vertexDistance, limit))
            continue;
        for (int c = 0; c < 3; ++c) {
            renumber[size_t(t[c])] = 0;
            outTriangles.push_back(unsigned(t[c]));
        }
    }
    mesh.triangles_.clear();
    mesh.triangles_.shrink_to_fit();
    std::vector<pcVec3f> outVertices, outNormals;
    int next = 0;
    for (size_t v = 0; v < renumber.size(); ++v) {
        if (v % kConvertPoll == 0 && !m_job.step(0.7 + 0.3 * double(v) / double(renumber.size()))) return cancelled();
        if (renumber[v] < 0) continue;
        renumber[v] = next++;
        Eigen::Vector3d n;
        if (fromPoints) {
            outVertices.push_back(m_points[size_t(source[v])]);
            n = m_cloud->normals_[size_t(source[v])];
        } else {
            const Eigen::Vector3d& p = mesh.vertices_[v];
            outVertices.emplace_back(float(p.x()), float(p.y()), float(p.z()));
            n = mesh.HasVertexNormals() ? mesh.vertex_normals_[v].normalized() : Eigen::Vector3d::Zero();
        }
        if (normals) outNormals.emplace_back(float(n.x()), float(n.y()), float(n.z()));
    }
    for (unsigned int& index : outTriangles) index = unsigned(renumber[index]);
    if (!m_job.step(1.0)) return cancelled();
    vertices.swap(outVertices);
    triangles.swap(outTriangles);
    if (normals) normals->swap(outNormals);
    return true;
}

}  // namespace

bool Algo_Mesh::run(const std::vector<pcVec3f>& points, const Params& params, std::vector<pcVec3f>& vertices,
                    std::vector<unsigned int>& triangles, std::vector<pcVec3f>* normals,
                    ILongLiveActionProgress* progress, QString* error) {
    if (points.size() < 4) return Job::fail(error, QStringLiteral("meshing needs at least four points"));
    if (points.size() > size_t(std::numeric_limits<int>::max()))
        return Job::fail(error, QStringLiteral("too many points to mesh at once"));
    switch (params.method) {
    case Method::AlphaShape:
        if (!(params.alpha > 0.0)) return Job::fail(error, QStringLiteral("alpha must be positive"));
        break;
    case Method::BallPivoting:
        if (!(params.ballRadius > 0.0)) return Job::fail(error, QStringLiteral("the ball radius must be positive"));
        break;
    case Method::Poisson:
        if (params.depth < 1 || params.depth > 16)
            return Job::fail(error, QStringLiteral("the Poisson depth must be between 1 and 16"));
        if (!(params.width >= 0.0)) return Job::fail(error, QStringLiteral("the Poisson width must not be negative"));
        if (!(params.densityDivide >= 1.0))
            return Job::fail(error, QStringLiteral("the density divide must be at least 1"));
        break;
    default:
        return Job::fail(error, QStringLiteral("unknown meshing method"));
    }
    if (params.normalNeighbours < 3 || params.orientNeighbours < 3)
        return Job::fail(error, QStringLiteral("normals need at least three neighbours"));
    MeshRun run(points, params, progress, error);
    return run.prepareCloud() && run.estimateNormals() && run.reconstruct() &&
           run.collect(vertices, triangles, normals);
}

}  // namespace ptCloud
