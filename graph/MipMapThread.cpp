#include "MipMapThread.h"

#include "PcBlockTile.h"

#include <QDeadlineTimer>
#include <QMutexLocker>

MipMapThread::MipMapThread(ptCloud::IDataSetReader* reader) : m_reader(reader) {}

MipMapThread::~MipMapThread() { stop(); }

void MipMapThread::stop()
{
    m_stop.exchange(true);
    wait(QDeadlineTimer(QDeadlineTimer::Forever));
}

QMutex* MipMapThread::mutex() { return &m_mutex; }

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
    QMutexLocker lock(&m_mutex);
    for (auto it = m_requests.begin(); it != m_requests.end(); ++it) it.value() = nullptr;
}

void MipMapThread::runPass()
{
    Snapshot snapshot;
    {
        QMutexLocker lock(&m_mutex);
        for (auto it = m_requests.cbegin(); it != m_requests.cend(); ++it)
            snapshot.append(qMakePair(it.key(), it.key()->wantedLevel()));
        m_restart = false;
    }

    for (const auto& entry : snapshot) {
        if (m_stop.load()) return;
        {
            QMutexLocker lock(&m_mutex);
            if (m_restart) {
                dropStaleResultsLocked(snapshot);
                return;
            }
        }
        PcBlockTile* tile = entry.first;
        int level = 0;
        osg::ref_ptr<osg::Geometry> geometry = tile->build(m_reader, &level);

        QMutexLocker lock(&m_mutex);
        if (geometry) {
            // The camera may have moved on while the block was read.
            if (tile->wantedLevel() == level) m_requests[tile] = geometry;
        } else if (!m_restart) {
            // Nothing to show (unreadable or empty block): asking again on
            // every pass would only read it again.
            m_requests.remove(tile);
        }
        countRequestsLocked();
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
