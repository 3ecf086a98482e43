#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include "CliCommandTable.h"
#include "PtCloudEnums.h"

namespace ptCloud {
class PtCloud_Controller;
}

// ptcloud dataset make | list | rename | remove | copy | merge | info | export | undo.
class CliDataSetCommands {
public:
    static QList<CliCommand> commands();

    // The columns for a new dataset from LAS files: "all" (or empty) is every
    // column the files have in common; otherwise a comma-separated list of
    // names, each of which every file must have. Location is always kept.
    static bool chooseColumns(ptCloud::PtCloud_Controller* controller, const QStringList& lasKeys,
                              const QString& columnList, QList<ptCloud::EDataSetColumn>* columns, QString* error);
    // Makes the dataset with a progress bar; false with the controller's reason.
    static bool makeDataSet(ptCloud::PtCloud_Controller* controller, const QString& name, const QStringList& lasKeys,
                            const QList<ptCloud::EDataSetColumn>& columns, QString* error);

private:
    static int make(const CliArguments& args);
    static int list(const CliArguments& args);
    static int rename(const CliArguments& args);
    static int remove(const CliArguments& args);
    static int copy(const CliArguments& args);
    static int merge(const CliArguments& args);
    static int info(const CliArguments& args);
    static int exportLas(const CliArguments& args);
    static int undo(const CliArguments& args);
};
