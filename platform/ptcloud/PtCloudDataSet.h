#pragma once

#include <QImage>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>

#include "PtCloudEnums.h"
#include "PtCloud_LocalFrame.h"

namespace ptCloud {

class PtCloud_ContourFile;
class PtCloud_DataSetFile;
class PtCloud_ProjectLock;
class VolumeCalcAreaList;

// One dataset of a project: its points and the contents made from them,
// each kept in the dataset's folder and listed in its manifest, which is
// rewritten atomically after every change. A change that cannot be saved
// is undone and reported (false, lastError()); a manifest that cannot be
// read is never overwritten: the dataset refuses every change until it is
// repaired. Contents are made under a temporary name (the located paths)
// and take their final name when they are added.
class PtCloudDataSet : public QObject {
    Q_OBJECT
public:
    // Opens the dataset stored in folder (its manifest read when present).
    PtCloudDataSet(const QString& name, const QString& folder, QObject* parent = nullptr);
    ~PtCloudDataSet() override;

    QString getName() const { return m_name; }
    QString getFolder() const { return m_folder; }
    // Reads the manifest; false (with a reason) when it is unreadable or
    // names files outside the dataset's folder.
    bool load(QString* error);
    // Writes the manifest atomically.
    bool save(QString* error) const;
    // False with the reason when the manifest could not be read.
    bool isUsable(QString* error) const;
    // Why the last change failed.
    QString lastError() const;
    // The files the dataset consists of, relative to its folder.
    QStringList referencedFiles() const;

    // How the editor last showed the dataset (colouring, hidden contents):
    // kept in the manifest for the editor, not read by the data model.
    QJsonObject getDisplaySettings() const;
    // Saves at once; false (with a reason) when the manifest cannot be written.
    bool setDisplaySettings(const QJsonObject& settings, QString* error);

    // Points
    PtCloud_DataSetFile* getContent_PointDataSetFile() const;
    QString getFilePath_Points() const;
    // The frame of the points: absolute = origin + relative. The identity
    // frame while the points cannot be read.
    PtCloud_LocalFrame getLocalFrame() const;
    // Path of a fresh, empty points file beside the dataset, for a long action to fill.
    QString createEmptyLocatedContent_Points();
    // Adopts the points file written at the last located path (it replaces
    // the old points, which are kept for one undo).
    bool updateContent_Points();
    // One level of undo of the last in-place change of the points: the
    // previous points file comes back as it was, byte for byte, and the
    // undo is used up. Other contents are left as they are. False when
    // there is nothing to undo.
    bool undoContent_Points();
    // Size in bytes of the points kept for undo; -1 when there are none.
    qint64 getUndoSize_Points() const;

    // Meshes
    QMap<QString, PtCloud_DataSetFile*>* getContent_Meshs() const;
    PtCloud_DataSetFile* createEmptyLocatedContent_Mesh(const QString& name);
    bool addContent_Mesh(const QString& name, PtCloud_DataSetFile* file);  // takes ownership
    bool removeContent_Mesh(const QString& name);

    // Splits
    QMap<QString, PtCloud_DataSetFile*>* getContent_Splits() const;
    PtCloud_DataSetFile* createEmptyLocatedContent_Split(const QString& name);
    bool addContent_Split(const QString& name, PtCloud_DataSetFile* file);  // takes ownership
    bool removeContent_Split(const QString& name);

    // Cuts (pieces cut out of the points and kept)
    QMap<QString, PtCloud_DataSetFile*>* getContent_Cuts() const;
    PtCloud_DataSetFile* createEmptyLocatedContent_Cut(const QString& name);
    bool addContent_Cut(const QString& name, PtCloud_DataSetFile* file);  // takes ownership
    bool removeContent_Cut(const QString& name);

    // DEM products: each has a fixed path; setContent_* adopts the file written there.
    PtCloud_DataSetFile* getContent_Dem_Mesh() const;
    bool setContent_Dem_Mesh();
    bool removeContent_Dem_Mesh();
    QString getFilePath_Dem_Mesh() const;
    QImage* getContent_Dem_HeightMap() const;
    bool setContent_Dem_HeightMap();
    bool removeContent_Dem_HeightMap();
    QString getFilePath_Dem_HeightMap() const;
    PtCloud_ContourFile* getContent_Dem_Contour() const;
    bool setContent_Dem_Contour();
    bool removeContent_Dem_Contour();
    QString getFilePath_Dem_Contour() const;
    PtCloud_DataSetFile* getContent_Dem_Classify() const;
    bool setContent_Dem_Classify();
    bool removeContent_Dem_Classify();
    QString getFilePath_Dem_Classify() const;
    void removeContent_AllDem();

    // Earth volume
    VolumeCalcAreaList* getContent_EarthVolume() const;
    bool addContent_EarthVolume();  // creates an empty area list when there is none
    bool removeContent_EarthVolume();

    // Total size in bytes of the dataset's files.
    qint64 diskSize() const;

    // Drops the located files of this process that were never adopted (after a stopped action).
    void discardLocatedContents();

signals:
    void sgContentUpdated_Points(QString strDataSetName);
    void sgContentAdded_Mesh(QString strDataSetName, QString strMeshName);
    void sgRemoved_Mesh(QString strDataSetName, QString strMeshName);
    void sgContentAdded_Dem_Mesh(QString strDataSetName);
    void sgContentRemoved_Dem_Mesh(QString strDataSetName);
    void sgContentAdded_Dem_Contour(QString strDataSetName);
    void sgContentRemoved_Dem_Contour(QString strDataSetName);
    void sgContentAdded_Dem_Classify(QString strDataSetName);
    void sgContentRemoved_Dem_Classify(QString strDataSetName);
    void sgContentAdded_Split(QString strDataSetName, QString strSplitName);
    void sgRemoved_Split(QString strDataSetName, QString strSplitName);
    void sgContentAdded_EarthVolume(QString strDataSetName);
    void sgContentRemoved_EarthVolume(QString strDataSetName);
    void sgContentAdded_Cut(QString strDataSetName, QString strCutName);
    void sgContentRemoved_Cut(QString strDataSetName, QString strCutName);

private:
    friend class PtCloud_Controller;
    // Takes the project lock and brings the contents up to date with the
    // manifest on disk; saveChange() writes it and lets the lock go.
    bool beginChange();
    bool saveChange();
    void endChange();
    bool refresh(QString* error);
    void setLock(PtCloud_ProjectLock* lock);
    using NamedSignal = void (PtCloudDataSet::*)(QString, QString);
    bool addNamed(QMap<QString, PtCloud_DataSetFile*>& map, const QString& name, PtCloud_DataSetFile* file,
                  NamedSignal removed, NamedSignal added);
    using SingleSignal = void (PtCloudDataSet::*)(QString);
    template <class File>
    bool setSingle(std::unique_ptr<File>& slot, const QString& path, SingleSignal removed, SingleSignal added);
    template <class File>
    bool removeSingle(std::unique_ptr<File>& slot, SingleSignal removed);
    bool removeNamed(QMap<QString, PtCloud_DataSetFile*>& map, const QString& name, NamedSignal removed);
    void syncNamed(QMap<QString, PtCloud_DataSetFile*>& map, const QMap<QString, QString>& paths, NamedSignal removed,
                   NamedSignal added);
    template <class File>
    void syncSingle(std::unique_ptr<File>& slot, bool present, const QString& path, SingleSignal removed,
                    SingleSignal added);
    void setName(const QString& name) { m_name = name; }
    QString undoPath_Points() const;
    bool keepPointsForUndo();
    // Renames the file over the points and tells the scene.
    bool replacePoints(const QString& path);
    struct Impl;
    std::unique_ptr<Impl> d;
    QString m_name;
    QString m_folder;
};

}  // namespace ptCloud
