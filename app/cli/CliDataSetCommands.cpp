#include "CliDataSetCommands.h"

#include <QJsonDocument>
#include <cmath>

#include "CliBlockScan.h"
#include "CliConsole.h"
#include "CliDataSetSummary.h"
#include "CliProgressBar.h"
#include "CliProjectCommands.h"
#include "LasWriter.h"
#include "PtCloudDataSet.h"
#include "PtCloud_Controller.h"
#include "PtCloud_Project.h"

using namespace ptCloud;

namespace {

// A controller command's outcome as an exit code.
int finish(PtCloud_Controller* controller, EEPtCloudActResult result)
{
    return result == PCAR_Success ? 0 : CliConsole::fail(controller->lastError());
}

// Opens the project, runs the body with its controller, reports failures.
template <class Body> int withProject(const CliArguments& args, Body body)
{
    PtCloud_Project project;
    QString error;
    if (!CliProjectCommands::openExisting(args.positional(0), project, &error)) return CliConsole::fail(error);
    return body(project.getController());
}

// Scale: the grid the positions lie on, coarser only when the extent would
// overflow the 32-bit integers. Offset: a round number near the middle, on
// the same grid.
void chooseScaleAndOffset(const CliDataSetSummary& summary, double scale[3], double offset[3])
{
    for (int a = 0; a < 3; ++a) {
        if (summary.points() == 0) {
            scale[a] = 0.001;
            offset[a] = 0.0;
            continue;
        }
        const double lo = summary.minimum(a), hi = summary.maximum(a);
        double s = summary.gridStep(a);
        for (;;) {
            const double unit = s * 1e4;
            offset[a] = std::round((lo + hi) / 2.0 / unit) * unit;
            if (std::max(std::fabs(lo - offset[a]), std::fabs(hi - offset[a])) / s < 2.0e9) break;
            s *= 10.0;
        }
        scale[a] = s;
    }
}

}  // namespace

QList<CliCommand> CliDataSetCommands::commands()
{
    auto words = [](const char* verb) { return QStringList{QStringLiteral("dataset"), QString::fromLatin1(verb)}; };
    return {
        {words("make"), "DIR NAME --las KEY[,KEY...] [--columns all|Location,Color,...]",
         "makes a dataset from LAS files of the project (default: all common columns)", 2, 2,
         &CliDataSetCommands::make, {"--las", "--columns"}},
        {words("list"), "DIR", "prints the datasets' names, one a line", 1, 1, &CliDataSetCommands::list},
        {words("rename"), "DIR OLD NEW", "renames a dataset", 3, 3, &CliDataSetCommands::rename},
        {words("remove"), "DIR NAME", "removes a dataset and its files", 2, 2, &CliDataSetCommands::remove},
        {words("copy"), "DIR SRC NEW", "copies a dataset with its contents", 3, 3, &CliDataSetCommands::copy},
        {words("merge"), "DIR NEW SRC1 [SRC2...]", "makes one dataset of the points of others", 3, -1,
         &CliDataSetCommands::merge},
        {words("info"), "DIR NAME [--json]", "counts, bounds, mean, columns and classes of a dataset", 2, 2,
         &CliDataSetCommands::info, {}, {"--json"}},
        {words("export"), "DIR NAME OUT.las", "writes a dataset's points as a LAS 1.4 file", 3, 3,
         &CliDataSetCommands::exportLas},
    };
}

bool CliDataSetCommands::chooseColumns(PtCloud_Controller* controller, const QStringList& lasKeys,
                                       const QString& spec, QList<EDataSetColumn>* columns, QString* error)
{
    QList<EDataSetColumn> common;
    for (int i = 0; i < lasKeys.size(); ++i) {
        QList<EDataSetColumn> has;
        if (!controller->getLasFileColumns(lasKeys[i], has)) {
            *error = QStringLiteral("LAS file %1: %2")
                         .arg(lasKeys[i], controller->lastError().isEmpty() ? QStringLiteral("not in the project")
                                                                           : controller->lastError());
            return false;
        }
        if (i == 0) {
            common = has;
        } else {
            for (int j = common.size() - 1; j >= 0; --j)
                if (!has.contains(common[j])) common.removeAt(j);
        }
    }
    if (spec.isEmpty() || spec == QLatin1String("all")) {
        *columns = common;
        return true;
    }
    columns->clear();
    *columns << DSC_Location;
    for (const QString& part : spec.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        EDataSetColumn c;
        if (!columnFromName(part.trimmed(), &c)) {
            QStringList known;
            for (EDataSetColumn u : userColumns()) known << columnName(u);
            *error = QStringLiteral("unknown column \"%1\" (known: %2)").arg(part.trimmed(), known.join(QLatin1Char(',')));
            return false;
        }
        if (!common.contains(c)) {
            *error = QStringLiteral("column %1 is not in every chosen LAS file").arg(columnName(c));
            return false;
        }
        if (!columns->contains(c)) *columns << c;
    }
    return true;
}

bool CliDataSetCommands::makeDataSet(PtCloud_Controller* controller, const QString& name, const QStringList& lasKeys,
                                     const QList<EDataSetColumn>& columns, QString* error)
{
    stControlParam_DataSet_Make p;
    p.lasNames = lasKeys;
    p.columns = columns;
    p.name = name;
    CliProgressBar bar(QStringLiteral("making %1").arg(name));
    if (controller->makeDataSet(p, bar.sink()) == PCAR_Success) return true;
    *error = controller->lastError();
    return false;
}

int CliDataSetCommands::make(const CliArguments& args)
{
    if (!args.has("--las")) return CliConsole::usage(QStringLiteral("dataset make needs --las KEY[,KEY...]"));
    return withProject(args, [&](PtCloud_Controller* controller) {
        const QStringList keys = args.value("--las").split(QLatin1Char(','), Qt::SkipEmptyParts);
        QList<EDataSetColumn> columns;
        QString error;
        if (!chooseColumns(controller, keys, args.value("--columns"), &columns, &error) ||
            !makeDataSet(controller, args.positional(1), keys, columns, &error))
            return CliConsole::fail(error);
        return 0;
    });
}

int CliDataSetCommands::list(const CliArguments& args)
{
    return withProject(args, [&](PtCloud_Controller* controller) {
        const QMap<QString, const PtCloudDataSet*> sets = controller->getDataSets();
        for (auto it = sets.cbegin(); it != sets.cend(); ++it) CliConsole::out(it.key());
        return 0;
    });
}

int CliDataSetCommands::rename(const CliArguments& args)
{
    return withProject(args, [&](PtCloud_Controller* controller) {
        stControlParam_DataSet_Rename p;
        p.oldName = args.positional(1);
        p.newName = args.positional(2);
        return finish(controller, controller->doCmd_DataSet_Rename(p));
    });
}

int CliDataSetCommands::remove(const CliArguments& args)
{
    return withProject(args, [&](PtCloud_Controller* controller) {
        stControlParam_DataSet_Remove p;
        p.name = args.positional(1);
        return finish(controller, controller->doCmd_DataSet_Remove(p));
    });
}

int CliDataSetCommands::copy(const CliArguments& args)
{
    return withProject(args, [&](PtCloud_Controller* controller) {
        stControlParam_DataSet_Copy p;
        p.source = args.positional(1);
        p.target = args.positional(2);
        return finish(controller, controller->doCmd_DataSet_Copy(p));
    });
}

int CliDataSetCommands::merge(const CliArguments& args)
{
    return withProject(args, [&](PtCloud_Controller* controller) {
        stControlParam_DataSet_Merge p;
        p.target = args.positional(1);
        p.sources = args.positionals().mid(2);
        return finish(controller, controller->doCmd_DataSet_Merge(p));
    });
}

int CliDataSetCommands::info(const CliArguments& args)
{
    return withProject(args, [&](PtCloud_Controller* controller) {
        const QString name = args.positional(1);
        PtCloudDataSet* dataSet = controller->getDataSet(name);
        if (!dataSet) return CliConsole::fail(QStringLiteral("no dataset %1").arg(name));
        CliDataSetSummary summary;
        QString error;
        CliProgressBar bar(QStringLiteral("reading %1").arg(name));
        if (!summary.compute(dataSet->getFilePath_Points(), false, bar.sink(), &error)) return CliConsole::fail(error);
        bar.finish();
        if (args.has("--json")) {
            QJsonObject o = summary.toJson();
            o.insert("name", name);
            CliConsole::out(QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact)));
        } else {
            CliConsole::out(QStringLiteral("dataset: %1").arg(name));
            for (const QString& line : summary.toText()) CliConsole::out(line);
        }
        return 0;
    });
}

int CliDataSetCommands::exportLas(const CliArguments& args)
{
    return withProject(args, [&](PtCloud_Controller* controller) {
        const QString name = args.positional(1);
        PtCloudDataSet* dataSet = controller->getDataSet(name);
        if (!dataSet) return CliConsole::fail(QStringLiteral("no dataset %1").arg(name));
        const QString points = dataSet->getFilePath_Points();
        // Two passes: the scale must be known before the first point is written.
        CliDataSetSummary summary;
        QString error;
        {
            CliProgressBar bar(QStringLiteral("scanning %1").arg(name));
            if (!summary.compute(points, true, bar.sink(), &error)) return CliConsole::fail(error);
        }
        double scale[3], offset[3];
        chooseScaleAndOffset(summary, scale, offset);
        LasWriter writer;
        if (!writer.open(args.positional(2), summary.hasColor(), scale, offset, QString(), &error))
            return CliConsole::fail(error);
        CliProgressBar bar(QStringLiteral("exporting %1").arg(name));
        stPtCloud_DataSetHeader header;
        auto write = [&](const stPtCloud_PointArray& block, QString* why) { return writer.write(block, why); };
        if (!CliBlockScan::run(points, bar.sink(), &header, write, &error) || !writer.close(&error))
            return CliConsole::fail(error);
        return 0;
    });
}
