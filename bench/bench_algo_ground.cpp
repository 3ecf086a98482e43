// Times the ground filters and the DEM products on a real scene of about 1
// million points: the ISPRS sample samp31 (urban, 28 862 points) laid out
// side by side in a 6 x 6 block, and prints the type I, type II and total
// errors of both ground filters on every ISPRS sample in the shared data.
// Wall and process CPU seconds are printed: the CPU figure stays meaningful
// on a machine shared with other jobs. The two cloth filter runs on the
// tiled scene are timed `runs` times and report the median; the load
// average is printed at the start and the end.
//
//   bench_algo_ground [copies per side = 6] [sample = samp31] [runs = 1]

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <vector>

#include "Algo_ClothFilter.h"
#include "Algo_Contours.h"
#include "Algo_DemGrid.h"
#include "Algo_HeightMap.h"
#include "Algo_PatchworkGround.h"
#include "BenchTiming.h"

using namespace ptCloud;

namespace {

void timeIt(const char* what, const std::function<QString()>& fn, int runs = 1)
{
    QString note;
    const BenchTiming::Result r = BenchTiming::median([&] { note = fn(); }, runs);
    std::printf("%-28s wall %7.2f s  cpu %7.2f s  %s%s\n", what, r.wall, r.cpu,
                runs > 1 ? qPrintable(QString("(median of %1, wall %2..%3 s)  ")
                                          .arg(runs)
                                          .arg(r.fastestWall, 0, 'f', 2)
                                          .arg(r.slowestWall, 0, 'f', 2))
                         : "",
                qPrintable(note));
    std::fflush(stdout);
}

// An ISPRS text sample relative to its first point; bare[i]: label 0.
bool readSample(const QString& path, std::vector<pcVec3f>& pts, std::vector<bool>& bare)
{
    std::ifstream in(path.toStdString());
    double x, y, z, x0 = 0, y0 = 0, z0 = 0;
    int label;
    while (in >> x >> y >> z >> label) {
        if (pts.empty()) x0 = x, y0 = y, z0 = z;
        pts.emplace_back(float(x - x0), float(y - y0), float(z - z0));
        bare.push_back(label == 0);
    }
    return !pts.empty();
}

QString errors(const std::vector<int>& labels, const std::vector<bool>& bare)
{
    double ground = 0, object = 0, lost = 0, kept = 0;
    for (size_t i = 0; i < labels.size(); ++i) {
        if (bare[i]) ++ground, lost += labels[i] != 2;
        else ++object, kept += labels[i] == 2;
    }
    return QString("type I %1 %, type II %2 %, total %3 %")
        .arg(100 * lost / ground, 0, 'f', 2)
        .arg(100 * kept / object, 0, 'f', 2)
        .arg(100 * (lost + kept) / double(labels.size()), 0, 'f', 2);
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int side = argc > 1 ? std::atoi(argv[1]) : 6;
    const QString sample = argc > 2 ? QString(argv[2]) : QStringLiteral("samp31");
    const int runs = std::max(argc > 3 ? std::atoi(argv[3]) : 1, 1);
    std::printf("load %s\n", qPrintable(BenchTiming::loadAverage()));
    const QDir isprs(QStringLiteral(PTCLOUD_SHARED_DATA_DIR "/isprs"));
    QString error;

    std::printf("ISPRS samples, cloth filter with the parameters of the sample's group and Patchwork++ defaults\n");
    struct Group {
        const char* name;
        int rigidness;
        bool slopeSmooth;
    };
    for (const QString& file : isprs.entryList({"samp*.txt"}, QDir::Files, QDir::Name)) {
        std::vector<pcVec3f> pts;
        std::vector<bool> bare;
        if (!readSample(isprs.filePath(file), pts, bare)) continue;
        // Urban samples 1x-4x: group I for 21, 31, 42, II for the others;
        // rural 5x-7x: group I for 51, 54, III for the others.
        const int n = file.mid(4, 2).toInt();
        const Group g = (n == 21 || n == 31 || n == 42 || n == 51 || n == 54) ? Group{"I", 3, false}
                        : n < 50                                             ? Group{"II", 2, true}
                                                                             : Group{"III", 1, true};
        Algo_ClothFilter::Params cp;
        cp.rigidness = g.rigidness;
        cp.slopeSmooth = g.slopeSmooth;
        std::vector<int> labels;
        timeIt(qPrintable(QString("%1 cloth (group %2)").arg(file, g.name)), [&] {
            return Algo_ClothFilter::run(pts, cp, &labels, nullptr, &error) ? errors(labels, bare) : error;
        });
        timeIt(qPrintable(QString("%1 patchwork").arg(file)), [&] {
            return Algo_PatchworkGround::run(pts, Algo_PatchworkGround::Params(), &labels, nullptr, &error)
                       ? errors(labels, bare)
                       : error;
        });
    }

    std::vector<pcVec3f> tile, pts;
    std::vector<bool> bare;
    if (!readSample(isprs.filePath(sample + ".txt"), tile, bare)) {
        std::fprintf(stderr, "%s not found in %s\n", qPrintable(sample), qPrintable(isprs.path()));
        return 1;
    }
    pcBoundingBoxf box;
    for (const pcVec3f& p : tile) box.expandBy(p);
    for (int i = 0; i < side; ++i)
        for (int j = 0; j < side; ++j)
            for (const pcVec3f& p : tile)
                pts.emplace_back(p.x + i * (box.max.x - box.min.x), p.y + j * (box.max.y - box.min.y), p.z);
    std::printf("\n%s tiled %d x %d: %zu points\n", qPrintable(sample), side, side, pts.size());

    std::vector<int> labels;
    timeIt("cloth filter (0.5 m, 500)", [&] {
        return Algo_ClothFilter::run(pts, Algo_ClothFilter::Params(), &labels, nullptr, &error) ? QString() : error;
    }, runs);
    timeIt("patchwork++", [&] {
        return Algo_PatchworkGround::run(pts, Algo_PatchworkGround::Params(), &labels, nullptr, &error) ? QString() : error;
    });
    double spacing = 0;
    timeIt("mean spacing", [&] {
        spacing = Algo_DemGrid::meanSpacing(pts);
        return QString("%1 m").arg(spacing, 0, 'f', 2);
    });
    const Algo_ClothFilter::Params demCloth = Algo_ClothFilter::Params::forSpacing(spacing);
    timeIt("cloth filter (DEM defaults)", [&] {
        return Algo_ClothFilter::run(pts, demCloth, &labels, nullptr, &error)
                   ? QString("resolution %1 m").arg(demCloth.clothResolution)
                   : error;
    }, runs);
    Algo_DemGrid::Grid grid;
    timeIt("DEM grid", [&] {
        return Algo_DemGrid::build(pts, labels, 2, Algo_DemGrid::Params(), &grid, nullptr, &error)
                   ? QString("%1 x %2 nodes, cell %3 m").arg(grid.cols).arg(grid.rows).arg(grid.cell, 0, 'f', 2)
                   : error;
    });
    timeIt("DEM mesh", [&] {
        std::vector<pcVec3f> vertices;
        std::vector<unsigned int> triangles;
        Algo_DemGrid::triangulate(grid, &vertices, &triangles);
        return QString("%1 triangles").arg(triangles.size() / 3);
    });
    timeIt("contours (50 levels)", [&] {
        std::vector<PtCloud_ContourFile::Polyline> lines;
        return Algo_Contours::trace(grid, Algo_Contours::Params(), 0.0, &lines, nullptr, &error)
                   ? QString("%1 polylines").arg(lines.size())
                   : error;
    });
    QImage image;
    timeIt("height map (1920 px)", [&] {
        return Algo_HeightMap::render(grid, Algo_HeightMap::Params(), &image, nullptr, &error)
                   ? QString("%1 x %2").arg(image.width()).arg(image.height())
                   : error;
    });
    QTemporaryDir dir;
    timeIt("height map PNG + world file", [&] {
        const Algo_HeightMap::Placement place = Algo_HeightMap::placement(grid, Algo_HeightMap::Params().longerSide);
        return Algo_HeightMap::save(image, place, pcVec3d(), dir.filePath("dem.png"), &error)
                   ? QString()
                   : error;
    });
    std::printf("load at the end %s\n", qPrintable(BenchTiming::loadAverage()));
    return 0;
}
