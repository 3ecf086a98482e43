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
#include "PtCloud_DataSetFile.h"
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

// Scale: the grid the positions lie on (the file's quantum where it stores
// them exactly), coarser only when the extent would overflow the 32-bit
// integers. Offset: on the same grid near the middle, a round number where
// the grid was guessed.
void chooseScaleAndOffset(const CliDataSetSummary& summary, double scale[3], double offset[3])
{
    const double quantum[3] = {summary.quantum().x, summary.quantum().y, summary.quantum().z};
    const double origin[3] = {summary.origin().x, summary.origin().y, summary.origin().z};
    for (int a = 0; a < 3; ++a) {
        if (summary.points() == 0) {
            scale[a] = 0.001;
            offset[a] = 0.0;
            continue;
        }
        if (quantum[a] > 0) {
            const qint64 lo = summary.lowestQuantum(a), hi = summary.highestQuantum(a);
            const qint64 middle = lo / 2 + hi / 2;
            if (hi - middle < (qint64(1) << 31) && middle - lo < (qint64(1) << 31)) {
                scale[a] = quantum[a];
                offset[a] = origin[a] + double(middle) * quantum[a];
                continue;
            }
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

// The file of the dataset that --content names: split:NAME, mesh:NAME,
// cut:NAME or dem-classify; none, the points. *labelled: a split, whose
// labels become the classes and the "label" field of the export.
bool contentFile(PtCloudDataSet* dataSet, const QString& content, QString* path, bool* labelled, QString* error)
{
    *labelled = false;
    if (content.isEmpty()) {
        *path = dataSet->getFilePath_Points();
        return true;
    }
    if (content == QLatin1String("dem-classify")) {
        if (!dataSet->getContent_Dem_Classify()) {
            *error = QStringLiteral("dataset %1 has no DEM classification").arg(dataSet->getName());
            return false;
        }
        *path = dataSet->getContent_Dem_Classify()->getFilepath();
        return true;
    }
    const int colon = content.indexOf(QLatin1Char(':'));
    const QString kind = content.left(colon), name = content.mid(colon + 1);
    const QMap<QString, QMap<QString, PtCloud_DataSetFile*>*> kinds{
        {QStringLiteral("split"), dataSet->getContent_Splits()},
        {QStringLiteral("mesh"), dataSet->getContent_Meshs()},
        {QStringLiteral("cut"), dataSet->getContent_Cuts()}};
    if (colon < 0 || !kinds.contains(kind)) {
        *error = QStringLiteral("--content is split:NAME, mesh:NAME, cut:NAME or dem-classify, not \"%1\"")
                     .arg(content);
        return false;
    }
    PtCloud_DataSetFile* file = kinds.value(kind)->value(name, nullptr);
    if (!file) {
        *error = QStringLiteral("dataset %1 has no %2 \"%3\"").arg(dataSet->getName(), kind, name);
        return false;
    }
    *path = file->getFilepath();
    *labelled = kind == QLatin1String("split");
    return true;
}

// A split's labels as LAS classes, which hold one byte. The caller checked
// that every label fits.
void labelsToClasses(stPtCloud_PointArray& block)
{
    const qint32* labels = block.columnData<qint32>(DSC_Label);
    if (!block.hasColumn(DSC_Classification)) block.addColumn(DSC_Classification);
    quint8* classes = block.columnData<quint8>(DSC_Classification);
    for (int i = 0; i < block.count; ++i) classes[i] = quint8(labels[i]);
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
        {words("export"), "DIR NAME OUT.las [--content split:NAME|mesh:NAME|cut:NAME|dem-classify]",
         "writes a dataset's points, or one of its contents, as a LAS 1.4 file (a split's labels as classes and in a \"label\" field)", 3, 3,
         &CliDataSetCommands::exportLas, {"--content"}},
        {words("undo"), "DIR NAME",
         "puts back the points as they were before the last cut or thinning (one level; other contents are kept)", 2,
         2, &CliDataSetCommands::undo},
    };
}

int CliDataSetCommands::undo(const CliArguments& args)
{
    return withProject(args, [&args](PtCloud_Controller* controller) {
        const QString name = args.positional(1);
        PtCloudDataSet* dataSet = controller->getDataSet(name);
        if (!dataSet) return CliConsole::fail(QStringLiteral("no dataset %1").arg(name));
        if (!dataSet->undoContent_Points())
            return CliConsole::fail(QStringLiteral("dataset %1 has no change of its points to undo").arg(name));
        return 0;
    });
}

bool CliDataSetCommands::chooseColumns(PtCloud_Controller* controller, const QStringList& lasKeys,
                                       const QString& columnList, QList<EDataSetColumn>* columns, QString* error)
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
    if (columnList.isEmpty() || columnList == QLatin1String("all")) {
        *columns = common;
        return true;
    }
    columns->clear();
    *columns << DSC_Location;
    for (const QString& part : columnList.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
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
        QString points, error;
        bool labelled = false;
        if (!contentFile(dataSet, args.value("--content"), &points, &labelled, &error)) return CliConsole::fail(error);
        // Two passes: the scale must be known before the first point is written.
        CliDataSetSummary summary;
        {
            CliProgressBar bar(QStringLiteral("scanning %1").arg(name));
            if (!summary.compute(points, true, bar.sink(), &error)) return CliConsole::fail(error);
        }
        double scale[3], offset[3];
        chooseScaleAndOffset(summary, scale, offset);
        // Every label goes to the extra-bytes field; the classes hold them
        // too unless one would turn into another cluster's class, and then
        // the points keep the classes they had.
        if (labelled && !summary.hasLabels()) return CliConsole::fail(QStringLiteral("the split carries no labels"));
        const bool asClasses = labelled && summary.labelsFitClasses();
        if (labelled && !asClasses)
            CliConsole::note(QStringLiteral("labels beyond 0 to 255 do not fit the LAS classification: they are in "
                                            "the extra-bytes field \"label\" only"));
        LasWriter writer;
        writer.setLabelField(labelled);
        if (!writer.open(args.positional(2), summary.hasColor(), scale, offset, QString(), &error))
            return CliConsole::fail(error);
        CliProgressBar bar(QStringLiteral("exporting %1").arg(name));
        stPtCloud_DataSetHeader header;
        auto write = [&](const stPtCloud_PointArray& block, QString* why) {
            if (!asClasses) return writer.write(block, why);
            stPtCloud_PointArray classified = block;
            labelsToClasses(classified);
            return writer.write(classified, why);
        };
        if (!CliBlockScan::run(points, bar.sink(), &header, write, &error) || !writer.close(&error))
            return CliConsole::fail(error);
        return 0;
    });
}
