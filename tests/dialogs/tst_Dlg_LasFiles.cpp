// The LAS files dialog on a real project: its table, the import with its
// folder history (a cancelled file dialog changes nothing, a failed import
// still remembers the folder), the removal question and its failure, the
// description of the selected file, and the owner told of every change.

#include <QDir>
#include <QFile>
#include <QFileInfo>
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

QString imported(PtCloud_Controller* controller, const QString& path)
{
    QString key;
    return controller->doCmd_LasFile_Import({path}, &key) == PCAR_Success ? key : QString();
}

QStringList lasKeys(PtCloud_Controller* controller)
{
    QMap<QString, QString> files;
    controller->getLasFilepaths(files);
    return files.keys();
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
    void importRemembersTheChosenFolder_data();
    void importRemembersTheChosenFolder();
    void removeAsksFirst_data();
    void removeAsksFirst();
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
    auto* table = dialog.findChild<QTableWidget*>("tableWidget_lasfiles");
    QVERIFY(!dialog.isEnabled());
    QCOMPARE(table->rowCount(), 0);
    dialog.setController(nullptr);
    QVERIFY(!dialog.isEnabled());

    // A controller given and taken away leaves it as it was.
    TestProject project;
    QVERIFY(project.open());
    QVERIFY(!imported(project.controller(), m_files.filePath("a.las")).isEmpty());
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
    for (const char* name : {"b.las", "c.las", "a.las"})
        QVERIFY(!imported(project.controller(), m_files.filePath(name)).isEmpty());
    Dlg_LasFiles dialog(nullptr);
    dialog.setController(project.controller());
    auto* table = dialog.findChild<QTableWidget*>("tableWidget_lasfiles");
    QCOMPARE(rowKeys(table), lasKeys(project.controller()));
    for (int r = 0; r < table->rowCount(); ++r) {
        QPushButton* button = removeButton(table, r);
        QVERIFY(button);
        QCOMPARE(button->property("las_file_name").toString(), table->item(r, 0)->text());
    }
}

void TestDlgLasFiles::importRemembersTheChosenFolder_data()
{
    QTest::addColumn<QString>("answer");  // a file written here, "notes" that is no LAS, or empty: cancelled
    QTest::newRow("cancelled file dialog changes nothing") << QString();
    QTest::newRow("failed import, folder still remembered") << "notes";
    QTest::newRow("import adds a row and tells the owner") << "c.las";
}

void TestDlgLasFiles::importRemembersTheChosenFolder()
{
    QFETCH(QString, answer);
    ShownProject shown;
    QVERIFY(shown.make({}));
    QVERIFY(shown.show());
    QTemporaryDir elsewhere;
    QString path = answer.isEmpty() ? QString() : m_files.filePath(answer);
    if (answer == "notes") {
        QFile bogus(elsewhere.filePath("notes.las"));
        QVERIFY(bogus.open(QIODevice::WriteOnly) && bogus.write("not a point cloud") > 0);
        path = bogus.fileName();
    }
    const QString start = m_settings.path();
    AppConfig::getInstance().module_openSaveHistory().setHistory(Dlg_LasFiles::historyKey(), start);
    QSignalSpy save(shown.view.get(), SIGNAL(sgNeedSaveProject()));
    ScriptedLasFiles dialog(shown.scene);
    dialog.setController(shown.project.controller());
    dialog.answer = path;
    ModalAnswerer answerer(QMessageBox::Ok);
    dialog.findChild<QPushButton*>("pushButton_add_lasfile")->click();
    QCOMPARE(dialog.askedFrom, QStringList({start}));
    QCOMPARE(QDir(history()), QDir(path.isEmpty() ? start : QFileInfo(path).absolutePath()));
    const bool imports = answer.endsWith(".las");
    const QStringList keys = lasKeys(shown.project.controller());
    QCOMPARE(keys.size(), imports ? 1 : 0);
    QCOMPARE(rowKeys(dialog.findChild<QTableWidget*>("tableWidget_lasfiles")), keys);
    QCOMPARE(save.count(), imports ? 1 : 0);
    if (answer != "notes") {
        QVERIFY(answerer.boxes.isEmpty());
        return;
    }
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("error"));
    QCOMPARE(answerer.boxes[0].text, QString("Import las file failed."));
    QCOMPARE(answerer.boxes[0].icon, QMessageBox::Critical);
    // The reason names the file that could not be read.
    QVERIFY2(answerer.boxes[0].informativeText.contains("notes.las"), qPrintable(answerer.boxes[0].informativeText));
}

void TestDlgLasFiles::removeAsksFirst_data()
{
    QTest::addColumn<QString>("answer");
    QTest::newRow("no keeps the reference") << "no";
    QTest::newRow("yes removes it") << "yes";
    QTest::newRow("removed meanwhile: the row stays") << "gone";
}

void TestDlgLasFiles::removeAsksFirst()
{
    QFETCH(QString, answer);
    ShownProject shown;
    QVERIFY(shown.make({}));
    QVERIFY(shown.show());
    PtCloud_Controller* c = shown.project.controller();
    for (const char* name : {"a.las", "b.las"}) QVERIFY(!imported(c, m_files.filePath(name)).isEmpty());
    Dlg_LasFiles dialog(shown.scene);
    dialog.setController(c);
    auto* table = dialog.findChild<QTableWidget*>("tableWidget_lasfiles");
    const QStringList before = rowKeys(table);
    // Someone else removes the reference while the dialog shows it.
    if (answer == "gone") QCOMPARE(c->doCmd_LasFile_Remove({before[0]}), PCAR_Success);
    QSignalSpy save(shown.view.get(), SIGNAL(sgNeedSaveProject()));
    ModalAnswerer answerer(answer == "no" ? QMessageBox::No : QMessageBox::Yes);
    removeButton(table, 0)->click();
    QCOMPARE(answerer.boxes.size(), answer == "gone" ? 2 : 1);
    QCOMPARE(answerer.boxes[0].title, QString("Confirm"));
    QCOMPARE(answerer.boxes[0].text, QString("Be sure to delete the las file reference?"));
    QCOMPARE(lasKeys(c), answer == "no" ? before : QStringList(before.mid(1)));
    QCOMPARE(rowKeys(table), answer == "yes" ? QStringList(before.mid(1)) : before);
    QCOMPARE(save.count(), answer == "yes" ? 1 : 0);
    if (answer != "gone") return;
    QCOMPARE(answerer.boxes[1].title, QString("error"));
    QCOMPARE(answerer.boxes[1].text, QString("Remove las file failed."));
}

void TestDlgLasFiles::selectedFileIsDescribed()
{
    TestProject project;
    QVERIFY(project.open());
    QVERIFY(!imported(project.controller(), m_files.filePath("b.las")).isEmpty());
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
