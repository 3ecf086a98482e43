// LAZ reading against LAS reading of the same points: each pair of files
// (FILE.las and FILE.laz, same records) is read to the end as import reads
// it (readRecords into the block record layout), median of RUNS runs. Prints
// wall and CPU seconds of each, the LAZ/LAS wall ratio, LAZ decoding in
// points per CPU second (the decoder runs beside the reading thread, so CPU
// time covers both cores) and the LAZ file size as a share of the LAS file.
//
//   build/bench/bench_laz [runs = 3] BASE...   (reads BASE.las and BASE.laz)

#include <QCoreApplication>
#include <QFileInfo>
#include <cstdio>
#include <vector>

#include "BenchTiming.h"
#include "LasReader.h"

using namespace ptCloud;

namespace {

bool readAll(const QString& path, quint64* points) {
    LasReader reader;
    QString error;
    if (!reader.open(path, &error)) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(path), qPrintable(error));
        return false;
    }
    const QList<EDataSetColumn> columns = reader.header().columns();
    const stPtCloud_RecordLayout layout = stPtCloud_RecordLayout::forColumns(columns);
    const pcVec3d origin(reader.header().offset[0], reader.header().offset[1], reader.header().offset[2]);
    const pcVec3d quantum(reader.header().scale[0], reader.header().scale[1], reader.header().scale[2]);
    std::vector<char> records;
    qint64 n;
    while ((n = reader.readRecords(records, 1 << 16, layout, origin, quantum, &error)) > 0) {
    }
    if (n < 0) std::fprintf(stderr, "%s: %s\n", qPrintable(path), qPrintable(error));
    *points = reader.pointsRead();
    return n == 0;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int first = 1, runs = 3;
    if (argc > 1 && QString(argv[1]).toInt() > 0) {
        runs = QString(argv[1]).toInt();
        first = 2;
    }
    std::printf("%-28s %10s %9s %9s %9s %9s %7s %12s %7s\n", "file", "points", "las wall", "las cpu", "laz wall",
                "laz cpu", "ratio", "laz pts/cpu-s", "size");
    for (int i = first; i < argc; ++i) {
        const QString base = QString::fromLocal8Bit(argv[i]);
        quint64 points = 0;
        bool ok = true;
        const BenchTiming::Result las = BenchTiming::median([&] { ok = readAll(base + ".las", &points) && ok; }, runs);
        const BenchTiming::Result laz = BenchTiming::median([&] { ok = readAll(base + ".laz", &points) && ok; }, runs);
        if (!ok) return 1;
        const double share = double(QFileInfo(base + ".laz").size()) / double(QFileInfo(base + ".las").size());
        std::printf("%-28s %10llu %9.2f %9.2f %9.2f %9.2f %6.2fx %12.0f %6.1f%%\n",
                    qPrintable(QFileInfo(base).fileName()), static_cast<unsigned long long>(points), las.wall, las.cpu,
                    laz.wall, laz.cpu, laz.wall / las.wall, double(points) / laz.cpu, 100 * share);
    }
    std::printf("load average: %s\n", qPrintable(BenchTiming::loadAverage()));
    return 0;
}
