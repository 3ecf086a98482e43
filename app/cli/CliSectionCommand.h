#pragma once

#include <QList>

#include "CliCommandTable.h"

// ptcloud section DIR DATASET --from X,Y --to X,Y --width W OUT.las: the
// points of a dataset within W/2 of the line from one plan position to the
// other (and not beyond its ends), with all their attributes, as a LAS file.
// Positions are absolute; the strip is the studio's section strip.
class CliSectionCommand {
public:
    static QList<CliCommand> commands();

private:
    static int run(const CliArguments& args);
};
