#include "PtCloudDataSet.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QRegularExpression>

#include "PtCloud_ContourFile.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_JsonFile.h"
#include "VolumeCalcAreaList.h"

namespace ptCloud {

namespace {
const char* const kManifest = "dataset.json";
const char* const kPointsFile = "points.pcb";
const char* const kDemMesh = "dem/dem_mesh.pcb";
const char* const kDemHeightMap = "dem/heightmap.png";
const char* const kDemContour = "dem/contour.pcc";
const char* const kDemClassify = "dem/classify.pcb";
const char* const kEarthVolume = "earthvolume.json";

using FileMap = QMap<QString, PtCloud_DataSetFile*>;

void clearFiles(FileMap& map)
{
    qDeleteAll(map);
    map.clear();
}

QJsonObject filesToJson(const FileMap& map, const QDir& folder)
{
    QJsonObject o;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        o.insert(it.key(), folder.relativeFilePath(it.value()->getFilepath()));
    return o;
}

void filesFromJson(const QJsonObject& o, const QDir& folder, FileMap& map)
{
    clearFiles(map);
    for (auto it = o.begin(); it != o.end(); ++it)
        map.insert(it.key(), new PtCloud_DataSetFile(folder.filePath(it.value().toString())));
}

// A file name for a content, derived from its user name but safe on any file system.
QString uniqueContentPath(const QDir& folder, const QString& sub, const QString& name)
{
    QString base = name;
    base.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_.-]")), QStringLiteral("_"));
    if (base.isEmpty()) base = QStringLiteral("content");
    QDir().mkpath(folder.filePath(sub));
    for (int i = 0;; ++i) {
        const QString file = i == 0 ? base : QStringLiteral("%1_%2").arg(base).arg(i);
        const QString path = folder.filePath(sub + QLatin1Char('/') + file + QStringLiteral(".pcb"));
        if (!QFileInfo::exists(path)) return path;
    }
}
}  // namespace

struct PtCloudDataSet::Impl {
    QDir folder;
    std::unique_ptr<PtCloud_DataSetFile> points;
    QString locatedPoints;
    FileMap meshes, splits, cuts;
    std::unique_ptr<PtCloud_DataSetFile> demMesh, demClassify;
    std::unique_ptr<QImage> demHeightMap;
    std::unique_ptr<PtCloud_ContourFile> demContour;
    std::unique_ptr<VolumeCalcAreaList> earthVolume;
    QJsonObject display;

    ~Impl()
    {
        clearFiles(meshes);
        clearFiles(splits);
        clearFiles(cuts);
    }
};

PtCloudDataSet::PtCloudDataSet(const QString& name, const QString& folder, QObject* parent)
    : QObject(parent), d(std::make_unique<Impl>()), m_name(name), m_folder(QDir(folder).absolutePath())
{
    d->folder = QDir(m_folder);
    d->points = std::make_unique<PtCloud_DataSetFile>(d->folder.filePath(kPointsFile));
}

PtCloudDataSet::~PtCloudDataSet() { discardLocatedContents(); }

bool PtCloudDataSet::load(QString* error)
{
    const QString path = d->folder.filePath(kManifest);
    if (!QFileInfo::exists(path)) return true;  // a dataset with nothing but its points
    QJsonObject o;
    if (!PtCloud_JsonFile::read(path, &o, error)) return false;
    d->display = o.value("display").toObject();
    filesFromJson(o.value("meshes").toObject(), d->folder, d->meshes);
    filesFromJson(o.value("splits").toObject(), d->folder, d->splits);
    filesFromJson(o.value("cuts").toObject(), d->folder, d->cuts);
    const QJsonObject dem = o.value("dem").toObject();
    if (dem.value("mesh").toBool())
        d->demMesh = std::make_unique<PtCloud_DataSetFile>(getFilePath_Dem_Mesh());
    if (dem.value("classify").toBool())
        d->demClassify = std::make_unique<PtCloud_DataSetFile>(getFilePath_Dem_Classify());
    if (dem.value("contour").toBool())
        d->demContour = std::make_unique<PtCloud_ContourFile>(getFilePath_Dem_Contour());
    if (dem.value("heightmap").toBool()) {
        auto image = std::make_unique<QImage>(getFilePath_Dem_HeightMap());
        if (!image->isNull()) d->demHeightMap = std::move(image);
    }
    if (o.value("earthVolume").toBool()) {
        auto list = std::make_unique<VolumeCalcAreaList>(d->folder.filePath(kEarthVolume));
        QString err;
        if (list->load(&err))
            d->earthVolume = std::move(list);
        else
            qWarning("dataset %s: earth volume not loaded: %s", qPrintable(m_name), qPrintable(err));
    }
    return true;
}

bool PtCloudDataSet::save(QString* error) const
{
    QJsonObject o;
    o.insert("format", "ptcloud-dataset");
    o.insert("version", 1);
    o.insert("points", QString::fromLatin1(kPointsFile));
    o.insert("meshes", filesToJson(d->meshes, d->folder));
    o.insert("splits", filesToJson(d->splits, d->folder));
    o.insert("cuts", filesToJson(d->cuts, d->folder));
    QJsonObject dem;
    dem.insert("mesh", bool(d->demMesh));
    dem.insert("heightmap", bool(d->demHeightMap));
    dem.insert("contour", bool(d->demContour));
    dem.insert("classify", bool(d->demClassify));
    o.insert("dem", dem);
    o.insert("earthVolume", bool(d->earthVolume));
    if (!d->display.isEmpty()) o.insert("display", d->display);
    return PtCloud_JsonFile::write(d->folder.filePath(kManifest), o, error);
}

namespace {
// Every content change is saved at once; a failed save is logged, since
// the caller's operation itself has already succeeded on disk.
void saveOrWarn(const PtCloudDataSet* ds)
{
    QString err;
    if (!ds->save(&err)) qWarning("dataset %s: %s", qPrintable(ds->getName()), qPrintable(err));
}
}  // namespace

QJsonObject PtCloudDataSet::getDisplaySettings() const { return d->display; }

bool PtCloudDataSet::setDisplaySettings(const QJsonObject& settings, QString* error)
{
    if (settings == d->display) return true;
    d->display = settings;
    return save(error);
}

// ---- points

PtCloud_DataSetFile* PtCloudDataSet::getContent_PointDataSetFile() const { return d->points.get(); }

QString PtCloudDataSet::getFilePath_Points() const { return d->points->getFilepath(); }

QString PtCloudDataSet::createEmptyLocatedContent_Points()
{
    if (!d->locatedPoints.isEmpty()) QFile::remove(d->locatedPoints);
    for (int i = 1;; ++i) {
        const QString path = d->folder.filePath(QStringLiteral("points_new_%1.pcb").arg(i));
        if (!QFileInfo::exists(path)) {
            d->locatedPoints = path;
            return path;
        }
    }
}

bool PtCloudDataSet::updateContent_Points()
{
    if (d->locatedPoints.isEmpty()) return false;
    const QString located = d->locatedPoints;
    if (!PtCloud_DataSetFile(located).isValid()) return false;
    const bool wasOpen = d->points->isOpened();
    d->points->closeFile();
    // rename(2) replaces the old points in one step; readers that still hold
    // the old file open keep reading it until they close.
    if (::rename(QFile::encodeName(located).constData(),
                 QFile::encodeName(d->points->getFilepath()).constData()) != 0) {
        if (wasOpen) d->points->openFile();
        return false;
    }
    d->locatedPoints.clear();
    if (wasOpen) d->points->openFile();
    emit sgContentUpdated_Points(m_name);
    return true;
}

// ---- named contents

namespace {
PtCloud_DataSetFile* takeNamed(FileMap& map, const QString& name)
{
    auto it = map.find(name);
    if (it == map.end()) return nullptr;
    PtCloud_DataSetFile* file = it.value();
    map.erase(it);
    return file;
}

void destroyFile(PtCloud_DataSetFile* file)
{
    if (!file) return;
    const QString path = file->getFilepath();
    delete file;
    QFile::remove(path);
}
}  // namespace

bool PtCloudDataSet::addNamed(QMap<QString, PtCloud_DataSetFile*>& map, const QString& name,
                              PtCloud_DataSetFile* file, NamedSignal removed, NamedSignal added)
{
    if (!file || name.isEmpty()) return false;
    // A content of the same name is replaced: its item goes first.
    PtCloud_DataSetFile* old = takeNamed(map, name);
    if (old) {
        emit(this->*removed)(m_name, name);
        if (old->getFilepath() != file->getFilepath())
            destroyFile(old);
        else
            delete old;
    }
    map.insert(name, file);
    saveOrWarn(this);
    emit(this->*added)(m_name, name);
    return true;
}

bool PtCloudDataSet::removeNamed(QMap<QString, PtCloud_DataSetFile*>& map, const QString& name,
                                 NamedSignal removed)
{
    PtCloud_DataSetFile* file = takeNamed(map, name);
    if (!file) return false;
    saveOrWarn(this);
    emit(this->*removed)(m_name, name);
    destroyFile(file);
    return true;
}

QMap<QString, PtCloud_DataSetFile*>* PtCloudDataSet::getContent_Meshs() const { return &d->meshes; }

PtCloud_DataSetFile* PtCloudDataSet::createEmptyLocatedContent_Mesh(const QString& name)
{
    return new PtCloud_DataSetFile(uniqueContentPath(d->folder, QStringLiteral("meshes"), name));
}

bool PtCloudDataSet::addContent_Mesh(const QString& name, PtCloud_DataSetFile* file)
{
    return addNamed(d->meshes, name, file, &PtCloudDataSet::sgRemoved_Mesh, &PtCloudDataSet::sgContentAdded_Mesh);
}

bool PtCloudDataSet::removeContent_Mesh(const QString& name)
{
    return removeNamed(d->meshes, name, &PtCloudDataSet::sgRemoved_Mesh);
}

QMap<QString, PtCloud_DataSetFile*>* PtCloudDataSet::getContent_Splits() const { return &d->splits; }

PtCloud_DataSetFile* PtCloudDataSet::createEmptyLocatedContent_Split(const QString& name)
{
    return new PtCloud_DataSetFile(uniqueContentPath(d->folder, QStringLiteral("splits"), name));
}

bool PtCloudDataSet::addContent_Split(const QString& name, PtCloud_DataSetFile* file)
{
    return addNamed(d->splits, name, file, &PtCloudDataSet::sgRemoved_Split, &PtCloudDataSet::sgContentAdded_Split);
}

bool PtCloudDataSet::removeContent_Split(const QString& name)
{
    return removeNamed(d->splits, name, &PtCloudDataSet::sgRemoved_Split);
}

QMap<QString, PtCloud_DataSetFile*>* PtCloudDataSet::getContent_Cuts() const { return &d->cuts; }

PtCloud_DataSetFile* PtCloudDataSet::createEmptyLocatedContent_Cut(const QString& name)
{
    return new PtCloud_DataSetFile(uniqueContentPath(d->folder, QStringLiteral("cuts"), name));
}

bool PtCloudDataSet::addContent_Cut(const QString& name, PtCloud_DataSetFile* file)
{
    return addNamed(d->cuts, name, file, &PtCloudDataSet::sgContentRemoved_Cut, &PtCloudDataSet::sgContentAdded_Cut);
}

bool PtCloudDataSet::removeContent_Cut(const QString& name)
{
    return removeNamed(d->cuts, name, &PtCloudDataSet::sgContentRemoved_Cut);
}

// ---- DEM products

QString PtCloudDataSet::getFilePath_Dem_Mesh() const { return d->folder.filePath(kDemMesh); }
QString PtCloudDataSet::getFilePath_Dem_HeightMap() const { return d->folder.filePath(kDemHeightMap); }
QString PtCloudDataSet::getFilePath_Dem_Contour() const { return d->folder.filePath(kDemContour); }
QString PtCloudDataSet::getFilePath_Dem_Classify() const { return d->folder.filePath(kDemClassify); }

PtCloud_DataSetFile* PtCloudDataSet::getContent_Dem_Mesh() const { return d->demMesh.get(); }
QImage* PtCloudDataSet::getContent_Dem_HeightMap() const { return d->demHeightMap.get(); }
PtCloud_ContourFile* PtCloudDataSet::getContent_Dem_Contour() const { return d->demContour.get(); }
PtCloud_DataSetFile* PtCloudDataSet::getContent_Dem_Classify() const { return d->demClassify.get(); }

template <class File>
bool PtCloudDataSet::setSingle(std::unique_ptr<File>& slot, const QString& path, SingleSignal removed,
                               SingleSignal added)
{
    auto file = std::make_unique<File>(path);
    if (!file->isValid()) return false;
    if (slot) emit(this->*removed)(m_name);
    slot = std::move(file);
    saveOrWarn(this);
    emit(this->*added)(m_name);
    return true;
}

template <class File>
bool PtCloudDataSet::removeSingle(std::unique_ptr<File>& slot, SingleSignal removed)
{
    if (!slot) return false;
    auto file = std::move(slot);
    saveOrWarn(this);
    emit(this->*removed)(m_name);
    const QString path = file->getFilepath();
    file.reset();
    QFile::remove(path);
    return true;
}

bool PtCloudDataSet::setContent_Dem_Mesh()
{
    return setSingle(d->demMesh, getFilePath_Dem_Mesh(), &PtCloudDataSet::sgContentRemoved_Dem_Mesh,
                     &PtCloudDataSet::sgContentAdded_Dem_Mesh);
}

bool PtCloudDataSet::removeContent_Dem_Mesh()
{
    return removeSingle(d->demMesh, &PtCloudDataSet::sgContentRemoved_Dem_Mesh);
}

bool PtCloudDataSet::setContent_Dem_HeightMap()
{
    auto image = std::make_unique<QImage>(getFilePath_Dem_HeightMap());
    if (image->isNull()) return false;
    d->demHeightMap = std::move(image);
    saveOrWarn(this);
    return true;
}

bool PtCloudDataSet::removeContent_Dem_HeightMap()
{
    if (!d->demHeightMap) return false;
    d->demHeightMap.reset();
    saveOrWarn(this);
    const QString png = getFilePath_Dem_HeightMap();
    QFile::remove(png);
    QFile::remove(png.left(png.size() - 4) + QStringLiteral(".pgw"));  // its world file
    return true;
}

bool PtCloudDataSet::setContent_Dem_Contour()
{
    return setSingle(d->demContour, getFilePath_Dem_Contour(), &PtCloudDataSet::sgContentRemoved_Dem_Contour,
                     &PtCloudDataSet::sgContentAdded_Dem_Contour);
}

bool PtCloudDataSet::removeContent_Dem_Contour()
{
    return removeSingle(d->demContour, &PtCloudDataSet::sgContentRemoved_Dem_Contour);
}

bool PtCloudDataSet::setContent_Dem_Classify()
{
    return setSingle(d->demClassify, getFilePath_Dem_Classify(), &PtCloudDataSet::sgContentRemoved_Dem_Classify,
                     &PtCloudDataSet::sgContentAdded_Dem_Classify);
}

bool PtCloudDataSet::removeContent_Dem_Classify()
{
    return removeSingle(d->demClassify, &PtCloudDataSet::sgContentRemoved_Dem_Classify);
}

void PtCloudDataSet::removeContent_AllDem()
{
    // Classify and contour go before the mesh: their removal is acted on
    // only while the DEM mesh is still shown.
    removeContent_Dem_Classify();
    removeContent_Dem_Contour();
    removeContent_Dem_HeightMap();
    removeContent_Dem_Mesh();
}

// ---- earth volume

VolumeCalcAreaList* PtCloudDataSet::getContent_EarthVolume() const { return d->earthVolume.get(); }

bool PtCloudDataSet::addContent_EarthVolume()
{
    if (d->earthVolume) return true;
    auto list = std::make_unique<VolumeCalcAreaList>(d->folder.filePath(kEarthVolume));
    QString err;
    if (!list->save(&err)) {
        qWarning("dataset %s: %s", qPrintable(m_name), qPrintable(err));
        return false;
    }
    d->earthVolume = std::move(list);
    saveOrWarn(this);
    emit sgContentAdded_EarthVolume(m_name);
    return true;
}

bool PtCloudDataSet::removeContent_EarthVolume()
{
    if (!d->earthVolume) return false;
    auto list = std::move(d->earthVolume);
    saveOrWarn(this);
    emit sgContentRemoved_EarthVolume(m_name);
    const QString path = list->getFilepath();
    list.reset();
    QFile::remove(path);
    return true;
}

qint64 PtCloudDataSet::diskSize() const
{
    qint64 total = 0;
    QDirIterator it(m_folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        total += it.fileInfo().size();
    }
    return total;
}

void PtCloudDataSet::discardLocatedContents()
{
    if (!d->locatedPoints.isEmpty()) {
        QFile::remove(d->locatedPoints);
        d->locatedPoints.clear();
    }
}

}  // namespace ptCloud
