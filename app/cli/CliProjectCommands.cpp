#include "CliProjectCommands.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>

#include "CliConsole.h"
#include "LasReader.h"
#include "PtCloud_Controller.h"
#include "PtCloud_Project.h"

using namespace ptCloud;

QList<CliCommand> CliProjectCommands::commands()
{
    return {
        {{"project", "init"}, "DIR", "makes DIR an empty project (nothing happens when it already is one)", 1, 1,
         &CliProjectCommands::init},
        {{"las", "import"}, "DIR FILE...", "references LAS files in the project; prints the key of each", 2, -1,
         &CliProjectCommands::lasImport},
        {{"las", "list"}, "DIR", "prints key<TAB>path of every referenced LAS file", 1, 1, &CliProjectCommands::lasList},
        {{"las", "remove"}, "DIR KEY", "forgets a LAS file (the file itself stays)", 2, 2,
         &CliProjectCommands::lasRemove},
    };
}

bool CliProjectCommands::openExisting(const QString& dir, PtCloud_Project& project, QString* error)
{
    if (!QFileInfo(QDir(dir).filePath(PtCloud_Project::manifestFileName())).isFile()) {
        *error = QStringLiteral("%1 is not a project (ptcloud project init makes one)").arg(dir);
        return false;
    }
    return project.open(dir, error);
}

bool CliProjectCommands::importLasFiles(PtCloud_Controller* controller, const QStringList& files, bool save,
                                        QStringList* keys, QString* error)
{
    for (const QString& file : files) {
        LasReader reader;
        QString why;
        if (!reader.open(file, &why)) {
            *error = QStringLiteral("%1: %2").arg(file, why);
            return false;
        }
    }
    for (const QString& file : files) {
        QString key;
        if (controller->importLasFile(QFileInfo(file).absoluteFilePath(), save, &key) != PCAR_Success) {
            *error = QStringLiteral("%1: %2").arg(file, key);
            return false;
        }
        *keys << key;
    }
    return true;
}

int CliProjectCommands::init(const CliArguments& args)
{
    const QString dir = args.positional(0);
    if (QFileInfo(dir).exists() && !QFileInfo(dir).isDir())
        return CliConsole::fail(QStringLiteral("%1 exists and is not a folder").arg(dir));
    PtCloud_Project project;
    QString error;
    if (!project.open(dir, &error)) return CliConsole::fail(error);
    return 0;
}

int CliProjectCommands::lasImport(const CliArguments& args)
{
    PtCloud_Project project;
    QString error;
    if (!openExisting(args.positional(0), project, &error)) return CliConsole::fail(error);
    QStringList keys;
    if (!importLasFiles(project.getController(), args.positionals().mid(1), true, &keys, &error))
        return CliConsole::fail(error);
    for (const QString& key : keys) CliConsole::out(key);
    return 0;
}

int CliProjectCommands::lasList(const CliArguments& args)
{
    PtCloud_Project project;
    QString error;
    if (!openExisting(args.positional(0), project, &error)) return CliConsole::fail(error);
    QMap<QString, QString> files;
    project.getController()->getLasFilepaths(files);
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        CliConsole::out(QStringLiteral("%1\t%2").arg(it.key(), it.value()));
    return 0;
}

int CliProjectCommands::lasRemove(const CliArguments& args)
{
    PtCloud_Project project;
    QString error;
    if (!openExisting(args.positional(0), project, &error)) return CliConsole::fail(error);
    PtCloud_Controller* controller = project.getController();
    stControlParam_LasFile_Remove p;
    p.key = args.positional(1);
    if (controller->doCmd_LasFile_Remove(p) != PCAR_Success) return CliConsole::fail(controller->lastError());
    return 0;
}
