#include "CliImportCommand.h"

#include <QDir>
#include <QFileInfo>

#include "CliConsole.h"
#include "CliDataSetCommands.h"
#include "CliProjectCommands.h"
#include "LasReader.h"
#include "PtCloud_Controller.h"
#include "PtCloud_Project.h"

using namespace ptCloud;

QList<CliCommand> CliImportCommand::commands()
{
    return {{{"import"}, "FILE.las [--project DIR]",
             "references the file and makes a dataset of all its columns (project FILE.ptcloud beside it by default)",
             1, 1, &CliImportCommand::run, {"--project"}}};
}

int CliImportCommand::run(const CliArguments& args)
{
    const QFileInfo file(args.positional(0));
    const QString dir = args.has("--project")
                            ? args.value("--project")
                            : file.absoluteDir().filePath(file.completeBaseName() + QStringLiteral(".ptcloud"));
    const QString name = file.completeBaseName();

    // Everything that can be checked is checked before the project is touched.
    QString error;
    {
        LasReader reader;
        if (!reader.open(file.filePath(), &error))
            return CliConsole::fail(QStringLiteral("%1: %2").arg(file.filePath(), error));
    }
    const bool dirExisted = QFileInfo::exists(dir);
    const QString manifest = QDir(dir).filePath(PtCloud_Project::manifestFileName());
    const bool projectExisted = QFileInfo::exists(manifest);
    if (dirExisted && !QFileInfo(dir).isDir())
        return CliConsole::fail(QStringLiteral("%1 exists and is not a folder").arg(dir));

    const QStringList entriesBefore = QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    PtCloud_Project project;
    QStringList keys;
    auto undo = [&](const QString& why) {
        if (!dirExisted) {
            QDir(dir).removeRecursively();
        } else if (!projectExisted) {
            // Only what opening the project added: whatever the folder held stays.
            const QStringList now = QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
            for (const QString& entry : now) {
                if (entriesBefore.contains(entry)) continue;
                const QString path = QDir(dir).filePath(entry);
                if (QFileInfo(path).isDir())
                    QDir(path).removeRecursively();
                else
                    QFile::remove(path);
            }
        }
        return CliConsole::fail(why);
    };
    if (!project.open(dir, &error)) return undo(error);
    PtCloud_Controller* controller = project.getController();
    if (!controller->isValidNewDataSetName(name))
        return undo(QStringLiteral("%1 already has a dataset \"%2\" (or the name is unusable)").arg(dir, name));
    // The file is referenced only together with its dataset.
    QList<EDataSetColumn> columns;
    if (!CliProjectCommands::importLasFiles(controller, {file.filePath()}, false, &keys, &error) ||
        !CliDataSetCommands::chooseColumns(controller, keys, QString(), &columns, &error) ||
        !CliDataSetCommands::makeDataSet(controller, name, keys, columns, &error))
        return undo(error);
    CliConsole::out(QDir(dir).absolutePath());
    return 0;
}
