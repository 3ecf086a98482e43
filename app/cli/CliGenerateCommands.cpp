#include "CliGenerateCommands.h"

#include <cmath>

#include "CliConsole.h"
#include "CliProgressBar.h"
#include "LasReader.h"
#include "LasWriter.h"
#include "PtCloud_DemoScene.h"

using namespace ptCloud;

namespace {
const quint64 kDefaultDemoPoints = 1000000;
const quint64 kMaxPoints = quint64(1) << 40;
const int kChunkPoints = 65536;

// The records' own extent: header bounds are not always right.
bool recordBounds(LasReader& reader, double lo[2], double hi[2], QString* error)
{
    stPtCloud_PointArray chunk;
    lo[0] = lo[1] = 1e300;
    hi[0] = hi[1] = -1e300;
    qint64 n;
    while ((n = reader.readChunk(chunk, kChunkPoints, {DSC_Location}, pcVec3d(), error)) > 0) {
        for (const pcVec3f& p : chunk.positions) {
            const double xy[2] = {chunk.origin.x + p.x, chunk.origin.y + p.y};
            for (int a = 0; a < 2; ++a) {
                lo[a] = std::min(lo[a], xy[a]);
                hi[a] = std::max(hi[a], xy[a]);
            }
        }
    }
    if (n < 0) return false;
    if (reader.rewind()) return true;
    *error = QStringLiteral("cannot read the file again");
    return false;
}
}  // namespace

QList<CliCommand> CliGenerateCommands::commands()
{
    CliCommand tile({"_tile"}, "IN.las OUT.las [--copies N]", "writes N side-by-side copies of a LAS file as one file",
                    2, 2, &CliGenerateCommands::tile, {"--copies"});
    tile.hidden = true;
    return {{{"demo"}, "OUT.las [--points N] [--seed S]",
             "writes a synthetic survey scene with known answers (default 1000000 points)", 1, 1,
             &CliGenerateCommands::demo, {"--points", "--seed"}},
            tile};
}

int CliGenerateCommands::demo(const CliArguments& args)
{
    quint64 points = 0, seed = 0;
    QString error;
    if (!args.number("--points", kDefaultDemoPoints, 1, kMaxPoints, &points, &error) ||
        !args.number("--seed", 1, 0, ~quint64(0), &seed, &error))
        return CliConsole::usage(error);
    PtCloud_DemoScene scene(points, seed);
    CliProgressBar bar(QStringLiteral("writing demo"));
    if (!scene.writeLas(args.positional(0), bar.sink(), &error)) return CliConsole::fail(error);
    return 0;
}

int CliGenerateCommands::tile(const CliArguments& args)
{
    quint64 copies = 0;
    QString error;
    if (!args.number("--copies", 4, 1, 10000, &copies, &error)) return CliConsole::usage(error);
    LasReader reader;
    double lo[2] = {0, 0}, hi[2] = {0, 0};
    if (!reader.open(args.positional(0), &error) || !recordBounds(reader, lo, hi, &error))
        return CliConsole::fail(QStringLiteral("%1: %2").arg(args.positional(0), error));
    const LasHeader& header = reader.header();
    // Copies on a near-square grid, one metre apart so none overlaps.
    const int columns = int(std::ceil(std::sqrt(double(copies))));
    const double step[2] = {std::ceil(hi[0] - lo[0]) + 1.0, std::ceil(hi[1] - lo[1]) + 1.0};
    LasWriter writer;
    if (!writer.open(args.positional(1), header.hasRgb(), header.scale, header.offset, header.wkt, &error))
        return CliConsole::fail(error);
    const QList<EDataSetColumn> wanted = header.columns();
    const pcVec3d origin(lo[0], lo[1], 0.0);
    CliProgressBar bar(QStringLiteral("tiling"));
    stPtCloud_PointArray chunk;
    for (quint64 copy = 0; copy < copies; ++copy) {
        if (copy > 0 && !reader.rewind()) return CliConsole::fail(QStringLiteral("cannot read the file again"));
        const pcVec3d shifted(origin.x + double(copy % quint64(columns)) * step[0],
                              origin.y + double(copy / quint64(columns)) * step[1], origin.z);
        qint64 n;
        while ((n = reader.readChunk(chunk, kChunkPoints, wanted, origin, &error)) > 0) {
            chunk.origin = shifted;  // positions are relative: moving the origin moves the copy
            if (!writer.write(chunk, &error)) return CliConsole::fail(error);
        }
        if (n < 0) return CliConsole::fail(error);
        bar.setProgress(int((copy + 1) * 100 / copies));
    }
    if (!writer.close(&error)) return CliConsole::fail(error);
    return 0;
}
