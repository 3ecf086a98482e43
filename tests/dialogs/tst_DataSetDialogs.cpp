// The selection, rename, copy and merge dialogs on a real project: each runs
// its controller command, keeps OK off until its inputs make sense, shows
// the command's failure text in a box titled "error" and stays open, and
// accepts when the command succeeds.

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QtTest>

#include "Dlg_CopyDataSet.h"
#include "Dlg_MergeDataSet.h"
#include "Dlg_RenameDataSet.h"
#include "Dlg_SelectDataSet.h"
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

quint64 pointCount(PtCloudDataSet* ds)
{
    PtCloud_DataSetFile file(ds->getFilePath_Points());
    return file.openFile() ? file.getHeader().pointCount : 0;
}

QPushButton* okOf(QDialog* d) { return d->findChild<QPushButton*>("pushButton_ok"); }
QLineEdit* nameOf(QDialog* d) { return d->findChild<QLineEdit*>("lineEdit_name"); }

QStringList listed(QListWidget* list)
{
    QStringList names;
    for (int i = 0; i < list->count(); ++i) names << list->item(i)->text();
    return names;
}

}  // namespace

class TestDataSetDialogs : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void copyMakesANamedCopy();
    void mergeNeedsTwoDataSets();
    void renameRules_data();
    void renameRules();
    void selectionPreselectsTheShownDataSet();
    void selectionRemovesAfterAsking_data();
    void selectionRemovesAfterAsking();
    void failureShowsItsTextAndKeepsTheDialog_data();
    void failureShowsItsTextAndKeepsTheDialog();
    void selectionRenames();

private:
    QTemporaryDir m_settings;
    std::unique_ptr<ShownProject> m_shown;
};

void TestDataSetDialogs::initTestCase()
{
    QVERIFY(m_settings.isValid());
    TestProject::isolateSettings(m_settings.path());
}

void TestDataSetDialogs::init()
{
    m_shown = std::make_unique<ShownProject>();
    QVERIFY(m_shown->make({{"alpha", 10}, {"beta", 6}}));
    QVERIFY(m_shown->show());
}

void TestDataSetDialogs::cleanup() { m_shown.reset(); }

void TestDataSetDialogs::copyMakesANamedCopy()
{
    Dlg_CopyDataSet dialog(m_shown->scene);
    auto* source = dialog.findChild<QComboBox*>("comboBox_source");
    QCOMPARE(source->currentText(), QString("alpha"));
    QVERIFY(!okOf(&dialog)->isEnabled());
    nameOf(&dialog)->setText("ALPHA");
    QVERIFY(!okOf(&dialog)->isEnabled());
    source->setCurrentText("beta");
    nameOf(&dialog)->setText(" beta copy ");
    QVERIFY(okOf(&dialog)->isEnabled());
    okOf(&dialog)->click();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    PtCloudDataSet* copy = m_shown->project.dataSet("beta copy");
    QVERIFY(copy);
    QCOMPARE(pointCount(copy), quint64(36));
}

void TestDataSetDialogs::mergeNeedsTwoDataSets()
{
    Dlg_MergeDataSet dialog(m_shown->scene);
    auto* list = dialog.findChild<QListWidget*>("listWidget_sources");
    QCOMPARE(listed(list), QStringList({"alpha", "beta"}));
    nameOf(&dialog)->setText("both");
    QVERIFY(!okOf(&dialog)->isEnabled());
    list->item(0)->setCheckState(Qt::Checked);
    QVERIFY(!okOf(&dialog)->isEnabled());
    list->item(1)->setCheckState(Qt::Checked);
    QVERIFY(okOf(&dialog)->isEnabled());
    QCOMPARE(dialog.checkedSources(), QStringList({"alpha", "beta"}));
    okOf(&dialog)->click();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(pointCount(m_shown->project.dataSet("both")), quint64(100 + 36));
}

void TestDataSetDialogs::renameRules_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("ok");
    QTest::newRow("unchanged") << "alpha" << false;
    QTest::newRow("another dataset's name") << "Beta" << false;
    QTest::newRow("forbidden character") << "al:pha" << false;
    QTest::newRow("only its letter case") << "Alpha" << true;
    QTest::newRow("new name") << "north" << true;
}

void TestDataSetDialogs::renameRules()
{
    QFETCH(QString, typed);
    QFETCH(bool, ok);
    Dlg_RenameDataSet dialog(m_shown->project.controller(), "alpha");
    QCOMPARE(nameOf(&dialog)->text(), QString("alpha"));
    nameOf(&dialog)->setText(typed);
    QCOMPARE(okOf(&dialog)->isEnabled(), ok);
    if (!ok) return;
    okOf(&dialog)->click();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(m_shown->project.dataSet(typed));
    // The shown dataset follows its new name.
    QCOMPARE(m_shown->scene->currentDataSetName(), typed);
}

void TestDataSetDialogs::selectionPreselectsTheShownDataSet()
{
    Dlg_SelectDataSet dialog(m_shown->project.controller(), {"alpha", "beta"}, "beta");
    QCOMPARE(dialog.selectedName(), QString("beta"));
    QVERIFY(okOf(&dialog)->isEnabled());
    Dlg_SelectDataSet none(m_shown->project.controller(), {"alpha", "beta"}, QString());
    QVERIFY(none.selectedName().isEmpty());
    QVERIFY(!okOf(&none)->isEnabled());
    QVERIFY(!none.findChild<QPushButton*>("pushButton_remove")->isEnabled());
}

void TestDataSetDialogs::selectionRemovesAfterAsking_data()
{
    QTest::addColumn<bool>("yes");
    QTest::newRow("no") << false;
    QTest::newRow("yes") << true;
}

void TestDataSetDialogs::selectionRemovesAfterAsking()
{
    QFETCH(bool, yes);
    Dlg_SelectDataSet dialog(m_shown->project.controller(), {"alpha", "beta"}, "alpha");
    ModalAnswerer answerer(yes ? QMessageBox::Yes : QMessageBox::No);
    dialog.findChild<QPushButton*>("pushButton_remove")->click();
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("Confirm"));
    QCOMPARE(listed(dialog.findChild<QListWidget*>("listWidget_datasets")),
             yes ? QStringList({"beta"}) : QStringList({"alpha", "beta"}));
    QCOMPARE(m_shown->project.dataSet("alpha") != nullptr, !yes);
    // The scene moved on from the removed dataset.
    QCOMPARE(m_shown->scene->currentDataSetName(), QString(yes ? "beta" : "alpha"));
}

void TestDataSetDialogs::failureShowsItsTextAndKeepsTheDialog_data()
{
    QTest::addColumn<QString>("dialog");
    QTest::addColumn<QString>("text");
    QTest::newRow("copy") << "copy" << "Copy dataSet failed.";
    QTest::newRow("rename") << "rename" << "Failed with unknow error.";
    QTest::newRow("selection remove") << "remove" << "Remove las file failed.";
}

void TestDataSetDialogs::failureShowsItsTextAndKeepsTheDialog()
{
    QFETCH(QString, dialog);
    QFETCH(QString, text);
    PtCloud_Controller* c = m_shown->project.controller();
    std::unique_ptr<QDialog> d;
    if (dialog == "copy")
        d = std::make_unique<Dlg_CopyDataSet>(m_shown->scene);
    else if (dialog == "rename")
        d = std::make_unique<Dlg_RenameDataSet>(c, "alpha");
    else
        d = std::make_unique<Dlg_SelectDataSet>(c, QStringList{"alpha", "beta"}, "beta");
    if (dialog != "remove") nameOf(d.get())->setText("taken");
    // What the dialog was filled in for changes before its button is pressed.
    QCOMPARE(dialog == "remove" ? c->doCmd_DataSet_Remove({"beta"}) : c->doCmd_DataSet_Copy({"beta", "taken"}),
             PCAR_Success);
    ModalAnswerer answerer(QMessageBox::Yes);
    d->findChild<QPushButton*>(dialog == "remove" ? "pushButton_remove" : "pushButton_ok")->click();
    QVERIFY(!answerer.boxes.isEmpty());
    QCOMPARE(answerer.boxes.last().title, QString("error"));
    QCOMPARE(answerer.boxes.last().text, text);
    QVERIFY(d->result() != QDialog::Accepted);
    QVERIFY(m_shown->project.dataSet("alpha"));
    if (dialog == "remove")
        QCOMPARE(listed(d->findChild<QListWidget*>("listWidget_datasets")), QStringList({"alpha", "beta"}));
    else
        QCOMPARE(pointCount(m_shown->project.dataSet("taken")), quint64(36));
}

void TestDataSetDialogs::selectionRenames()
{
    Dlg_SelectDataSet dialog(m_shown->project.controller(), {"alpha", "beta"}, "beta");
    ModalAnswerer answerer;
    answerer.setDialogHandler([](QDialog* rename) {
        nameOf(rename)->setText("delta");
        okOf(rename)->click();
    });
    dialog.findChild<QPushButton*>("pushButton_rename")->click();
    QCOMPARE(answerer.otherDialogs, 1);
    QCOMPARE(listed(dialog.findChild<QListWidget*>("listWidget_datasets")), QStringList({"alpha", "delta"}));
    QCOMPARE(dialog.selectedName(), QString("delta"));
    QVERIFY(m_shown->project.dataSet("delta"));
}

QTEST_MAIN(TestDataSetDialogs)
#include "tst_DataSetDialogs.moc"
