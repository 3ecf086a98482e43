#pragma once

#include <QList>

#include "CliCommandTable.h"

// ptcloud cut and ptcloud measure: the studio's cut and measure tools on a
// project's dataset, with positions in absolute coordinates.
class CliToolCommands {
public:
    static QList<CliCommand> commands();

private:
    static int cut(const CliArguments& args);
    static int measure(const CliArguments& args);
};
