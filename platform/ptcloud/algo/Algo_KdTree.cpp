#include "Algo_KdTree.h"

#include <algorithm>
#include <atomic>
#include <chrono>
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
    using Clock = std::chrono::steady_clock;
    // Chunks of a few milliseconds keep the stop prompt and the cores
    // evenly loaded whatever an item costs.
    constexpr auto kShort = std::chrono::milliseconds(2);
    constexpr auto kLong = std::chrono::milliseconds(8);
    std::atomic<size_t> next{0};
    std::atomic<size_t> done{0};
    std::atomic<bool> stop{false};
    // Returns false when no work is left.
    auto runChunk = [&](size_t& size) {
        const size_t begin = next.fetch_add(size);
        if (begin >= count) return false;
        const size_t end = std::min(count, begin + size);
        const Clock::time_point start = Clock::now();
        fn(begin, end);
        const Clock::duration took = Clock::now() - start;
        done.fetch_add(end - begin, std::memory_order_relaxed);
        if (took < kShort && size < count) size *= 2;
        else if (took > kLong && size > 1) size /= 2;
        return true;
    };
    auto helper = [&]() {
        size_t size = std::max<size_t>(grain, 1);
        while (!stop.load(std::memory_order_relaxed) && runChunk(size)) {
        }
    };
    std::vector<std::thread> helpers;
    const size_t wanted = std::min<size_t>(static_cast<size_t>(threadCount() - 1), count);
    for (size_t t = 0; t < wanted; ++t) {
        try {
            helpers.emplace_back(helper);
        } catch (const std::system_error&) {
            break;  // fewer threads is slower, not wrong
        }
    }
    size_t size = std::max<size_t>(grain, 1);
    for (;;) {
        if (!step(count ? double(done.load(std::memory_order_relaxed)) / double(count) : 1.0)) {
            stop = true;
            break;
        }
        if (!runChunk(size)) break;
    }
    for (std::thread& t : helpers) t.join();
    return step(1.0);
}

bool Algo_KdTree::Job::runTasks(size_t count, const std::atomic<size_t>& done, size_t total,
                                const std::function<void(size_t, const std::function<bool()>&)>& fn) {
    if (m_stopped) return false;
    std::atomic<size_t> next{0};
    std::atomic<bool> stop{false};
    std::atomic<size_t> busy{0};
    const std::function<bool()> helperGoing = [&] { return !stop.load(std::memory_order_relaxed); };
    const std::function<bool()> callerGoing = [&] {
        if (step(total ? double(done.load(std::memory_order_relaxed)) / double(total) : 1.0)) return true;
        stop = true;
        return false;
    };
    auto work = [&](const std::function<bool()>& going) {
        for (size_t task = next.fetch_add(1); task < count && going(); task = next.fetch_add(1)) fn(task, going);
    };
    std::vector<std::thread> helpers;
    const size_t wanted = std::min<size_t>(static_cast<size_t>(threadCount() - 1), count);
    for (size_t t = 0; t < wanted; ++t) {
        busy.fetch_add(1);
        try {
            helpers.emplace_back([&] {
                work(helperGoing);
                busy.fetch_sub(1, std::memory_order_release);
            });
        } catch (const std::system_error&) {
            busy.fetch_sub(1);
            break;  // fewer threads is slower, not wrong
        }
    }
    work(callerGoing);
    // a helper's last task may outlast the caller's: keep the bar moving and
    // the stop prompt meanwhile
    while (busy.load(std::memory_order_acquire) > 0) {
        if (!stop.load(std::memory_order_relaxed)) callerGoing();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
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

// ---------------------------------------------------------------- Components

Algo_KdTree::Components::Components(size_t n) : m_parent(n) {
    for (size_t i = 0; i < n; ++i) m_parent[i].store(static_cast<int>(i), std::memory_order_relaxed);
}

int Algo_KdTree::Components::find(int i) {
    // parents only ever move to smaller indices of the same set, so a stale
    // read is still an ancestor: relaxed loads and path halving are safe
    for (;;) {
        int parent = m_parent[static_cast<size_t>(i)].load(std::memory_order_relaxed);
        if (parent == i) return i;
        const int grand = m_parent[static_cast<size_t>(parent)].load(std::memory_order_relaxed);
        if (grand != parent)
            m_parent[static_cast<size_t>(i)].compare_exchange_weak(parent, grand,
                                                                   std::memory_order_relaxed);
        i = grand;
    }
}

void Algo_KdTree::Components::join(int a, int b) {
    for (;;) {
        a = find(a);
        b = find(b);
        if (a == b) return;
        if (a < b) std::swap(a, b);
        int expected = a;  // a is still a root unless another thread linked it meanwhile
        if (m_parent[static_cast<size_t>(a)].compare_exchange_strong(expected, b,
                                                                     std::memory_order_acq_rel))
            return;
    }
}

void Algo_KdTree::Components::roots(std::vector<int>& out) {
    out.resize(m_parent.size());
    for (size_t i = 0; i < m_parent.size(); ++i) out[i] = find(static_cast<int>(i));
}

// ---------------------------------------------------------------- tree

Algo_KdTree::Algo_KdTree() = default;
Algo_KdTree::~Algo_KdTree() = default;

bool Algo_KdTree::build(const std::vector<pcVec3f>& points, Job* job) {
    m_nodes.clear();
    m_leaves.clear();
    m_points.clear();
    m_ids.clear();
    Job quiet(nullptr);
    Job& run = job ? *job : quiet;
    if (points.empty()) return !run.stopped();
    // positions travel with their ids while partitioning, so every level
    // scans contiguous memory
    std::vector<Entry> entries(points.size());
    for (size_t i = 0; i < points.size(); ++i) entries[i] = {points[i], static_cast<int32_t>(i)};
    NodeCounts counts;
    m_nodes.resize(static_cast<size_t>(countNodes(static_cast<int32_t>(points.size()), counts)));

    // The top levels split on this thread until there are enough subtrees
    // to keep every core busy; the subtrees are then built in parallel.
    const size_t wanted = static_cast<size_t>(Job::threadCount()) * 8;
    std::vector<Subtree> top{{0, 0, static_cast<int32_t>(points.size())}};
    std::vector<Subtree> next;
    while (top.size() < wanted) {
        next.clear();
        bool split = false;
        for (const Subtree& t : top) {
            const int32_t mid = t.end - t.begin > kLeafSize ? makeNode(t.node, t.begin, t.end, entries, counts) : -1;
            if (mid < 0) {
                next.push_back(t);
                continue;
            }
            split = true;
            const int32_t right = m_nodes[static_cast<size_t>(t.node)].right;
            next.push_back({t.node + 1, t.begin, mid});
            next.push_back({right, mid, t.end});
        }
        top.swap(next);
        if (!split) break;
    }
    if (!run.parallelFor(top.size(), 1, [&](size_t begin, size_t end) {
            for (size_t t = begin; t < end; ++t) buildSubtree(top[t], entries, counts);
        })) {
        m_nodes.clear();
        return false;
    }
    for (size_t i = 0; i < m_nodes.size(); ++i)
        if (m_nodes[i].right < 0) m_leaves.push_back(static_cast<int32_t>(i));  // preorder = point order
    m_points.resize(entries.size());
    m_ids.resize(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        m_points[i] = entries[i].p;
        m_ids[i] = entries[i].id;
    }
    return true;
}

int32_t Algo_KdTree::countNodes(int32_t points, NodeCounts& counts) {
    if (points <= kLeafSize) return 1;
    const auto known = std::lower_bound(counts.begin(), counts.end(), std::make_pair(points, 0));
    if (known != counts.end() && known->first == points) return known->second;
    // only two sizes per level occur, so the table stays tiny
    const int32_t nodes = 1 + countNodes(points / 2, counts) + countNodes(points - points / 2, counts);
    counts.insert(std::lower_bound(counts.begin(), counts.end(), std::make_pair(points, 0)),
                  std::make_pair(points, nodes));
    return nodes;
}

int32_t Algo_KdTree::nodeCount(const NodeCounts& counts, int32_t points) {
    if (points <= kLeafSize) return 1;
    return std::lower_bound(counts.begin(), counts.end(), std::make_pair(points, 0))->second;
}

int32_t Algo_KdTree::makeNode(int32_t index, int32_t begin, int32_t end, std::vector<Entry>& entries,
                              const NodeCounts& counts) {
    Node& node = m_nodes[static_cast<size_t>(index)];
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
    if (end - begin <= kLeafSize) return -1;
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
    node.right = index + 1 + nodeCount(counts, mid - begin);
    return mid;
}

void Algo_KdTree::buildSubtree(const Subtree& t, std::vector<Entry>& entries, const NodeCounts& counts) {
    const int32_t mid = makeNode(t.node, t.begin, t.end, entries, counts);
    if (mid < 0) return;
    buildSubtree({t.node + 1, t.begin, mid}, entries, counts);
    buildSubtree({m_nodes[static_cast<size_t>(t.node)].right, mid, t.end}, entries, counts);
}

inline float Algo_KdTree::boxDist2(const Node& n, const pcVec3f& q) {
    const float ex = std::max(n.lo[0] - q.x, 0.f) + std::max(q.x - n.hi[0], 0.f);
    const float ey = std::max(n.lo[1] - q.y, 0.f) + std::max(q.y - n.hi[1], 0.f);
    const float ez = std::max(n.lo[2] - q.z, 0.f) + std::max(q.z - n.hi[2], 0.f);
    return ex * ex + ey * ey + ez * ez;
}

inline float Algo_KdTree::boxFarDist2(const Node& n, const pcVec3f& q) {
    const float ex = std::max(q.x - n.lo[0], n.hi[0] - q.x);
    const float ey = std::max(q.y - n.lo[1], n.hi[1] - q.y);
    const float ez = std::max(q.z - n.lo[2], n.hi[2] - q.z);
    return ex * ex + ey * ey + ez * ez;
}

void Algo_KdTree::knn(const pcVec3f& q, size_t k, float maxDist2, std::vector<Neighbour>& out,
                      size_t from) const {
    out.clear();
    if (k == 0 || m_nodes.empty()) return;
    const int32_t first = static_cast<int32_t>(from);
    // `out` stays sorted on (dist2, index)
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
        if (n.end <= first) continue;
        if (n.right < 0) {
            for (int32_t i = std::max(n.begin, first); i < n.end; ++i) {
                const float d2 = dist2(m_points[static_cast<size_t>(i)], q);
                if (d2 > bound) continue;
                const Neighbour c{m_ids[static_cast<size_t>(i)], d2};
                if (out.size() == k) {
                    if (!before(c, out.back())) continue;
                } else {
                    out.push_back(c);
                }
                // one insertion-sort step: measured faster than a binary
                // search or a heap for the k the stages use
                size_t j = out.size() - 1;
                for (; j > 0 && before(c, out[j - 1]); --j) out[j] = out[j - 1];
                out[j] = c;
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

std::vector<Algo_KdTree::Part> Algo_KdTree::parts(int levels) const {
    std::vector<Part> out;
    if (m_nodes.empty()) return out;
    std::vector<int32_t> roots{0}, next;
    for (int level = 0; level < levels; ++level) {
        next.clear();
        for (const int32_t r : roots) {
            const int32_t right = m_nodes[static_cast<size_t>(r)].right;
            next.push_back(right < 0 ? r : r + 1);
            if (right >= 0) next.push_back(right);
        }
        roots.swap(next);
    }
    for (const int32_t r : roots) {
        // nodes are in preorder: a subtree ends with its rightmost leaf
        int32_t last = r;
        while (m_nodes[static_cast<size_t>(last)].right >= 0) last = m_nodes[static_cast<size_t>(last)].right;
        const Node& n = m_nodes[static_cast<size_t>(r)];
        out.push_back({r, last + 1, static_cast<size_t>(n.begin), static_cast<size_t>(n.end)});
    }
    return out;
}

float Algo_KdTree::partDist2(const Part& part, const pcVec3f& q) const {
    return boxDist2(m_nodes[static_cast<size_t>(part.node)], q);
}

Algo_KdTree::Part Algo_KdTree::whole() const {
    return {0, static_cast<int32_t>(m_nodes.size()), 0, size()};
}

template <class Classify, class Test, class Take>
void Algo_KdTree::walk(int32_t root, Classify classify, Test test, Take take) const {
    if (m_nodes.empty()) return;
    int32_t stack[kStackDepth];
    int sp = 0;
    stack[sp++] = root;
    while (sp > 0) {
        const int32_t index = stack[--sp];
        const Node& n = m_nodes[static_cast<size_t>(index)];
        const Reach reach = classify(n);
        if (reach == Reach::None) continue;
        if (reach == Reach::All) {
            take(n.begin, n.end);
        } else if (n.right < 0) {
            for (int32_t i = n.begin; i < n.end; ++i)
                if (test(i)) take(i, i + 1);
        } else {
            stack[sp++] = n.right;  // the first child pops first: point order
            stack[sp++] = index + 1;
        }
    }
}

Algo_KdTree::Remaining::Remaining(const Algo_KdTree& tree) : Remaining(tree, tree.whole()) {}

Algo_KdTree::Remaining::Remaining(const Algo_KdTree& tree, const Part& part)
    : m_tree(tree),
      m_part(part),
      m_left(static_cast<size_t>(part.nodeEnd - part.node)),
      m_taken(part.end - part.begin, 0) {
    for (size_t i = 0; i < m_left.size(); ++i) {
        const Node& n = tree.m_nodes[static_cast<size_t>(part.node) + i];
        m_left[i] = n.end - n.begin;
    }
}

void Algo_KdTree::Remaining::take(size_t at) {
    char& mark = m_taken[at - m_part.begin];
    if (mark) return;
    mark = 1;
    const int32_t position = static_cast<int32_t>(at);
    int32_t index = m_part.node;
    for (;;) {
        --m_left[static_cast<size_t>(index - m_part.node)];
        const Node& n = m_tree.m_nodes[static_cast<size_t>(index)];
        if (n.right < 0) return;
        index = position < m_tree.m_nodes[static_cast<size_t>(n.right)].begin ? index + 1 : n.right;
    }
}

void Algo_KdTree::Remaining::radius(const pcVec3f& q, float r2, std::vector<int32_t>& out) const {
    out.clear();
    const Node* nodes = m_tree.m_nodes.data() + m_part.node;
    const int32_t first = static_cast<int32_t>(m_part.begin);
    auto isTaken = [&](int32_t position) { return m_taken[static_cast<size_t>(position - first)] != 0; };
    m_tree.walk(
        m_part.node,
        [&](const Node& n) {
            if (m_left[static_cast<size_t>(&n - nodes)] == 0 || boxDist2(n, q) > r2) return Reach::None;
            return boxFarDist2(n, q) <= r2 ? Reach::All : Reach::Some;
        },
        [&](int32_t i) { return !isTaken(i) && dist2(m_tree.m_points[static_cast<size_t>(i)], q) <= r2; },
        [&](int32_t begin, int32_t end) {
            for (int32_t i = begin; i < end; ++i)
                if (!isTaken(i)) out.push_back(i);
        });
}

void Algo_KdTree::leafRange(size_t leaf, size_t& begin, size_t& end) const {
    const Node& n = m_nodes[static_cast<size_t>(m_leaves[leaf])];
    begin = static_cast<size_t>(n.begin);
    end = static_cast<size_t>(n.end);
}

size_t Algo_KdTree::gatherLeaf(size_t leaf, float r, LeafScratch& s) const {
    s.x.clear();
    s.y.clear();
    s.z.clear();
    s.ids.clear();
    const Node& box = m_nodes[static_cast<size_t>(m_leaves[leaf])];
    const int32_t first = box.begin;
    const float lo[3] = {box.lo[0] - r, box.lo[1] - r, box.lo[2] - r};
    const float hi[3] = {box.hi[0] + r, box.hi[1] + r, box.hi[2] + r};
    walk(
        0,
        [&](const Node& n) {
            bool overlaps = n.end > first, inside = true;
            for (int a = 0; a < 3; ++a) {
                overlaps = overlaps && n.hi[a] >= lo[a] && n.lo[a] <= hi[a];
                inside = inside && n.lo[a] >= lo[a] && n.hi[a] <= hi[a];
            }
            return !overlaps ? Reach::None : (inside ? Reach::All : Reach::Some);
        },
        [&](int32_t i) {
            const pcVec3f& p = m_points[static_cast<size_t>(i)];
            return i >= first && p.x >= lo[0] && p.x <= hi[0] && p.y >= lo[1] && p.y <= hi[1] &&
                   p.z >= lo[2] && p.z <= hi[2];
        },
        [&](int32_t begin, int32_t end) {
            for (int32_t i = std::max(begin, first); i < end; ++i) {
                const pcVec3f& p = m_points[static_cast<size_t>(i)];
                s.x.push_back(p.x);
                s.y.push_back(p.y);
                s.z.push_back(p.z);
                s.ids.push_back(m_ids[static_cast<size_t>(i)]);
            }
        });
    return s.ids.size();
}

void Algo_KdTree::withinGathered(const pcVec3f& q, float r2, size_t from, LeafScratch& s) {
    s.within.clear();
    const size_t m = s.ids.size();
    const float qx = q.x, qy = q.y, qz = q.z;
    const float* x = s.x.data();
    const float* y = s.y.data();
    const float* z = s.z.data();
    for (size_t j = from; j < m; ++j) {
        // same arithmetic as dist2(): the answers match the searches bit for bit
        const float dx = qx - x[j], dy = qy - y[j], dz = qz - z[j];
        const float d2 = dx * dx + dy * dy + dz * dz;
        if (d2 <= r2) s.within.push_back({s.ids[j], d2});
    }
}

void Algo_KdTree::radius(const pcVec3f& q, float r2, std::vector<int>& out) const {
    radius(q, r2, out, whole());
}

void Algo_KdTree::radius(const pcVec3f& q, float r2, std::vector<int>& out, const Part& part) const {
    out.clear();
    walk(
        part.node,
        [&](const Node& n) {
            return boxDist2(n, q) > r2 ? Reach::None : (boxFarDist2(n, q) <= r2 ? Reach::All : Reach::Some);
        },
        [&](int32_t i) { return dist2(m_points[static_cast<size_t>(i)], q) <= r2; },
        [&](int32_t begin, int32_t end) { out.insert(out.end(), m_ids.begin() + begin, m_ids.begin() + end); });
}

}  // namespace ptCloud
