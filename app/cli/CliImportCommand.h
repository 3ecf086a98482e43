#pragma once

#include <QList>

#include "CliCommandTable.h"

// ptcloud import FILE.las [--project DIR]: the common case in one step. The
// project goes beside the file ("FILE.ptcloud") unless given; the file is
// referenced and a dataset named after it made with every column it has.
// A failure leaves no trace: a project made for it is removed again, and a
// reference added to an existing one is taken back.
class CliImportCommand {
public:
    static QList<CliCommand> commands();

private:
    static int run(const CliArguments& args);
};
