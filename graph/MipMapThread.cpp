#include "MipMapThread.h"

#include "PcBlockTile.h"

#include <QDeadlineTimer>

#if defined(__SANITIZE_THREAD__)
#define MIPMAP_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define MIPMAP_THREAD_SANITIZER 1
#endif
#endif
#ifdef MIPMAP_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace {

// QMutex and QThread::wait block on futexes, which ThreadSanitizer does not
// see; without these it would take every access they order for a race.
void orderedAfter(void* sync)
{
#ifdef MIPMAP_THREAD_SANITIZER
    __tsan_acquire(sync);
#else
    Q_UNUSED(sync);
#endif
}

void orderedBefore(void* sync)
{
#ifdef MIPMAP_THREAD_SANITIZER
    __tsan_release(sync);
#else
    Q_UNUSED(sync);
#endif
}

}  // namespace

MipMapThread::MipMapThread(ptCloud::IDataSetReader* reader, const PointColoring* coloring) : m_reader(reader)
{
    if (coloring) m_coloring = *coloring;
}

MipMapThread::~MipMapThread() { stop(); }

void MipMapThread::stop()
{
    m_stop.exchange(true);
    wait(QDeadlineTimer(QDeadlineTimer::Forever));
    orderedAfter(this);
}

void MipMapThread::lock()
{
    m_mutex.lock();
    orderedAfter(&m_mutex);
}

bool MipMapThread::tryLock()
{
    if (!m_mutex.tryLock(0)) return false;
    orderedAfter(&m_mutex);
    return true;
}

void MipMapThread::unlock()
{
    orderedBefore(&m_mutex);
    m_mutex.unlock();
}

QList<MipMapThread::Result> MipMapThread::takeResultsLocked()
{
    QList<Result> results;
    for (auto it = m_requests.begin(); it != m_requests.end();) {
        if (it.value()) {
            results.append(Result(it.key(), it.value()));
            it = m_requests.erase(it);
        } else {
            ++it;
        }
    }
    countRequestsLocked();
    return results;
}

void MipMapThread::replaceRequestsLocked(const QList<PcBlockTile*>& tiles)
{
    m_requests.clear();
    for (PcBlockTile* tile : tiles) m_requests.insert(tile, nullptr);
    m_restart = true;
    countRequestsLocked();
}

bool MipMapThread::hasRequests() const { return m_requestCount.load() > 0; }

void MipMapThread::run()
{
    while (!m_stop.load()) {
        runPass();
        QThread::msleep(1);
    }
    lock();
    for (auto it = m_requests.begin(); it != m_requests.end(); ++it) it.value() = nullptr;
    unlock();
    orderedBefore(this);
}

void MipMapThread::runPass()
{
    Snapshot snapshot;
    lock();
    for (auto it = m_requests.cbegin(); it != m_requests.cend(); ++it)
        snapshot.append(qMakePair(it.key(), it.key()->wantedLevel()));
    m_restart = false;
    unlock();

    for (const auto& entry : snapshot) {
        if (m_stop.load()) return;
        lock();
        const bool restarted = m_restart;
        if (restarted) dropStaleResultsLocked(snapshot);
        unlock();
        if (restarted) return;

        PcBlockTile* tile = entry.first;
        int level = 0;
        osg::ref_ptr<osg::Geometry> geometry = tile->build(m_reader, &level, m_coloring ? &*m_coloring : nullptr);

        lock();
        if (geometry) {
            // The camera may have moved on while the block was read.
            if (tile->wantedLevel() == level) m_requests[tile] = geometry;
        } else if (!m_restart) {
            // Nothing to show (unreadable or empty block): asking again on
            // every pass would only read it again.
            m_requests.remove(tile);
        }
        countRequestsLocked();
        unlock();
    }
}

void MipMapThread::dropStaleResultsLocked(const Snapshot& snapshot)
{
    for (auto it = m_requests.begin(); it != m_requests.end(); ++it) {
        if (!it.value()) continue;
        PcBlockTile* tile = it.key();
        const bool current = snapshot.contains(qMakePair(tile, tile->wantedLevel()));
        if (!current) it.value() = nullptr;
    }
}

void MipMapThread::countRequestsLocked() { m_requestCount.store(m_requests.size()); }
