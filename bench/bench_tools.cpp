// The section and volume tools' work on the demo scene, measured in one run:
// - section: a 100 m line (1 m wide) through the middle of the site, wall
//   time (median of 3) and blocks read, against reading every block of the
//   dataset once, the baseline; the time per block read should match the
//   baseline's, so that a section costs what it touches, not the dataset;
// - volume: the stockpile at half-metre cells (grid method), time and error
//   against the cone's true volume.
// Peak memory (resident set) is printed after each part.
//
//   bench_tools [points = 20000000] [work folder = a temporary one]

#include <QCoreApplication>
#include <QTemporaryDir>
#include <cmath>
#include <cstdio>
#include <sys/resource.h>

#include "Algo_SectionStrip.h"
#include "BenchTiming.h"
#include "PtCloudDataSet.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_DemoScene.h"
#include "PtCloud_Project.h"
#include "VolumeCalcArea.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

namespace {
double peakMiB()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_maxrss) / 1024.0;
}
}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const quint64 points = argc > 1 ? QByteArray(argv[1]).toULongLong() : 20000000ull;
    QTemporaryDir scratch;
    const QString folder = argc > 2 ? QString::fromLocal8Bit(argv[2]) : scratch.path();
    std::printf("load average %s\n", qPrintable(BenchTiming::loadAverage()));

    const QString las = folder + QStringLiteral("/demo.las");
    QString error, key;
    PtCloud_DemoScene demo(points, 1);
    PtCloud_Project project;
    if (!demo.writeLas(las, nullptr, &error) || !project.open(folder + QStringLiteral("/project"), &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    PtCloud_Controller* controller = project.getController();
    if (controller->doCmd_LasFile_Import({las}, &key) != PCAR_Success ||
        controller->doCmd_DataSet_Make({{key}, {DSC_Location, DSC_Color}, "demo"}) != PCAR_Success) {
        std::fprintf(stderr, "import: %s\n", qPrintable(controller->lastError()));
        return 1;
    }
    PtCloudDataSet* ds = controller->getDataSet("demo");
    const pcVec3d o = ds->getLocalFrame().origin();
    PtCloud_DataSetFile file(ds->getFilePath_Points());
    if (!file.openFile()) return 1;
    const quint32 blocks = file.getHeader().blockCount;
    std::printf("dataset: %llu points in %u blocks\n", static_cast<unsigned long long>(file.getHeader().pointCount),
                blocks);

    const BenchTiming::Result whole = BenchTiming::median(
        [&] {
            QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> index;
            file.getBlocks(index);
            for (int id : index.keys()) file.readBlock(id);
        },
        3);
    const PtCloud_DemoScene::Rect site = PtCloud_DemoScene::extent();
    const double cx = (site.minX + site.maxX) / 2 - o.x, cy = (site.minY + site.maxY) / 2 - o.y;
    const Algo_SectionStrip strip(cx - 50, cy, cx + 50, cy, 1.0);
    int read = 0;
    quint64 kept = 0;
    const BenchTiming::Result section = BenchTiming::median(
        [&] {
            kept = 0;
            strip.run(
                file,
                [&](const stPtCloud_PointArray&, const std::vector<int>& inside, QString*) {
                    kept += inside.size();
                    return true;
                },
                nullptr, &error, &read);
        },
        3);
    std::printf("read every block:  %.3f s wall, %.3f s cpu (%.2f ms a block)\n", whole.wall, whole.cpu,
                1000.0 * whole.wall / std::max<quint32>(blocks, 1));
    std::printf("section of 100 m:  %.3f s wall, %.3f s cpu, %d of %u blocks read (%.2f ms a block), %llu points\n",
                section.wall, section.cpu, read, blocks, 1000.0 * section.wall / std::max(read, 1),
                static_cast<unsigned long long>(kept));
    std::printf("section / whole:   %.3f (blocks read / all: %.3f); peak %.0f MiB\n", section.wall / whole.wall,
                double(read) / blocks, peakMiB());

    const PtCloud_DemoScene::Stockpile s = PtCloud_DemoScene::stockpile();
    VolumeCalcAreaList list(folder + QStringLiteral("/volume.json"));
    list.setGridFile(&file);
    VolumeCalcArea* area = list.addArea(QStringLiteral("pile"));
    const double h = 25.0;
    area->setBoundary({pcVec3f(float(s.x - h - o.x), float(s.y - h - o.y), 0.f),
                       pcVec3f(float(s.x + h - o.x), float(s.y - h - o.y), 0.f),
                       pcVec3f(float(s.x + h - o.x), float(s.y + h - o.y), 0.f),
                       pcVec3f(float(s.x - h - o.x), float(s.y + h - o.y), 0.f)});
    area->setGroundHeightMode(VolumeCalcArea::GroundFixed);
    area->setFixedGroundHeight(s.baseZ - o.z);
    area->setSkyLimit(s.baseZ + s.height + 2.0 - o.z);
    area->setGridSize(0.5);
    bool ok = false;
    const BenchTiming::Result volume = BenchTiming::median([&] { ok = list.doCalc(VCF_Grid); }, 3);
    if (!ok) {
        std::fprintf(stderr, "volume: %s\n", qPrintable(area->lastError()));
        return 1;
    }
    const double dig = area->getDigVolume_grid();
    std::printf("volume at 0.5 m:   %.3f s wall, %.3f s cpu, dig %.2f m3 against %.2f m3 (error %+.2f %%); "
                "peak %.0f MiB\n",
                volume.wall, volume.cpu, dig, s.volume(), 100.0 * (dig - s.volume()) / s.volume(), peakMiB());
    return 0;
}
