#include "TestProject.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QSettings>

#include "LasWriter.h"
#include "PtCloudDataSet.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_Project.h"
#include "stPtCloud_PointArray.h"

using namespace ptCloud;

bool TestProject::writeGridLas(const QString& path, int n, const pcVec3d& origin, bool withColor)
{
    stPtCloud_PointArray points;
    points.origin = origin;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            points.positions.emplace_back(float(i), float(j), 0.1f * float(i));
            if (withColor) points.colors.emplace_back(float(i) / float(n), float(j) / float(n), 0.2f, 1.f);
        }
    points.count = int(points.positions.size());
    return writeLas(path, points);
}

bool TestProject::writeLas(const QString& path, const stPtCloud_PointArray& points)
{
    const double scale[3] = {0.001, 0.001, 0.001};
    const double offset[3] = {points.origin.x, points.origin.y, points.origin.z};
    LasWriter writer;
    QString error;
    return writer.open(path, !points.colors.empty(), scale, offset, QString(), &error) &&
           writer.write(points, &error) && writer.close(&error);
}

void TestProject::isolateSettings(const QString& folder)
{
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, folder);
}

TestProject::TestProject() = default;

bool TestProject::open()
{
    QString error;
    return m_dir.isValid() && m_scene.getPointsCloud()->openProject(m_dir.filePath("project"), &error);
}

PtCloud_Controller* TestProject::controller()
{
    const PtCloud_Project* project = m_scene.getPointsCloud()->getPointsCloudProject();
    return project ? project->getController() : nullptr;
}

PtCloudDataSet* TestProject::dataSet(const QString& name)
{
    return controller() ? controller()->getDataSet(name) : nullptr;
}

bool TestProject::addGridDataSet(const QString& name, int n, const pcVec3d& origin, bool withColor)
{
    const QString las = m_dir.filePath(name + ".las");
    QString key;
    if (!writeGridLas(las, n, origin, withColor) || controller()->doCmd_LasFile_Import({las}, &key) != PCAR_Success)
        return false;
    QList<EDataSetColumn> columns{DSC_Location};
    if (withColor) columns << DSC_Color;
    return controller()->doCmd_DataSet_Make({{key}, columns, name}) == PCAR_Success;
}

bool TestProject::addDataSet(const QString& name, const stPtCloud_PointArray& points)
{
    const QString las = m_dir.filePath(name + ".las");
    QString key;
    return writeLas(las, points) && controller()->doCmd_LasFile_Import({las}, &key) == PCAR_Success &&
           controller()->doCmd_DataSet_Make({{key}, {DSC_Location}, name}) == PCAR_Success;
}

bool TestProject::addPointCopy(const QString& dataSetName, const QString& kind, const QString& name)
{
    PtCloudDataSet* ds = dataSet(dataSetName);
    if (!ds) return false;
    PtCloud_DataSetFile* file = kind == "mesh"    ? ds->createEmptyLocatedContent_Mesh(name)
                                : kind == "split" ? ds->createEmptyLocatedContent_Split(name)
                                                  : ds->createEmptyLocatedContent_Cut(name);
    if (!QFile::copy(ds->getFilePath_Points(), file->getFilepath())) {
        delete file;
        return false;
    }
    return kind == "mesh" ? ds->addContent_Mesh(name, file)
                          : kind == "split" ? ds->addContent_Split(name, file) : ds->addContent_Cut(name, file);
}

bool TestProject::writeDemFiles(const QString& dataSetName)
{
    PtCloudDataSet* ds = dataSet(dataSetName);
    if (!ds) return false;
    const QString points = ds->getFilePath_Points();
    if (!QDir().mkpath(QFileInfo(ds->getFilePath_Dem_Mesh()).absolutePath()) ||
        !QDir().mkpath(QFileInfo(ds->getFilePath_Dem_Contour()).absolutePath()))
        return false;
    if (!QFile::copy(points, ds->getFilePath_Dem_Mesh()) || !QFile::copy(points, ds->getFilePath_Dem_Classify()))
        return false;
    PtCloud_DataSetFile reader(points);
    if (!reader.openFile()) return false;
    std::vector<PtCloud_ContourFile::Polyline> lines(2);
    for (int k = 0; k < 2; ++k) {
        lines[size_t(k)].level = reader.getHeader().origin.z + k;
        lines[size_t(k)].points = {pcVec3f(0.f, 0.f, float(k)), pcVec3f(5.f, 0.f, float(k)), pcVec3f(5.f, 5.f, float(k))};
    }
    QImage heightMap(32, 32, QImage::Format_RGB32);
    heightMap.fill(Qt::darkGreen);
    QString error;
    return heightMap.save(ds->getFilePath_Dem_HeightMap(), "PNG") &&
           PtCloud_ContourFile::write(ds->getFilePath_Dem_Contour(), reader.getHeader().origin, lines, &error);
}
