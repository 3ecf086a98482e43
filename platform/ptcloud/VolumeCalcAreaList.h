#pragma once

#include <QMap>
#include <QString>
#include <memory>

#include "PtCloudEnums.h"
#include "VolumeCalcArea.h"

namespace ptCloud {

class PtCloud_DataSetFile;

// The earth-volume content of a dataset: named areas and their results,
// saved (atomically) to its file after every change.
class VolumeCalcAreaList {
public:
    explicit VolumeCalcAreaList(const QString& filepath);
    ~VolumeCalcAreaList();

    VolumeCalcArea* addArea(const QString& name);  // null when the name exists
    void removeArea(const QString& name);
    VolumeCalcArea* getArea(const QString& name);
    void getAreas(QMap<QString, VolumeCalcArea*>& out);
    void getAreas(QMap<QString, const VolumeCalcArea*>& out) const;
    bool isEmpty() const;

    // The files the calculation reads: the DEM mesh (DTM method, may be
    // null) and the points (grid method). Not owned.
    void setDTMFile(PtCloud_DataSetFile* file);
    void setGridFile(PtCloud_DataSetFile* file);
    // Computes every area with at least three boundary points; false when
    // the needed file is missing or no area could be computed.
    bool doCalc(EVolumeCalcFunction function);

    bool load(QString* error);
    bool save(QString* error) const;
    QString getFilepath() const { return m_path; }
    QString lastError() const { return m_error; }

private:
    friend class VolumeCalcArea;
    void areaChanged();

    QString m_path;
    QMap<QString, std::shared_ptr<VolumeCalcArea>> m_areas;
    PtCloud_DataSetFile* m_dtm = nullptr;
    PtCloud_DataSetFile* m_grid = nullptr;
    QString m_error;
};

}  // namespace ptCloud
