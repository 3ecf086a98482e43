#pragma once

#include <QList>

#include "CliCommandTable.h"

// ptcloud volume DIR DATASET --polygon x1,y1;x2,y2;... [--ground avg|fixed:H]
// [--top H] [--grid S] [--method grid|dtm] [--json]: the dig and fill of one
// area, as the studio's volume tool computes them. Positions and heights are
// absolute; the area lives in a temporary list, so the project is not changed.
class CliVolumeCommand {
public:
    static QList<CliCommand> commands();

private:
    static int run(const CliArguments& args);
};
