#include "CliSectionCommand.h"

#include <cmath>

#include "Algo_SectionStrip.h"
#include "CliConsole.h"
#include "CliProgressBar.h"
#include "CliProjectCommands.h"
#include "LasWriter.h"
#include "PtCloudDataSet.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_Project.h"

using namespace ptCloud;

namespace {
// LAS positions on a millimetre grid around a round offset near the line:
// 32-bit integers then reach two thousand kilometres either way.
constexpr double kScale = 0.001;
constexpr double kOffsetUnit = 1000.0;

bool parsePlan(const CliArguments& args, const QString& option, double* x, double* y, QString* error)
{
    const QStringList xy = args.value(option).split(QLatin1Char(','));
    bool okX = false, okY = false;
    if (xy.size() == 2) {
        *x = xy[0].trimmed().toDouble(&okX);
        *y = xy[1].trimmed().toDouble(&okY);
    }
    if (okX && okY && std::isfinite(*x) && std::isfinite(*y)) return true;
    *error = QStringLiteral("%1 wants X,Y, not \"%2\"").arg(option, args.value(option));
    return false;
}
}  // namespace

QList<CliCommand> CliSectionCommand::commands()
{
    return {{{"section"},
             "DIR DATASET --from X,Y --to X,Y --width W OUT.las",
             "the points within W/2 m of the line from X,Y to X,Y (absolute; none beyond its ends) with all their "
             "attributes, as LAS",
             3, 3, &CliSectionCommand::run, {"--from", "--to", "--width"}}};
}

int CliSectionCommand::run(const CliArguments& args)
{
    for (const char* option : {"--from", "--to", "--width"})
        if (!args.has(option)) return CliConsole::usage(QStringLiteral("section needs %1").arg(option));
    double fromX = 0, fromY = 0, toX = 0, toY = 0;
    QString error;
    if (!parsePlan(args, "--from", &fromX, &fromY, &error) || !parsePlan(args, "--to", &toX, &toY, &error))
        return CliConsole::usage(error);
    if (fromX == toX && fromY == toY) return CliConsole::usage(QStringLiteral("--from and --to are the same point"));
    bool okWidth = false;
    const double width = args.value("--width").toDouble(&okWidth);
    if (!okWidth || !(width > 0.0) || !std::isfinite(width))
        return CliConsole::usage(QStringLiteral("--width wants a width in metres above 0, not \"%1\"")
                                     .arg(args.value("--width")));

    PtCloud_Project project;
    if (!CliProjectCommands::openExisting(args.positional(0), project, &error)) return CliConsole::fail(error);
    const QString name = args.positional(1);
    const PtCloudDataSet* dataSet = project.getController()->getDataSet(name);
    if (!dataSet) return CliConsole::fail(QStringLiteral("no dataset %1").arg(name));
    PtCloud_DataSetFile points(dataSet->getFilePath_Points());
    if (!points.openFile())
        return CliConsole::fail(QStringLiteral("%1: %2").arg(points.getFilepath(), points.lastError()));
    const pcVec3d origin = points.getHeader().origin;

    LasWriter writer;
    const double scale[3] = {kScale, kScale, kScale};
    const double offset[3] = {std::round(fromX / kOffsetUnit) * kOffsetUnit,
                              std::round(fromY / kOffsetUnit) * kOffsetUnit, 0.0};
    if (!writer.open(args.positional(2), points.getHeader().columns.contains(DSC_Color), scale, offset, QString(),
                     &error))
        return CliConsole::fail(error);
    quint64 kept = 0;
    std::vector<char> keep;
    auto write = [&](const stPtCloud_PointArray& block, const std::vector<int>& inside, QString* why) {
        keep.assign(size_t(block.count), 0);
        for (int i : inside) keep[size_t(i)] = 1;
        stPtCloud_PointArray part = block;
        part.keepPoints(keep);
        kept += quint64(part.count);
        return writer.write(part, why);
    };
    const Algo_SectionStrip strip(fromX - origin.x, fromY - origin.y, toX - origin.x, toY - origin.y, width);
    int blocksRead = 0;
    {
        CliProgressBar bar(QStringLiteral("section of %1").arg(name));
        if (!strip.run(points, write, bar.sink(), &error, &blocksRead) || !writer.close(&error))
            return CliConsole::fail(error);
    }
    CliConsole::out(QStringLiteral("points: %1").arg(kept));
    CliConsole::out(QStringLiteral("blocks read: %1 of %2").arg(blocksRead).arg(points.getHeader().blockCount));
    return 0;
}
