#include "CliToolCommands.h"

#include <cmath>
#include <vector>

#include "CliConsole.h"
#include "CliProgressBar.h"
#include "CliProjectCommands.h"
#include "PtCloudDataSet.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_Measure.h"
#include "PtCloud_PointsCut.h"
#include "PtCloud_Project.h"
#include "Toolkits.h"

using namespace ptCloud;

namespace {

// Comma-separated numbers, exactly count of them.
bool numbers(const QString& text, int count, std::vector<double>* out)
{
    out->clear();
    for (const QString& part : text.split(QLatin1Char(','))) {
        bool ok = false;
        const double v = part.trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(v)) return false;
        out->push_back(v);
    }
    return int(out->size()) == count;
}

quint64 pointCount(const QString& path)
{
    PtCloud_DataSetFile reader(path);
    return reader.openFile() ? reader.getHeader().pointCount : 0;
}

// Runs body on the named dataset of the project at the first two positionals.
template <class Body> int withDataSet(const CliArguments& args, Body body)
{
    PtCloud_Project project;
    QString error;
    if (!CliProjectCommands::openExisting(args.positional(0), project, &error)) return CliConsole::fail(error);
    PtCloudDataSet* dataSet = project.getController()->getDataSet(args.positional(1));
    if (!dataSet) return CliConsole::fail(QStringLiteral("no dataset %1").arg(args.positional(1)));
    return body(dataSet);
}

QString threeDecimals(double v) { return tk::Toolkits::DoubleToString(v, 3); }

}  // namespace

QList<CliCommand> CliToolCommands::commands()
{
    return {
        {{"cut"}, "DIR DATASET (--box CX,CY,CZ,SX,SY,SZ | --sphere CX,CY,CZ,R) (--inner | --outer)",
         "removes the points inside (--inner) or outside (--outer) a box (centre and size) or a sphere (centre and "
         "radius) in absolute coordinates; the previous points are kept for dataset undo",
         2, 2, &CliToolCommands::cut, {"--box", "--sphere"}, {"--inner", "--outer"}},
        {{"measure"}, "DIR DATASET --points X,Y,Z;X,Y,Z[;X,Y,Z]",
         "length and plane length between two absolute points, or area and plane area of the triangle of three", 2,
         2, &CliToolCommands::measure, {"--points"}},
    };
}

int CliToolCommands::cut(const CliArguments& args)
{
    if (args.has("--box") == args.has("--sphere"))
        return CliConsole::usage(QStringLiteral("cut needs one of --box CX,CY,CZ,SX,SY,SZ and --sphere CX,CY,CZ,R"));
    if (args.has("--inner") == args.has("--outer")) return CliConsole::usage(QStringLiteral("cut needs one of --inner and --outer"));
    const bool box = args.has("--box");
    std::vector<double> v;
    if (!numbers(args.value(box ? "--box" : "--sphere"), box ? 6 : 4, &v))
        return CliConsole::usage(box ? QStringLiteral("--box wants six numbers CX,CY,CZ,SX,SY,SZ")
                                     : QStringLiteral("--sphere wants four numbers CX,CY,CZ,R"));
    if ((box && (v[3] <= 0 || v[4] <= 0 || v[5] <= 0)) || (!box && v[3] <= 0))
        return CliConsole::usage(QStringLiteral("sizes and radius must be positive"));
    const auto side = args.has("--inner") ? PtCloud_PointsCut::Side_Inner : PtCloud_PointsCut::Side_Outter;

    return withDataSet(args, [&](PtCloudDataSet* dataSet) {
        const PtCloud_LocalFrame frame = dataSet->getLocalFrame();
        const pcVec3d centre(v[0], v[1], v[2]);
        const PtCloud_PointsCut cut =
            box ? PtCloud_PointsCut::byBox(frame.boxToRelative(centre, pcVec3d(v[3], v[4], v[5])), side)
                : PtCloud_PointsCut::bySphere(frame.sphereToRelative(centre, v[3]), side);
        const QString points = dataSet->getFilePath_Points();
        const quint64 before = pointCount(points);
        const QString target = dataSet->createEmptyLocatedContent_Points();
        QString error;
        CliProgressBar bar(QStringLiteral("cut"));
        const PtCloud_PointsCut::EResult result = cut.run(points, target, bar.sink(), &error);
        bar.finish();
        if (result != PtCloud_PointsCut::Result_Written || !dataSet->updateContent_Points()) {
            dataSet->discardLocatedContents();
            if (result == PtCloud_PointsCut::Result_Unchanged) {
                CliConsole::out(QStringLiteral("removed 0 points, %1 left (no block meets the shape)").arg(before));
                return 0;
            }
            return CliConsole::fail(error.isEmpty() ? QStringLiteral("the new points cannot replace the old") : error);
        }
        const quint64 after = pointCount(points);
        CliConsole::out(QStringLiteral("removed %1 points, %2 left").arg(before - after).arg(after));
        return 0;
    });
}

int CliToolCommands::measure(const CliArguments& args)
{
    std::vector<pcVec3d> picked;
    for (const QString& point : args.value("--points").split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        std::vector<double> v;
        if (!numbers(point, 3, &v)) return CliConsole::usage(QStringLiteral("--points: \"%1\" is not X,Y,Z").arg(point));
        picked.emplace_back(v[0], v[1], v[2]);
    }
    if (picked.size() != 2 && picked.size() != 3)
        return CliConsole::usage(QStringLiteral("measure needs --points with two or three points X,Y,Z;X,Y,Z[;X,Y,Z]"));

    return withDataSet(args, [&](PtCloudDataSet* dataSet) {
        // Measured in the dataset's frame, as the studio measures picks.
        const PtCloud_LocalFrame frame = dataSet->getLocalFrame();
        const pcVec3f a = frame.toRelative(picked[0]), b = frame.toRelative(picked[1]);
        if (picked.size() == 2) {
            CliConsole::out(QStringLiteral("length:       %1 m").arg(threeDecimals(PtCloud_Measure::length(a, b))));
            CliConsole::out(QStringLiteral("plane length: %1 m").arg(threeDecimals(PtCloud_Measure::planeLength(a, b))));
            return 0;
        }
        const pcVec3f c = frame.toRelative(picked[2]);
        CliConsole::out(QStringLiteral("area:       %1 m²").arg(threeDecimals(PtCloud_Measure::area(a, b, c))));
        CliConsole::out(QStringLiteral("plane area: %1 m²").arg(threeDecimals(PtCloud_Measure::planeArea(a, b, c))));
        return 0;
    });
}
