// The editor on large datasets, against the simplest thing that could work.
//
// For each size (millions of points) it makes the demo survey scene with the
// command line (`ptcloud demo`, then `ptcloud import` into a project of its
// own), or reuses the project a previous run left in the folder, and runs two
// child processes of this program on it, so that each has its own peak
// memory:
//
// - ours: the studio's path. The project is opened through the host's
//   scene and handed to PtCloudWidget::onSceneOpened; the dataset item loads
//   its blocks on its own thread at the levels the camera wants.
// - baseline: one static osg::Geometry holding every 10th point of the same
//   dataset (read and built on the GUI thread), drawn by the same widget
//   class from the same camera.
//
// Figures of each child:
// - first frame: from onSceneOpened (baseline: from opening the file) until a
//   frame has been drawn with every block at the level the camera wants and
//   nothing left for the loader to do;
// - fps: frames per second of a scripted orbit around the view's centre once
//   everything is loaded (the loader catches up with the levels the orbit
//   asks for while it runs, as it would for a user), and the process's CPU
//   time per orbit frame;
// - stall: the longest gap between the ticks of a 1 ms timer on the GUI thread
//   while loading. "stall" counts everything; "wait" takes off the time the
//   widget spent drawing frames (from paintGL until frameSwapped), which is
//   what the renderer costs, not the loader; "harvest" is the longest time a
//   frame spent taking finished blocks into the scene;
// - pick: pickNearest at the pixels of drawn points, and at pixels whose pick
//   square misses the dataset's box (empty sky); median and max;
// - memory: VmRSS of the empty shown view, VmRSS once loaded (at the first
//   complete frame) and VmHWM (peak, the orbit included) of the process, and the
//   "raw" size of the points at the levels drawn: the bytes of the drawn
//   points' positions and colours as the GPU gets them (12 bytes of position
//   and 4 of colour a point, 12 more where a block has normals), summed over
//   the geometries shown, at the first complete frame and after each frame
//   of the orbit. The ratio is (peak - RSS of the empty shown view) / the
//   largest raw size: the empty view (Qt, the GL driver) is there whatever is
//   drawn. A software renderer (Mesa's llvmpipe) counts in full: it keeps its
//   own copy of every vertex buffer and bins every point of a frame in memory.
//
//   xvfb-run -a -s "-screen 0 1600x1000x24" bench_editor [--sizes 5,20,50]
//       [--dir /tmp/ptcloud-bench-editor] [--keep] [--frames 36] [--picks 40]
//
// A folder the run creates is removed at the end unless --keep is given; a
// folder that exists already is reused and kept. Remove it to rebuild the
// datasets (after the builder changes). One child alone, e.g. under perf:
//   bench_editor --child ours --project DIR [--frames N] [--picks N]

#include "OsgGraphItem_PcDataSet.h"
#include "OsgTackballManipulate.h"
#include "PointColors.h"
#include "PointShader.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_DataSetFile.h"
#include "Scene.h"
#include "Scene_PointsCloud.h"
#include "stPtCloud_PointArray.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <osg/Geode>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <sys/resource.h>
#include <utility>
#include <vector>

using namespace ptCloud;

namespace {

constexpr int kViewWidth = 1280;
constexpr int kViewHeight = 800;
constexpr int kPickTolerance = 4;  // the item's pick square, half side, device pixels
constexpr qint64 kLoadTimeoutMs = 15 * 60 * 1000;

struct Options {
    QList<int> sizes{5, 20, 50};
    QString dir = QDir::temp().filePath(QStringLiteral("ptcloud-bench-editor"));
    bool keep = false;
    int frames = 36;
    int picks = 40;
    QString child;    // "ours" or "baseline" in a child process
    QString project;  // ours: the project folder
    QString file;     // baseline: the dataset's point file
    QString view;     // baseline: eye, centre and up, nine numbers
};

bool parseOptions(const QStringList& args, Options* o, QString* error)
{
    for (int i = 1; i < args.size(); ++i) {
        const QString& a = args[i];
        static const QStringList withValue{"--sizes", "--dir", "--frames", "--picks", "--child", "--project", "--file",
                                           "--view"};
        if (a == QLatin1String("--keep")) {
            o->keep = true;
        } else if (!withValue.contains(a)) {
            *error = QStringLiteral("unknown option %1").arg(a);
            return false;
        } else if (i + 1 >= args.size()) {
            *error = QStringLiteral("%1 needs a value").arg(a);
            return false;
        } else if (a == QLatin1String("--sizes")) {
            o->sizes.clear();
            for (const QString& s : args[++i].split(QLatin1Char(','), Qt::SkipEmptyParts)) o->sizes << s.toInt();
        } else if (a == QLatin1String("--dir")) {
            o->dir = QFileInfo(args[++i]).absoluteFilePath();
        } else if (a == QLatin1String("--frames")) {
            o->frames = std::max(1, args[++i].toInt());
        } else if (a == QLatin1String("--picks")) {
            o->picks = std::max(1, args[++i].toInt());
        } else if (a == QLatin1String("--child")) {
            o->child = args[++i];
        } else if (a == QLatin1String("--project")) {
            o->project = args[++i];
        } else if (a == QLatin1String("--file")) {
            o->file = args[++i];
        } else {
            o->view = args[++i];
        }
    }
    if (o->sizes.contains(0)) {
        *error = QStringLiteral("--sizes takes millions of points, e.g. 5,20,50");
        return false;
    }
    return true;
}

// ---- measuring inside a child

double msSince(const QElapsedTimer& t) { return double(t.nsecsElapsed()) / 1e6; }

double statusMiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(field)) return line.mid(int(qstrlen(field))).trimmed().split(' ').value(0).toDouble() / 1024.0;
    return -1;
}

// CPU time of the process, the renderer's threads included: other programs
// on the machine disturb it much less than the wall time.
double processCpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

double median(std::vector<double> v)
{
    if (v.empty()) return -1;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

double maximum(const std::vector<double>& v) { return v.empty() ? -1 : *std::max_element(v.begin(), v.end()); }

// The editor's widget with the time of each frame split into drawing and
// taking in finished blocks.
class BenchView : public PtCloudWidget {
public:
    BenchView()
    {
        connect(this, &QOpenGLWidget::frameSwapped, this, [this] {
            m_drawnMs += msSince(m_paintStart) - m_lastHarvestMs;
            ++m_frames;
        });
    }

    // Time spent drawing since the last call.
    double takeDrawnMs() { return std::exchange(m_drawnMs, 0.0); }
    double longestHarvestMs() const { return m_longestHarvestMs; }
    int frames() const { return m_frames; }

    bool drawFrame()
    {
        QSignalSpy swapped(this, &QOpenGLWidget::frameSwapped);
        requestRedraw();
        return swapped.wait(60000);
    }

protected:
    void paintGL() override
    {
        m_paintStart.start();
        m_lastHarvestMs = 0;
        PtCloudWidget::paintGL();
    }
    void onPainted() override
    {
        QElapsedTimer t;
        t.start();
        PtCloudWidget::onPainted();
        m_lastHarvestMs = msSince(t);
        m_longestHarvestMs = std::max(m_longestHarvestMs, m_lastHarvestMs);
    }

private:
    QElapsedTimer m_paintStart;
    double m_lastHarvestMs = 0;
    double m_drawnMs = 0;
    double m_longestHarvestMs = 0;
    int m_frames = 0;
};

// The longest gaps between the ticks of a 1 ms timer on the GUI thread.
class StallWatch {
public:
    explicit StallWatch(BenchView* view) : m_view(view)
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(1);
        QObject::connect(&m_timer, &QTimer::timeout, [this] { tick(); });
    }
    void start()
    {
        m_view->takeDrawnMs();
        m_clock.start();
        m_timer.start();
    }
    void stop()
    {
        tick();
        m_timer.stop();
    }
    double longestMs() const { return m_longest; }
    double longestWaitMs() const { return m_longestWait; }

private:
    void tick()
    {
        const double gap = msSince(m_clock);
        m_clock.start();
        m_longest = std::max(m_longest, gap);
        m_longestWait = std::max(m_longestWait, gap - m_view->takeDrawnMs());
    }

    BenchView* m_view;
    QTimer m_timer;
    QElapsedTimer m_clock;
    double m_longest = 0;
    double m_longestWait = 0;
};

// Runs the event loop until done() holds after a frame, or the timeout.
template <class Done>
bool waitForFrame(BenchView* view, Done done, qint64 timeoutMs)
{
    QEventLoop loop;
    bool reached = false;
    const auto check = [&] {
        if (!done()) return;
        reached = true;
        loop.quit();
    };
    const QMetaObject::Connection c = QObject::connect(view, &QOpenGLWidget::frameSwapped, &loop, check);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    view->requestRedraw();
    loop.exec();
    QObject::disconnect(c);
    return reached;
}

struct CameraPose {
    osg::Vec3d eye, centre, up;
    QString toString() const
    {
        QStringList n;
        for (const osg::Vec3d* v : {&eye, &centre, &up})
            for (int k = 0; k < 3; ++k) n << QString::number((*v)[k], 'g', 17);
        return n.join(QLatin1Char(','));
    }
    static bool fromString(const QString& text, CameraPose* pose)
    {
        const QStringList n = text.split(QLatin1Char(','));
        if (n.size() != 9) return false;
        osg::Vec3d* v[] = {&pose->eye, &pose->centre, &pose->up};
        for (int i = 0; i < 9; ++i) (*v[i / 3])[i % 3] = n[i].toDouble();
        return true;
    }
};

CameraPose currentPose(BenchView* view)
{
    CameraPose pose;
    view->getManipulate()->getTransformation(pose.eye, pose.centre, pose.up);
    return pose;
}

// Frames per second of a full turn of the eye about the vertical through
// the view's centre, at the view's height and distance.
double orbitFps(BenchView* view, int frames, const std::function<void()>& afterFrame)
{
    const CameraPose start = currentPose(view);
    const osg::Vec3d arm = start.eye - start.centre;
    QElapsedTimer t;
    t.start();
    for (int i = 1; i <= frames; ++i) {
        const osg::Quat turn(2.0 * osg::PI * i / frames, osg::Z_AXIS);
        view->getManipulate()->setTransformation(start.centre + turn * arm, start.centre, turn * start.up);
        if (!view->drawFrame()) return -1;
        afterFrame();
    }
    return frames / (msSince(t) / 1000.0);
}

// Window coordinates (device pixels, y up) of a point of the scene.
osg::Matrixd toWindow(const osg::Camera* camera)
{
    return camera->getViewMatrix() * camera->getProjectionMatrix() * camera->getViewport()->computeWindowMatrix();
}

// Whether the ray through the pixel misses the box.
bool rayMisses(const osg::Matrixd& fromWindow, double x, double y, const osg::BoundingBox& box)
{
    const osg::Vec3d a = osg::Vec3d(x, y, 0) * fromWindow, b = osg::Vec3d(x, y, 1) * fromWindow;
    const osg::Vec3d d = b - a;
    double t0 = 0, t1 = 1;
    for (int k = 0; k < 3; ++k) {
        if (std::abs(d[k]) < 1e-12) {
            if (a[k] < box._min[k] || a[k] > box._max[k]) return true;
            continue;
        }
        double u = (box._min[k] - a[k]) / d[k], v = (box._max[k] - a[k]) / d[k];
        if (u > v) std::swap(u, v);
        t0 = std::max(t0, u);
        t1 = std::min(t1, v);
        if (t0 > t1) return true;
    }
    return false;
}

struct PickFigures {
    std::vector<double> hitMs, skyMs;
    int hitsMissed = 0;   // picks at drawn points that found nothing
    int skyHits = 0;      // picks at empty sky that found something
};

PickFigures measurePicks(BenchView* view, OsgGraphItem_PcDataSet* item, const QList<int>& blockIds, int picks)
{
    PickFigures f;
    const osg::Camera* camera = view->getViewer()->getCamera();
    const osg::Matrixd window = toWindow(camera);
    const osg::Matrixd fromWindow = osg::Matrixd::inverse(window);
    const osg::Viewport* vp = camera->getViewport();
    std::mt19937 random(7);
    const auto timedPick = [&](double x, double y, bool* hit) {
        int block = -1, index = -1;
        osg::Vec3f at;
        QMap<EDataSetColumn, QVariant> attributes;
        QElapsedTimer t;
        t.start();
        *hit = item->pickNearest(x, y, &block, &index, &at, &attributes);
        return msSince(t);
    };
    for (int tries = 0; int(f.hitMs.size()) < picks && tries < picks * 50; ++tries) {
        const osg::Geometry* g = item->blockGeometry(blockIds[int(random() % unsigned(blockIds.size()))]);
        const auto* vertices = g ? dynamic_cast<const osg::Vec3Array*>(g->getVertexArray()) : nullptr;
        if (!vertices || vertices->empty()) continue;
        const osg::Vec3d p = osg::Vec3d((*vertices)[random() % vertices->size()]) * window;
        if (p.z() < 0 || p.z() > 1 || p.x() < vp->x() + kPickTolerance || p.y() < vp->y() + kPickTolerance ||
            p.x() > vp->x() + vp->width() - kPickTolerance || p.y() > vp->y() + vp->height() - kPickTolerance)
            continue;
        bool hit = false;
        f.hitMs.push_back(timedPick(std::round(p.x()), std::round(p.y()), &hit));
        if (!hit) ++f.hitsMissed;
    }
    const osg::BoundingBox box = item->dataBounds();
    const int steps = 24;
    for (int i = 0; i <= steps && int(f.skyMs.size()) < picks; ++i) {
        for (int j = 0; j <= steps && int(f.skyMs.size()) < picks; ++j) {
            const double x = vp->x() + kPickTolerance + (vp->width() - 2.0 * kPickTolerance) * i / steps;
            const double y = vp->y() + kPickTolerance + (vp->height() - 2.0 * kPickTolerance) * j / steps;
            bool clear = true;
            for (const auto& c : {osg::Vec2d(0, 0), osg::Vec2d(-1, -1), osg::Vec2d(-1, 1), osg::Vec2d(1, -1),
                                  osg::Vec2d(1, 1)})
                clear = clear && rayMisses(fromWindow, x + c.x() * kPickTolerance, y + c.y() * kPickTolerance, box);
            if (!clear) continue;
            bool hit = false;
            f.skyMs.push_back(timedPick(x, y, &hit));
            if (hit) ++f.skyHits;
        }
    }
    return f;
}

// Bytes of positions and colours (and normals) the geometry hands the GPU.
quint64 rawBytes(const osg::Geometry* g)
{
    quint64 bytes = 0;
    for (const osg::Array* a : {g->getVertexArray(), g->getColorArray(), g->getNormalArray()})
        if (a) bytes += a->getTotalDataSize();
    return bytes;
}

// One "RESULT key=value ..." line for the parent.
void printResult(const QMap<QString, QString>& values)
{
    QStringList parts;
    for (auto it = values.cbegin(); it != values.cend(); ++it) parts << it.key() + QLatin1Char('=') + it.value();
    std::printf("RESULT %s\n", qPrintable(parts.join(QLatin1Char(' '))));
    std::fflush(stdout);
}

QString num(double v, int decimals = 1) { return QString::number(v, 'f', decimals); }

std::unique_ptr<BenchView> showView()
{
    auto view = std::make_unique<BenchView>();
    view->resize(kViewWidth, kViewHeight);
    view->show();
    if (!QTest::qWaitForWindowExposed(view.get())) return nullptr;
    view->drawFrame();
    return view;
}

// The orbit, then the memory figures; prints the result. rawMiB: the raw
// size of what is drawn now.
int finishChild(BenchView* view, const Options& o, double emptyRss, const std::function<double()>& rawMiB,
                QMap<QString, QString>* r)
{
    double largestRaw = rawMiB();
    (*r)["raw_mib"] = num(largestRaw);
    const double cpuBefore = processCpuMs();
    (*r)["fps"] = num(orbitFps(view, o.frames, [&] { largestRaw = std::max(largestRaw, rawMiB()); }), 2);
    (*r)["orbit_cpu_ms"] = num((processCpuMs() - cpuBefore) / o.frames);
    (*r)["raw_max_mib"] = num(largestRaw);
    (*r)["empty_mib"] = num(emptyRss);
    (*r)["hwm_mib"] = num(statusMiB("VmHWM:"));
    (*r)["rss_mib"] = num(statusMiB("VmRSS:"));
    printResult(*r);
    return 0;
}

int fail(const QString& why)
{
    std::fprintf(stderr, "bench_editor: %s\n", qPrintable(why));
    return 1;
}

int runOurs(const Options& o)
{
    std::unique_ptr<BenchView> view = showView();
    if (!view) return fail(QStringLiteral("the view was never exposed"));
    QMap<QString, QString> r;
    const double emptyRss = statusMiB("VmRSS:");

    Scene scene;
    QString error;
    QElapsedTimer t;
    t.start();
    if (!scene.getPointsCloud()->openProject(o.project, &error)) return fail(error);
    r["project_ms"] = num(msSince(t));

    StallWatch stalls(view.get());
    stalls.start();
    t.start();
    view->onSceneOpened(&scene);
    r["open_ms"] = num(msSince(t));
    OsgGraphItem_PcDataSet* item = view->ptCloudScene()->pointsItem();
    if (!item) return fail(QStringLiteral("the project %1 shows no dataset").arg(o.project));

    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    {
        PtCloud_DataSetFile reader(item->file()->getFilepath());
        if (!reader.openFile() || !reader.getBlocks(blocks)) return fail(reader.lastError());
    }
    const QList<int> blockIds = blocks.keys();
    const auto complete = [&] {
        if (!item->isReady() || item->hasPendingWork()) return false;
        for (int id : blockIds)
            if (!item->blockGeometry(id)) return false;
        return true;
    };
    const int framesBefore = view->frames();
    // When each frame of the loading ended and how many points it had drawn.
    QStringList timeline;
    const QMetaObject::Connection logFrames = QObject::connect(view.get(), &QOpenGLWidget::frameSwapped, [&] {
        timeline << QStringLiteral("%1:%2").arg(num(msSince(t), 0), num(double(item->drawnPointCount()) / 1e6, 2));
    });
    const bool loaded = waitForFrame(view.get(), complete, kLoadTimeoutMs);
    QObject::disconnect(logFrames);
    if (!loaded) return fail(QStringLiteral("loading never finished"));
    r["frames_ms_mpts"] = timeline.join(QLatin1Char(','));
    r["first_ms"] = num(msSince(t));
    stalls.stop();
    r["load_frames"] = QString::number(view->frames() - framesBefore);
    r["stall_ms"] = num(stalls.longestMs());
    r["wait_ms"] = num(stalls.longestWaitMs());
    r["harvest_ms"] = num(view->longestHarvestMs(), 2);
    r["loaded_rss_mib"] = num(statusMiB("VmRSS:"));

    r["drawn"] = QString::number(item->drawnPointCount());
    r["points"] = QString::number(item->pointCount());
    r["blocks"] = QString::number(blockIds.size());
    r["view"] = currentPose(view.get()).toString();
    r["file"] = item->file()->getFilepath();

    const PickFigures picks = measurePicks(view.get(), item, blockIds, o.picks);
    r["pick_med"] = num(median(picks.hitMs), 2);
    r["pick_max"] = num(maximum(picks.hitMs), 2);
    r["pick_n"] = QString::number(picks.hitMs.size());
    r["pick_missed"] = QString::number(picks.hitsMissed);
    r["sky_med"] = num(median(picks.skyMs), 3);
    r["sky_max"] = num(maximum(picks.skyMs), 3);
    r["sky_n"] = QString::number(picks.skyMs.size());
    r["sky_hit"] = QString::number(picks.skyHits);

    const auto rawMiB = [&] {
        quint64 raw = 0;
        for (int id : blockIds) raw += rawBytes(item->blockGeometry(id));
        return double(raw) / (1 << 20);
    };
    return finishChild(view.get(), o, emptyRss, rawMiB, &r);
}

int runBaseline(const Options& o)
{
    CameraPose pose;
    if (!CameraPose::fromString(o.view, &pose)) return fail(QStringLiteral("--view needs nine numbers"));
    std::unique_ptr<BenchView> view = showView();
    if (!view) return fail(QStringLiteral("the view was never exposed"));
    QMap<QString, QString> r;
    const double emptyRss = statusMiB("VmRSS:");
    view->getManipulate()->setTransformation(pose.eye, pose.centre, pose.up);

    QElapsedTimer t;
    t.start();
    PtCloud_DataSetFile reader(o.file);
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    if (!reader.openFile() || !reader.getBlocks(blocks)) return fail(reader.lastError());
    constexpr int kStride = 10;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4ubArray> colours = new osg::Vec4ubArray;
    vertices->reserve(size_t(reader.getHeader().pointCount / kStride + quint64(blocks.size())));
    colours->reserve(vertices->capacity());
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        const stPtCloud_PointArray* block = reader.readBlock(it.key());
        if (!block) return fail(reader.lastError());
        for (size_t i = 0; i < block->positions.size(); i += kStride) {
            const pcVec3f& p = block->positions[i];
            vertices->push_back(osg::Vec3(p.x, p.y, p.z));
        }
        const osg::ref_ptr<osg::Vec4ubArray> c =
            PointColors::blockColors(*block, PointColoring{block->coloringMode, 0.f, 0.f}, kStride, reader.getHeader().bounds);
        colours->insert(colours->end(), c->begin(), c->end());
    }
    colours->setNormalize(true);
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(vertices);
    geometry->setColorArray(colours, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, GLsizei(vertices->size())));
    geometry->getOrCreateVertexBufferObject()->setUsage(GL_STATIC_DRAW);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    applyPointShader(geode);
    reader.closeFile();
    r["open_ms"] = num(msSince(t));
    view->getRoot()->addChild(geode);
    if (!view->drawFrame()) return fail(QStringLiteral("no frame was drawn"));
    r["first_ms"] = num(msSince(t));
    r["loaded_rss_mib"] = num(statusMiB("VmRSS:"));
    // Everything was read on the GUI thread.
    r["stall_ms"] = r["first_ms"];
    r["wait_ms"] = r["open_ms"];
    r["drawn"] = QString::number(vertices->size());
    return finishChild(view.get(), o, emptyRss, [&] { return double(rawBytes(geometry)) / (1 << 20); }, &r);
}

// ---- the parent: datasets, children, table

bool runProcess(const QString& program, const QStringList& args, QString* out, QString* error)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    p.start(program, args);
    if (!p.waitForFinished(-1) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        *error = QStringLiteral("%1 %2 failed (exit %3)").arg(program, args.join(QLatin1Char(' '))).arg(p.exitCode());
        return false;
    }
    if (out) *out = QString::fromLocal8Bit(p.readAllStandardOutput());
    return true;
}

// The project of the demo scene with `millions` million points, made unless
// a finished one is there.
bool ensureProject(const QString& dir, int millions, QString* project, QString* error)
{
    const QString name = QStringLiteral("demo-%1M").arg(millions);
    *project = QDir(dir).filePath(name);
    const QString done = QDir(*project).filePath(QStringLiteral(".bench-complete"));
    if (QFileInfo::exists(done)) return true;
    QDir(*project).removeRecursively();
    const QString las = QDir(dir).filePath(name + QStringLiteral(".las"));
    std::fprintf(stderr, "making %s (%d million points)...\n", qPrintable(*project), millions);
    QElapsedTimer t;
    t.start();
    if (!runProcess(QStringLiteral(PTCLOUD_CLI), {QStringLiteral("demo"), las, QStringLiteral("--points"),
                                                  QString::number(qint64(millions) * 1000000)},
                    nullptr, error) ||
        !runProcess(QStringLiteral(PTCLOUD_CLI), {QStringLiteral("import"), las, QStringLiteral("--project"), *project},
                    nullptr, error))
        return false;
    std::fprintf(stderr, "  made in %.0f s\n", msSince(t) / 1000.0);
    QFile marker(done);
    if (!marker.open(QIODevice::WriteOnly)) {
        *error = QStringLiteral("cannot write %1").arg(done);
        return false;
    }
    return true;
}

bool runChild(const QStringList& args, QMap<QString, QString>* values, QString* error)
{
    QString out;
    if (!runProcess(QCoreApplication::applicationFilePath(), args, &out, error)) return false;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        if (!line.startsWith(QLatin1String("RESULT "))) continue;
        for (const QString& pair : line.mid(7).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            const int eq = pair.indexOf(QLatin1Char('='));
            values->insert(pair.left(eq), pair.mid(eq + 1));
        }
        return true;
    }
    *error = QStringLiteral("the child printed no result");
    return false;
}

double value(const QMap<QString, QString>& v, const char* key) { return v.value(QLatin1String(key), "-1").toDouble(); }

double memoryRatio(const QMap<QString, QString>& v)
{
    return (value(v, "hwm_mib") - value(v, "empty_mib")) / value(v, "raw_max_mib");
}

void printRow(const char* what, int millions, const QMap<QString, QString>& v)
{
    std::printf("| %d M | %s | %.2f | %.2f | %.1f (%.0f) | %.0f / %.0f / %.1f | %.1f / %.1f | %.2f / %.2f | %.0f | %.0f | %.0f | %.0f / %.0f | %.2f |\n",
                millions, what, value(v, "drawn") / 1e6, value(v, "first_ms") / 1000.0, value(v, "fps"), value(v, "orbit_cpu_ms"),
                value(v, "stall_ms"), value(v, "wait_ms"), value(v, "harvest_ms"), value(v, "pick_med"),
                value(v, "pick_max"), value(v, "sky_med"), value(v, "sky_max"), value(v, "empty_mib"),
                value(v, "loaded_rss_mib"), value(v, "hwm_mib"), value(v, "raw_mib"), value(v, "raw_max_mib"),
                memoryRatio(v));
}

int runParent(const Options& o)
{
    const bool existed = QFileInfo::exists(o.dir);
    if (!QDir().mkpath(o.dir)) return fail(QStringLiteral("cannot make %1").arg(o.dir));
    struct Row {
        int millions;
        QMap<QString, QString> ours, baseline;
    };
    QList<Row> rows;
    QStringList missed;
    for (int millions : o.sizes) {
        Row row{millions, {}, {}};
        QString project, error;
        const QStringList common{QStringLiteral("--frames"), QString::number(o.frames), QStringLiteral("--picks"),
                                 QString::number(o.picks)};
        if (!ensureProject(o.dir, millions, &project, &error) ||
            !runChild(QStringList{QStringLiteral("--child"), QStringLiteral("ours"), QStringLiteral("--project"),
                                  project} + common,
                      &row.ours, &error) ||
            !runChild(QStringList{QStringLiteral("--child"), QStringLiteral("baseline"), QStringLiteral("--file"),
                                  row.ours.value("file"), QStringLiteral("--view"), row.ours.value("view")} +
                          common,
                      &row.baseline, &error))
            return fail(error);
        rows << row;
    }

    std::printf("\nview %dx%d; times in ms unless marked; memory in MiB; stall / wait / harvest: see the top of "
                "bench_editor.cpp\n\n",
                kViewWidth, kViewHeight);
    std::printf("| size | what | drawn Mpts | first frame s | orbit fps (CPU ms a frame) | stall / wait / harvest | pick med / max | "
                "sky pick med / max | empty view | loaded | peak | raw first / largest | (peak - empty) / raw |\n");
    std::printf("| --- | --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |\n");
    for (const Row& row : rows) {
        printRow("ours", row.millions, row.ours);
        printRow("every 10th, one geometry", row.millions, row.baseline);
    }
    std::printf("\n| size | blocks | open ms | first frame ours / baseline | fps ours / baseline | memory ratio ours / "
                "baseline | picks at points (missed) | sky picks (hit) |\n| --- | ---: | ---: | ---: | ---: | ---: | "
                "---: | ---: |\n");
    for (const Row& row : rows) {
        const auto& a = row.ours;
        const auto& b = row.baseline;
        std::printf("| %d M | %.0f | %.1f | %.2f | %.2f | %.2f | %.0f (%.0f) | %.0f (%.0f) |\n", row.millions,
                    value(a, "blocks"), value(a, "open_ms"), value(a, "first_ms") / value(b, "first_ms"),
                    value(a, "fps") / value(b, "fps"), memoryRatio(a) / memoryRatio(b), value(a, "pick_n"),
                    value(a, "pick_missed"), value(a, "sky_n"), value(a, "sky_hit"));
        if (row.millions == 20 && value(a, "first_ms") >= 2000) missed << QStringLiteral("first frame at 20 M");
        if (value(a, "wait_ms") >= 50) missed << QStringLiteral("stall at %1 M").arg(row.millions);
        if (value(a, "pick_max") >= 30) missed << QStringLiteral("pick at %1 M").arg(row.millions);
        if (memoryRatio(a) > 1.5) missed << QStringLiteral("memory at %1 M").arg(row.millions);
    }
    std::printf("\ntargets: first frame < 2 s at 20 M, wait < 50 ms, pick < 30 ms, (peak - empty) / raw <= 1.5\n");
    std::printf("%s\n", missed.isEmpty() ? "all targets met" : qPrintable(QStringLiteral("MISSED: ") + missed.join(", ")));

    if (!o.keep && !existed) QDir(o.dir).removeRecursively();
    return missed.isEmpty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    Options o;
    QString error;
    if (!parseOptions(app.arguments(), &o, &error)) return fail(error);
    if (o.child == QLatin1String("ours")) return runOurs(o);
    if (o.child == QLatin1String("baseline")) return runBaseline(o);
    if (!o.child.isEmpty()) return fail(QStringLiteral("--child is ours or baseline"));
    return runParent(o);
}
