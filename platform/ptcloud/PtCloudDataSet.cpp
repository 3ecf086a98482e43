#include "PtCloudDataSet.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QRegularExpression>

#include <cstdio>
#include <unistd.h>

#include "PtCloud_ContourFile.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_JsonFile.h"
#include "PtCloud_ProjectFiles.h"
#include "PtCloud_ProjectLock.h"
#include "VolumeCalcAreaList.h"

namespace ptCloud {

namespace {
const char* const kManifest = "dataset.json";
const char* const kPointsFile = "points.pcb";
// The points as they were before the last in-place change (cut, thinning).
const char* const kPointsUndoFile = "points.undo.pcb";
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

// The contents a manifest lists, each inside the dataset's folder.
bool pathsFromJson(const QJsonObject& o, const QDir& folder, QMap<QString, QString>* paths, QString* error)
{
    for (auto it = o.begin(); it != o.end(); ++it) {
        const QString path = PtCloud_ProjectFiles::confined(folder.path(), it.value().toString(), error);
        if (path.isEmpty()) return false;
        paths->insert(it.key(), path);
    }
    return true;
}

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
    PtCloud_ProjectLock* lock = nullptr;
    QJsonObject manifest;  // as last read or written
    QString unusable;      // why the manifest cannot be read, which keeps it from being overwritten
    QString lastError;
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
    d->unusable.clear();
    if (!refresh(error)) {
        d->unusable = QStringLiteral("dataset %1 cannot be used until repaired: %2").arg(m_name, *error);
        *error = d->unusable;
        return false;
    }
    return true;
}

bool PtCloudDataSet::isUsable(QString* error) const
{
    if (d->unusable.isEmpty()) return true;
    if (error) *error = d->unusable;
    return false;
}

QString PtCloudDataSet::lastError() const { return d->lastError; }

bool PtCloudDataSet::refresh(QString* error)
{
    const QString path = d->folder.filePath(kManifest);
    QJsonObject o;
    if (QFileInfo::exists(path) && !PtCloud_JsonFile::read(path, &o, error)) return false;  // else points only
    if (o == d->manifest && !o.isEmpty()) return true;
    QMap<QString, QString> meshes, splits, cuts;
    if (!pathsFromJson(o.value("meshes").toObject(), d->folder, &meshes, error) ||
        !pathsFromJson(o.value("splits").toObject(), d->folder, &splits, error) ||
        !pathsFromJson(o.value("cuts").toObject(), d->folder, &cuts, error))
        return false;
    d->manifest = o;
    d->display = o.value("display").toObject();
    syncNamed(d->meshes, meshes, &PtCloudDataSet::sgRemoved_Mesh, &PtCloudDataSet::sgContentAdded_Mesh);
    syncNamed(d->splits, splits, &PtCloudDataSet::sgRemoved_Split, &PtCloudDataSet::sgContentAdded_Split);
    syncNamed(d->cuts, cuts, &PtCloudDataSet::sgContentRemoved_Cut, &PtCloudDataSet::sgContentAdded_Cut);
    const QJsonObject dem = o.value("dem").toObject();
    syncSingle(d->demMesh, dem.value("mesh").toBool(), getFilePath_Dem_Mesh(),
               &PtCloudDataSet::sgContentRemoved_Dem_Mesh, &PtCloudDataSet::sgContentAdded_Dem_Mesh);
    syncSingle(d->demClassify, dem.value("classify").toBool(), getFilePath_Dem_Classify(),
               &PtCloudDataSet::sgContentRemoved_Dem_Classify, &PtCloudDataSet::sgContentAdded_Dem_Classify);
    syncSingle(d->demContour, dem.value("contour").toBool(), getFilePath_Dem_Contour(),
               &PtCloudDataSet::sgContentRemoved_Dem_Contour, &PtCloudDataSet::sgContentAdded_Dem_Contour);
    d->demHeightMap.reset();
    if (dem.value("heightmap").toBool()) {
        auto image = std::make_unique<QImage>(getFilePath_Dem_HeightMap());
        if (!image->isNull()) d->demHeightMap = std::move(image);
    }
    if (o.value("earthVolume").toBool() != bool(d->earthVolume)) {
        d->earthVolume.reset();
        if (o.value("earthVolume").toBool()) {
            auto list = std::make_unique<VolumeCalcAreaList>(d->folder.filePath(kEarthVolume));
            QString err;
            if (list->load(&err)) d->earthVolume = std::move(list);
        }
    }
    return true;
}

void PtCloudDataSet::syncNamed(QMap<QString, PtCloud_DataSetFile*>& map, const QMap<QString, QString>& paths,
                               NamedSignal removed, NamedSignal added)
{
    for (const QString& name : map.keys()) {
        if (paths.value(name) == map.value(name)->getFilepath()) continue;
        emit(this->*removed)(m_name, name);
        delete takeNamed(map, name);
    }
    for (auto it = paths.cbegin(); it != paths.cend(); ++it) {
        if (map.contains(it.key())) continue;
        map.insert(it.key(), new PtCloud_DataSetFile(it.value()));
        emit(this->*added)(m_name, it.key());
    }
}

template <class File>
void PtCloudDataSet::syncSingle(std::unique_ptr<File>& slot, bool present, const QString& path,
                                SingleSignal removed, SingleSignal added)
{
    if (present == bool(slot)) return;
    if (slot) emit(this->*removed)(m_name);
    slot.reset(present ? new File(path) : nullptr);
    if (slot) emit(this->*added)(m_name);
}

void PtCloudDataSet::setLock(PtCloud_ProjectLock* lock) { d->lock = lock; }

bool PtCloudDataSet::beginChange()
{
    if (!isUsable(&d->lastError)) return false;
    if (d->lock && !d->lock->acquire(&d->lastError)) return false;
    if (refresh(&d->lastError)) return true;
    endChange();
    return false;
}

void PtCloudDataSet::endChange()
{
    if (d->lock) d->lock->release();
}

bool PtCloudDataSet::save(QString* error) const
{
    if (!isUsable(error)) return false;
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
    if (!PtCloud_JsonFile::write(d->folder.filePath(kManifest), o, error)) return false;
    d->manifest = o;
    return true;
}

bool PtCloudDataSet::saveChange()
{
    const bool saved = save(&d->lastError);
    endChange();
    return saved;
}

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

PtCloud_LocalFrame PtCloudDataSet::getLocalFrame() const
{
    PtCloud_LocalFrame frame;
    PtCloud_LocalFrame::ofPointFile(getFilePath_Points(), &frame);
    return frame;
}

QString PtCloudDataSet::createEmptyLocatedContent_Points()
{
    if (!d->locatedPoints.isEmpty()) QFile::remove(d->locatedPoints);
    d->locatedPoints = PtCloud_ProjectFiles::temporaryFor(getFilePath_Points());
    return d->locatedPoints;
}

bool PtCloudDataSet::updateContent_Points()
{
    if (d->locatedPoints.isEmpty()) return false;
    const QString located = d->locatedPoints;
    if (!PtCloud_DataSetFile(located).isValid() || !keepPointsForUndo()) return false;
    if (!replacePoints(located)) return false;
    d->locatedPoints.clear();
    return true;
}

bool PtCloudDataSet::keepPointsForUndo()
{
    // A second name for the current points, made under a temporary name and
    // renamed over the previous undo copy: at every moment one whole undo
    // copy exists, and a hard link costs no copy of the data.
    const QByteArray points = QFile::encodeName(getFilePath_Points());
    const QString part = undoPath_Points() + QStringLiteral(".part");
    QFile::remove(part);
    if (::link(points.constData(), QFile::encodeName(part).constData()) != 0 &&
        !QFile::copy(getFilePath_Points(), part))
        return false;
    return ::rename(QFile::encodeName(part).constData(), QFile::encodeName(undoPath_Points()).constData()) == 0;
}

bool PtCloudDataSet::replacePoints(const QString& path)
{
    const bool wasOpen = d->points->isOpened();
    d->points->closeFile();
    // rename(2) replaces the old points in one step; readers that still hold
    // the old file open keep reading it until they close.
    const bool renamed = ::rename(QFile::encodeName(path).constData(),
                                  QFile::encodeName(getFilePath_Points()).constData()) == 0;
    if (wasOpen) d->points->openFile();
    if (renamed) emit sgContentUpdated_Points(m_name);
    return renamed;
}

QString PtCloudDataSet::undoPath_Points() const { return d->folder.filePath(kPointsUndoFile); }

qint64 PtCloudDataSet::getUndoSize_Points() const
{
    const QFileInfo undo(undoPath_Points());
    return undo.exists() ? undo.size() : -1;
}

bool PtCloudDataSet::undoContent_Points()
{
    return getUndoSize_Points() >= 0 && PtCloud_DataSetFile(undoPath_Points()).isValid() &&
           replacePoints(undoPath_Points());
}

// ---- named contents

bool PtCloudDataSet::addNamed(QMap<QString, PtCloud_DataSetFile*>& map, const QString& name,
                              PtCloud_DataSetFile* file, NamedSignal removed, NamedSignal added)
{
    if (!file || name.isEmpty()) return false;
    const QString located = file->getFilepath();
    auto drop = [&] {
        if (PtCloud_ProjectFiles::isTemporary(located)) QFile::remove(located);
        return false;
    };
    if (!beginChange()) return drop();
    // A located file takes a free final name, so that a content of the same
    // name is replaced only once the manifest names the new one.
    if (PtCloud_ProjectFiles::isTemporary(located)) {
        const QFileInfo info(PtCloud_ProjectFiles::finalNameOf(located));
        QString target = info.filePath();
        for (int i = 1; QFileInfo::exists(target); ++i)
            target = info.path() + QStringLiteral("/%1_%2.%3").arg(info.completeBaseName()).arg(i).arg(info.suffix());
        if (!file->moveTo(target)) {
            d->lastError = QStringLiteral("cannot move %1 to %2").arg(located, target);
            endChange();
            return drop();
        }
    }
    PtCloud_DataSetFile* old = takeNamed(map, name);
    map.insert(name, file);
    if (!saveChange()) {
        map.remove(name);
        if (old) map.insert(name, old);
        if (PtCloud_ProjectFiles::isTemporary(located)) QFile::remove(file->getFilepath());
        return false;
    }
    // A content of the same name is replaced: its item goes first.
    if (old) {
        emit(this->*removed)(m_name, name);
        if (old->getFilepath() != file->getFilepath())
            destroyFile(old);
        else
            delete old;
    }
    emit(this->*added)(m_name, name);
    return true;
}

bool PtCloudDataSet::removeNamed(QMap<QString, PtCloud_DataSetFile*>& map, const QString& name,
                                 NamedSignal removed)
{
    if (!beginChange()) return false;
    PtCloud_DataSetFile* file = takeNamed(map, name);
    if (!file) {
        endChange();
        return false;
    }
    if (!saveChange()) {
        map.insert(name, file);
        return false;
    }
    emit(this->*removed)(m_name, name);
    destroyFile(file);
    return true;
}

QMap<QString, PtCloud_DataSetFile*>* PtCloudDataSet::getContent_Meshs() const { return &d->meshes; }

PtCloud_DataSetFile* PtCloudDataSet::createEmptyLocatedContent_Mesh(const QString& name)
{
    return new PtCloud_DataSetFile(
        PtCloud_ProjectFiles::temporaryFor(uniqueContentPath(d->folder, QStringLiteral("meshes"), name)));
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
    return new PtCloud_DataSetFile(
        PtCloud_ProjectFiles::temporaryFor(uniqueContentPath(d->folder, QStringLiteral("splits"), name)));
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
    return new PtCloud_DataSetFile(
        PtCloud_ProjectFiles::temporaryFor(uniqueContentPath(d->folder, QStringLiteral("cuts"), name)));
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
    if (!file->isValid()) {
        d->lastError = QStringLiteral("%1 cannot be read").arg(path);
        return false;
    }
    if (!beginChange()) return false;
    std::unique_ptr<File> old = std::move(slot);
    slot = std::move(file);
    if (!saveChange()) {
        slot = std::move(old);
        return false;
    }
    if (old) emit(this->*removed)(m_name);
    emit(this->*added)(m_name);
    return true;
}

template <class File>
bool PtCloudDataSet::removeSingle(std::unique_ptr<File>& slot, SingleSignal removed)
{
    if (!slot || !beginChange()) return false;
    auto file = std::move(slot);
    if (!saveChange()) {
        slot = std::move(file);
        return false;
    }
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
    if (image->isNull() || !beginChange()) return false;
    std::swap(d->demHeightMap, image);
    if (!saveChange()) {
        d->demHeightMap = std::move(image);
        return false;
    }
    return true;
}

bool PtCloudDataSet::removeContent_Dem_HeightMap()
{
    if (!d->demHeightMap || !beginChange()) return false;
    auto image = std::move(d->demHeightMap);
    if (!saveChange()) {
        d->demHeightMap = std::move(image);
        return false;
    }
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
    if (!beginChange()) return false;
    auto list = std::make_unique<VolumeCalcAreaList>(d->folder.filePath(kEarthVolume));
    if (!list->save(&d->lastError)) {
        endChange();
        return false;
    }
    d->earthVolume = std::move(list);
    if (!saveChange()) {
        QFile::remove(d->earthVolume->getFilepath());
        d->earthVolume.reset();
        return false;
    }
    emit sgContentAdded_EarthVolume(m_name);
    return true;
}

bool PtCloudDataSet::removeContent_EarthVolume()
{
    if (!d->earthVolume || !beginChange()) return false;
    auto list = std::move(d->earthVolume);
    if (!saveChange()) {
        d->earthVolume = std::move(list);
        return false;
    }
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
    d->locatedPoints.clear();
    PtCloud_ProjectFiles::removeTemporaries(m_folder, PtCloud_ProjectFiles::ThisProcess);
    // Content folders made for a content never adopted (they go only when empty).
    for (const char* sub : {"meshes", "splits", "cuts", "dem"}) d->folder.rmdir(QString::fromLatin1(sub));
}

QStringList PtCloudDataSet::referencedFiles() const
{
    QStringList files{QString::fromLatin1(kPointsFile)};
    auto add = [&](const QString& path) { files << d->folder.relativeFilePath(path); };
    if (QFileInfo::exists(d->folder.filePath(kManifest))) files << QString::fromLatin1(kManifest);
    for (const FileMap* map : {&d->meshes, &d->splits, &d->cuts})
        for (const PtCloud_DataSetFile* f : *map) add(f->getFilepath());
    if (d->demMesh) add(getFilePath_Dem_Mesh());
    if (d->demClassify) add(getFilePath_Dem_Classify());
    if (d->demContour) add(getFilePath_Dem_Contour());
    if (d->demHeightMap) {
        const QString png = getFilePath_Dem_HeightMap();
        add(png);
        if (QFileInfo::exists(png.left(png.size() - 4) + QStringLiteral(".pgw"))) add(png.left(png.size() - 4) + QStringLiteral(".pgw"));
    }
    if (d->earthVolume) add(d->earthVolume->getFilepath());
    return files;
}

}  // namespace ptCloud
