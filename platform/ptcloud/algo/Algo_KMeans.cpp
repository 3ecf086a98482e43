#include "Algo_KMeans.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

using Job = Algo_KdTree::Job;

// Points of one block share a weight sum for the k-means++ draw.
constexpr size_t kBlockShift = 8;

// The points as k-means sees them: a position part, which the k-d trees
// prune on, plus `dims` further values a point added to the distance.
struct Features {
    const std::vector<pcVec3f>* pos = nullptr;
    std::vector<float> extra;  // dims values a point
    size_t dims = 0;
};

// Sum and maximum of the seeding weights of each block in a segment tree:
// a weighted draw and the largest weight cost O(log blocks).
class BlockWeights {
public:
    explicit BlockWeights(size_t blocks) {
        while (m_size < blocks) m_size *= 2;
        m_sum.assign(2 * m_size, 0.0);
        m_max.assign(2 * m_size, 0.f);
    }
    void set(size_t block, double sum, float max) {
        size_t i = m_size + block;
        m_sum[i] = sum;
        m_max[i] = max;
        for (i /= 2; i >= 1; i /= 2) {
            m_sum[i] = m_sum[2 * i] + m_sum[2 * i + 1];
            m_max[i] = std::max(m_max[2 * i], m_max[2 * i + 1]);
        }
    }
    double total() const { return m_sum[1]; }
    float largest() const { return m_max[1]; }
    // The block in which the running sum passes u; u becomes the rest.
    size_t find(double& u) const {
        size_t i = 1;
        while (i < m_size) {
            if (u < m_sum[2 * i] || m_sum[2 * i + 1] <= 0.0) {
                i = 2 * i;
            } else {
                u -= m_sum[2 * i];
                i = 2 * i + 1;
            }
        }
        return i - m_size;
    }

private:
    size_t m_size = 1;
    std::vector<double> m_sum;
    std::vector<float> m_max;
};

class KMeansRun {
public:
    KMeansRun(const Features& f, const Algo_KMeans::Params& params, Job& job)
        : m_f(f), m_params(params), m_job(job), m_n(f.pos->size()),
          m_k(std::min(m_n, static_cast<size_t>(params.clusterNumber))) {}

    bool seed();
    bool iterate();
    std::vector<int>& assignment() { return m_assign; }

private:
    float dist2(size_t point, size_t centre) const {
        float d = Algo_KdTree::dist2((*m_f.pos)[point], m_centrePos[centre]);
        const float* a = m_f.extra.data() + point * m_f.dims;
        const float* c = m_centreExtra.data() + centre * m_f.dims;
        for (size_t j = 0; j < m_f.dims; ++j) d += (a[j] - c[j]) * (a[j] - c[j]);
        return d;
    }
    void addCentre(size_t point) {
        m_centrePos.push_back((*m_f.pos)[point]);
        const float* a = m_f.extra.data() + point * m_f.dims;
        m_centreExtra.insert(m_centreExtra.end(), a, a + m_f.dims);
    }
    size_t drawPoint(const BlockWeights& weights, std::mt19937_64& rng) const;
    // The nearest centre (ties: the lower index) and the squared distances
    // to it and to the second nearest (infinite with one centre).
    int nearestTwo(const Algo_KdTree& centres, size_t point, std::vector<Algo_KdTree::Neighbour>& near,
                   float& bestD2, float& secondD2) const;
    // Moves every centre to the mean of its points; returns how far each
    // moved (feature distance).
    std::vector<float> updateCentres();

    const Features& m_f;
    const Algo_KMeans::Params& m_params;
    Job& m_job;
    const size_t m_n;
    const size_t m_k;
    Algo_KdTree m_tree;            // over the point positions
    std::vector<float> m_weight;   // by tree position: distance² to the nearest centre
    std::vector<pcVec3f> m_centrePos;
    std::vector<float> m_centreExtra;
    std::vector<int> m_assign;     // by point index
    // Hamerly's bounds, by point index: no farther than `upper` from its
    // own centre, no nearer than `lower` to any other
    std::vector<float> m_upper, m_lower;
};

double unitDraw(std::mt19937_64& rng) {
    return static_cast<double>(rng() >> 11) * (1.0 / 9007199254740992.0);  // [0, 1)
}

size_t KMeansRun::drawPoint(const BlockWeights& weights, std::mt19937_64& rng) const {
    double u = unitDraw(rng) * weights.total();
    const size_t block = weights.find(u);
    const size_t begin = block << kBlockShift;
    const size_t end = std::min(m_n, begin + (size_t(1) << kBlockShift));
    size_t pick = begin;
    double run = 0.0;
    for (size_t at = begin; at < end; ++at) {
        if (m_weight[at] <= 0.f) continue;
        pick = at;  // rounding can leave u just past the block's sum
        run += m_weight[at];
        if (u < run) break;
    }
    return pick;
}

bool KMeansRun::seed() {
    if (!m_job.phase(QStringLiteral("KMeans: building the search tree"), 0, 5) || !m_tree.build(*m_f.pos, &m_job))
        return false;
    if (!m_job.phase(QStringLiteral("KMeans: seeding (k-means++)"), 5, 35)) return false;
    const std::vector<int32_t>& order = m_tree.order();
    std::vector<int32_t> positionOf(m_n);
    for (size_t at = 0; at < m_n; ++at) positionOf[static_cast<size_t>(order[at])] = static_cast<int32_t>(at);
    m_weight.assign(m_n, std::numeric_limits<float>::infinity());
    std::vector<int> nearest(m_n, 0);  // by tree position
    const size_t blocks = ((m_n - 1) >> kBlockShift) + 1;
    BlockWeights weights(blocks);
    std::vector<char> dirty(blocks, 0);
    std::vector<size_t> dirtyList;
    std::vector<int> near;
    std::mt19937_64 rng(0x6b6d65616e73ULL);

    m_centrePos.clear();
    m_centreExtra.clear();
    for (size_t c = 0; c < m_k; ++c) {
        if (c > 0 && !(weights.total() > 0.0)) break;  // every point sits on a centre
        const size_t at = c == 0 ? static_cast<size_t>(unitDraw(rng) * double(m_n)) : drawPoint(weights, rng);
        addCentre(static_cast<size_t>(order[at]));
        // Only points closer to the new centre than to all earlier ones
        // change, and they lie within the largest such distance of it.
        if (c == 0) {
            near.assign(order.begin(), order.end());
        } else {
            m_tree.radius(m_centrePos[c], weights.largest(), near);
        }
        for (const int id : near) {
            const size_t p = static_cast<size_t>(positionOf[static_cast<size_t>(id)]);
            const float d = dist2(static_cast<size_t>(id), c);
            if (d >= m_weight[p]) continue;
            m_weight[p] = d;
            nearest[p] = static_cast<int>(c);
            const size_t b = p >> kBlockShift;
            if (!dirty[b]) {
                dirty[b] = 1;
                dirtyList.push_back(b);
            }
        }
        for (const size_t b : dirtyList) {
            double sum = 0.0;
            float most = 0.f;
            for (size_t p = b << kBlockShift; p < std::min(m_n, (b + 1) << kBlockShift); ++p) {
                sum += m_weight[p];
                most = std::max(most, m_weight[p]);
            }
            weights.set(b, sum, most);
            dirty[b] = 0;
        }
        dirtyList.clear();
        if (!m_job.step(double(c + 1) / double(m_k))) return false;
    }
    m_assign.assign(m_n, 0);
    for (size_t at = 0; at < m_n; ++at) m_assign[static_cast<size_t>(order[at])] = nearest[at];
    return true;
}

std::vector<float> KMeansRun::updateCentres() {
    const size_t k = m_centrePos.size();
    const size_t dims = m_f.dims;
    std::vector<double> sum(k * (3 + dims), 0.0);
    std::vector<size_t> count(k, 0);
    for (size_t i = 0; i < m_n; ++i) {
        const size_t c = static_cast<size_t>(m_assign[i]);
        double* s = sum.data() + c * (3 + dims);
        const pcVec3f& p = (*m_f.pos)[i];
        s[0] += p.x;
        s[1] += p.y;
        s[2] += p.z;
        const float* e = m_f.extra.data() + i * dims;
        for (size_t j = 0; j < dims; ++j) s[3 + j] += e[j];
        ++count[c];
    }
    std::vector<float> moved(k, 0.f);
    for (size_t c = 0; c < k; ++c) {
        if (count[c] == 0) continue;  // an empty centre stays where it was
        const double* s = sum.data() + c * (3 + dims);
        const double inv = 1.0 / double(count[c]);
        const pcVec3f next(float(s[0] * inv), float(s[1] * inv), float(s[2] * inv));
        float d2 = Algo_KdTree::dist2(next, m_centrePos[c]);
        m_centrePos[c] = next;
        for (size_t j = 0; j < dims; ++j) {
            float& e = m_centreExtra[c * dims + j];
            const float mean = float(s[3 + j] * inv);
            d2 += (mean - e) * (mean - e);
            e = mean;
        }
        moved[c] = std::sqrt(d2);
    }
    return moved;
}

int KMeansRun::nearestTwo(const Algo_KdTree& centres, size_t point, std::vector<Algo_KdTree::Neighbour>& near,
                          float& bestD2, float& secondD2) const {
    const pcVec3f& p = (*m_f.pos)[point];
    const size_t k = centres.size();
    const float unlimited = std::numeric_limits<float>::infinity();
    if (m_f.dims == 0) {
        centres.knn(p, 2, unlimited, near);
        bestD2 = near[0].dist2;
        secondD2 = near.size() > 1 ? near[1].dist2 : unlimited;
        return near[0].index;
    }
    // Candidates come nearest by position first; the full distance is never
    // below the positional one, so once the next candidate is positionally
    // farther than the second best full distance none can change the two.
    for (size_t m = std::min<size_t>(8, k);; m = std::min(k, m * 4)) {
        centres.knn(p, m, unlimited, near);
        int best = -1;
        bestD2 = secondD2 = unlimited;
        for (const Algo_KdTree::Neighbour& nb : near) {
            const float d = dist2(point, static_cast<size_t>(nb.index));
            if (best < 0 || d < bestD2 || (d == bestD2 && nb.index < best)) {
                secondD2 = bestD2;
                best = nb.index;
                bestD2 = d;
            } else if (d < secondD2) {
                secondD2 = d;
            }
        }
        if (m == k || near.back().dist2 > secondD2) return best;
    }
}

bool KMeansRun::iterate() {
    const int iterations = m_params.maxIteration;
    const std::vector<int32_t>& order = m_tree.order();
    // Seeding knows the distance to the nearest centre but not the second.
    m_upper.assign(m_n, 0.f);
    for (size_t at = 0; at < m_n; ++at) m_upper[static_cast<size_t>(order[at])] = std::sqrt(m_weight[at]);
    m_lower.assign(m_n, 0.f);
    std::vector<float>().swap(m_weight);
    // the margin keeps float rounding from skipping a point whose nearest
    // centre really changed
    auto safelyNearer = [](float a, float b) { return a * 1.0001f + 1e-12f < b; };
    for (int it = 0; it < iterations; ++it) {
        const int from = 35 + 65 * it / iterations;
        const int to = 35 + 65 * (it + 1) / iterations;
        const int mid = from + (to - from) / 4;
        const QString text = QStringLiteral("KMeans: iteration %1 of at most %2").arg(it + 1).arg(iterations);
        const std::vector<float> moved = updateCentres();
        const float farthest = *std::max_element(moved.begin(), moved.end());
        Algo_KdTree centres;
        if (!m_job.phase(text, from, mid) || !centres.build(m_centrePos, &m_job)) return false;
        std::atomic<size_t> changed{0};
        if (!m_job.phase(text, mid, to) ||
            !m_job.parallelFor(m_n, 512, [&](size_t begin, size_t end) {
                std::vector<Algo_KdTree::Neighbour> near;
                size_t changes = 0;
                for (size_t at = begin; at < end; ++at) {
                    const size_t i = static_cast<size_t>(order[at]);
                    const size_t own = static_cast<size_t>(m_assign[i]);
                    // Hamerly: skip the search while the own centre is
                    // surely nearer than any other
                    m_upper[i] += moved[own];
                    m_lower[i] -= farthest;
                    if (safelyNearer(m_upper[i], m_lower[i])) continue;
                    m_upper[i] = std::sqrt(dist2(i, own));
                    if (safelyNearer(m_upper[i], m_lower[i])) continue;
                    float bestD2, secondD2;
                    const int c = nearestTwo(centres, i, near, bestD2, secondD2);
                    m_upper[i] = std::sqrt(bestD2);
                    m_lower[i] = std::sqrt(secondD2);
                    if (c != m_assign[i]) {
                        m_assign[i] = c;
                        ++changes;
                    }
                }
                changed.fetch_add(changes, std::memory_order_relaxed);
            }))
            return false;
        if (changed.load() == 0) break;  // converged
    }
    return m_job.phase(QStringLiteral("KMeans: numbering clusters"), 100, 100);
}

bool cluster(const Features& f, const Algo_KMeans::Params& params, std::vector<int>& labels,
             ILongLiveActionProgress* progress, QString* error) {
    labels.clear();
    if (params.maxIteration < 1)
        return Job::fail(error, QStringLiteral("KMeans: max iteration must be at least 1"));
    if (params.clusterNumber < 1)
        return Job::fail(error, QStringLiteral("KMeans: cluster number must be at least 1"));
    Job job(progress);
    if (f.pos->empty()) {
        job.phase(QStringLiteral("KMeans"), 100, 100);
        return true;
    }
    KMeansRun run(f, params, job);
    if (!run.seed() || !run.iterate()) return Job::cancelled(error);
    std::vector<int>& result = run.assignment();
    Job::compactLabels(result, 1, result.size());
    labels.swap(result);
    return true;
}

}  // namespace

bool Algo_KMeans::run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>& labels,
                      ILongLiveActionProgress* progress, QString* error) {
    Features f;
    f.pos = &points;
    return cluster(f, params, labels, progress, error);
}

bool Algo_KMeans::runExtra(const std::vector<pcVec3f>& points, const std::vector<pcVec4f>& colours,
                           const std::vector<float>& intensity, const Params& params, std::vector<int>& labels,
                           ILongLiveActionProgress* progress, QString* error) {
    labels.clear();
    const size_t n = points.size();
    if ((!colours.empty() && colours.size() != n) || (!intensity.empty() && intensity.size() != n))
        return Job::fail(error, QStringLiteral("KMeans Extra: colour and intensity need one value a point"));
    if (colours.empty() && intensity.empty()) return run(points, params, labels, progress, error);

    pcBoundingBoxf box;
    for (const pcVec3f& p : points) box.expandBy(p);
    const float diagonal = box.valid() ? (box.max - box.min).length() : 0.f;
    const float scale = diagonal > 0.f ? 1.f / diagonal : 1.f;
    std::vector<pcVec3f> scaled(n);
    for (size_t i = 0; i < n; ++i) scaled[i] = points[i] * scale;

    Features f;
    f.pos = &scaled;
    f.dims = (colours.empty() ? 0 : 3) + (intensity.empty() ? 0 : 1);
    f.extra.resize(n * f.dims);
    float lo = 0.f, span = 0.f;
    if (!intensity.empty()) {
        const auto range = std::minmax_element(intensity.begin(), intensity.end());
        lo = *range.first;
        span = *range.second - lo;
    }
    const float colourWeight = 1.f / std::sqrt(3.f);
    for (size_t i = 0; i < n; ++i) {
        float* e = f.extra.data() + i * f.dims;
        if (!colours.empty()) {
            *e++ = colours[i].x * colourWeight;
            *e++ = colours[i].y * colourWeight;
            *e++ = colours[i].z * colourWeight;
        }
        if (!intensity.empty()) *e = span > 0.f ? (intensity[i] - lo) / span : 0.f;
    }
    return cluster(f, params, labels, progress, error);
}

}  // namespace ptCloud
