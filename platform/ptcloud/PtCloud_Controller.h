#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>

#include "ControlParams.h"
#include "PtCloudEnums.h"

class QFileInfo;

namespace ptCloud {

class ILongLiveActionProgress;
class PtCloudDataSet;
class PtCloud_DataSetBuilder;
struct pcBoundingBoxf;
struct pcVec3d;
struct stPtCloud_DataSetHeader;

// The commands and queries of one project. Every change is written to the
// project's manifest at once, atomically. All calls come from the GUI
// thread except the three doCmd_DataSet_Do_* long actions, which only read
// the source dataset and write their target files; the caller adopts the
// results on the GUI thread.
class PtCloud_Controller : public QObject {
    Q_OBJECT
public:
    explicit PtCloud_Controller(const QString& projectFolder, QObject* parent = nullptr);
    ~PtCloud_Controller() override;

    // Reads the project manifest and opens every dataset.
    bool load(QString* error);
    QString projectFolder() const { return m_folder; }

    PtCloudDataSet* getDataSet(const QString& name);
    QMap<QString, const PtCloudDataSet*> getDataSets() const;
    void getDataSetFilepaths(QMap<QString, QString>& out) const;
    void getLasFilepaths(QMap<QString, QString>& out) const;
    bool getLasFileColumns(const QString& lasName, QList<EDataSetColumn>& out);
    // Forgets what a stopped long action left behind (files never adopted).
    void reset();

    // *key receives the new file's key on success, a one-line reason on failure.
    EEPtCloudActResult doCmd_LasFile_Import(const stControlParam_LasFile_Import& p, QString* key);
    EEPtCloudActResult doCmd_LasFile_Remove(const stControlParam_LasFile_Remove& p);
    EEPtCloudActResult doCmd_DataSet_Make(const stControlParam_DataSet_Make& p);
    EEPtCloudActResult doCmd_DataSet_Rename(const stControlParam_DataSet_Rename& p);
    EEPtCloudActResult doCmd_DataSet_Remove(const stControlParam_DataSet_Remove& p);
    EEPtCloudActResult doCmd_DataSet_Copy(const stControlParam_DataSet_Copy& p);
    EEPtCloudActResult doCmd_DataSet_Merge(const stControlParam_DataSet_Merge& p);
    EEPtCloudActResult doCmd_DataSet_Do_Mesh(const stControlParam_DataSet_Do_Mesh& p,
                                             ILongLiveActionProgress* progress);
    EEPtCloudActResult doCmd_DataSet_Do_Split(const stControlParam_DataSet_Do_Split& p,
                                              ILongLiveActionProgress* progress);
    EEPtCloudActResult doCmd_DataSet_Do_Sample(const stControlParam_DataSet_Do_Sample& p,
                                               ILongLiveActionProgress* progress);

    // A LAS file referenced like doCmd_LasFile_Import does; unless save, the
    // reference is written only with the next dataset made, so that a
    // failed or killed import leaves none.
    EEPtCloudActResult importLasFile(const QString& filepath, bool save, QString* key);
    // doCmd_DataSet_Make with a progress sink (the command-line tool shows it).
    EEPtCloudActResult makeDataSet(const stControlParam_DataSet_Make& p, ILongLiveActionProgress* progress);
    // One-line reason of the last failed command on this thread's side.
    QString lastError() const;

    // A name is acceptable for a new dataset: trimmed, non-empty, none of
    // \ / : * ? " < > |, unlike every existing name ignoring case.
    bool isValidNewDataSetName(const QString& name) const;

signals:
    void sg_DataSet_Added(QString);
    void sg_DataSet_Removed(QString);
    void sg_DataSet_Renamed(QString, QString);

private:
    class Change;
    bool saveManifest(QString* error) const;
    // Brings the model up to date with the manifest on disk; refuses a
    // manifest whose dataset folders lie outside the project's datasets folder.
    bool refresh(QString* error);
    PtCloudDataSet* openDataSet(const QString& name, const QString& rel);
    QString uniqueLasKey(const QFileInfo& info) const;
    QString newDataSetFolder(const QString& name) const;
    // Where a new dataset folder is built before it is renamed into place.
    QString partFolder(const QString& rel) const;
    // Moves a dataset built in partFolder into the project (removing it on failure).
    EEPtCloudActResult adoptDataSetFolder(const QString& name, const QString& partFolder);
    // A builder for a new dataset, bucketing over the header bounds of its
    // LAS files when they hold the first points read.
    std::unique_ptr<PtCloud_DataSetBuilder> makeBuilder(const QString& path, const stPtCloud_DataSetHeader& header,
                                                        const double minAbs[3], const double maxAbs[3],
                                                        const pcBoundingBoxf& first) const;
    // Copies files (relative to from) into to, each written atomically.
    static bool copyFiles(const QString& from, const QStringList& files, const QString& to, QString* error);
    QString sourceFor(const QString& dataSetName) const;

    struct Impl;
    std::unique_ptr<Impl> d;
    QString m_folder;
};

}  // namespace ptCloud
