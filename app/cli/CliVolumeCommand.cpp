#include "CliVolumeCommand.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <cmath>
#include <vector>

#include "CliConsole.h"
#include "CliProjectCommands.h"
#include "PtCloudDataSet.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_Project.h"
#include "VolumeCalcArea.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

namespace {
const double kDefaultGrid = 0.1;
const double kMinGrid = 0.001, kMaxGrid = 99999.0;  // what an area accepts

// The options, absolute, checked before the project is opened.
struct Request {
    std::vector<pcVec3d> polygon;  // z unused
    bool fixedGround = false;
    double ground = 0.0;  // with fixedGround
    bool hasTop = false;
    double top = 0.0;
    double grid = kDefaultGrid;
    EVolumeCalcFunction method = VCF_Grid;
};

bool toNumber(const QString& text, double* out)
{
    bool ok = false;
    *out = text.trimmed().toDouble(&ok);
    return ok && std::isfinite(*out);
}

bool parsePolygon(const QString& text, std::vector<pcVec3d>* out, QString* error)
{
    for (const QString& vertex : text.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const QStringList xy = vertex.split(QLatin1Char(','));
        double x = 0, y = 0;
        if (xy.size() != 2 || !toNumber(xy[0], &x) || !toNumber(xy[1], &y)) {
            *error = QStringLiteral("--polygon vertex \"%1\" is not x,y").arg(vertex);
            return false;
        }
        out->emplace_back(x, y, 0.0);
    }
    if (out->size() >= 3) return true;
    *error = QStringLiteral("--polygon needs at least three vertices x1,y1;x2,y2;x3,y3");
    return false;
}

bool parseRequest(const CliArguments& args, Request* r, QString* error)
{
    if (!args.has("--polygon")) {
        *error = QStringLiteral("volume needs --polygon x1,y1;x2,y2;x3,y3...");
        return false;
    }
    if (!parsePolygon(args.value("--polygon"), &r->polygon, error)) return false;
    const QString ground = args.has("--ground") ? args.value("--ground") : QStringLiteral("avg");
    if (ground.startsWith(QLatin1String("fixed:"))) {
        r->fixedGround = true;
        if (!toNumber(ground.mid(6), &r->ground)) {
            *error = QStringLiteral("--ground fixed:H wants a height, not \"%1\"").arg(ground.mid(6));
            return false;
        }
    } else if (ground != QLatin1String("avg")) {
        *error = QStringLiteral("--ground is avg or fixed:H, not \"%1\"").arg(ground);
        return false;
    }
    r->hasTop = args.has("--top");
    if (r->hasTop && !toNumber(args.value("--top"), &r->top)) {
        *error = QStringLiteral("--top wants a height, not \"%1\"").arg(args.value("--top"));
        return false;
    }
    if (args.has("--grid") && (!toNumber(args.value("--grid"), &r->grid) || r->grid < kMinGrid || r->grid > kMaxGrid)) {
        *error = QStringLiteral("--grid wants a cell size from %1 to %2 m, not \"%3\"")
                     .arg(kMinGrid).arg(kMaxGrid).arg(args.value("--grid"));
        return false;
    }
    const QString method = args.has("--method") ? args.value("--method") : QStringLiteral("grid");
    if (method != QLatin1String("grid") && method != QLatin1String("dtm")) {
        *error = QStringLiteral("--method is grid or dtm, not \"%1\"").arg(method);
        return false;
    }
    r->method = method == QLatin1String("dtm") ? VCF_DTM : VCF_Grid;
    return true;
}

QString twoDecimals(double v) { return QString::number(v, 'f', 2); }
}  // namespace

QList<CliCommand> CliVolumeCommand::commands()
{
    return {{{"volume"},
             "DIR DATASET --polygon x1,y1;x2,y2;... [--ground avg|fixed:H] [--top H] [--grid S] [--method grid|dtm] "
             "[--json]",
             "dig and fill in m³ of an area against its boundary average or a fixed ground height (absolute "
             "coordinates; default grid 0.1 m, method grid; dtm needs the dataset's DEM)",
             2, 2, &CliVolumeCommand::run, {"--polygon", "--ground", "--top", "--grid", "--method"}, {"--json"}}};
}

int CliVolumeCommand::run(const CliArguments& args)
{
    Request request;
    QString error;
    if (!parseRequest(args, &request, &error)) return CliConsole::usage(error);

    PtCloud_Project project;
    if (!CliProjectCommands::openExisting(args.positional(0), project, &error)) return CliConsole::fail(error);
    const QString name = args.positional(1);
    PtCloudDataSet* dataSet = project.getController()->getDataSet(name);
    if (!dataSet) return CliConsole::fail(QStringLiteral("no dataset %1").arg(name));
    PtCloud_DataSetFile* points = dataSet->getContent_PointDataSetFile();
    PtCloud_DataSetFile header(points->getFilepath());
    if (!header.openFile())
        return CliConsole::fail(QStringLiteral("%1: %2").arg(points->getFilepath(), header.lastError()));
    // Areas work in the points' relative frame, where floats keep millimetres.
    const pcVec3d origin = header.getHeader().origin;
    header.closeFile();

    // The list saves itself at every change: a folder of its own keeps the
    // dataset's earth-volume content as it was.
    QTemporaryDir scratch;
    if (!scratch.isValid())
        return CliConsole::fail(QStringLiteral("no temporary folder: %1").arg(scratch.errorString()));
    VolumeCalcAreaList list(scratch.filePath(QStringLiteral("volume.json")));
    VolumeCalcArea* area = list.addArea(QStringLiteral("area"));
    std::vector<pcVec3f> boundary;
    for (const pcVec3d& v : request.polygon) boundary.emplace_back(float(v.x - origin.x), float(v.y - origin.y), 0.f);
    area->setBoundary(boundary);
    area->setGroundHeightMode(request.fixedGround ? VolumeCalcArea::GroundFixed : VolumeCalcArea::GroundBoundaryAvg);
    if (request.fixedGround) area->setFixedGroundHeight(request.ground - origin.z);
    if (request.hasTop) area->setSkyLimit(request.top - origin.z);
    area->setGridSize(request.grid);
    list.setGridFile(points);  // also the frame of the DTM method's boundary
    list.setDTMFile(dataSet->getContent_Dem_Mesh());
    if (!list.doCalc(request.method) || !area->lastCalcOk())
        return CliConsole::fail(area->lastError().isEmpty() ? list.lastError() : area->lastError());

    const bool grid = request.method == VCF_Grid;
    const double dig = grid ? area->getDigVolume_grid() : area->getDigVolume_dtm();
    const double fill = grid ? area->getFillVolume_grid() : area->getFillVolume_dtm();
    const double boundaryAverage = double(area->getGroundHeightBoundaryAvg()) + origin.z;
    const double ground = request.fixedGround ? request.ground : boundaryAverage;
    const QString inside = grid ? QStringLiteral("points") : QStringLiteral("cells");
    if (args.has("--json")) {
        QJsonObject o;
        o.insert("method", grid ? "grid" : "dtm");
        o.insert("dig", dig);
        o.insert("fill", fill);
        o.insert("ground", ground);
        o.insert("boundaryAverage", boundaryAverage);
        o.insert(inside, area->pointCount());
        CliConsole::out(QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact)));
        return 0;
    }
    CliConsole::out(QStringLiteral("dig:              %1 m³").arg(twoDecimals(dig)));
    CliConsole::out(QStringLiteral("fill:             %1 m³").arg(twoDecimals(fill)));
    CliConsole::out(QStringLiteral("ground:           %1 m").arg(twoDecimals(ground)));
    CliConsole::out(QStringLiteral("boundary average: %1 m").arg(twoDecimals(boundaryAverage)));
    CliConsole::out(QStringLiteral("%1 inside: %2").arg(inside).arg(area->pointCount()));
    return 0;
}
