#pragma once

#include <QList>

#include "CliCommandTable.h"

// LAS files for tests and benchmarks:
//   ptcloud demo OUT.las [--points N] [--seed S]: the synthetic survey scene;
//   ptcloud _tile IN.las OUT.las [--copies N] (hidden): a large file made of
//   side-by-side copies of a real one.
class CliGenerateCommands {
public:
    static QList<CliCommand> commands();

private:
    static int demo(const CliArguments& args);
    static int tile(const CliArguments& args);
};
