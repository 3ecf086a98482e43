// The editor as a user first sees it, under Xvfb: a real dataset opened in
// the view loads its blocks without any input, the points are drawn in
// colour around the middle of the view, and the dataset viewer floats at the
// top left over them with its tree and the points' page. The pictures are
// saved to the temporary folder for a look by eye.

#include <QDir>
#include <QFile>
#include <QTreeWidget>
#include <QtTest>

#include "AppConfig.h"
#include "DataSetViewer.h"
#include "OsgGraphItem_PcDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "ShownView.h"
#include "TestProject.h"

using namespace ptCloud;

class TestEditorLook : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void datasetAndViewer_data();
    void datasetAndViewer();

private:
    QTemporaryDir m_settings;
};

void TestEditorLook::initTestCase()
{
    QVERIFY(m_settings.isValid());
    TestProject::isolateSettings(m_settings.path());
}

void TestEditorLook::datasetAndViewer_data()
{
    QTest::addColumn<int>("skin");
    QTest::addColumn<QString>("picture");
    QTest::newRow("dark skin") << 1 << "ptcloud_editor_dark.png";
    QTest::newRow("light skin") << 0 << "ptcloud_editor_light.png";
}

void TestEditorLook::datasetAndViewer()
{
    QFETCH(int, skin);
    QFETCH(QString, picture);
    AppConfig::getInstance().module_userSettings().setSelectedSkin(skin);
    // A coloured survey of the shared data when it is there, else a
    // coloured grid written here.
    ShownProject shown;
    QVERIFY(shown.project.open());
    const QString shared = QDir(PTCLOUD_SHARED_DATA_DIR).filePath("las/autzen_trim.las");
    if (QFile::exists(shared)) {
        QString key;
        QCOMPARE(shown.project.controller()->doCmd_LasFile_Import({shared}, &key), PCAR_Success);
        QCOMPARE(shown.project.controller()->doCmd_DataSet_Make({{key}, {DSC_Location, DSC_Color}, "autzen"}),
                 PCAR_Success);
    } else {
        QVERIFY(shown.project.addGridDataSet("grid", 300, pcVec3d(500000, 4000000, 100), true));
    }
    QVERIFY(shown.show(QSize(1200, 800)));
    OsgGraphItem_PcDataSet* points = shown.scene->pointsItem();
    QVERIFY(points);
    // No input from here on: the frames the loader needs ask for themselves.
    QTRY_VERIFY_WITH_TIMEOUT(points->isReady() && !points->hasPendingWork(), 30000);
    QVERIFY(points->drawnPointCount() > 0);

    DataSetViewer* viewer = shown.scene->dataSetViewer();
    auto* tree = viewer->findChild<QTreeWidget*>("treeWidget_dataset");
    viewer->onTreeWidgetItemClicked(tree->topLevelItem(0), DataSetViewer::Column_Name);
    QTest::qWait(200);
    const QImage image = shown.view->grab().toImage();
    const QString path = QDir::temp().filePath(picture);
    QVERIFY(image.save(path));
    qInfo("saved %s (%d of %u points drawn)", qPrintable(path), int(points->drawnPointCount()), points->pointCount());

    // The points are drawn in colour in the middle of the view.
    const QColor clear(41, 43, 51);
    int coloured = 0;
    for (int y = 300; y < 500; y += 4)
        for (int x = 500; x < 900; x += 4) {
            const QColor c = image.pixelColor(x, y);
            coloured += (qAbs(c.red() - clear.red()) + qAbs(c.green() - clear.green()) + qAbs(c.blue() - clear.blue()) > 30);
        }
    QVERIFY2(coloured > 200, qPrintable(QString::number(coloured)));
    // The viewer lies at (20, 20) over the view, painted with the skin's background.
    const QRect panel = viewer->geometry();
    QCOMPARE(panel.topLeft(), QPoint(20, 20));
    const QColor inside = image.pixelColor(panel.left() + 2, panel.bottom() - 2);
    QVERIFY(skin == 0 ? inside.lightness() > 180 : inside.lightness() < 90);
}

QTEST_MAIN(TestEditorLook)
#include "tst_EditorLook.moc"
