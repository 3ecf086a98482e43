// ptcloud: the data model from the command line, for batch work, scripts and
// benchmarks. Each group of subcommands lives in its own class.
#include <QCoreApplication>

#include "CliCommandTable.h"
#include "CliDataSetCommands.h"
#include "CliGenerateCommands.h"
#include "CliImportCommand.h"
#include "CliProjectCommands.h"
#include "CliRunCommands.h"
#include "CliToolCommands.h"
#include "CliSectionCommand.h"
#include "CliVolumeCommand.h"

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ptcloud"));
    CliCommandTable table;
    table.add(CliProjectCommands::commands());
    table.add(CliDataSetCommands::commands());
    table.add(CliImportCommand::commands());
    table.add(CliGenerateCommands::commands());
    table.add(CliRunCommands::commands());
    table.add(CliVolumeCommand::commands());
    table.add(CliToolCommands::commands());
    table.add(CliSectionCommand::commands());
    return table.dispatch(QCoreApplication::arguments().mid(1));
}
