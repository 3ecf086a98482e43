#include "Algo_KdTree.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

#include "ILongLiveActionProgress.h"

namespace ptCloud {

namespace {

// Leaves of 8..16 points: measured fastest for k-NN with k of 8..50 and for
// radius searches holding a few to a few dozen points.
constexpr int32_t kLeafSize = 16;
constexpr int kStackDepth = 96;  // depth is log2(n / kLeafSize) + 1 at most

}  // namespace

// ---------------------------------------------------------------- Job

Algo_KdTree::Job::Job(ILongLiveActionProgress* progress) : m_progress(progress) {}

bool Algo_KdTree::Job::phase(const QString& text, int from, int to) {
    m_from = from;
    m_to = to;
    if (m_progress && !m_stopped) m_progress->setProgressText(text);
    return step(0.0);
}

bool Algo_KdTree::Job::step(double fraction) {
    if (m_stopped) return false;
    if (!m_progress) return true;
    const double f = std::clamp(fraction, 0.0, 1.0);
    const int value = m_from + static_cast<int>(f * (m_to - m_from));
    if (value != m_reported) {
        m_reported = value;
        m_progress->setProgress(value);
    }
    m_stopped = m_progress->isStopRequested();
    return !m_stopped;
}

int Algo_KdTree::Job::threadCount() {
    const unsigned hw = std::thread::hardware_concurrency();
    return static_cast<int>(std::clamp(hw, 1u, 16u));
}

bool Algo_KdTree::Job::parallelFor(size_t count, size_t grain,
                                   const std::function<void(size_t, size_t)>& fn) {
    if (m_stopped) return false;
    grain = std::max<size_t>(grain, 1);
    const size_t chunks = (count + grain - 1) / grain;
    std::atomic<size_t> next{0};
    std::atomic<size_t> done{0};
    std::atomic<bool> stop{false};
    auto runChunk = [&](size_t c) {
        fn(c * grain, std::min(count, (c + 1) * grain));
        done.fetch_add(1, std::memory_order_relaxed);
    };
    auto helper = [&]() {
        while (!stop.load(std::memory_order_relaxed)) {
            const size_t c = next.fetch_add(1);
            if (c >= chunks) return;
            runChunk(c);
        }
    };
    std::vector<std::thread> helpers;
    const size_t wanted = std::min<size_t>(static_cast<size_t>(threadCount() - 1),
                                           chunks > 0 ? chunks - 1 : 0);
    for (size_t t = 0; t < wanted; ++t) {
        try {
            helpers.emplace_back(helper);
        } catch (const std::system_error&) {
            break;  // fewer threads is slower, not wrong
        }
    }
    for (;;) {
        if (!step(chunks ? double(done.load(std::memory_order_relaxed)) / double(chunks) : 1.0)) {
            stop = true;
            break;
        }
        const size_t c = next.fetch_add(1);
        if (c >= chunks) break;
        runChunk(c);
    }
    for (std::thread& t : helpers) t.join();
    return step(1.0);
}

bool Algo_KdTree::Job::cancelled(QString* error) {
    return fail(error, QStringLiteral("cancelled"));
}

bool Algo_KdTree::Job::fail(QString* error, const QString& reason) {
    if (error) *error = reason;
    return false;
}

int Algo_KdTree::Job::compactLabels(std::vector<int>& labels, size_t minSize, size_t maxSize) {
    std::vector<int> sizes(labels.size(), 0);
    for (int l : labels)
        if (l >= 0) ++sizes[static_cast<size_t>(l)];
    // sizes doubles as the renumbering table: -2 = not yet numbered
    for (int& s : sizes) {
        const size_t n = static_cast<size_t>(s);
        s = (n > 0 && n >= minSize && n <= maxSize) ? -2 : -1;
    }
    int next = 0;
    for (int& l : labels) {
        if (l < 0) continue;
        int& id = sizes[static_cast<size_t>(l)];
        if (id == -2) id = next++;
        l = id;
    }
    return next;
}

// ---------------------------------------------------------------- tree

Algo_KdTree::Algo_KdTree() = default;
Algo_KdTree::~Algo_KdTree() = default;

bool Algo_KdTree::build(const std::vector<pcVec3f>& points, Job* job) {
    m_nodes.clear();
    m_points.clear();
    m_ids.clear();
    if (points.empty()) return !(job && job->stopped());
    // positions travel with their ids while partitioning, so every level
    // scans contiguous memory
    std::vector<Entry> entries(points.size());
    for (size_t i = 0; i < points.size(); ++i) entries[i] = {points[i], static_cast<int32_t>(i)};
    m_nodes.reserve(points.size() / (kLeafSize / 4) + 1);  // leaves hold kLeafSize/2 or more
    size_t done = 0;
    if (buildNode(0, static_cast<int32_t>(entries.size()), entries, job, done) < 0) {
        m_nodes.clear();
        return false;
    }
    m_points.resize(entries.size());
    m_ids.resize(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        m_points[i] = entries[i].p;
        m_ids[i] = entries[i].id;
    }
    return true;
}

int32_t Algo_KdTree::buildNode(int32_t begin, int32_t end, std::vector<Entry>& entries, Job* job,
                               size_t& done) {
    const int32_t index = static_cast<int32_t>(m_nodes.size());
    m_nodes.push_back(Node());
    Node node;
    node.lo[0] = node.lo[1] = node.lo[2] = std::numeric_limits<float>::max();
    node.hi[0] = node.hi[1] = node.hi[2] = -std::numeric_limits<float>::max();
    for (int32_t i = begin; i < end; ++i) {
        const pcVec3f& p = entries[static_cast<size_t>(i)].p;
        const float c[3] = {p.x, p.y, p.z};
        for (int a = 0; a < 3; ++a) {
            node.lo[a] = std::min(node.lo[a], c[a]);
            node.hi[a] = std::max(node.hi[a], c[a]);
        }
    }
    node.begin = begin;
    node.end = end;
    node.right = -1;
    node.pad = 0;
    if (end - begin <= kLeafSize) {
        m_nodes[static_cast<size_t>(index)] = node;
        const size_t before = done;
        done += static_cast<size_t>(end - begin);
        // ~64k points of building between polls
        if (job && (before >> 16) != (done >> 16) && !job->step(double(done) / double(entries.size())))
            return -1;
        return index;
    }
    int axis = 0;
    for (int a = 1; a < 3; ++a)
        if (node.hi[a] - node.lo[a] > node.hi[axis] - node.lo[axis]) axis = a;
    const int32_t mid = begin + (end - begin) / 2;
    auto coord = [axis](const Entry& e) { return axis == 0 ? e.p.x : (axis == 1 ? e.p.y : e.p.z); };
    std::nth_element(entries.begin() + begin, entries.begin() + mid, entries.begin() + end,
                     [&](const Entry& a, const Entry& b) {
                         const float ca = coord(a), cb = coord(b);
                         return ca < cb || (ca == cb && a.id < b.id);
                     });
    if (buildNode(begin, mid, entries, job, done) < 0) return -1;
    node.right = buildNode(mid, end, entries, job, done);
    if (node.right < 0) return -1;
    m_nodes[static_cast<size_t>(index)] = node;
    return index;
}

float Algo_KdTree::boxDist2(const Node& n, const pcVec3f& q) {
    const float c[3] = {q.x, q.y, q.z};
    float d = 0.f;
    for (int a = 0; a < 3; ++a) {
        const float e = c[a] < n.lo[a] ? n.lo[a] - c[a] : (c[a] > n.hi[a] ? c[a] - n.hi[a] : 0.f);
        d += e * e;
    }
    return d;
}

float Algo_KdTree::boxFarDist2(const Node& n, const pcVec3f& q) {
    const float c[3] = {q.x, q.y, q.z};
    float d = 0.f;
    for (int a = 0; a < 3; ++a) {
        const float e = std::max(c[a] - n.lo[a], n.hi[a] - c[a]);
        d += e * e;
    }
    return d;
}

void Algo_KdTree::knn(const pcVec3f& q, size_t k, float maxDist2, std::vector<Neighbour>& out) const {
    out.clear();
    if (k == 0 || m_nodes.empty()) return;
    // `out` stays sorted on (dist2, index); an insertion moves a few
    // neighbours, cheaper than a heap for the k the stages use
    auto before = [](const Neighbour& a, const Neighbour& b) {
        return a.dist2 < b.dist2 || (a.dist2 == b.dist2 && a.index < b.index);
    };
    struct Item {
        int32_t node;
        float d2;
    };
    Item stack[kStackDepth];
    int sp = 0;
    stack[sp++] = {0, boxDist2(m_nodes[0], q)};
    float bound = maxDist2;  // equal distances stay in play: a lower index may win the tie
    while (sp > 0) {
        const Item it = stack[--sp];
        if (it.d2 > bound) continue;
        const Node& n = m_nodes[static_cast<size_t>(it.node)];
        if (n.right < 0) {
            for (int32_t i = n.begin; i < n.end; ++i) {
                const float d2 = dist2(m_points[static_cast<size_t>(i)], q);
                if (d2 > bound) continue;
                const Neighbour c{m_ids[static_cast<size_t>(i)], d2};
                if (out.size() == k) {
                    if (!before(c, out.back())) continue;
                    out.pop_back();
                }
                out.insert(std::upper_bound(out.begin(), out.end(), c, before), c);
                if (out.size() == k) bound = out.back().dist2;
            }
            continue;
        }
        Item nearItem{it.node + 1, boxDist2(m_nodes[static_cast<size_t>(it.node + 1)], q)};
        Item farItem{n.right, boxDist2(m_nodes[static_cast<size_t>(n.right)], q)};
        if (farItem.d2 < nearItem.d2) std::swap(nearItem, farItem);
        if (farItem.d2 <= bound) stack[sp++] = farItem;
        if (nearItem.d2 <= bound) stack[sp++] = nearItem;
    }
}

template <class WholeRange, class OnePoint>
void Algo_KdTree::visitWithin(const pcVec3f& q, float r2, WholeRange whole, OnePoint one) const {
    if (m_nodes.empty()) return;
    int32_t stack[kStackDepth];
    int sp = 0;
    stack[sp++] = 0;
    while (sp > 0) {
        const int32_t index = stack[--sp];
        const Node& n = m_nodes[static_cast<size_t>(index)];
        if (boxDist2(n, q) > r2) continue;
        if (boxFarDist2(n, q) <= r2) {
            if (!whole(n.begin, n.end)) return;
        } else if (n.right < 0) {
            for (int32_t i = n.begin; i < n.end; ++i)
                if (dist2(m_points[static_cast<size_t>(i)], q) <= r2 && !one(i)) return;
        } else {
            stack[sp++] = n.right;
            stack[sp++] = index + 1;
        }
    }
}

void Algo_KdTree::radius(const pcVec3f& q, float r2, std::vector<int>& out) const {
    out.clear();
    visitWithin(
        q, r2,
        [&](int32_t begin, int32_t end) {
            out.insert(out.end(), m_ids.begin() + begin, m_ids.begin() + end);
            return true;
        },
        [&](int32_t i) {
            out.push_back(m_ids[static_cast<size_t>(i)]);
            return true;
        });
}

size_t Algo_KdTree::countWithin(const pcVec3f& q, float r2, size_t limit) const {
    size_t count = 0;
    if (limit == 0) return 0;
    visitWithin(
        q, r2,
        [&](int32_t begin, int32_t end) {
            count += static_cast<size_t>(end - begin);
            return count < limit;
        },
        [&](int32_t) { return ++count < limit; });
    return std::min(count, limit);
}

}  // namespace ptCloud
