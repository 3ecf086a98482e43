// Builds a generated dataset out of core and measures, in one run: the build
// (points/s, peak memory), readBlock throughput from a cold and a warm page
// cache, and a plain file copy of the same file as the I/O baseline.
//
//   bench_readblock [points = 5000000] [work folder = a temporary one]

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "PtCloud_DataSetBuilder.h"
#include "PtCloud_DataSetFile.h"

using namespace ptCloud;

namespace {

// A survey-like scene: gently rolling ground over 2 km x 2 km with a few
// scattered "trees", UTM-sized origin, the columns a LAS import keeps.
class SceneGenerator {
public:
    explicit SceneGenerator(quint64 seed) : m_state(seed) {}

    void fill(stPtCloud_PointArray& chunk, int n, quint64 firstId)
    {
        chunk.resize(n);
        auto* intensity = chunk.columnData<quint16>(DSC_Intensity);
        auto* cls = chunk.columnData<quint8>(DSC_Classification);
        auto* gps = chunk.columnData<double>(DSC_GpsTime);
        for (int i = 0; i < n; ++i) {
            const float x = 2000.f * next(), y = 2000.f * next();
            const bool tree = next() < 0.15f;
            const float ground = 8.f * std::sin(x / 170.f) + 5.f * std::cos(y / 90.f);
            const float z = ground + (tree ? 3.f + 12.f * next() : 0.05f * next());
            chunk.positions[size_t(i)] = pcVec3f(x, y, z);
            chunk.colors[size_t(i)] = tree ? pcVec4f(0.2f, 0.5f + 0.3f * next(), 0.2f, 1.f)
                                           : pcVec4f(0.5f, 0.4f, 0.3f + 0.1f * next(), 1.f);
            intensity[i] = quint16(200 + 3000 * next());
            cls[i] = tree ? 5 : 2;
            gps[i] = 1.0e8 + double(firstId + quint64(i)) * 1e-5;
        }
    }

private:
    float next()
    {
        m_state = m_state * 6364136223846793005ull + 1442695040888963407ull;
        return float(m_state >> 40) / float(1 << 24);
    }
    quint64 m_state;
};

double seconds(const QElapsedTimer& t)
{
    return double(t.nsecsElapsed()) * 1e-9;
}

long peakRssMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

// Writes dirty pages back, then asks the kernel to forget the file's pages.
bool dropFromCache(const QString& path)
{
    const int fd = ::open(path.toLocal8Bit().constData(), O_RDONLY);
    if (fd < 0) return false;
    const bool ok = ::fdatasync(fd) == 0 && ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED) == 0;
    ::close(fd);
    return ok;
}

// What cp does: read and write in large pieces.
bool copyFile(const QString& from, const QString& to)
{
    const int in = ::open(from.toLocal8Bit().constData(), O_RDONLY);
    const int out = ::open(to.toLocal8Bit().constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    bool ok = in >= 0 && out >= 0;
    std::vector<char> buffer(1 << 20);
    while (ok) {
        const ssize_t n = ::read(in, buffer.data(), buffer.size());
        if (n <= 0) {
            ok = n == 0;
            break;
        }
        ok = ::write(out, buffer.data(), size_t(n)) == n;
    }
    if (in >= 0) ::close(in);
    if (out >= 0) ::close(out);
    return ok;
}

// Reads every block once; returns the points read, or -1.
qint64 readAllBlocks(const QString& path)
{
    PtCloud_DataSetFile file(path);
    if (!file.openFile()) {
        fprintf(stderr, "cannot open: %s\n", qPrintable(file.lastError()));
        return -1;
    }
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    file.getBlocks(blocks);
    qint64 points = 0;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        const stPtCloud_PointArray* a = file.readBlock(it.key());
        if (!a) return -1;
        points += a->count;
    }
    return points;
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const quint64 total = args.size() > 1 ? args[1].toULongLong() : 5000000ull;
    QTemporaryDir tmp(args.size() > 2 ? args[2] + QStringLiteral("/bench-XXXXXX") : QString());
    if (total == 0 || !tmp.isValid()) {
        fprintf(stderr, "usage: bench_readblock [points] [work folder]\n");
        return 2;
    }
    const QString path = tmp.filePath(QStringLiteral("bench.blk"));

    stPtCloud_DataSetHeader header;
    header.origin = pcVec3d(500000.0, 4100000.0, 120.0);
    header.columns = {DSC_Location, DSC_Color, DSC_Intensity, DSC_Classification, DSC_GpsTime};
    header.coloringMode = CM_RGB;
    header.pointCount = total;
    const pcBoundingBoxf bounds(0.f, 0.f, -20.f, 2000.f, 2000.f, 40.f);

    QElapsedTimer timer;
    timer.start();
    {
        PtCloud_DataSetBuilder builder(path, header, bounds);
        SceneGenerator generator(42);
        stPtCloud_PointArray chunk;
        chunk.origin = header.origin;
        for (EDataSetColumn c : header.columns) chunk.addColumn(c);
        QString error;
        for (quint64 done = 0; done < total;) {
            const int n = int(std::min<quint64>(100000, total - done));
            generator.fill(chunk, n, done);
            if (!builder.addPoints(chunk, &error)) {
                fprintf(stderr, "addPoints: %s\n", qPrintable(error));
                return 1;
            }
            done += quint64(n);
        }
        const double fed = seconds(timer);
        if (!builder.finish(nullptr, &error)) {
            fprintf(stderr, "finish: %s\n", qPrintable(error));
            return 1;
        }
        const double built = seconds(timer);
        printf("build     %llu points in %.2f s (%.2f M points/s; spilling %.2f s, blocks %.2f s), "
               "peak RSS %ld MiB\n",
               (unsigned long long)total, built, total / built * 1e-6, fed, built - fed, peakRssMiB());
    }
    const double fileMiB = double(QFileInfo(path).size()) / (1 << 20);

    struct Pass {
        const char* name;
        bool cold;
        double readSeconds = 0, copySeconds = 0;
    } passes[2] = {{"cold", true}, {"warm", false}};
    const QString copy = path + QStringLiteral(".copy");
    for (Pass& pass : passes) {
        if (pass.cold && !dropFromCache(path)) fprintf(stderr, "cannot drop the file from the cache\n");
        timer.restart();
        if (!copyFile(path, copy)) {
            fprintf(stderr, "copy failed\n");
            return 1;
        }
        pass.copySeconds = seconds(timer);
        QFile::remove(copy);
        if (pass.cold) dropFromCache(path);
        timer.restart();
        const qint64 points = readAllBlocks(path);
        pass.readSeconds = seconds(timer);
        if (points != qint64(total)) {
            fprintf(stderr, "read %lld points of %llu\n", (long long)points, (unsigned long long)total);
            return 1;
        }
        printf("readBlock %s: %.1f M points/s (%.0f MiB/s); copy %.0f MiB/s; read takes %.2fx the copy\n",
               pass.name, total / pass.readSeconds * 1e-6, fileMiB / pass.readSeconds,
               fileMiB / pass.copySeconds, pass.readSeconds / pass.copySeconds);
    }
    printf("file      %.0f MiB, %.1f bytes a point\n", fileMiB, fileMiB * (1 << 20) / double(total));
    return 0;
}
