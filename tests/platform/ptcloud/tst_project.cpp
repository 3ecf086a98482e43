// Projects on disk: LAS references, datasets and their contents survive
// closing and reopening; bad input changes nothing.

#include <QCryptographicHash>
#include <QDirIterator>
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>
#include <cerrno>
#include <cstring>

#include "PtCloudDataSet.h"
#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_FileCommit.h"
#include "PtCloud_Project.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

namespace {
QString dataFile(const QString& name) { return QStringLiteral(PTCLOUD_SHARED_DATA_DIR "/las/") + name; }

// Every file below a folder with its content hash: "nothing changed" means equal listings.
QMap<QString, QByteArray> folderListing(const QString& folder)
{
    QMap<QString, QByteArray> out;
    QDirIterator it(folder, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QByteArray hash;
        QFile f(path);
        if (it.fileInfo().isFile() && f.open(QIODevice::ReadOnly))
            hash = QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256);
        out.insert(QDir(folder).relativeFilePath(path), hash);
    }
    return out;
}

// A small block file of n points on a line, with triangles when asked.
bool writeBlockFile(const QString& path, EDataSetType type, int n, bool triangles)
{
    stPtCloud_DataSetHeader h;
    h.type = type;
    h.origin = pcVec3d(500000, 4000000, 100);
    h.columns = {DSC_Location};
    stPtCloud_PointArray a;
    a.origin = h.origin;
    a.resize(n);
    for (int i = 0; i < n; ++i) a.positions[size_t(i)] = pcVec3f(float(i), float(i % 3), 0.f);
    if (triangles)
        for (int i = 0; i + 2 < n; ++i) a.triangles.insert(a.triangles.end(), {unsigned(i), unsigned(i + 1), unsigned(i + 2)});
    PtCloud_BlockFileWriter w(path);
    QString err;
    return w.begin(h, &err) && w.writeBlock(0, a, &err) && w.commit(&err);
}

bool needData()
{
    return QFileInfo::exists(dataFile("simple.las"));
}

// Opens (or creates) the project in folder, imports simple.las and, when a
// name is given, makes a dataset of its locations; returns the controller.
PtCloud_Controller* openWithDataSet(PtCloud_Project* project, const QString& folder, const QString& dataSet,
                                    QString* key)
{
    QString err;
    if (!project->open(folder, &err)) return nullptr;
    PtCloud_Controller* c = project->getController();
    if (c->doCmd_LasFile_Import({dataFile("simple.las")}, key) != PCAR_Success) return nullptr;
    if (!dataSet.isEmpty() && c->doCmd_DataSet_Make({{*key}, {DSC_Location}, dataSet}) != PCAR_Success) return nullptr;
    return c;
}
}  // namespace

class TestProject : public QObject {
    Q_OBJECT
private slots:
    void newProjectIsEmpty();
    void importAndMakeSurviveReopen();
    void contentsSurviveReopen();
    void badLasChangesNothing_data();
    void badLasChangesNothing();
    void dataSetNameRule_data();
    void dataSetNameRule();
    void renameRemoveCopyMerge();
    void makeRefusesMissingColumn();
    void contentSignalsCarryNames();
    void failedSyncChangesNothing_data();
    void failedSyncChangesNothing();
    void changesOfOthersAreKept();
};

void TestProject::newProjectIsEmpty()
{
    QTemporaryDir dir;
    PtCloud_Project project;
    QString err;
    QVERIFY2(project.open(dir.filePath("p"), &err), qPrintable(err));
    PtCloud_Controller* c = project.getController();
    QVERIFY(c);
    QMap<QString, QString> m;
    c->getDataSetFilepaths(m);
    QVERIFY(m.isEmpty());
    c->getLasFilepaths(m);
    QVERIFY(m.isEmpty());
    QVERIFY(!c->getDataSet("nothing"));
    QVERIFY(QFileInfo::exists(dir.filePath("p/") + PtCloud_Project::manifestFileName()));
}

void TestProject::importAndMakeSurviveReopen()
{
    if (!needData()) QSKIP("../shared/data is absent: no real LAS files to import");
    QTemporaryDir dir;
    const QString folder = dir.filePath("p");
    {
        PtCloud_Project project;
        QString err;
        QVERIFY(project.open(folder, &err));
        PtCloud_Controller* c = project.getController();
        QString key1, key2, key3;
        QCOMPARE(c->doCmd_LasFile_Import({dataFile("simple.las")}, &key1), PCAR_Success);
        QCOMPARE(key1, QString("simple.las"));
        QCOMPARE(c->doCmd_LasFile_Import({dataFile("point10.las")}, &key2), PCAR_Success);
        // The same file again keeps its key rather than registering twice.
        QCOMPARE(c->doCmd_LasFile_Import({dataFile("simple.las")}, &key3), PCAR_Success);
        QCOMPARE(key3, key1);
        QList<EDataSetColumn> cols;
        QVERIFY(c->getLasFileColumns(key1, cols));
        QVERIFY(cols.contains(DSC_Color));  // format 3
        QVERIFY(c->getLasFileColumns(key2, cols));
        QVERIFY(!cols.contains(DSC_Color));  // format 0
        QVERIFY(!cols.contains(DSC_GpsTime));
        QSignalSpy added(c, SIGNAL(sg_DataSet_Added(QString)));
        QCOMPARE(c->doCmd_DataSet_Make({{key1, key2}, {DSC_Location, DSC_Classification}, " both "}), PCAR_Success);
        QCOMPARE(added.count(), 1);
        QCOMPARE(added.at(0).at(0).toString(), QString("both"));
    }
    PtCloud_Project project;
    QString err;
    QVERIFY(project.open(folder, &err));
    PtCloud_Controller* c = project.getController();
    QMap<QString, QString> las;
    c->getLasFilepaths(las);
    QCOMPARE(las.keys(), QStringList({"point10.las", "simple.las"}));
    PtCloudDataSet* ds = c->getDataSet("both");
    QVERIFY(ds);
    PtCloud_DataSetFile* f = ds->getContent_PointDataSetFile();
    QVERIFY(f->isValid());
    QVERIFY(f->openFile());
    QCOMPARE(f->getHeader().pointCount, quint64(1065 + 1065));
    QCOMPARE(f->getHeader().columns, QList<EDataSetColumn>({DSC_Location, DSC_Classification}));
}

void TestProject::contentsSurviveReopen()
{
    if (!needData()) QSKIP("../shared/data is absent: no real LAS files to import");
    QTemporaryDir dir;
    const QString folder = dir.filePath("p");
    {
        PtCloud_Project project;
        QString err, key;
        PtCloud_Controller* c = openWithDataSet(&project, folder, "ds", &key);
        QVERIFY(c);
        PtCloudDataSet* ds = c->getDataSet("ds");
        PtCloud_DataSetFile* mesh = ds->createEmptyLocatedContent_Mesh("roof mesh");
        PtCloud_DataSetFile* split = ds->createEmptyLocatedContent_Split("clusters");
        PtCloud_DataSetFile* cut = ds->createEmptyLocatedContent_Cut("piece");
        QVERIFY(writeBlockFile(mesh->getFilepath(), DST_Mesh, 10, true));
        QVERIFY(writeBlockFile(split->getFilepath(), DST_Split, 5, false));
        QVERIFY(writeBlockFile(cut->getFilepath(), DST_Points, 4, false));
        QVERIFY(ds->addContent_Mesh("roof mesh", mesh) && ds->addContent_Split("clusters", split) &&
                ds->addContent_Cut("piece", cut));
        QDir().mkpath(QFileInfo(ds->getFilePath_Dem_Mesh()).absolutePath());
        QVERIFY(writeBlockFile(ds->getFilePath_Dem_Mesh(), DST_Mesh, 6, true));
        QVERIFY(ds->setContent_Dem_Mesh());
        QVERIFY(writeBlockFile(ds->getFilePath_Dem_Classify(), DST_Classify, 6, false));
        QVERIFY(ds->setContent_Dem_Classify());
        QImage img(8, 4, QImage::Format_RGB32);
        img.fill(Qt::green);
        QVERIFY(img.save(ds->getFilePath_Dem_HeightMap()));
        QVERIFY(ds->setContent_Dem_HeightMap());
        PtCloud_ContourFile::Polyline line;
        line.level = 101.5;
        line.points = {pcVec3f(0, 0, 1.5f), pcVec3f(1, 0, 1.5f)};
        QVERIFY(PtCloud_ContourFile::write(ds->getFilePath_Dem_Contour(), pcVec3d(1, 2, 100), {line}, &err));
        QVERIFY(ds->setContent_Dem_Contour());
        QVERIFY(ds->addContent_EarthVolume());
        VolumeCalcArea* area = ds->getContent_EarthVolume()->addArea("pile");
        area->setBoundary({pcVec3f(0, 0, 0), pcVec3f(10, 0, 0), pcVec3f(10, 10, 0)});
        area->setGridSize(0.5);
        area->setGroundHeightMode(VolumeCalcArea::GroundFixed);
        area->setFixedGroundHeight(-2.25);
    }
    PtCloud_Project project;
    QString err;
    QVERIFY(project.open(folder, &err));
    PtCloudDataSet* ds = project.getController()->getDataSet("ds");
    QVERIFY(ds);
    QCOMPARE(ds->getContent_Meshs()->keys(), QStringList({"roof mesh"}));
    PtCloud_DataSetFile* mesh = ds->getContent_Meshs()->value("roof mesh");
    QVERIFY(mesh->isValid());
    QVERIFY(mesh->openFile());
    QCOMPARE(mesh->getDataSetType(), DST_Mesh);
    QCOMPARE(ds->getContent_Splits()->keys(), QStringList({"clusters"}));
    QCOMPARE(ds->getContent_Cuts()->keys(), QStringList({"piece"}));
    QVERIFY(ds->getContent_Dem_Mesh() && ds->getContent_Dem_Mesh()->isValid());
    QVERIFY(ds->getContent_Dem_Classify() && ds->getContent_Dem_Classify()->isValid());
    QVERIFY(ds->getContent_Dem_HeightMap());
    QCOMPARE(ds->getContent_Dem_HeightMap()->size(), QSize(8, 4));
    PtCloud_ContourFile* contour = ds->getContent_Dem_Contour();
    QVERIFY(contour && contour->isValid() && contour->openFile());
    QCOMPARE(contour->lines().size(), size_t(1));
    QCOMPARE(contour->lines()[0].level, 101.5);
    QCOMPARE(contour->origin(), pcVec3d(1, 2, 100));
    VolumeCalcAreaList* volume = ds->getContent_EarthVolume();
    QVERIFY(volume && !volume->isEmpty());
    VolumeCalcArea* area = volume->getArea("pile");
    QVERIFY(area);
    QCOMPARE(area->boundary().size(), size_t(3));
    QCOMPARE(area->gridSize(), 0.5);
    QCOMPARE(area->groundHeightMode(), VolumeCalcArea::GroundFixed);
    QCOMPARE(area->fixedGroundHeight(), -2.25);

    // Removing everything leaves the manifest and the folder clean.
    ds->removeContent_AllDem();
    QVERIFY(!ds->getContent_Dem_Mesh() && !ds->getContent_Dem_Contour() && !ds->getContent_Dem_Classify() &&
            !ds->getContent_Dem_HeightMap());
    QVERIFY(!QFileInfo::exists(ds->getFilePath_Dem_Mesh()));
    const QString meshPath = mesh->getFilepath();
    QVERIFY(ds->removeContent_Mesh("roof mesh"));
    QVERIFY(!QFileInfo::exists(meshPath));
    QVERIFY(ds->removeContent_EarthVolume());
}

void TestProject::badLasChangesNothing_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("truncated") << "truncated";
    QTest::newRow("wrong signature") << "signature";
    QTest::newRow("zero scale") << "scale";
    QTest::newRow("compressed") << "laz";
    QTest::newRow("missing") << "missing";
}

void TestProject::badLasChangesNothing()
{
    if (!needData()) QSKIP("../shared/data is absent: no real LAS file to damage");
    QFETCH(QString, kind);
    QTemporaryDir dir;
    const QString folder = dir.filePath("p");
    QString bad = dir.filePath("bad.las");
    QFile src(dataFile("simple.las"));
    QVERIFY(src.open(QIODevice::ReadOnly));
    QByteArray bytes = src.readAll();
    if (kind == "truncated") bytes.truncate(bytes.size() / 2);
    if (kind == "signature") bytes[0] = 'X';
    if (kind == "scale") memset(bytes.data() + 131, 0, 8);  // x scale factor
    if (kind == "laz") {
        QFile laz(QStringLiteral(PTCLOUD_SHARED_DATA_DIR "/laz/simple.laz"));
        QVERIFY(laz.open(QIODevice::ReadOnly));
        bytes = laz.read(9000);  // the chunk table lies past this
    }
    if (kind == "missing") bad = dir.filePath("nowhere.las");
    if (kind != "missing") {
        QFile out(bad);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(bytes);
    }
    {
        PtCloud_Project project;
        QString err;
        QVERIFY(project.open(folder, &err));
    }
    const auto before = folderListing(folder);
    PtCloud_Project project;
    QString err, text;
    QVERIFY(project.open(folder, &err));
    QVERIFY(project.getController()->doCmd_LasFile_Import({bad}, &text) != PCAR_Success);
    QVERIFY2(!text.isEmpty() && !text.contains('\n'), qPrintable(text));
    if (kind == "laz") QVERIFY2(text.contains("LAZ chunk table"), qPrintable(text));
    QMap<QString, QString> las;
    project.getController()->getLasFilepaths(las);
    QVERIFY(las.isEmpty());
    QCOMPARE(folderListing(folder), before);
}

void TestProject::dataSetNameRule_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("valid");
    QTest::newRow("plain") << "survey 2" << true;
    QTest::newRow("spaces only") << "   " << false;
    QTest::newRow("empty") << "" << false;
    for (const char* c : {"/", "\\", ":", "*", "?", "\"", "<", ">", "|"})
        QTest::addRow("forbidden %s", c) << QStringLiteral("a%1b").arg(QLatin1String(c)) << false;
    QTest::newRow("existing other case") << "EXISTING" << false;
    QTest::newRow("existing padded") << "  existing " << false;
}

void TestProject::dataSetNameRule()
{
    if (!needData()) QSKIP("../shared/data is absent: no real LAS file to make a dataset from");
    QFETCH(QString, name);
    QFETCH(bool, valid);
    QTemporaryDir dir;
    PtCloud_Project project;
    QString key;
    PtCloud_Controller* c = openWithDataSet(&project, dir.filePath("p"), "existing", &key);
    QVERIFY(c);
    QCOMPARE(c->isValidNewDataSetName(name), valid);
    QCOMPARE(c->doCmd_DataSet_Make({{key}, {DSC_Location}, name}) == PCAR_Success, valid);
}

void TestProject::renameRemoveCopyMerge()
{
    if (!needData()) QSKIP("../shared/data is absent: no real LAS file to make a dataset from");
    QTemporaryDir dir;
    const QString folder = dir.filePath("p");
    PtCloud_Project project;
    QString err, k1, k2;
    PtCloud_Controller* c = openWithDataSet(&project, folder, QString(), &k1);
    QVERIFY(c);
    QCOMPARE(c->doCmd_LasFile_Import({dataFile("point10.las")}, &k2), PCAR_Success);
    QCOMPARE(c->doCmd_DataSet_Make({{k1}, {DSC_Location, DSC_Intensity}, "a"}), PCAR_Success);
    QCOMPARE(c->doCmd_DataSet_Make({{k2}, {DSC_Location, DSC_Classification}, "b"}), PCAR_Success);

    QSignalSpy renamed(c, SIGNAL(sg_DataSet_Renamed(QString, QString)));
    QCOMPARE(c->doCmd_DataSet_Rename({"a", "alpha"}), PCAR_Success);
    QCOMPARE(renamed.count(), 1);
    QVERIFY(!c->getDataSet("a") && c->getDataSet("alpha"));
    QVERIFY(c->doCmd_DataSet_Rename({"alpha", "B"}) != PCAR_Success);  // taken, other case
    QVERIFY(c->doCmd_DataSet_Rename({"missing", "x"}) != PCAR_Success);

    QCOMPARE(c->doCmd_DataSet_Copy({"alpha", "alpha copy"}), PCAR_Success);
    QVERIFY(c->doCmd_DataSet_Copy({"alpha", "ALPHA"}) != PCAR_Success);

    QCOMPARE(c->doCmd_DataSet_Merge({{"alpha", "b"}, "merged"}), PCAR_Success);
    PtCloud_DataSetFile* merged = c->getDataSet("merged")->getContent_PointDataSetFile();
    QVERIFY(merged->openFile());
    QCOMPARE(merged->getHeader().pointCount, quint64(2130));
    // Only the columns both sources hold are kept.
    QCOMPARE(merged->getHeader().columns, QList<EDataSetColumn>({DSC_Location}));

    QSignalSpy removed(c, SIGNAL(sg_DataSet_Removed(QString)));
    const QString copyFolder = c->getDataSet("alpha copy")->getFolder();
    QCOMPARE(c->doCmd_DataSet_Remove({"alpha copy"}), PCAR_Success);
    QCOMPARE(removed.count(), 1);
    QVERIFY(!QFileInfo::exists(copyFolder));

    PtCloud_Project reopened;
    QVERIFY(reopened.open(folder, &err));
    QMap<QString, QString> sets;
    reopened.getController()->getDataSetFilepaths(sets);
    QCOMPARE(sets.keys(), QStringList({"alpha", "b", "merged"}));
}

void TestProject::makeRefusesMissingColumn()
{
    if (!needData()) QSKIP("../shared/data is absent: no real LAS file to make a dataset from");
    QTemporaryDir dir;
    const QString folder = dir.filePath("p");
    PtCloud_Project project;
    QString err, key;
    QVERIFY(project.open(folder, &err));
    PtCloud_Controller* c = project.getController();
    QCOMPARE(c->doCmd_LasFile_Import({dataFile("point10.las")}, &key), PCAR_Success);
    const auto before = folderListing(folder);
    QVERIFY(c->doCmd_DataSet_Make({{key}, {DSC_Location, DSC_Color}, "x"}) != PCAR_Success);  // format 0: no colour
    QVERIFY(c->doCmd_DataSet_Make({{key}, {DSC_Intensity}, "x"}) != PCAR_Success);            // no Location
    QVERIFY(c->doCmd_DataSet_Make({{"unknown.las"}, {DSC_Location}, "x"}) != PCAR_Success);
    QVERIFY(!c->lastError().isEmpty());
    QCOMPARE(folderListing(folder), before);
}

void TestProject::contentSignalsCarryNames()
{
    if (!needData()) QSKIP("../shared/data is absent: no real LAS file to make a dataset from");
    QTemporaryDir dir;
    PtCloud_Project project;
    QString key;
    PtCloud_Controller* c = openWithDataSet(&project, dir.filePath("p"), "ds", &key);
    QVERIFY(c);
    PtCloudDataSet* ds = c->getDataSet("ds");
    QSignalSpy meshAdded(ds, SIGNAL(sgContentAdded_Mesh(QString, QString)));
    QSignalSpy meshRemoved(ds, SIGNAL(sgRemoved_Mesh(QString, QString)));
    QSignalSpy splitRemoved(ds, SIGNAL(sgRemoved_Split(QString, QString)));
    QSignalSpy pointsUpdated(ds, SIGNAL(sgContentUpdated_Points(QString)));
    PtCloud_DataSetFile* mesh = ds->createEmptyLocatedContent_Mesh("m");
    QVERIFY(writeBlockFile(mesh->getFilepath(), DST_Mesh, 5, true));
    QVERIFY(ds->addContent_Mesh("m", mesh));
    QCOMPARE(meshAdded.count(), 1);
    QCOMPARE(meshAdded.at(0), QList<QVariant>({"ds", "m"}));
    QVERIFY(ds->removeContent_Mesh("m"));
    QCOMPARE(meshRemoved.at(0), QList<QVariant>({"ds", "m"}));
    QVERIFY(!ds->removeContent_Split("none"));
    QCOMPARE(splitRemoved.count(), 0);

    // A located points file replaces the points only once it is adopted.
    const QString located = ds->createEmptyLocatedContent_Points();
    QVERIFY(!ds->updateContent_Points());  // nothing written there yet
    QVERIFY(writeBlockFile(located, DST_Points, 7, false));
    QVERIFY(ds->updateContent_Points());
    QCOMPARE(pointsUpdated.count(), 1);
    QVERIFY(ds->getContent_PointDataSetFile()->openFile());
    QCOMPARE(ds->getContent_PointDataSetFile()->getHeader().pointCount, quint64(7));
    QVERIFY(!QFileInfo::exists(located));
}

void TestProject::failedSyncChangesNothing_data()
{
    QTest::addColumn<int>("change");
    QTest::addColumn<int>("errorNumber");
    const char* const names[] = {"rename", "remove", "make", "copy", "earth volume", "remove LAS reference"};
    for (int change = 0; change < 6; ++change) {
        QTest::addRow("%s, disk full", names[change]) << change << ENOSPC;
        QTest::addRow("%s, disk broken", names[change]) << change << EIO;
    }
}

void TestProject::failedSyncChangesNothing()
{
    QFETCH(int, change);
    QFETCH(int, errorNumber);
    if (!needData()) QSKIP("../shared/data is absent: no real LAS files to import");
    QTemporaryDir dir;
    const QString folder = dir.filePath("p");
    QString key;
    {
        PtCloud_Project project;
        QVERIFY(openWithDataSet(&project, folder, "a", &key));
    }
    const QMap<QString, QByteArray> before = folderListing(folder);
    {
        PtCloud_Project project;
        QString err;
        QVERIFY(project.open(folder, &err));
        PtCloud_Controller* c = project.getController();
        PtCloud_FileCommit::setSyncFailureForTesting(errorNumber);
        EEPtCloudActResult result = PCAR_Success;
        switch (change) {
        case 0: result = c->doCmd_DataSet_Rename({"a", "b"}); break;
        case 1: result = c->doCmd_DataSet_Remove({"a"}); break;
        case 2: result = c->doCmd_DataSet_Make({{key}, {DSC_Location}, "b"}); break;
        case 3: result = c->doCmd_DataSet_Copy({"a", "b"}); break;
        case 4:
            if (!c->getDataSet("a")->addContent_EarthVolume()) result = PCAR_FileError;
            err = c->getDataSet("a")->lastError();
            break;
        case 5: result = c->doCmd_LasFile_Remove({key}); break;
        }
        PtCloud_FileCommit::setSyncFailureForTesting(0);
        if (change != 4) err = c->lastError();
        QCOMPARE(result, PCAR_FileError);
        QVERIFY2(err.endsWith(QString::fromLocal8Bit(std::strerror(errorNumber))), qPrintable(err));
    }
    QCOMPARE(folderListing(folder), before);
}

void TestProject::changesOfOthersAreKept()
{
    if (!needData()) QSKIP("../shared/data is absent: no real LAS files to import");
    QTemporaryDir dir;
    const QString folder = dir.filePath("p");
    PtCloud_Project first, second;
    QString key, err;
    QVERIFY(openWithDataSet(&first, folder, "a", &key));
    QVERIFY(second.open(folder, &err));
    // Each changes what it loaded; neither may undo the other's change.
    QCOMPARE(first.getController()->doCmd_DataSet_Copy({"a", "b"}), PCAR_Success);
    QCOMPARE(second.getController()->doCmd_DataSet_Rename({"b", "c"}), PCAR_Success);
    QVERIFY(first.getController()->getDataSet("a")->addContent_EarthVolume());
    PtCloud_Project third;
    QVERIFY(third.open(folder, &err));
    QCOMPARE(third.getController()->getDataSets().keys(), (QStringList{"a", "c"}));
    QVERIFY(third.getController()->getDataSet("a")->getContent_EarthVolume());
}

QTEST_GUILESS_MAIN(TestProject)
#include "tst_project.moc"
