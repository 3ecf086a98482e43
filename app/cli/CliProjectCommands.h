#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include "CliCommandTable.h"

namespace ptCloud {
class PtCloud_Controller;
class PtCloud_Project;
}  // namespace ptCloud

// ptcloud project init, ptcloud las import | list | remove.
class CliProjectCommands {
public:
    static QList<CliCommand> commands();

    // Opens dir only when it already holds a project: a mistyped folder must
    // not turn into a new, empty project.
    static bool openExisting(const QString& dir, ptCloud::PtCloud_Project& project, QString* error);
    // Checks every file before registering any, so that one bad file in a
    // list leaves the project as it was. Fills keys in the order of files.
    // Unless save, the references are written with the next dataset made.
    static bool importLasFiles(ptCloud::PtCloud_Controller* controller, const QStringList& files, bool save,
                               QStringList* keys, QString* error);

private:
    static int init(const CliArguments& args);
    static int lasImport(const CliArguments& args);
    static int lasList(const CliArguments& args);
    static int lasRemove(const CliArguments& args);
};
