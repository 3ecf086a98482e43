// The dataset viewer on a real project under Xvfb: where tool panels go and
// which of them input reaches, the tree's branches and icons, visibility
// toggles that hide the scene's items, delete questions that remove a
// content from tree, scene and disk, the DEM action with and without a DEM,
// and the property pages of a dataset whose numbers are known.

#include <QComboBox>
#include <QDirIterator>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QLabel>
#include <QMouseEvent>
#include <QPointer>
#include <QStackedWidget>
#include <QToolButton>
#include <QTreeWidget>
#include <QtTest>

#include "DataSetViewer.h"
#include "ModalAnswerer.h"
#include "OsgGraphItem_PcDataSet.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "ShownView.h"
#include "TestProject.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

Q_DECLARE_METATYPE(PtCloudScene::EContentKind)

namespace {

// A tool panel that records what the viewer offers it.
class FakeTool : public MovableSubWidget {
public:
    FakeTool(QWidget* parent, const QSize& size) : MovableSubWidget(parent)
    {
        setAttribute(Qt::WA_DeleteOnClose);
        resize(size);
    }
    bool viewMousePressEvent(QMouseEvent*) override { return ++presses, true; }
    bool viewMouseMoveEvent(QMouseEvent*) override { return ++moves, true; }
    bool viewKeyPressEvent(QKeyEvent*) override { return ++keys, true; }
    int presses = 0, moves = 0, keys = 0;
};

// Answers the parameter dialog with the given preparation and OK, and lets
// the runner that follows do its work (stopped should it hang).
void runParameters(ModalAnswerer& answerer, QStringList* seen, std::function<void(QDialog*)> prepare)
{
    answerer.setDialogHandler([seen, prepare](QDialog* d) {
        *seen << d->objectName();
        if (d->objectName() == "progress_bar_dlg") {
            QTimer::singleShot(120000, d, SLOT(reject()));
            return;
        }
        prepare(d);
        d->findChild<QPushButton*>("pushButton_ok")->click();
    });
}

QStringList filesIn(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) files << it.next();
    files.sort();
    return files;
}

QImage iconImage(const QIcon& icon) { return icon.pixmap(16, 16).toImage(); }
QImage iconImage(const char* path) { return iconImage(QIcon(QString::fromLatin1(path))); }

QTreeWidgetItem* findRow(QTreeWidget* tree, const QString& text)
{
    const QList<QTreeWidgetItem*> found = tree->findItems(text, Qt::MatchExactly | Qt::MatchRecursive);
    return found.isEmpty() ? nullptr : found.first();
}

QStringList childTexts(const QTreeWidgetItem* item)
{
    QStringList texts;
    for (int i = 0; i < item->childCount(); ++i) texts << item->child(i)->text(0);
    return texts;
}

QString pageText(DataSetViewer* viewer)
{
    auto* pages = viewer->findChild<QStackedWidget*>("stackedWidget_properties");
    const QList<QLabel*> labels =
        pages->currentWidget()->findChildren<QLabel*>(QRegularExpression(QStringLiteral("^label_info_")));
    return labels.isEmpty() ? QString() : labels.first()->text();
}

// The fixture's contents: tree row, scene kind, content name and the
// question before deleting it. The points cannot be deleted; the height map
// has no item in the scene to hide.
void contentRows(bool deletable)
{
    QTest::addColumn<QString>("row");
    QTest::addColumn<PtCloudScene::EContentKind>("kind");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("question");
    const auto add = [](const char* tag, const QString& row, PtCloudScene::EContentKind kind, const QString& name) {
        QTest::newRow(tag) << row << kind << name << QStringLiteral("Do you want to delete the %1?").arg(tag);
    };
    if (deletable)
        add("dem height map", "HeightMap", PtCloudScene::Content_DemHeightMap, QString());
    else
        add("points", "Points", PtCloudScene::Content_Points, QString());
    add("mesh", "m1", PtCloudScene::Content_Mesh, "m1");
    add("dem mesh", "Mesh", PtCloudScene::Content_DemMesh, QString());
    add("dem contour", "Contour", PtCloudScene::Content_DemContour, QString());
    add("dem classify", "Classify", PtCloudScene::Content_DemClassify, QString());
    add("split", "s1", PtCloudScene::Content_Split, "s1");
    add("earth volume", "EarthVolume", PtCloudScene::Content_EarthVolume, QString());
    add("cut", "c1", PtCloudScene::Content_Cut, "c1");
}

// The shown project: one dataset "survey", a 10 x 10 grid at a survey-sized
// origin, with a mesh, a split, a cut, all four DEM products and an area list.
struct Fixture : ShownProject {
    DataSetViewer* viewer = nullptr;
    QTreeWidget* tree = nullptr;

    QStackedWidget* pages() const { return viewer->findChild<QStackedWidget*>("stackedWidget_properties"); }
    void click(const QString& row, DataSetViewer::ETreeColumn column = DataSetViewer::Column_Name) const
    {
        viewer->onTreeWidgetItemClicked(findRow(tree, row), column);
    }

    bool make(bool withContents)
    {
        if (!ShownProject::make({{"survey", 10}}, pcVec3d(500000, 4000000, 100))) return false;
        if (withContents) {
            PtCloudDataSet* ds = project.dataSet("survey");
            if (!project.addPointCopy("survey", "mesh", "m1") || !project.addPointCopy("survey", "split", "s1") ||
                !project.addPointCopy("survey", "cut", "c1") || !project.writeDemFiles("survey") ||
                !ds->setContent_Dem_Mesh() || !ds->setContent_Dem_HeightMap() || !ds->setContent_Dem_Contour() ||
                !ds->setContent_Dem_Classify() || !ds->addContent_EarthVolume())
                return false;
            ds->getContent_EarthVolume()->addArea("pile");
        }
        if (!show(QSize(900, 700))) return false;
        viewer = scene->dataSetViewer();
        tree = viewer->findChild<QTreeWidget*>("treeWidget_dataset");
        return scene->currentDataSetName() == "survey" && tree;
    }
};

}  // namespace

class TestDataSetViewer : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void formAsTheUserSeesIt();
    void toolPanelPosition_data();
    void toolPanelPosition();
    void onePanelAtATime();
    void inputRouting();
    void treeBranchesAndIcons();
    void visibilityTogglesTheSceneItem_data();
    void visibilityTogglesTheSceneItem();
    void deleteAsksAndRemoves_data();
    void deleteAsksAndRemoves();
    void pointsPageShowsKnownNumbers();
    void actionRunsAndAdoptsItsResult_data();
    void actionRunsAndAdoptsItsResult();
    void declinedActionChangesNothing_data();
    void declinedActionChangesNothing();
    void resetEmptiesTheViewer();

private:
    QTemporaryDir m_settings;
};

void TestDataSetViewer::initTestCase()
{
    QVERIFY(m_settings.isValid());
    TestProject::isolateSettings(m_settings.path());
}

void TestDataSetViewer::formAsTheUserSeesIt()
{
    Fixture f;
    QVERIFY(f.make(false));
    QCOMPARE(f.viewer->parentWidget(), f.view.get());
    QVERIFY(f.viewer->isVisible());
    // At (20, 20) over the view.
    QCOMPARE(f.viewer->pos(), QPoint(20, 20));
    const QStringList buttons{"toolButton_mesh",    "toolButton_dem",        "toolButton_split",
                              "toolButton_volumn",  "toolButton_drive_line", "toolButton_section",
                              "toolButton_measure", "toolButton_sample",     "toolButton_erase_noise",
                              "toolButton_smooth",  "toolButton_cut"};
    for (const QString& name : buttons) {
        auto* button = f.viewer->findChild<QToolButton*>(name);
        QVERIFY2(button && !button->icon().isNull(), qPrintable(name));
    }
    // The drive line is not there yet, and says so.
    ModalAnswerer answerer(QMessageBox::Ok);
    f.viewer->onClickedTool_DriveLine();
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("warning"));
    QCOMPARE(answerer.boxes[0].text, QString("Not surpported"));
    QCOMPARE(answerer.boxes[0].icon, QMessageBox::Information);
}

void TestDataSetViewer::toolPanelPosition_data()
{
    QTest::addColumn<QSize>("view");
    QTest::addColumn<QSize>("panel");
    QTest::addColumn<QPoint>("expected");
    QTest::newRow("fits") << QSize(800, 600) << QSize(300, 200) << QPoint(450, 50);
    QTest::newRow("fits only without the margin") << QSize(330, 600) << QSize(300, 200) << QPoint(0, 50);
    QTest::newRow("wider than the view") << QSize(800, 600) << QSize(900, 200) << QPoint(-100, 50);
    QTest::newRow("taller than the view") << QSize(800, 600) << QSize(300, 700) << QPoint(450, -100);
    QTest::newRow("just fits below the top margin") << QSize(800, 250) << QSize(300, 200) << QPoint(450, 50);
    QTest::newRow("one pixel too tall for the margin") << QSize(800, 250) << QSize(300, 201) << QPoint(450, 49);
}

void TestDataSetViewer::toolPanelPosition()
{
    QFETCH(QSize, view);
    QFETCH(QSize, panel);
    QFETCH(QPoint, expected);
    QCOMPARE(DataSetViewer::toolPanelPosition(view, panel), expected);
}

void TestDataSetViewer::onePanelAtATime()
{
    Fixture f;
    QVERIFY(f.make(false));
    QPointer<FakeTool> cut = new FakeTool(f.view.get(), QSize(200, 150));
    f.viewer->openToolPanel(DataSetViewer::Tool_Cut, cut);
    QVERIFY(!f.viewer->isVisible());
    QVERIFY(cut->isVisible());
    QCOMPARE(cut->pos(), QPoint(900 - 50 - 200, 50));
    // Opening the measure panel closes the cut panel first; the viewer stays
    // hidden while the measure panel is open, even after the cut panel is gone.
    QPointer<FakeTool> measure = new FakeTool(f.view.get(), QSize(1000, 150));
    f.viewer->openToolPanel(DataSetViewer::Tool_Measure, measure);
    QTRY_VERIFY(cut.isNull());
    QCOMPARE(f.viewer->toolPanel(DataSetViewer::Tool_Cut), nullptr);
    QCOMPARE(f.viewer->toolPanel(DataSetViewer::Tool_Measure), measure.data());
    QVERIFY(!f.viewer->isVisible());
    // Wider than the view: flush with its right edge.
    QCOMPARE(measure->pos(), QPoint(-100, 50));
    measure->close();
    QTRY_VERIFY(measure.isNull());
    QVERIFY(f.viewer->isVisible());
    for (auto which : {DataSetViewer::Tool_Cut, DataSetViewer::Tool_Measure, DataSetViewer::Tool_Section,
                       DataSetViewer::Tool_Volume})
        QCOMPARE(f.viewer->toolPanel(which), nullptr);
}

void TestDataSetViewer::inputRouting()
{
    Fixture f;
    QVERIFY(f.make(false));
    QMouseEvent press(QEvent::MouseButtonPress, QPointF(10, 10), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QMouseEvent move(QEvent::MouseMove, QPointF(12, 10), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QKeyEvent key(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, "a");
    // Nothing open: nothing used.
    QVERIFY(!f.scene->mousePressEvent(&press));
    QVERIFY(!f.scene->mouseMoveEvent(&move));
    QVERIFY(!f.scene->keyPressEvent(&key));
    // The volume panel alone gets presses, moves and keys.
    auto* volume = new FakeTool(f.view.get(), QSize(100, 100));
    f.viewer->openToolPanel(DataSetViewer::Tool_Volume, volume);
    QVERIFY(f.scene->mousePressEvent(&press));
    QVERIFY(f.scene->mouseMoveEvent(&move));
    QVERIFY(f.scene->keyPressEvent(&key));
    QCOMPARE(volume->presses + volume->moves + volume->keys, 3);
    // Other panels get presses only; releases, double clicks and wheels are never used.
    auto* section = new FakeTool(f.view.get(), QSize(100, 100));
    f.viewer->openToolPanel(DataSetViewer::Tool_Section, section);
    QVERIFY(f.scene->mousePressEvent(&press));
    QVERIFY(!f.scene->mouseMoveEvent(&move));
    QVERIFY(!f.scene->keyPressEvent(&key));
    QMouseEvent release(QEvent::MouseButtonRelease, QPointF(10, 10), Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
    QVERIFY(!f.scene->mouseReleaseEvent(&release));
    QVERIFY(!f.scene->mouseDoubleClickEvent(&press));
    QCOMPARE(section->presses, 1);
    QCOMPARE(section->moves + section->keys, 0);
}

void TestDataSetViewer::treeBranchesAndIcons()
{
    Fixture f;
    QVERIFY(f.make(true));
    QStringList top;
    for (int i = 0; i < f.tree->topLevelItemCount(); ++i) top << f.tree->topLevelItem(i)->text(0);
    QCOMPARE(top, QStringList({"Points", "Meshes", "DEM", "Splits", "EarthVolume", "Peacees"}));
    QCOMPARE(childTexts(f.tree->topLevelItem(1)), QStringList({"m1"}));
    QCOMPARE(childTexts(f.tree->topLevelItem(2)), QStringList({"Mesh", "HeightMap", "Contour", "Classify"}));
    QCOMPARE(childTexts(f.tree->topLevelItem(3)), QStringList({"s1"}));
    QCOMPARE(childTexts(f.tree->topLevelItem(5)), QStringList({"c1"}));

    const QImage shown = iconImage(":res/graph_option_view.png");
    const QImage clear = iconImage(":res/ptcloud/clear.png");
    struct Row {
        const char* text;
        bool eye;
        bool remove;
    };
    // The height map has no item in the scene; the points cannot be deleted;
    // the earth volume's area gives it an item.
    const Row rows[] = {{"Points", true, false}, {"m1", true, true},        {"Mesh", true, true},
                        {"HeightMap", false, true}, {"Contour", true, true}, {"Classify", true, true},
                        {"s1", true, true},        {"EarthVolume", true, true}, {"c1", true, true},
                        {"Meshes", false, false},  {"DEM", false, false},    {"Splits", false, false},
                        {"Peacees", false, false}};
    for (const Row& row : rows) {
        QTreeWidgetItem* item = findRow(f.tree, row.text);
        QVERIFY2(item, row.text);
        QCOMPARE(iconImage(item->icon(DataSetViewer::Column_Visible)) == shown, row.eye);
        QCOMPARE(iconImage(item->icon(DataSetViewer::Column_Delete)) == clear, row.remove);
    }
}

void TestDataSetViewer::visibilityTogglesTheSceneItem_data() { contentRows(false); }

void TestDataSetViewer::visibilityTogglesTheSceneItem()
{
    QFETCH(QString, row);
    QFETCH(PtCloudScene::EContentKind, kind);
    QFETCH(QString, name);
    Fixture f;
    QVERIFY(f.make(true));
    QTreeWidgetItem* item = findRow(f.tree, row);
    QVERIFY(item);
    QVERIFY(f.scene->isContentVisible(kind, name));
    const int page = f.pages()->currentIndex();
    f.viewer->onTreeWidgetItemClicked(item, DataSetViewer::Column_Visible);
    QVERIFY(!f.scene->isContentVisible(kind, name));
    QVERIFY(iconImage(item->icon(DataSetViewer::Column_Visible)) == iconImage(":res/graph_option_view_unchecked.png"));
    // A hidden point item draws nothing at all.
    if (kind == PtCloudScene::Content_Points) QCOMPARE(f.scene->pointsItem()->getNodeMask(), 0u);
    // The toggle is not a page change.
    QCOMPARE(f.pages()->currentIndex(), page);
    f.viewer->onTreeWidgetItemClicked(item, DataSetViewer::Column_Visible);
    QVERIFY(f.scene->isContentVisible(kind, name));
    QVERIFY(iconImage(item->icon(DataSetViewer::Column_Visible)) == iconImage(":res/graph_option_view.png"));
}

void TestDataSetViewer::deleteAsksAndRemoves_data() { contentRows(true); }

void TestDataSetViewer::deleteAsksAndRemoves()
{
    QFETCH(QString, row);
    QFETCH(PtCloudScene::EContentKind, kind);
    QFETCH(QString, name);
    QFETCH(QString, question);
    Fixture f;
    QVERIFY(f.make(true));
    PtCloudDataSet* ds = f.project.dataSet("survey");
    const auto fileOf = [&]() -> QString {
        switch (kind) {
        case PtCloudScene::Content_Mesh: return ds->getContent_Meshs()->value(name)->getFilepath();
        case PtCloudScene::Content_Split: return ds->getContent_Splits()->value(name)->getFilepath();
        case PtCloudScene::Content_Cut: return ds->getContent_Cuts()->value(name)->getFilepath();
        case PtCloudScene::Content_DemMesh: return ds->getFilePath_Dem_Mesh();
        case PtCloudScene::Content_DemHeightMap: return ds->getFilePath_Dem_HeightMap();
        case PtCloudScene::Content_DemContour: return ds->getFilePath_Dem_Contour();
        case PtCloudScene::Content_DemClassify: return ds->getFilePath_Dem_Classify();
        default: return ds->getContent_EarthVolume()->getFilepath();
        }
    };
    const QString file = fileOf();
    QVERIFY(QFile::exists(file));
    const bool hadItem = f.scene->hasContentItem(kind, name);

    // No keeps everything.
    ModalAnswerer answerer(QMessageBox::No);
    f.click(row, DataSetViewer::Column_Delete);
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("Confirm"));
    QCOMPARE(answerer.boxes[0].text, question);
    QVERIFY(findRow(f.tree, row));
    QVERIFY(QFile::exists(file));
    QCOMPARE(f.scene->hasContentItem(kind, name), hadItem);

    // Yes takes it from the tree, the scene and the disk.
    answerer.setAnswer(QMessageBox::Yes);
    f.click(row, DataSetViewer::Column_Delete);
    QCOMPARE(answerer.boxes.size(), 2);
    QTreeWidgetItem* left = findRow(f.tree, row);
    // The earth volume's branch heading stays, without its controls.
    if (kind == PtCloudScene::Content_EarthVolume)
        QVERIFY(left && left->icon(DataSetViewer::Column_Delete).isNull());
    else
        QVERIFY(!left);
    QVERIFY(!QFile::exists(file));
    QVERIFY(!f.scene->hasContentItem(kind, name));
}

void TestDataSetViewer::pointsPageShowsKnownNumbers()
{
    Fixture f;
    QVERIFY(f.make(true));
    f.click("Points");
    QCOMPARE(f.pages()->currentWidget()->objectName(),
             QString("page_points"));
    const QString text = pageText(f.viewer);
    // 10 x 10 points from (500000, 4000000) one metre apart, z rising 0.1 a metre.
    QVERIFY2(text.contains(">100<"), qPrintable(text));
    QVERIFY(text.contains("500000.000, 4000000.000, 100.000"));
    QVERIFY(text.contains("500009.000, 4000009.000, 100.900"));
    QVERIFY(text.contains(">Location<"));
    // A content row shows its own page; a branch heading the dataset's.
    f.click("s1");
    QCOMPARE(f.pages()->currentWidget()->objectName(),
             QString("page_split"));
    QVERIFY(pageText(f.viewer).contains(">s1<"));
    f.click("HeightMap");
    QVERIFY(pageText(f.viewer).contains("32 x 32 pixels"));
    f.click("Splits");
    QCOMPARE(f.pages()->currentIndex(),
             int(DataSetViewer::Page_DataSet));
    QVERIFY(pageText(f.viewer).contains(">survey<"));
}

void TestDataSetViewer::actionRunsAndAdoptsItsResult_data()
{
    QTest::addColumn<QString>("slot");
    QTest::addColumn<QString>("dialog");  // the parameter dialog; empty when the action has none
    QTest::addColumn<quint32>("points");
    // A DEM where there is none yet runs without a question.
    QTest::newRow("DEM") << "onClickedTool_DEM" << QString() << 3600u;
    QTest::newRow("Split by CSF") << "onClickedTool_Split" << "do_split_parameters_dlg" << 3600u;
    // Half of the 3600 points are kept, and shown, only after Sample.
    QTest::newRow("Sample") << "onClickedTool_Sample" << "do_sample_param_dlg" << 1800u;
    QTest::newRow("Noise") << "onClickedTool_EraseNoise" << "do_sample_param_dlg" << 3600u;
    QTest::newRow("Smooth") << "onClickedTool_Smooth" << "do_sample_param_dlg" << 3600u;
}

void TestDataSetViewer::actionRunsAndAdoptsItsResult()
{
    QFETCH(QString, slot);
    QFETCH(QString, dialog);
    QFETCH(quint32, points);
    ShownProject shown;
    QVERIFY(shown.make({{"ground", 60}}, pcVec3d(500000, 4000000, 100)));
    QVERIFY(shown.show());
    ModalAnswerer answerer(QMessageBox::Ok);
    QStringList seen;
    runParameters(answerer, &seen, [](QDialog* d) {
        if (auto* name = d->findChild<QLineEdit*>("lineEdit_name")) name->setText("classes");
        if (auto* function = d->findChild<QComboBox*>("comboBox_function")) function->setCurrentText("CSF");
        if (auto* share = d->findChild<QSlider*>("horizontalSlider_poisson_disk_target_percents")) share->setValue(50);
    });
    QVERIFY(QMetaObject::invokeMethod(shown.scene->dataSetViewer(), slot.toLatin1().constData()));
    QCOMPARE(seen, dialog.isEmpty() ? QStringList({"progress_bar_dlg"}) : QStringList({dialog, "progress_bar_dlg"}));
    QVERIFY2(answerer.boxes.isEmpty(), answerer.boxes.isEmpty() ? "" : qPrintable(answerer.boxes[0].text));
    QCOMPARE(shown.scene->pointsItem()->pointCount(), points);
    DataSetViewer* viewer = shown.scene->dataSetViewer();
    auto* tree = viewer->findChild<QTreeWidget*>("treeWidget_dataset");
    PtCloudDataSet* ds = shown.project.dataSet("ground");
    if (slot.endsWith("Split")) {
        QVERIFY(ds->getContent_Splits()->contains("classes"));
        QCOMPARE(childTexts(tree->topLevelItem(3)), QStringList({"classes"}));
        QVERIFY(shown.scene->hasContentItem(PtCloudScene::Content_Split, "classes"));
    }
    if (!slot.endsWith("DEM")) return;
    QVERIFY(ds->getContent_Dem_Mesh() && ds->getContent_Dem_HeightMap() && ds->getContent_Dem_Contour() &&
            ds->getContent_Dem_Classify());
    QCOMPARE(childTexts(tree->topLevelItem(2)), QStringList({"Mesh", "HeightMap", "Contour", "Classify"}));
    for (auto kind : {PtCloudScene::Content_DemMesh, PtCloudScene::Content_DemContour, PtCloudScene::Content_DemClassify})
        QVERIFY(shown.scene->hasContentItem(kind));
    // The classes of a plane: every point is ground or not, no point lost.
    viewer->onTreeWidgetItemClicked(findRow(tree, "Classify"), DataSetViewer::Column_Name);
    const QString text = pageText(viewer);
    const QRegularExpressionMatch ground = QRegularExpression(">ground points</td><td>([0-9,.\\s]+)<").match(text);
    const QRegularExpressionMatch other = QRegularExpression(">other points</td><td>([0-9,.\\s]+)<").match(text);
    QVERIFY2(ground.hasMatch() && other.hasMatch(), qPrintable(text));
    const auto number = [](QString s) { return s.remove(QRegularExpression("[^0-9]")).toInt(); };
    QCOMPARE(number(ground.captured(1)) + number(other.captured(1)), 3600);
}

void TestDataSetViewer::declinedActionChangesNothing_data()
{
    QTest::addColumn<QString>("slot");
    QTest::addColumn<QString>("question");  // empty: the parameter dialog is cancelled
    QTest::newRow("mesh") << "onClickedTool_Mesh" << QString();
    QTest::newRow("split") << "onClickedTool_Split" << QString();
    QTest::newRow("sample") << "onClickedTool_Sample" << QString();
    QTest::newRow("dem over an existing one")
        << "onClickedTool_DEM" << "You will remove the existed dem mesh, and then create a new one.\nAre you sure?";
}

void TestDataSetViewer::declinedActionChangesNothing()
{
    QFETCH(QString, slot);
    QFETCH(QString, question);
    Fixture f;
    QVERIFY(f.make(true));
    const QString folder = f.project.dataSet("survey")->getFolder();
    const QStringList before = filesIn(folder);
    ModalAnswerer answerer(QMessageBox::No);
    QStringList seen;
    answerer.setDialogHandler([&seen](QDialog* d) {
        seen << d->objectName();
        d->reject();
    });
    QVERIFY(QMetaObject::invokeMethod(f.viewer, slot.toLatin1().constData()));
    if (question.isEmpty()) {
        QCOMPARE(seen.size(), 1);
        QVERIFY(seen[0] != "progress_bar_dlg");
        QVERIFY(answerer.boxes.isEmpty());
    } else {
        QVERIFY(seen.isEmpty());
        QCOMPARE(answerer.boxes.size(), 1);
        QCOMPARE(answerer.boxes[0].title, QString("Question"));
        QCOMPARE(answerer.boxes[0].text, question);
    }
    QCOMPARE(filesIn(folder), before);
}

void TestDataSetViewer::resetEmptiesTheViewer()
{
    Fixture f;
    QVERIFY(f.make(true));
    auto* cut = new FakeTool(f.view.get(), QSize(100, 100));
    QPointer<FakeTool> guard(cut);
    f.viewer->openToolPanel(DataSetViewer::Tool_Cut, cut);
    f.viewer->reset();
    QVERIFY(f.viewer->dataSetName().isEmpty());
    QCOMPARE(f.tree->topLevelItemCount(), 0);
    QCOMPARE(f.pages()->currentIndex(), 0);
    QCOMPARE(f.viewer->toolPanel(DataSetViewer::Tool_Cut), nullptr);
    QTRY_VERIFY(guard.isNull());
    // Tool slots without a dataset do nothing at all.
    ModalAnswerer answerer;
    answerer.setDialogHandler([](QDialog* d) { d->reject(); });
    f.viewer->onClickedTool_Mesh();
    f.viewer->onClickedTool_Split();
    f.viewer->onClickedTool_Sample();
    f.viewer->onClickedTool_DEM();
    QCOMPARE(answerer.otherDialogs, 0);
    QVERIFY(answerer.boxes.isEmpty());
}

QTEST_MAIN(TestDataSetViewer)
#include "tst_DataSetViewer.moc"
