// The LAS files dialog on a real project: its table, the import with its
// folder history (a cancelled file dialog changes nothing, a failed import
// still remembers the folder), the removal question and its failure, the
// description of the selected file, and the owner told of every change.

#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableWidget>
#include <QtTest>

#include "AppConfig.h"
#include "Dlg_LasFiles.h"
#include "ModalAnswerer.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "ShownView.h"
#include "TestProject.h"

using namespace ptCloud;

namespace {

// The dialog with its file question answered by the test.
class ScriptedLasFiles : public Dlg_LasFiles {
public:
    using Dlg_LasFiles::Dlg_LasFiles;
    QString answer;
    QStringList askedFrom;

protected:
    QString askLasFilePath(const QString& startDirectory) override
    {
        askedFrom << startDirectory;
        return answer;
    }
};

QString history() { return AppConfig::getInstance().module_openSaveHistory().getHistory(Dlg_LasFiles::historyKey()); }

QStringList rowKeys(const QTableWidget* table)
{
    QStringList keys;
    for (int r = 0; r < table->rowCount(); ++r) keys << table->item(r, 0)->text();
    return keys;
}

QPushButton* removeButton(const QTableWidget* table, int row)
{
    return qobject_cast<QPushButton*>(table->cellWidget(row, 1));
}

}  // namespace

class TestDlgLasFiles : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void withoutControllerDisabledAndEmpty();
    void tableListsFilesInKeyOrder();
    void cancelledFileDialogChangesNothing();
    void failedImportStillRemembersTheFolder();
    void importAddsARowAndTellsTheOwner();
    void removeAsksFirst_data();
    void removeAsksFirst();
    void failedRemovalKeepsTheRow();
    void selectedFileIsDescribed();

private:
    QTemporaryDir m_settings;
    QTemporaryDir m_files;
};

void TestDlgLasFiles::initTestCase()
{
    QVERIFY(m_settings.isValid() && m_files.isValid());
    TestProject::isolateSettings(m_settings.path());
    for (const char* name : {"b.las", "a.las", "c.las"})
        QVERIFY(TestProject::writeGridLas(m_files.filePath(name), 10, pcVec3d(100, 200, 5), false));
}

void TestDlgLasFiles::withoutControllerDisabledAndEmpty()
{
    Dlg_LasFiles dialog(nullptr);
    QCOMPARE(dialog.objectName(), QString("las_files_dialog"));
    QCOMPARE(dialog.windowTitle(), QString("Las Files"));
    QVERIFY(!(dialog.windowFlags() & Qt::WindowContextHelpButtonHint));
    auto* table = dialog.findChild<QTableWidget*>("tableWidget_lasfiles");
    QVERIFY(!dialog.isEnabled());
    QCOMPARE(table->rowCount(), 0);
    QCOMPARE(table->columnCount(), 2);
    QCOMPARE(table->horizontalHeaderItem(0)->text(), QString("name"));
    QCOMPARE(table->horizontalHeaderItem(1)->text(), QString("delete"));
    QCOMPARE(table->columnWidth(0), 200);
    QCOMPARE(table->columnWidth(1), 50);
    dialog.setController(nullptr);
    QVERIFY(!dialog.isEnabled());

    // A controller given and taken away leaves it as it was.
    TestProject project;
    QVERIFY(project.open());
    QString key;
    QCOMPARE(project.controller()->doCmd_LasFile_Import({m_files.filePath("a.las")}, &key), PCAR_Success);
    dialog.setController(project.controller());
    QVERIFY(dialog.isEnabled());
    QCOMPARE(table->rowCount(), 1);
    dialog.setController(nullptr);
    QVERIFY(!dialog.isEnabled());
    QCOMPARE(table->rowCount(), 0);
}

void TestDlgLasFiles::tableListsFilesInKeyOrder()
{
    TestProject project;
    QVERIFY(project.open());
    for (const char* name : {"b.las", "c.las", "a.las"}) {
        QString key;
        QCOMPARE(project.controller()->doCmd_LasFile_Import({m_files.filePath(name)}, &key), PCAR_Success);
    }
    QMap<QString, QString> files;
    project.controller()->getLasFilepaths(files);
    Dlg_LasFiles dialog(nullptr);
    dialog.setController(project.controller());
    auto* table = dialog.findChild<QTableWidget*>("tableWidget_lasfiles");
    QCOMPARE(rowKeys(table), files.keys());
    for (int r = 0; r < table->rowCount(); ++r) {
        QCOMPARE(table->item(r, 0)->textAlignment(), int(Qt::AlignHCenter | Qt::AlignVCenter));
        QPushButton* button = removeButton(table, r);
        QVERIFY(button);
        QVERIFY(button->isFlat());
        QCOMPARE(button->property("las_file_name").toString(), table->item(r, 0)->text());
        QCOMPARE(button->styleSheet(), QString("QPushButton{border:none;background:transparent;}"));
        QVERIFY(button->icon().pixmap(16).toImage() == QIcon(":res/trash.png").pixmap(16).toImage());
    }
}

void TestDlgLasFiles::cancelledFileDialogChangesNothing()
{
    TestProject project;
    QVERIFY(project.open());
    AppConfig::getInstance().module_openSaveHistory().setHistory(Dlg_LasFiles::historyKey(), m_files.path());
    ScriptedLasFiles dialog(nullptr);
    dialog.setController(project.controller());
    ModalAnswerer answerer;
    dialog.findChild<QPushButton*>("pushButton_add_lasfile")->click();
    QCOMPARE(dialog.askedFrom, QStringList({m_files.path()}));
    QCOMPARE(history(), m_files.path());
    QCOMPARE(dialog.findChild<QTableWidget*>("tableWidget_lasfiles")->rowCount(), 0);
    QVERIFY(answerer.boxes.isEmpty());
}

void TestDlgLasFiles::failedImportStillRemembersTheFolder()
{
    TestProject project;
    QVERIFY(project.open());
    QTemporaryDir elsewhere;
    QFile bogus(elsewhere.filePath("notes.las"));
    QVERIFY(bogus.open(QIODevice::WriteOnly) && bogus.write("not a point cloud") > 0);
    bogus.close();
    AppConfig::getInstance().module_openSaveHistory().setHistory(Dlg_LasFiles::historyKey(), m_files.path());
    ScriptedLasFiles dialog(nullptr);
    dialog.setController(project.controller());
    dialog.answer = bogus.fileName();
    ModalAnswerer answerer(QMessageBox::Ok);
    dialog.findChild<QPushButton*>("pushButton_add_lasfile")->click();
    QCOMPARE(QDir(history()), QDir(elsewhere.path()));
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("error"));
    QCOMPARE(answerer.boxes[0].text, QString("Import las file failed."));
    QCOMPARE(answerer.boxes[0].icon, QMessageBox::Critical);
    QCOMPARE(dialog.findChild<QTableWidget*>("tableWidget_lasfiles")->rowCount(), 0);
    QMap<QString, QString> files;
    project.controller()->getLasFilepaths(files);
    QVERIFY(files.isEmpty());
}

void TestDlgLasFiles::importAddsARowAndTellsTheOwner()
{
    ShownProject shown;
    QVERIFY(shown.make({}));
    QVERIFY(shown.show());
    QSignalSpy save(shown.view.get(), SIGNAL(sgNeedSaveProject()));
    ScriptedLasFiles dialog(shown.scene);
    dialog.setController(shown.project.controller());
    dialog.answer = m_files.filePath("c.las");
    dialog.findChild<QPushButton*>("pushButton_add_lasfile")->click();
    QMap<QString, QString> files;
    shown.project.controller()->getLasFilepaths(files);
    QCOMPARE(files.size(), 1);
    QCOMPARE(rowKeys(dialog.findChild<QTableWidget*>("tableWidget_lasfiles")), files.keys());
    QCOMPARE(save.count(), 1);
    QCOMPARE(QDir(history()), QDir(m_files.path()));
}

void TestDlgLasFiles::removeAsksFirst_data()
{
    QTest::addColumn<bool>("yes");
    QTest::newRow("no keeps the reference") << false;
    QTest::newRow("yes removes it") << true;
}

void TestDlgLasFiles::removeAsksFirst()
{
    QFETCH(bool, yes);
    ShownProject shown;
    QVERIFY(shown.make({}));
    QVERIFY(shown.show());
    for (const char* name : {"a.las", "b.las"}) {
        QString key;
        QCOMPARE(shown.project.controller()->doCmd_LasFile_Import({m_files.filePath(name)}, &key), PCAR_Success);
    }
    QSignalSpy save(shown.view.get(), SIGNAL(sgNeedSaveProject()));
    Dlg_LasFiles dialog(shown.scene);
    dialog.setController(shown.project.controller());
    auto* table = dialog.findChild<QTableWidget*>("tableWidget_lasfiles");
    const QStringList before = rowKeys(table);
    ModalAnswerer answerer(yes ? QMessageBox::Yes : QMessageBox::No);
    removeButton(table, 0)->click();
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("Confirm"));
    QCOMPARE(answerer.boxes[0].text, QString("Be sure to delete the las file reference?"));
    QMap<QString, QString> files;
    shown.project.controller()->getLasFilepaths(files);
    const QStringList expected = yes ? QStringList(before.mid(1)) : before;
    QCOMPARE(rowKeys(table), expected);
    QCOMPARE(files.keys(), expected);
    QCOMPARE(save.count(), yes ? 1 : 0);
}

void TestDlgLasFiles::failedRemovalKeepsTheRow()
{
    TestProject project;
    QVERIFY(project.open());
    QString key;
    QCOMPARE(project.controller()->doCmd_LasFile_Import({m_files.filePath("a.las")}, &key), PCAR_Success);
    Dlg_LasFiles dialog(nullptr);
    dialog.setController(project.controller());
    // Someone else removed the reference meanwhile.
    QCOMPARE(project.controller()->doCmd_LasFile_Remove({key}), PCAR_Success);
    auto* table = dialog.findChild<QTableWidget*>("tableWidget_lasfiles");
    ModalAnswerer answerer(QMessageBox::Yes);
    removeButton(table, 0)->click();
    QCOMPARE(answerer.boxes.size(), 2);
    QCOMPARE(answerer.boxes[1].title, QString("error"));
    QCOMPARE(answerer.boxes[1].text, QString("Remove las file failed."));
    QCOMPARE(rowKeys(table), QStringList({key}));
}

void TestDlgLasFiles::selectedFileIsDescribed()
{
    TestProject project;
    QVERIFY(project.open());
    QString key;
    QCOMPARE(project.controller()->doCmd_LasFile_Import({m_files.filePath("b.las")}, &key), PCAR_Success);
    Dlg_LasFiles dialog(nullptr);
    dialog.setController(project.controller());
    auto* description = dialog.findChild<QPlainTextEdit*>("plainTextEdit");
    QVERIFY(description->toPlainText().isEmpty());
    dialog.findChild<QTableWidget*>("tableWidget_lasfiles")->selectRow(0);
    const QString text = description->toPlainText();
    // 10 x 10 points from (100, 200, 5), z rising 0.1 a metre along x.
    QVERIFY2(text.contains("points: 100"), qPrintable(text));
    QVERIFY(text.contains("min: 100.000, 200.000, 5.000"));
    QVERIFY(text.contains("max: 109.000, 209.000, 5.900"));
    QVERIFY(text.contains(m_files.filePath("b.las")));
}

QTEST_MAIN(TestDlgLasFiles)
#include "tst_Dlg_LasFiles.moc"
