#pragma once

#include <QList>
#include <QMap>
#include <QMutex>
#include <QPair>
#include <QThread>

#include <osg/Geometry>
#include <osg/ref_ptr>

#include <atomic>
#include <optional>

#include "PointColors.h"

class PcBlockTile;

namespace ptCloud {
class IDataSetReader;
}

// The loader thread of a dataset item: it builds the geometry of the tiles
// the GUI thread asks for, at each tile's wanted level, one at a time.
//
// The request map (tile -> finished geometry, null while not yet built) and
// the restart flag are shared with the GUI thread under one mutex. The GUI
// thread, holding it (lock() or tryLock()), takes the finished geometries,
// replaces the requests and changes the tiles' wanted levels; the worker
// holds it only to copy the requests and to store one result at a time. A result is stored only
// when its tile still wants the level it was built at, and the wanted levels
// change only under the mutex, so a result taken always matches its tile's
// wanted level.
class MipMapThread : public QThread {
public:
    using Result = QPair<PcBlockTile*, osg::ref_ptr<osg::Geometry>>;

    // reader: opened, owned by the caller, used by this thread alone.
    // coloring: how the blocks are coloured; null for each block's own mode.
    explicit MipMapThread(ptCloud::IDataSetReader* reader, const PointColoring* coloring = nullptr);
    ~MipMapThread() override;  // stops

    // Ends the loop and waits for the thread, however long the block being
    // read takes. Results not taken are dropped.
    void stop();

    void lock();
    // Never waits: false when the worker holds the mutex.
    bool tryLock();
    void unlock();
    // With the mutex held: the finished geometries, whose requests are done.
    QList<Result> takeResultsLocked();
    // With the mutex held: forgets every request and result and asks for
    // these tiles instead.
    void replaceRequestsLocked(const QList<PcBlockTile*>& tiles);
    // Whether requests are waiting or being built, or results are waiting to
    // be taken. Lock free, for a per-frame poll.
    bool hasRequests() const;

protected:
    void run() override;

private:
    using Snapshot = QList<QPair<PcBlockTile*, int>>;
    void runPass();
    // With the mutex held, after the GUI thread replaced the requests
    // during a pass.
    void dropStaleResultsLocked(const Snapshot& snapshot);
    void countRequestsLocked();

    std::atomic<bool> m_stop{false};
    ptCloud::IDataSetReader* m_reader;
    std::optional<PointColoring> m_coloring;
    QMutex m_mutex;
    bool m_restart = false;
    QMap<PcBlockTile*, osg::ref_ptr<osg::Geometry>> m_requests;
    std::atomic<int> m_requestCount{0};
};
