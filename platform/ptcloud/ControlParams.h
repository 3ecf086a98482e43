#pragma once
// Parameter records of the controller's commands.

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include "PtCloudEnums.h"

namespace ptCloud {

struct stControlParam_LasFile_Import {
    QString filepath;  // the LAS file to reference
};

struct stControlParam_LasFile_Remove {
    QString key;  // the file's key in the project
};

struct stControlParam_DataSet_Make {
    QStringList lasNames;             // keys of the LAS files to merge
    QList<EDataSetColumn> columns;    // columns to keep (Location required)
    QString name;                     // the new dataset's name
};

struct stControlParam_DataSet_Rename {
    QString oldName;
    QString newName;
};

struct stControlParam_DataSet_Remove {
    QString name;
};

struct stControlParam_DataSet_Copy {
    QString source;
    QString target;  // name of the copy
};

struct stControlParam_DataSet_Merge {
    QStringList sources;  // datasets to merge, at least one
    QString target;       // name of the new dataset
};

// The three long actions share one layout: the dataset, the target content
// (a path given by the dataset's createEmptyLocatedContent_*), the function
// code and its positional parameters.
struct stControlParam_DataSet_Do {
    QString dataSetName;
    QString targetName;
    int func = 0;
    QVariant params;
};
struct stControlParam_DataSet_Do_Mesh : stControlParam_DataSet_Do {};
struct stControlParam_DataSet_Do_Split : stControlParam_DataSet_Do {};
struct stControlParam_DataSet_Do_Sample : stControlParam_DataSet_Do {};

}  // namespace ptCloud
