#pragma once

#include <QList>

#include "CliCommandTable.h"

// ptcloud run DIR DATASET --func CODE [--params JSON-LIST] [--target NAME]:
// one of the studio's long actions (mesh 0-2, DEM 3, split 100-107, thinning
// 200) on a dataset, with the positional parameters its dialog would give,
// and the result adopted into the dataset the way the studio adopts it.
// Ctrl-C stops the action cooperatively; a stopped or failed action adopts
// nothing. A second Ctrl-C ends the process at once.
class CliRunCommands {
public:
    static QList<CliCommand> commands();

private:
    static int run(const CliArguments& args);
};
