#include "PtCloud_Controller.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonObject>
#include <QSaveFile>
#include <QRegularExpression>
#include <QSet>
#include <QThread>
#include <cmath>
#include <cstring>
#include <future>

#include "LasReader.h"
#include "PtCloudDataSet.h"
#include "PtCloud_BlockFileFormat.h"
#include "PtCloud_DataSetBuilder.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_JsonFile.h"
#include "PtCloud_FileCommit.h"
#include "PtCloud_LongActions.h"
#include "PtCloud_ProgressRange.h"
#include "PtCloud_ProjectFiles.h"
#include "PtCloud_ProjectLock.h"

namespace ptCloud {

namespace {
const char* const kManifest = "project.json";
const char* const kDataSetsDir = "datasets";
const char* const kPointsFile = "points.pcb";
const int kChunkPoints = 1 << 16;

// Origin of a new dataset: the first point rounded to a thousand times the
// file's resolution, a round number in the data's own units (10 m for
// centimetre UTM data, 1e-4 for degrees stored to 1e-7), so that single
// precision offsets from it stay small whatever the units.
pcVec3d roundedOrigin(double x, double y, double z, const double scale[3])
{
    auto round = [](double v, double s) {
        const double step = std::pow(10.0, std::ceil(std::log10(std::max(std::fabs(s), 1e-12) * 1000.0)));
        return std::floor(v / step) * step;
    };
    return pcVec3d(round(x, scale[0]), round(y, scale[1]), round(z, scale[2]));
}

EColoringMode coloringFor(const QList<EDataSetColumn>& columns)
{
    if (columns.contains(DSC_Color)) return CM_RGB;
    if (columns.contains(DSC_Classification)) return CM_Classification;
    return CM_Height;
}

// The header of a new dataset's points file.
stPtCloud_DataSetHeader pointsHeader(const QList<EDataSetColumn>& columns, const pcVec3d& origin, quint64 count)
{
    stPtCloud_DataSetHeader header;
    header.type = DST_Points;
    header.sort = DSS_Morton;
    header.coloringMode = coloringFor(columns);
    header.origin = origin;
    header.columns = columns;
    header.pointCount = count;  // lets the builder size its buckets from the start
    return header;
}

QList<EDataSetColumn> sortedColumns(QList<EDataSetColumn> columns)
{
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    return columns;
}
}  // namespace

struct PtCloud_Controller::Impl {
    QMap<QString, QString> las;                          // key -> absolute path
    QMap<QString, QString> unsavedLas;                   // referenced, to be saved with the next dataset made
    QMap<QString, QString> dataSetFolders;               // name -> folder relative to the project
    QMap<QString, PtCloudDataSet*> dataSets;             // name -> dataset (children of the controller)
    QJsonObject manifest;                                // as last read or written
    std::unique_ptr<PtCloud_ProjectLock> lock;
    QString lastError;

    EEPtCloudActResult fail(EEPtCloudActResult code, const QString& why)
    {
        lastError = why;
        return code;
    }
};

PtCloud_Controller::PtCloud_Controller(const QString& projectFolder, QObject* parent)
    : QObject(parent), d(std::make_unique<Impl>()), m_folder(QDir(projectFolder).absolutePath())
{
    d->lock = std::make_unique<PtCloud_ProjectLock>(m_folder);
}

// Holds the project lock for one change and brings the model up to date
// with the manifest on disk first, so that the change is made to what
// other processes have saved meanwhile.
class PtCloud_Controller::Change {
public:
    explicit Change(PtCloud_Controller* c) : m_controller(c)
    {
        m_locked = c->d->lock->acquire(&m_error);
        m_ok = m_locked && c->refresh(&m_error);
    }
    ~Change()
    {
        if (m_locked) m_controller->d->lock->release();
    }
    bool ok() const { return m_ok; }
    EEPtCloudActResult fail() const { return m_controller->d->fail(PCAR_FileError, m_error); }

private:
    PtCloud_Controller* m_controller;
    QString m_error;
    bool m_locked = false;
    bool m_ok = false;
};

PtCloud_Controller::~PtCloud_Controller() = default;

QString PtCloud_Controller::lastError() const { return d->lastError; }

bool PtCloud_Controller::load(QString* error)
{
    const QDir dir(m_folder);
    if (!QFileInfo::exists(dir.filePath(kManifest))) {
        // Writing an empty manifest there would forget them.
        if (!QDir(dir.filePath(kDataSetsDir)).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot)) {
            if (error) *error = QStringLiteral("%1 holds datasets but no %2").arg(m_folder, kManifest);
            return false;
        }
        if (!dir.mkpath(kDataSetsDir)) {
            if (error) *error = QStringLiteral("cannot create project folder %1").arg(m_folder);
            return false;
        }
        if (!d->lock->acquire(error)) return false;
        const bool saved = saveManifest(error);
        d->lock->release();
        return saved;
    }
    if (!refresh(error)) return false;
    PtCloud_ProjectFiles::removeTemporaries(dir.filePath(kDataSetsDir), PtCloud_ProjectFiles::EndedProcesses);
    return true;
}

bool PtCloud_Controller::refresh(QString* error)
{
    const QString manifest = QDir(m_folder).filePath(kManifest);
    QJsonObject o;
    if (!PtCloud_JsonFile::read(manifest, &o, error)) return false;
    if (o.value("format").toString() != QLatin1String("ptcloud-project")) {
        if (error) *error = QStringLiteral("%1 is not a project manifest").arg(manifest);
        return false;
    }
    if (o == d->manifest) return true;
    // Every folder is checked before anything is taken from the manifest.
    const QString root = QDir(m_folder).filePath(kDataSetsDir);
    const QJsonObject sets = o.value("datasets").toObject();
    QMap<QString, QString> folders;
    for (auto it = sets.begin(); it != sets.end(); ++it) {
        const QString rel = it.value().toString();
        QString why;
        const QString clean = QDir::cleanPath(rel);
        if (!clean.startsWith(QLatin1String(kDataSetsDir) + QLatin1Char('/')) ||
            PtCloud_ProjectFiles::confined(root, clean.mid(int(std::strlen(kDataSetsDir)) + 1), &why).isEmpty()) {
            if (error)
                *error = QStringLiteral("%1: the folder \"%2\" of dataset %3 is not inside %4")
                             .arg(manifest, rel, it.key(), root);
            return false;
        }
        folders.insert(it.key(), clean);
    }
    d->manifest = o;
    d->las.clear();
    const QJsonObject las = o.value("las").toObject();
    for (auto it = las.begin(); it != las.end(); ++it) d->las.insert(it.key(), it.value().toString());
    for (auto it = d->unsavedLas.cbegin(); it != d->unsavedLas.cend(); ++it)
        if (!d->las.values().contains(it.value())) d->las.insert(uniqueLasKey(QFileInfo(it.value())), it.value());
    // Datasets another process removed, renamed or moved go; the new ones come.
    for (const QString& name : d->dataSets.keys()) {
        if (folders.value(name) == d->dataSetFolders.value(name)) continue;
        PtCloudDataSet* ds = d->dataSets.take(name);
        d->dataSetFolders.remove(name);
        emit sg_DataSet_Removed(name);
        delete ds;
    }
    for (auto it = folders.cbegin(); it != folders.cend(); ++it) {
        if (d->dataSets.contains(it.key())) continue;
        d->dataSetFolders.insert(it.key(), it.value());
        d->dataSets.insert(it.key(), openDataSet(it.key(), it.value()));
        emit sg_DataSet_Added(it.key());
    }
    return true;
}

PtCloudDataSet* PtCloud_Controller::openDataSet(const QString& name, const QString& rel)
{
    auto* ds = new PtCloudDataSet(name, QDir(m_folder).filePath(rel), this);
    ds->setLock(d->lock.get());
    QString ignored;
    ds->load(&ignored);  // an unreadable dataset keeps its reason and refuses every change
    return ds;
}

QString PtCloud_Controller::uniqueLasKey(const QFileInfo& info) const
{
    QString k = info.fileName();
    for (int i = 2; d->las.contains(k); ++i)
        k = QStringLiteral("%1_%2.%3").arg(info.completeBaseName()).arg(i).arg(info.suffix());
    return k;
}

bool PtCloud_Controller::saveManifest(QString* error) const
{
    QJsonObject las, sets;
    for (auto it = d->las.cbegin(); it != d->las.cend(); ++it) las.insert(it.key(), it.value());
    for (auto it = d->dataSetFolders.cbegin(); it != d->dataSetFolders.cend(); ++it)
        sets.insert(it.key(), it.value());
    QJsonObject o;
    o.insert("format", "ptcloud-project");
    o.insert("version", 1);
    o.insert("las", las);
    o.insert("datasets", sets);
    if (!PtCloud_JsonFile::write(QDir(m_folder).filePath(kManifest), o, error)) return false;
    d->manifest = o;
    d->unsavedLas.clear();
    return true;
}

// ---- queries

PtCloudDataSet* PtCloud_Controller::getDataSet(const QString& name) { return d->dataSets.value(name, nullptr); }

QMap<QString, const PtCloudDataSet*> PtCloud_Controller::getDataSets() const
{
    QMap<QString, const PtCloudDataSet*> out;
    for (auto it = d->dataSets.cbegin(); it != d->dataSets.cend(); ++it) out.insert(it.key(), it.value());
    return out;
}

void PtCloud_Controller::getDataSetFilepaths(QMap<QString, QString>& out) const
{
    out.clear();
    for (auto it = d->dataSets.cbegin(); it != d->dataSets.cend(); ++it)
        out.insert(it.key(), it.value()->getFilePath_Points());
}

void PtCloud_Controller::getLasFilepaths(QMap<QString, QString>& out) const { out = d->las; }

bool PtCloud_Controller::getLasFileColumns(const QString& lasName, QList<EDataSetColumn>& out)
{
    out.clear();
    const auto it = d->las.constFind(lasName);
    if (it == d->las.cend()) return false;
    LasReader reader;
    QString err;
    if (!reader.open(it.value(), &err)) {
        d->lastError = err;
        return false;
    }
    out = reader.header().columns();
    return true;
}

void PtCloud_Controller::reset()
{
    for (PtCloudDataSet* ds : qAsConst(d->dataSets)) ds->discardLocatedContents();
}

bool PtCloud_Controller::isValidNewDataSetName(const QString& name) const
{
    const QString n = name.trimmed();
    if (n.isEmpty() || n.contains(QRegularExpression(QStringLiteral("[\\\\/:*?\"<>|]")))) return false;
    for (auto it = d->dataSets.cbegin(); it != d->dataSets.cend(); ++it)
        if (it.key().compare(n, Qt::CaseInsensitive) == 0) return false;
    return true;
}

// ---- LAS files

EEPtCloudActResult PtCloud_Controller::doCmd_LasFile_Import(const stControlParam_LasFile_Import& p, QString* key)
{
    return importLasFile(p.filepath, true, key);
}

EEPtCloudActResult PtCloud_Controller::importLasFile(const QString& filepath, bool save, QString* key)
{
    const QFileInfo info(filepath);
    const QString path = info.absoluteFilePath();
    LasReader reader;
    QString err;
    if (!reader.open(path, &err)) {
        if (key) *key = err;
        return d->fail(PCAR_FileError, err);
    }
    reader.close();
    std::unique_ptr<Change> change;
    if (save) {
        change = std::make_unique<Change>(this);
        if (!change->ok()) {
            const EEPtCloudActResult r = change->fail();
            if (key) *key = d->lastError;
            return r;
        }
    }
    for (auto it = d->las.cbegin(); it != d->las.cend(); ++it) {
        if (it.value() == path) {  // already referenced: same key
            if (key) *key = it.key();
            return PCAR_Success;
        }
    }
    const QString k = uniqueLasKey(info);
    d->las.insert(k, path);
    if (!save) {
        d->unsavedLas.insert(k, path);
    } else if (!saveManifest(&err)) {
        d->las.remove(k);
        if (key) *key = err;
        return d->fail(PCAR_FileError, err);
    }
    if (key) *key = k;
    return PCAR_Success;
}

EEPtCloudActResult PtCloud_Controller::doCmd_LasFile_Remove(const stControlParam_LasFile_Remove& p)
{
    Change change(this);
    if (!change.ok()) return change.fail();
    if (!d->las.contains(p.key)) return d->fail(PCAR_NotFound, QStringLiteral("no LAS file %1").arg(p.key));
    const QString path = d->las.take(p.key);
    QString err;
    if (!saveManifest(&err)) {
        d->las.insert(p.key, path);
        return d->fail(PCAR_FileError, err);
    }
    return PCAR_Success;
}

// ---- datasets

QString PtCloud_Controller::newDataSetFolder(const QString& name) const
{
    QString base = name;
    base.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_.-]")), QStringLiteral("_"));
    if (base.isEmpty()) base = QStringLiteral("dataset");
    const QDir dir(m_folder);
    for (int i = 0;; ++i) {
        const QString rel = QStringLiteral("%1/%2").arg(kDataSetsDir, i == 0 ? base : QStringLiteral("%1_%2").arg(base).arg(i));
        if (!QFileInfo::exists(dir.filePath(rel))) return rel;
    }
}

QString PtCloud_Controller::partFolder(const QString& rel) const
{
    return PtCloud_ProjectFiles::temporaryFor(QDir(m_folder).filePath(rel));
}

EEPtCloudActResult PtCloud_Controller::adoptDataSetFolder(const QString& name, const QString& partFolder)
{
    Change change(this);
    auto abandon = [&](EEPtCloudActResult code, const QString& why) {
        QDir(partFolder).removeRecursively();
        return d->fail(code, why);
    };
    if (!change.ok()) {
        change.fail();
        return abandon(PCAR_FileError, d->lastError);
    }
    // Another process may have taken the name meanwhile.
    if (!isValidNewDataSetName(name))
        return abandon(PCAR_AlreadyExists, QStringLiteral("invalid or existing dataset name \"%1\"").arg(name));
    const QDir dir(m_folder);
    const QString rel = newDataSetFolder(name);
    if (!QDir().rename(partFolder, dir.filePath(rel)))
        return abandon(PCAR_FileError, QStringLiteral("cannot move the new dataset into %1").arg(rel));
    d->dataSetFolders.insert(name, rel);
    QString err;
    if (!saveManifest(&err)) {
        d->dataSetFolders.remove(name);
        QDir(dir.filePath(rel)).removeRecursively();
        return d->fail(PCAR_FileError, err);
    }
    d->dataSets.insert(name, openDataSet(name, rel));
    emit sg_DataSet_Added(name);
    return PCAR_Success;
}

EEPtCloudActResult PtCloud_Controller::doCmd_DataSet_Make(const stControlParam_DataSet_Make& p)
{
    return makeDataSet(p, nullptr);
}

EEPtCloudActResult PtCloud_Controller::makeDataSet(const stControlParam_DataSet_Make& p,
                                                   ILongLiveActionProgress* progress)
{
    const QString name = p.name.trimmed();
    if (!isValidNewDataSetName(name))
        return d->fail(PCAR_InvalidParameter, QStringLiteral("invalid or existing dataset name \"%1\"").arg(p.name));
    if (p.lasNames.isEmpty()) return d->fail(PCAR_InvalidParameter, QStringLiteral("no LAS file chosen"));
    const QList<EDataSetColumn> columns = sortedColumns(p.columns);
    if (!columns.contains(DSC_Location))
        return d->fail(PCAR_InvalidParameter, QStringLiteral("the Location column is required"));

    // Check every file and the columns before anything is written.
    quint64 total = 0;
    double minAbs[3] = {1e300, 1e300, 1e300}, maxAbs[3] = {-1e300, -1e300, -1e300};
    // Positions are kept on the finest grid of the files.
    double quantum[3] = {1e300, 1e300, 1e300};
    for (const QString& key : p.lasNames) {
        if (!d->las.contains(key)) return d->fail(PCAR_NotFound, QStringLiteral("no LAS file %1").arg(key));
        LasReader reader;
        QString err;
        if (!reader.open(d->las.value(key), &err)) return d->fail(PCAR_FileError, key + QStringLiteral(": ") + err);
        const QList<EDataSetColumn> has = reader.header().columns();
        for (EDataSetColumn c : columns)
            if (!has.contains(c))
                return d->fail(PCAR_InvalidParameter,
                               QStringLiteral("%1 has no %2 column").arg(key, columnName(c)));
        total += reader.header().pointCount;
        for (int i = 0; i < 3; ++i) {
            minAbs[i] = std::min(minAbs[i], reader.header().headerMin[i]);
            maxAbs[i] = std::max(maxAbs[i], reader.header().headerMax[i]);
            quantum[i] = std::min(quantum[i], reader.header().scale[i]);
        }
    }

    const QString part = partFolder(newDataSetFolder(name));
    if (!QDir().mkpath(part)) return d->fail(PCAR_FileError, QStringLiteral("cannot create %1").arg(part));
    auto abandon = [&](EEPtCloudActResult code, const QString& why) {
        QDir(part).removeRecursively();
        return d->fail(code, why);
    };

    // The origin comes from the first point: header bounds may not describe
    // the points (some writers store them unscaled). It lies on the first
    // file's grid, so that its positions stay whole quanta.
    pcVec3d origin;
    stPtCloud_PointArray chunk;
    for (const QString& key : p.lasNames) {
        LasReader reader;
        QString err;
        if (reader.open(d->las.value(key), &err) && reader.readChunk(chunk, 1, columns, pcVec3d(), &err) > 0) {
            const LasHeader& h = reader.header();
            const pcVec3f& p0 = chunk.positions.front();
            const pcVec3d near = roundedOrigin(chunk.origin.x + p0.x, chunk.origin.y + p0.y, chunk.origin.z + p0.z,
                                               h.scale);
            auto onGrid = [&](double v, int a) {
                return h.offset[a] + std::round((v - h.offset[a]) / quantum[a]) * quantum[a];
            };
            origin = pcVec3d(onGrid(near.x, 0), onGrid(near.y, 1), onGrid(near.z, 2));
            break;
        }
    }
    stPtCloud_DataSetHeader header = pointsHeader(columns, origin, total);
    header.quantum = pcVec3d(quantum[0], quantum[1], quantum[2]);
    if (!header.storesQuanta() || quantum[0] >= 1e300) header.quantum = pcVec3d(0.001, 0.001, 0.001);
    const stPtCloud_RecordLayout layout = stPtCloud_RecordLayout::forColumns(columns);
    std::unique_ptr<PtCloud_DataSetBuilder> builder;
    PtCloud_ProgressRange readProgress(progress, 0, 50);
    quint64 done = 0;
    for (const QString& key : p.lasNames) {
        LasReader reader;
        QString err;
        if (!reader.open(d->las.value(key), &err)) return abandon(PCAR_FileError, key + QStringLiteral(": ") + err);
        readProgress.setProgressText(QStringLiteral("reading %1").arg(key));
        // The next records are read and decoded on another thread while the
        // builder takes these; the two buffers take turns.
        std::vector<char> buffers[2];
        int filling = 0;
        QString readError;
        auto readAhead = [&] {
            std::vector<char>* into = &buffers[filling];
            return std::async(std::launch::async, [&, into] {
                return reader.readRecords(*into, kChunkPoints, layout, origin, header.quantum, &readError);
            });
        };
        std::future<qint64> next = readAhead();
        for (;;) {
            if (readProgress.isStopRequested()) return abandon(PCAR_Cancelled, QStringLiteral("cancelled"));
            const qint64 n = next.get();
            if (n < 0) return abandon(PCAR_FileError, key + QStringLiteral(": ") + readError);
            if (n == 0) break;
            const std::vector<char>& taken = buffers[filling];
            filling = 1 - filling;
            next = readAhead();
            if (!builder) {
                pcBoundingBoxf first;
                for (qint64 i = 0; i < n; ++i) {
                    pcVec3q q;
                    std::memcpy(&q, taken.data() + size_t(i) * layout.bytes, sizeof q);
                    first.expandBy(PtCloud_BlockFileFormat::floatOf(q, header.quantum));
                }
                builder = makeBuilder(QDir(part).filePath(kPointsFile), header, minAbs, maxAbs, first);
            }
            if (!builder->addRecords(taken.data(), size_t(n), &err)) return abandon(PCAR_FileError, err);
            done += quint64(n);
            if (total) readProgress.setProgress(int(100 * done / total));
        }
    }
    // No points at all: an empty dataset is still a dataset.
    if (!builder) builder = makeBuilder(QDir(part).filePath(kPointsFile), header, minAbs, maxAbs, pcBoundingBoxf());
    PtCloud_ProgressRange writeProgress(progress, 50, 100);
    writeProgress.setProgressText(QStringLiteral("writing blocks"));
    QString err;
    if (!builder->finish(&writeProgress, &err)) {
        const bool cancelled = writeProgress.isStopRequested();
        builder.reset();
        return abandon(cancelled ? PCAR_Cancelled : PCAR_FileError, err);
    }
    builder.reset();
    if (progress) progress->setProgress(100);
    return adoptDataSetFolder(name, part);
}

std::unique_ptr<PtCloud_DataSetBuilder> PtCloud_Controller::makeBuilder(const QString& path,
                                                                        const stPtCloud_DataSetHeader& header,
                                                                        const double minAbs[3], const double maxAbs[3],
                                                                        const pcBoundingBoxf& first) const
{
    const pcVec3d& origin = header.origin;
    // Bucket the points over the header's box when it holds the first points;
    // otherwise over the first points' box (the builder copes with points
    // outside, only less evenly).
    pcBoundingBoxf bounds(float(minAbs[0] - origin.x), float(minAbs[1] - origin.y), float(minAbs[2] - origin.z),
                          float(maxAbs[0] - origin.x), float(maxAbs[1] - origin.y), float(maxAbs[2] - origin.z));
    const bool headerUsable = bounds.valid() && first.valid() && bounds.radius() < 1e7f &&
                              bounds.intersects(first);
    if (!headerUsable) bounds = first.valid() ? first : pcBoundingBoxf(0, 0, 0, 1, 1, 1);
    PtCloud_DataSetBuilder::Options options;
    options.tempDir = QFileInfo(path).absolutePath();
    return std::make_unique<PtCloud_DataSetBuilder>(path, header, bounds, options);
}

EEPtCloudActResult PtCloud_Controller::doCmd_DataSet_Rename(const stControlParam_DataSet_Rename& p)
{
    Change change(this);
    if (!change.ok()) return change.fail();
    const QString newName = p.newName.trimmed();
    PtCloudDataSet* ds = d->dataSets.value(p.oldName, nullptr);
    if (!ds) return d->fail(PCAR_NotFound, QStringLiteral("no dataset %1").arg(p.oldName));
    if (newName == p.oldName) return PCAR_Success;
    // Renaming to the same name in other letter case is allowed.
    const bool caseOnly = newName.compare(p.oldName, Qt::CaseInsensitive) == 0;
    if (!caseOnly && !isValidNewDataSetName(newName))
        return d->fail(PCAR_InvalidParameter, QStringLiteral("invalid or existing dataset name \"%1\"").arg(p.newName));
    const QString rel = d->dataSetFolders.take(p.oldName);
    d->dataSetFolders.insert(newName, rel);
    QString err;
    if (!saveManifest(&err)) {
        d->dataSetFolders.remove(newName);
        d->dataSetFolders.insert(p.oldName, rel);
        return d->fail(PCAR_FileError, err);
    }
    d->dataSets.remove(p.oldName);
    d->dataSets.insert(newName, ds);
    ds->setName(newName);
    emit sg_DataSet_Renamed(p.oldName, newName);
    return PCAR_Success;
}

EEPtCloudActResult PtCloud_Controller::doCmd_DataSet_Remove(const stControlParam_DataSet_Remove& p)
{
    Change change(this);
    if (!change.ok()) return change.fail();
    PtCloudDataSet* ds = d->dataSets.value(p.name, nullptr);
    if (!ds) return d->fail(PCAR_NotFound, QStringLiteral("no dataset %1").arg(p.name));
    const QString rel = d->dataSetFolders.take(p.name);
    QString err;
    if (!saveManifest(&err)) {
        d->dataSetFolders.insert(p.name, rel);
        return d->fail(PCAR_FileError, err);
    }
    d->dataSets.remove(p.name);
    // Listeners take their items down before the files go.
    emit sg_DataSet_Removed(p.name);
    delete ds;
    const QDir dir(m_folder);
    if (!PtCloud_ProjectFiles::removeFolder(dir.filePath(kDataSetsDir), dir.filePath(rel), &err))
        return d->fail(PCAR_FileError, QStringLiteral("dataset %1 forgotten, its files kept: %2").arg(p.name, err));
    return PCAR_Success;
}

EEPtCloudActResult PtCloud_Controller::doCmd_DataSet_Copy(const stControlParam_DataSet_Copy& p)
{
    // Held throughout, so that the source cannot go while it is copied.
    Change change(this);
    if (!change.ok()) return change.fail();
    PtCloudDataSet* src = d->dataSets.value(p.source, nullptr);
    if (!src) return d->fail(PCAR_NotFound, QStringLiteral("no dataset %1").arg(p.source));
    const QString name = p.target.trimmed();
    if (!isValidNewDataSetName(name))
        return d->fail(PCAR_InvalidParameter, QStringLiteral("invalid or existing dataset name \"%1\"").arg(p.target));
    const QString part = partFolder(newDataSetFolder(name));
    QString err;
    if (!src->isUsable(&err) || !copyFiles(src->getFolder(), src->referencedFiles(), part, &err)) {
        QDir(part).removeRecursively();
        return d->fail(PCAR_FileError, QStringLiteral("cannot copy dataset %1: %2").arg(p.source, err));
    }
    return adoptDataSetFolder(name, part);
}

bool PtCloud_Controller::copyFiles(const QString& from, const QStringList& files, const QString& to, QString* error)
{
    for (const QString& rel : files) {
        QFile in(QDir(from).filePath(rel));
        const QString target = QDir(to).filePath(rel);
        if (!QDir().mkpath(QFileInfo(target).path())) {
            *error = QStringLiteral("cannot create %1").arg(QFileInfo(target).path());
            return false;
        }
        QSaveFile out(target);
        if (!in.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read %1: %2").arg(in.fileName(), in.errorString());
            return false;
        }
        if (!out.open(QIODevice::WriteOnly)) {
            *error = QStringLiteral("cannot write %1: %2").arg(target, out.errorString());
            return false;
        }
        std::vector<char> buffer(1 << 20);
        for (qint64 n; (n = in.read(buffer.data(), qint64(buffer.size()))) != 0;) {
            if (n < 0) {
                *error = QStringLiteral("cannot read %1: %2").arg(in.fileName(), in.errorString());
                return false;
            }
            if (out.write(buffer.data(), n) != n) {
                *error = PtCloud_FileCommit::writeFailure(out);
                return false;
            }
        }
        if (!PtCloud_FileCommit::commit(out, error)) return false;
    }
    return true;
}

EEPtCloudActResult PtCloud_Controller::doCmd_DataSet_Merge(const stControlParam_DataSet_Merge& p)
{
    const QString name = p.target.trimmed();
    if (!isValidNewDataSetName(name))
        return d->fail(PCAR_InvalidParameter, QStringLiteral("invalid or existing dataset name \"%1\"").arg(p.target));
    if (p.sources.isEmpty()) return d->fail(PCAR_InvalidParameter, QStringLiteral("no dataset to merge"));

    // The merged dataset keeps the columns all sources share.
    std::vector<std::unique_ptr<PtCloud_DataSetFile>> files;
    QList<EDataSetColumn> columns;
    pcBoundingBoxf bounds;
    pcVec3d origin, quantum;
    for (const QString& s : p.sources) {
        PtCloudDataSet* ds = d->dataSets.value(s, nullptr);
        if (!ds) return d->fail(PCAR_NotFound, QStringLiteral("no dataset %1").arg(s));
        auto f = std::make_unique<PtCloud_DataSetFile>(ds->getFilePath_Points());
        if (!f->openFile()) return d->fail(PCAR_InvalidDataSet, QStringLiteral("%1: %2").arg(s, f->lastError()));
        f->setExactPositions(true);
        const stPtCloud_DataSetHeader& h = f->getHeader();
        // The finest grid of the sources holds every source's positions.
        if (h.storesQuanta())
            quantum = quantum.x > 0 ? pcVec3d(std::min(quantum.x, h.quantum.x), std::min(quantum.y, h.quantum.y),
                                              std::min(quantum.z, h.quantum.z))
                                    : h.quantum;
        if (files.empty()) {
            columns = h.columns;
            origin = h.origin;
        } else {
            QList<EDataSetColumn> common;
            for (EDataSetColumn c : columns)
                if (h.columns.contains(c)) common << c;
            columns = common;
        }
        if (h.bounds.valid()) {
            const pcVec3f shift(float(h.origin.x - origin.x), float(h.origin.y - origin.y), float(h.origin.z - origin.z));
            bounds.expandBy(h.bounds.min + shift);
            bounds.expandBy(h.bounds.max + shift);
        }
        files.push_back(std::move(f));
    }

    const QString part = partFolder(newDataSetFolder(name));
    if (!QDir().mkpath(part)) return d->fail(PCAR_FileError, QStringLiteral("cannot create %1").arg(part));
    quint64 total = 0;
    for (auto& f : files) total += f->getHeader().pointCount;
    stPtCloud_DataSetHeader header = pointsHeader(columns, origin, total);
    header.quantum = quantum;
    PtCloud_DataSetBuilder::Options options;
    options.tempDir = part;
    PtCloud_DataSetBuilder builder(QDir(part).filePath(kPointsFile), header,
                                   bounds.valid() ? bounds : pcBoundingBoxf(0, 0, 0, 1, 1, 1), options);
    QString err;
    for (auto& f : files) {
        QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
        f->getBlocks(blocks);
        for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
            const stPtCloud_PointArray* block = f->readBlock(it.key());
            if (!block || !builder.addPoints(*block, &err)) {
                QDir(part).removeRecursively();
                return d->fail(PCAR_FileError, block ? err : f->lastError());
            }
        }
    }
    if (!builder.finish(nullptr, &err)) {
        QDir(part).removeRecursively();
        return d->fail(PCAR_FileError, err);
    }
    return adoptDataSetFolder(name, part);
}

// ---- long actions (worker thread)

EEPtCloudActResult PtCloud_Controller::doCmd_DataSet_Do_Mesh(const stControlParam_DataSet_Do_Mesh& p,
                                                             ILongLiveActionProgress* progress)
{
    return PtCloud_LongActions(sourceFor(p.dataSetName), progress).doMesh(p);
}

EEPtCloudActResult PtCloud_Controller::doCmd_DataSet_Do_Split(const stControlParam_DataSet_Do_Split& p,
                                                              ILongLiveActionProgress* progress)
{
    return PtCloud_LongActions(sourceFor(p.dataSetName), progress).doSplit(p);
}

EEPtCloudActResult PtCloud_Controller::doCmd_DataSet_Do_Sample(const stControlParam_DataSet_Do_Sample& p,
                                                               ILongLiveActionProgress* progress)
{
    return PtCloud_LongActions(sourceFor(p.dataSetName), progress).doSample(p);
}

QString PtCloud_Controller::sourceFor(const QString& dataSetName) const
{
    // Read while the GUI waits in the action's modal dialog: the map does not change meanwhile.
    const PtCloudDataSet* ds = d->dataSets.value(dataSetName, nullptr);
    return ds ? ds->getFilePath_Points() : QString();
}

}  // namespace ptCloud
