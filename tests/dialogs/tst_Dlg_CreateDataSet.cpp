// The create-dataset dialog on a real project: the columns all checked
// files share (written files of known point formats, and files of the shared
// data where present), the Location rule, the name rule, OK, and a failed
// make that keeps the dialog open.

#include <QCheckBox>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

#include "Dlg_CreateDataSet.h"
#include "ModalAnswerer.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "ShownView.h"
#include "TestProject.h"

using namespace ptCloud;

namespace {

// Columns of the LAS point formats (LAS 1.4, table of point data record
// formats): the core every format has, then GPS time, RGB and wave packets.
const QStringList kCore{"Location",  "Intensity",      "ReturnNumber", "NumberOfReturnsGivenPulse",
                        "ScanDirectionFlag", "EdgeOfFlightingLine", "Classification", "ScanAngleRank",
                        "UserData",  "PointSourceId"};
const QStringList kWave{"WavePacketDescriptorIndex", "ByteOffsetToWaveformData", "WaveformPacketSizeInBytes",
                        "ReturnPointWaveformLocation", "Location_T"};

QStringList formatColumns(int format)
{
    QStringList columns = kCore;
    const bool gps = format == 1 || format >= 3;
    const bool rgb = format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10;
    const bool wave = format == 4 || format == 5 || format == 9 || format == 10;
    if (gps) columns << "GpsTime";
    if (rgb) columns << "Color";
    if (wave) columns << kWave;
    return columns;
}

struct Dialog {
    std::unique_ptr<Dlg_CreateDataSet> dialog;
    QListWidget* sources = nullptr;
    QListWidget* columns = nullptr;
    QLineEdit* name = nullptr;
    QPushButton* ok = nullptr;

    explicit Dialog(PtCloudScene* scene) : dialog(new Dlg_CreateDataSet(scene))
    {
        sources = dialog->findChild<QListWidget*>("listWidget_source_files");
        columns = dialog->findChild<QListWidget*>("listWidget_columns");
        name = dialog->findChild<QLineEdit*>("lineEdit_name");
        ok = dialog->findChild<QPushButton*>("pushButton_ok");
    }
    QCheckBox* source(const QString& text) const
    {
        for (int i = 0; i < sources->count(); ++i) {
            auto* box = qobject_cast<QCheckBox*>(sources->itemWidget(sources->item(i)));
            if (box && box->text() == text) return box;
        }
        return nullptr;
    }
    QListWidgetItem* column(const QString& text) const
    {
        const QList<QListWidgetItem*> found = columns->findItems(text, Qt::MatchExactly);
        return found.isEmpty() ? nullptr : found.first();
    }
    QStringList enabledColumns() const
    {
        QStringList out;
        for (int i = 0; i < columns->count(); ++i)
            if (columns->item(i)->flags() & Qt::ItemIsEnabled) out << columns->item(i)->text();
        return out;
    }
    QStringList checkedColumns() const
    {
        QStringList out;
        for (int i = 0; i < columns->count(); ++i)
            if (columns->item(i)->checkState() == Qt::Checked) out << columns->item(i)->text();
        return out;
    }
};

QString importKey(PtCloud_Controller* controller, const QString& path)
{
    QString key;
    return controller->doCmd_LasFile_Import({path}, &key) == PCAR_Success ? key : QString();
}

}  // namespace

class TestDlgCreateDataSet : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void formBeforeAnySource();
    void commonColumns_data();
    void commonColumns();
    void nothingInCommonDisablesEverything_data();
    void nothingInCommonDisablesEverything();
    void nameRule_data();
    void nameRule();
    void selectAllAndClearKeepLocation();
    void okMakesTheDataSet();
    void failedMakeKeepsTheDialogOpen();

private:
    QTemporaryDir m_settings;
    QTemporaryDir m_files;
    ShownProject m_shown;
    QString m_plain, m_coloured;  // keys of a format 6 and a format 7 file
};

void TestDlgCreateDataSet::initTestCase()
{
    QVERIFY(m_settings.isValid() && m_files.isValid());
    TestProject::isolateSettings(m_settings.path());
    QVERIFY(m_shown.make({{"Survey", 5}}));
    QVERIFY(m_shown.show());
    QVERIFY(TestProject::writeGridLas(m_files.filePath("plain.las"), 6, pcVec3d(10, 20, 30), false));
    QVERIFY(TestProject::writeGridLas(m_files.filePath("coloured.las"), 7, pcVec3d(10, 20, 30), true));
    m_plain = importKey(m_shown.project.controller(), m_files.filePath("plain.las"));
    m_coloured = importKey(m_shown.project.controller(), m_files.filePath("coloured.las"));
    QVERIFY(!m_plain.isEmpty() && !m_coloured.isEmpty());
}

void TestDlgCreateDataSet::formBeforeAnySource()
{
    Dialog d(m_shown.scene);
    QStringList names;
    for (int i = 0; i < d.columns->count(); ++i) names << d.columns->item(i)->text();
    QCOMPARE(names, QStringList({"Location", "Color", "Intensity", "ReturnNumber", "NumberOfReturnsGivenPulse",
                                 "ScanDirectionFlag", "EdgeOfFlightingLine", "Classification", "ScanAngleRank",
                                 "UserData", "PointSourceId", "GpsTime", "WavePacketDescriptorIndex",
                                 "ByteOffsetToWaveformData", "WaveformPacketSizeInBytes",
                                 "ReturnPointWaveformLocation", "Location_T"}));
    // The survey's own file and the two written here.
    QCOMPARE(d.sources->count(), 3);
    QVERIFY(d.enabledColumns().isEmpty());
    QVERIFY(d.checkedColumns().isEmpty());
    QVERIFY(!d.ok->isEnabled());
}

void TestDlgCreateDataSet::commonColumns_data()
{
    QTest::addColumn<QStringList>("files");   // written here, or of the shared data
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("one file without colour") << QStringList{"plain.las"} << formatColumns(6);
    QTest::newRow("one file with colour") << QStringList{"coloured.las"} << formatColumns(7);
    QTest::newRow("with and without colour") << QStringList{"coloured.las", "plain.las"} << formatColumns(6);
    QTest::newRow("shared: formats 0 and 3") << QStringList{"las/point10.las", "las/simple.las"} << formatColumns(0);
    QTest::newRow("shared: formats 4 and 2") << QStringList{"las/simple1_3.las", "las/point-color.las"} << kCore;
    QTest::newRow("shared: format 4 alone") << QStringList{"las/simple1_3.las"} << formatColumns(4);
}

void TestDlgCreateDataSet::commonColumns()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, expected);
    TestProject project;
    QVERIFY(project.open());
    QStringList keys;
    for (const QString& file : files) {
        QString path = m_files.filePath(file);
        if (file.startsWith("las/")) {
            path = QDir(PTCLOUD_SHARED_DATA_DIR).filePath(file);
            if (!QFile::exists(path)) QSKIP(qPrintable("shared LAS data not found: " + path));
        }
        keys << importKey(project.controller(), path);
        QVERIFY(!keys.last().isEmpty());
    }
    const auto view = ShownView::create();
    view->onSceneOpened(project.scene());
    Dialog d(view->ptCloudScene());
    for (const QString& key : keys) d.source(key)->setChecked(true);
    QStringList common;
    for (EDataSetColumn c : d.dialog->commonColumns()) common << columnName(c);
    common.sort();
    expected.sort();
    QCOMPARE(common, expected);
    // Location is checked and kept; the other common columns can be chosen.
    QCOMPARE(d.checkedColumns(), QStringList({"Location"}));
    QStringList enabled = d.enabledColumns();
    enabled.sort();
    QStringList choosable = expected;
    choosable.removeAll("Location");
    QCOMPARE(enabled, choosable);
}

void TestDlgCreateDataSet::nothingInCommonDisablesEverything_data()
{
    QTest::addColumn<bool>("fileGone");
    QTest::newRow("a checked source whose file went away") << true;
    QTest::newRow("the last source unchecked") << false;
}

void TestDlgCreateDataSet::nothingInCommonDisablesEverything()
{
    QFETCH(bool, fileGone);
    TestProject project;
    QVERIFY(project.open());
    QVERIFY(TestProject::writeGridLas(project.filePath("gone.las"), 5, pcVec3d(0, 0, 0), false));
    const QString good = importKey(project.controller(), m_files.filePath("coloured.las"));
    const QString gone = importKey(project.controller(), project.filePath("gone.las"));
    // A source whose file went away has no columns at all.
    QVERIFY(QFile::remove(project.filePath("gone.las")));
    const auto view = ShownView::create();
    view->onSceneOpened(project.scene());
    Dialog d(view->ptCloudScene());
    d.name->setText("new");
    d.source(good)->setChecked(true);
    d.column("Color")->setCheckState(Qt::Checked);
    QVERIFY(d.ok->isEnabled());
    if (fileGone)
        d.source(gone)->setChecked(true);
    else
        d.source(good)->setChecked(false);
    QVERIFY(d.dialog->commonColumns().isEmpty());
    QVERIFY(d.enabledColumns().isEmpty());
    QVERIFY(d.checkedColumns().isEmpty());
    QVERIFY(!d.ok->isEnabled());
}

void TestDlgCreateDataSet::nameRule_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("accepted");
    QTest::newRow("plain") << "north field" << "north field";
    QTest::newRow("spaces around") << "  north  " << "north";
    QTest::newRow("empty") << "" << "";
    QTest::newRow("spaces only") << "   " << "";
    QTest::newRow("existing name") << "Survey" << "";
    QTest::newRow("existing name in other case") << "sURVEY" << "";
    QTest::newRow("existing name with spaces") << " Survey " << "";
    for (const char* c : {"\\", "/", ":", "*", "?", "\"", "<", ">", "|"})
        QTest::newRow(qPrintable(QString("forbidden %1").arg(c))) << QString("a%1b").arg(c) << "";
}

void TestDlgCreateDataSet::nameRule()
{
    QFETCH(QString, typed);
    QFETCH(QString, accepted);
    Dialog d(m_shown.scene);
    d.source(m_plain)->setChecked(true);
    d.name->setText(typed);
    QCOMPARE(d.dialog->acceptedName(), accepted);
    QCOMPARE(d.ok->isEnabled(), !accepted.isEmpty());
}

void TestDlgCreateDataSet::selectAllAndClearKeepLocation()
{
    Dialog d(m_shown.scene);
    d.source(m_coloured)->setChecked(true);
    d.source(m_plain)->setChecked(true);
    d.dialog->findChild<QPushButton*>("pushButton_select_all_columns")->click();
    QStringList all = formatColumns(6);
    QStringList checked = d.checkedColumns();
    all.sort();
    checked.sort();
    QCOMPARE(checked, all);
    QCOMPARE(d.column("Color")->checkState(), Qt::Unchecked);
    d.dialog->findChild<QPushButton*>("pushButton_columns_clear_selection")->click();
    QCOMPARE(d.checkedColumns(), QStringList({"Location"}));
}

void TestDlgCreateDataSet::okMakesTheDataSet()
{
    QSignalSpy save(m_shown.view.get(), SIGNAL(sgNeedSaveProject()));
    Dialog d(m_shown.scene);
    d.source(m_coloured)->setChecked(true);
    d.column("Color")->setCheckState(Qt::Checked);
    d.column("Intensity")->setCheckState(Qt::Checked);
    d.name->setText("  made  ");
    ModalAnswerer answerer;
    d.ok->click();
    QVERIFY(answerer.boxes.isEmpty());
    QCOMPARE(d.dialog->result(), int(QDialog::Accepted));
    QVERIFY(save.count() >= 1);
    PtCloudDataSet* ds = m_shown.project.dataSet("made");
    QVERIFY(ds);
    PtCloud_DataSetFile points(ds->getFilePath_Points());
    QVERIFY(points.openFile());
    QCOMPARE(points.getHeader().pointCount, quint64(49));
    QCOMPARE(points.getHeader().columns, QList<EDataSetColumn>({DSC_Location, DSC_Color, DSC_Intensity}));
}

void TestDlgCreateDataSet::failedMakeKeepsTheDialogOpen()
{
    TestProject project;
    QVERIFY(project.open());
    QVERIFY(TestProject::writeGridLas(project.filePath("brief.las"), 5, pcVec3d(0, 0, 0), false));
    const QString key = importKey(project.controller(), project.filePath("brief.las"));
    const auto view = ShownView::create();
    view->onSceneOpened(project.scene());
    Dialog d(view->ptCloudScene());
    d.source(key)->setChecked(true);
    d.name->setText("never");
    QVERIFY(d.ok->isEnabled());
    // The file goes away between choosing it and pressing OK.
    QVERIFY(QFile::remove(project.filePath("brief.las")));
    ModalAnswerer answerer(QMessageBox::Ok);
    d.ok->click();
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("error"));
    QCOMPARE(answerer.boxes[0].text, QString("Failed with unknow error."));
    QVERIFY(d.dialog->result() != QDialog::Accepted);
    QVERIFY(!project.dataSet("never"));
    // Its state is kept for another try.
    QCOMPARE(d.dialog->acceptedName(), QString("never"));
    QVERIFY(d.source(key)->isChecked());
}

QTEST_MAIN(TestDlgCreateDataSet)
#include "tst_Dlg_CreateDataSet.moc"
