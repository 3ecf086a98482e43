// The long-action runner: which controller operation each code reaches,
// what each result shows and whether the dialog stays, the stop question and
// a cooperative stop that resets the controller, and the progress log.
// Commands are scripted through a thread whose controller calls are replaced;
// a real project on a temporary folder supplies the controller.

#include <QFile>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QtTest>
#include <atomic>
#include <functional>
#include <stdexcept>

#include "Dlg_Progress_P3DWrapper.h"
#include "LasWriter.h"
#include "ModalAnswerer.h"
#include "P3DWrapperThread.h"
#include "PtCloudDataSet.h"
#include "PtCloud_Controller.h"
#include "PtCloud_Project.h"
#include "PtCloud_SimpleProgress.h"
#include "RecordingTranslator.h"

using namespace ptCloud;

namespace {
const int kWaitMs = 20000;

// What the runner must show for a result, written out here on their own.
QString messageFor(int result)
{
    switch (result) {
    case 5: return "Failed with error : invalid datset.";
    case 7: return "Failed with error : function can not execute.";
    case 8: return "Failed with error : function execute failed.";
    case 9:
    case 10: return "Failed with error : function execute crashed.";
    default: return "Failed with error : unknow error.";
    }
}

// The command a scripted thread runs in place of the controller's
// operation; it sees the record the thread built and reports through the
// dialog's interface as the library does.
using Script = std::function<EEPtCloudActResult(const stControlParam_DataSet_Do&, ILongLiveActionProgress*)>;

class ScriptedThread : public P3DWrapperThread {
public:
    ScriptedThread(PtCloud_Controller* controller, int func, const QVariant& params, Script script,
                   QString* reached = nullptr)
        : P3DWrapperThread(controller, "ds", func, params, "target"), m_script(std::move(script)), m_reached(reached)
    {
    }

protected:
    EEPtCloudActResult doMesh(const stControlParam_DataSet_Do_Mesh& p) override { return reach("mesh", p); }
    EEPtCloudActResult doSplit(const stControlParam_DataSet_Do_Split& p) override { return reach("split", p); }
    EEPtCloudActResult doSample(const stControlParam_DataSet_Do_Sample& p) override { return reach("sample", p); }

private:
    EEPtCloudActResult reach(const QString& operation, const stControlParam_DataSet_Do& p)
    {
        if (m_reached) *m_reached = operation;  // read by the test once the thread is gone
        return m_script(p, progressSink());
    }
    Script m_script;
    QString* m_reached;
};

class ScriptedDialog : public Dlg_Progress_P3DWrapper {
public:
    explicit ScriptedDialog(ScriptedThread* thread) : Dlg_Progress_P3DWrapper(thread, nullptr) {}
    // The worker calls progress() below: stop it before this part is gone.
    ~ScriptedDialog() override { stopCommand(); }
    // Each poll of a running command reads the progress once.
    int progress() override
    {
        ++polls;
        return Dlg_Progress_P3DWrapper::progress();
    }
    int polls = 0;  // interface thread only
};

Script returning(EEPtCloudActResult r)
{
    return [r](const stControlParam_DataSet_Do&, ILongLiveActionProgress*) { return r; };
}

// Waits, inside the command, until the test lets it go or asks it to stop.
bool waitFor(const std::atomic<bool>& flag, ILongLiveActionProgress* progress)
{
    QElapsedTimer t;
    t.start();
    while (!flag && !progress->isStopRequested() && t.elapsed() < kWaitMs) QThread::msleep(5);
    return flag;
}

QStringList logLines(QDialog* d)
{
    return d->findChild<QPlainTextEdit*>("plainTextEdit")->toPlainText().split('\n', Qt::SkipEmptyParts);
}

QPushButton* cancelButton(QDialog* d) { return d->findChild<QPushButton*>("pushButton_cancel"); }

bool showsResult(QDialog* d)
{
    const QStringList lines = logLines(d);
    return !d->isVisible() || (!lines.isEmpty() && lines.last().startsWith("Failed with error"));
}

// A project with one small dataset "ds" made from a LAS file of a tilted plane.
bool makeProject(const QTemporaryDir& dir, PtCloud_Project* project, QString* error)
{
    const QString las = dir.filePath("plane.las");
    stPtCloud_PointArray a;
    a.origin = pcVec3d(500000, 4000000, 100);
    a.resize(400);
    for (int i = 0; i < 400; ++i)
        a.positions[size_t(i)] = pcVec3f(float(i % 20) * 0.5f, float(i / 20) * 0.5f, float(i % 20) * 0.1f);
    const double scale[3] = {0.001, 0.001, 0.001};
    const double offset[3] = {500000, 4000000, 100};
    LasWriter writer;
    if (!writer.open(las, false, scale, offset, QString(), error) || !writer.write(a, error) || !writer.close(error))
        return false;
    if (!project->open(dir.filePath("project"), error)) return false;
    QString key;
    PtCloud_Controller* c = project->getController();
    if (c->doCmd_LasFile_Import({las}, &key) != PCAR_Success) {
        *error = "import: " + key;
        return false;
    }
    if (c->doCmd_DataSet_Make({{key}, {DSC_Location}, "ds"}) != PCAR_Success) {
        *error = "make: " + c->lastError();
        return false;
    }
    return true;
}
}  // namespace

class TestRunner : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void unknownCodesRunNothing_data();
    void unknownCodesRunNothing();
    void codesReachTheirOperation_data();
    void codesReachTheirOperation();
    void resultsShowTheirMessage_data();
    void resultsShowTheirMessage();
    void realControllerOutcomeMatchesMessage_data();
    void realControllerOutcomeMatchesMessage();
    void answeringNoKeepsTheCommandRunning_data();
    void answeringNoKeepsTheCommandRunning();
    void stoppingResetsTheController_data();
    void stoppingResetsTheController();
    void progressTextOnlyWithANewValue_data();
    void progressTextOnlyWithANewValue();
    void textsUseTheFormContext();

private:
    QTemporaryDir m_dir;
    PtCloud_Project m_project;
    QString m_projectError;
};

void TestRunner::initTestCase()
{
    QVERIFY(m_dir.isValid());
    if (!makeProject(m_dir, &m_project, &m_projectError)) qWarning("no project: %s", qPrintable(m_projectError));
}

void TestRunner::unknownCodesRunNothing_data()
{
    QTest::addColumn<int>("code");
    for (int code : {4, 99, 108, 199, 201, -1}) QTest::addRow("%d", code) << code;
}

void TestRunner::unknownCodesRunNothing()
{
    QFETCH(int, code);
    QVERIFY2(m_project.isOpen(), qPrintable(m_projectError));
    Dlg_Progress_P3DWrapper d(m_project.getController(), "ds", code, QVariantList{1.0}, "target");
    d.show();
    QTRY_VERIFY_WITH_TIMEOUT(showsResult(&d), kWaitMs);
    QVERIFY(d.isVisible());
    QCOMPARE(logLines(&d), QStringList{messageFor(7)});

    QString reached;
    ScriptedDialog scripted(new ScriptedThread(nullptr, code, QVariant(), returning(PCAR_Success), &reached));
    scripted.show();
    QTRY_VERIFY_WITH_TIMEOUT(showsResult(&scripted), kWaitMs);
    QCOMPARE(reached, QString());
    QCOMPARE(logLines(&scripted), QStringList{messageFor(7)});
}

void TestRunner::codesReachTheirOperation_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("operation");
    for (int code : {0, 1, 2, 3}) QTest::addRow("%d", code) << code << "mesh";
    for (int code = 100; code <= 107; ++code) QTest::addRow("%d", code) << code << "split";
    QTest::newRow("200") << 200 << "sample";
}

void TestRunner::codesReachTheirOperation()
{
    QFETCH(int, code);
    QFETCH(QString, operation);
    const QVariant params = QVariantList{0.25, 9, true};
    stControlParam_DataSet_Do seen;
    QString reached;
    auto* thread = new ScriptedThread(
        nullptr, code, params,
        [&seen](const stControlParam_DataSet_Do& p, ILongLiveActionProgress*) {
            seen = p;
            return PCAR_Success;
        },
        &reached);
    ScriptedDialog d(thread);
    d.show();
    QTRY_VERIFY_WITH_TIMEOUT(showsResult(&d), kWaitMs);
    QCOMPARE(d.result(), int(QDialog::Accepted));
    QVERIFY(logLines(&d).isEmpty());
    QCOMPARE(reached, operation);
    QCOMPARE(seen.dataSetName, QString("ds"));
    QCOMPARE(seen.targetName, QString("target"));
    QCOMPARE(seen.func, code);
    QCOMPARE(seen.params, params);
}

void TestRunner::resultsShowTheirMessage_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("throws");
    QTest::addColumn<bool>("staysOpen");
    for (int r : {1, 2, 3, 4, 5, 6, 7, 8, 9, 42}) QTest::addRow("%d", r) << r << false << true;
    QTest::newRow("10 crashed and closed") << 10 << false << false;
    QTest::newRow("exception") << 9 << true << true;
}

void TestRunner::resultsShowTheirMessage()
{
    QFETCH(int, result);
    QFETCH(bool, throws);
    QFETCH(bool, staysOpen);
    auto* thread = new ScriptedThread(nullptr, 200, QVariant(),
                                      [=](const stControlParam_DataSet_Do&, ILongLiveActionProgress*) {
                                          if (throws) throw std::runtime_error("out of memory");
                                          return EEPtCloudActResult(result);
                                      });
    ScriptedDialog d(thread);
    d.show();
    QTRY_VERIFY_WITH_TIMEOUT(showsResult(&d), kWaitMs);
    QCOMPARE(d.isVisible(), staysOpen);
    QCOMPARE(logLines(&d), QStringList{messageFor(result)});
    // The failure line stands out: 15 pt, red on cyan.
    const QTextBlock line = d.findChild<QPlainTextEdit*>("plainTextEdit")->document()->lastBlock();
    for (auto it = line.begin(); !it.atEnd(); ++it) {
        const QTextCharFormat f = it.fragment().charFormat();
        QCOMPARE(f.fontPointSize(), 15.0);
        QCOMPARE(f.foreground().color(), QColor(255, 0, 0));
        QCOMPARE(f.background().color(), QColor(0, 255, 255));
    }
    if (!staysOpen) {
        QCOMPARE(d.result(), int(QDialog::Rejected));
        return;
    }
    // Read, then closed with the button: no stop question any more.
    ModalAnswerer answerer(QMessageBox::No);
    QTest::mouseClick(cancelButton(&d), Qt::LeftButton);
    QVERIFY(answerer.boxes.isEmpty());
    QVERIFY(!d.isVisible());
    QCOMPARE(d.result(), int(QDialog::Rejected));
}

void TestRunner::realControllerOutcomeMatchesMessage_data()
{
    QTest::addColumn<QString>("dataSet");
    QTest::addColumn<int>("code");
    QTest::addColumn<QVariant>("params");
    QTest::newRow("sample a dataset") << "ds" << 200 << QVariant(QVariantList{0.5, 5.0, 0.1});
    QTest::newRow("sample a missing dataset") << "nope" << 200 << QVariant(QVariantList{0.5, 5.0, 0.1});
    QTest::newRow("mesh a missing dataset") << "nope" << 0 << QVariant(QVariantList{true, 1.0});
    QTest::newRow("split a missing dataset") << "nope" << 100 << QVariant(QVariantList{0.2, 45, true});
}

// Whatever the controller answers, the dialog accepts exactly on success and
// otherwise shows that answer's message.
void TestRunner::realControllerOutcomeMatchesMessage()
{
    QFETCH(QString, dataSet);
    QFETCH(int, code);
    QFETCH(QVariant, params);
    QVERIFY2(m_project.isOpen(), qPrintable(m_projectError));
    PtCloud_Controller* c = m_project.getController();
    PtCloudDataSet* ds = c->getDataSet("ds");
    QVERIFY(ds);
    stControlParam_DataSet_Do_Sample sample;
    stControlParam_DataSet_Do_Mesh mesh;
    stControlParam_DataSet_Do_Split split;
    for (stControlParam_DataSet_Do* p : {static_cast<stControlParam_DataSet_Do*>(&sample),
                                         static_cast<stControlParam_DataSet_Do*>(&mesh),
                                         static_cast<stControlParam_DataSet_Do*>(&split)}) {
        p->dataSetName = dataSet;
        p->targetName = ds->createEmptyLocatedContent_Points();
        p->func = code;
        p->params = params;
    }
    PtCloud_SimpleProgress direct;
    const int expected = code == 200 ? c->doCmd_DataSet_Do_Sample(sample, &direct)
                         : code < 100 ? c->doCmd_DataSet_Do_Mesh(mesh, &direct)
                                      : c->doCmd_DataSet_Do_Split(split, &direct);
    c->reset();
    qInfo("the controller answers %d", expected);

    Dlg_Progress_P3DWrapper d(c, dataSet, code, params, ds->createEmptyLocatedContent_Points());
    d.show();
    QTRY_VERIFY_WITH_TIMEOUT(showsResult(&d), 120000);
    if (expected == PCAR_Success) {
        QCOMPARE(d.result(), int(QDialog::Accepted));
        return;
    }
    QCOMPARE(logLines(&d).last(), messageFor(expected));
    QCOMPARE(d.isVisible(), expected != PCAR_CrashedAndClose);
    c->reset();
}

void TestRunner::answeringNoKeepsTheCommandRunning_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("cancel button") << "cancel";
    QTest::newRow("escape key") << "escape";
    QTest::newRow("window closed") << "close";
}

void TestRunner::answeringNoKeepsTheCommandRunning()
{
    QFETCH(QString, how);
    std::atomic<bool> release{false}, stopSeen{false}, afterShown{false};
    auto* thread = new ScriptedThread(nullptr, 200, QVariant(),
                                      [&](const stControlParam_DataSet_Do&, ILongLiveActionProgress* progress) {
                                          progress->setProgressText("started");
                                          progress->setProgress(10);
                                          waitFor(release, progress);
                                          stopSeen = progress->isStopRequested();
                                          progress->setProgressText("after the question");
                                          progress->setProgress(50);
                                          waitFor(afterShown, progress);
                                          return stopSeen ? PCAR_Cancelled : PCAR_Success;
                                      });
    ScriptedDialog d(thread);
    d.show();
    QTRY_COMPARE_WITH_TIMEOUT(logLines(&d), QStringList{"started"}, kWaitMs);
    {
        ModalAnswerer answerer(QMessageBox::No);
        if (how == "cancel")
            QTest::mouseClick(cancelButton(&d), Qt::LeftButton);
        else if (how == "escape")
            QTest::keyClick(&d, Qt::Key_Escape);
        else
            d.close();
        QCOMPARE(answerer.boxes.size(), 1);
        QCOMPARE(answerer.boxes[0].title, QString("warninig"));
        QCOMPARE(answerer.boxes[0].text, QString("stop the function may damage the dataset fileContinue to stop?"));
    }
    QVERIFY(d.isVisible());
    QVERIFY(thread->isRunning());
    release = true;
    QTRY_COMPARE_WITH_TIMEOUT(logLines(&d), (QStringList{"started", "after the question"}), kWaitMs);
    QCOMPARE(d.findChild<QProgressBar*>("progressBar")->value(), 50);
    afterShown = true;
    QTRY_VERIFY_WITH_TIMEOUT(!d.isVisible(), kWaitMs);
    QCOMPARE(d.result(), int(QDialog::Accepted));
    QVERIFY(!stopSeen);
}

void TestRunner::stoppingResetsTheController_data()
{
    QTest::addColumn<bool>("byAnswer");
    QTest::newRow("Yes to the stop question") << true;
    QTest::newRow("dialog destroyed") << false;
}

// The dialog waits for the stopped command however long it takes, then resets
// the controller, which drops what the command left half written.
void TestRunner::stoppingResetsTheController()
{
    QFETCH(bool, byAnswer);
    QVERIFY2(m_project.isOpen(), qPrintable(m_projectError));
    PtCloud_Controller* c = m_project.getController();
    const QString located = c->getDataSet("ds")->createEmptyLocatedContent_Points();
    std::atomic<bool> never{false}, started{false}, stopSeen{false}, returned{false};
    {
        auto* thread = new ScriptedThread(c, 200, QVariant(),
                                          [&](const stControlParam_DataSet_Do&, ILongLiveActionProgress* progress) {
                                              QFile half(located);
                                              if (half.open(QIODevice::WriteOnly)) half.write("half written");
                                              half.close();
                                              started = true;
                                              waitFor(never, progress);
                                              stopSeen = progress->isStopRequested();
                                              QThread::msleep(200);
                                              returned = true;
                                              return PCAR_Cancelled;
                                          });
        ScriptedDialog d(thread);
        if (byAnswer) d.show();
        QTRY_VERIFY_WITH_TIMEOUT(started, kWaitMs);
        QVERIFY(QFile::exists(located));
        if (byAnswer) {
            ModalAnswerer answerer(QMessageBox::Yes);
            QTest::mouseClick(cancelButton(&d), Qt::LeftButton);
            QCOMPARE(answerer.boxes.size(), 1);
            QVERIFY(returned);
            QVERIFY(!d.isVisible());
            QCOMPARE(d.result(), int(QDialog::Rejected));
            QVERIFY(logLines(&d).filter("Failed").isEmpty());
        }
    }
    QVERIFY(stopSeen);
    QVERIFY(returned);
    QVERIFY2(!QFile::exists(located), "the controller was not reset");
}

void TestRunner::progressTextOnlyWithANewValue_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");
    QTest::addColumn<QStringList>("log");
    QTest::newRow("same value") << 30 << 30 << QStringList{"one", "three"};
    QTest::newRow("new value") << 30 << 60 << QStringList{"one", "two", "three"};
    QTest::newRow("both beyond the bar") << 150 << 170 << QStringList{"one", "three"};
}

void TestRunner::progressTextOnlyWithANewValue()
{
    QFETCH(int, first);
    QFETCH(int, second);
    QFETCH(QStringList, log);
    std::atomic<bool> firstShown{false}, secondSet{false}, secondPolled{false}, thirdShown{false};
    auto* thread = new ScriptedThread(nullptr, 200, QVariant(),
                                      [&](const stControlParam_DataSet_Do&, ILongLiveActionProgress* progress) {
                                          progress->setProgressText("one");
                                          progress->setProgress(first);
                                          waitFor(firstShown, progress);
                                          progress->setProgressText("two");
                                          progress->setProgress(second);
                                          secondSet = true;
                                          waitFor(secondPolled, progress);
                                          progress->setProgressText("three");
                                          progress->setProgress(20);
                                          waitFor(thirdShown, progress);
                                          return PCAR_Success;
                                      });
    ScriptedDialog d(thread);
    d.show();
    QTRY_COMPARE_WITH_TIMEOUT(logLines(&d), QStringList{"one"}, kWaitMs);
    firstShown = true;
    QTRY_VERIFY_WITH_TIMEOUT(secondSet, kWaitMs);
    const int polls = d.polls;
    QTRY_VERIFY_WITH_TIMEOUT(d.polls >= polls + 2, kWaitMs);
    secondPolled = true;
    QTRY_VERIFY_WITH_TIMEOUT(logLines(&d).contains("three"), kWaitMs);
    thirdShown = true;
    QCOMPARE(logLines(&d), log);
    QTRY_VERIFY_WITH_TIMEOUT(!d.isVisible(), kWaitMs);
}

void TestRunner::textsUseTheFormContext()
{
    RecordingTranslator translator;
    QCoreApplication::installTranslator(&translator);
    {
        auto* thread = new ScriptedThread(nullptr, 200, QVariant(), returning(PCAR_ExecuteFailed));
        ScriptedDialog d(thread);
        d.show();
        QTRY_VERIFY_WITH_TIMEOUT(showsResult(&d), kWaitMs);
        std::atomic<bool> never{false};
        auto* running = new ScriptedThread(nullptr, 200, QVariant(),
                                           [&](const stControlParam_DataSet_Do&, ILongLiveActionProgress* progress) {
                                               waitFor(never, progress);
                                               return PCAR_Cancelled;
                                           });
        ScriptedDialog asking(running);
        asking.show();
        ModalAnswerer answerer(QMessageBox::Yes);
        QTest::mouseClick(cancelButton(&asking), Qt::LeftButton);
        QCOMPARE(answerer.boxes.size(), 1);
    }
    QCoreApplication::removeTranslator(&translator);
    for (const QString& text : {QString("Progress"), QString("Cancel"), messageFor(8), QString("warninig"),
                                QString("stop the function may damage the dataset fileContinue to stop?")}) {
        const QStringList contexts = translator.seen.values(text);
        QVERIFY2(!contexts.isEmpty(), qPrintable(text + " was not translated"));
        for (const QString& c : contexts) QVERIFY2(c == "progress_bar_dlg", qPrintable(text + " in " + c));
    }
}

QTEST_MAIN(TestRunner)
#include "tst_processing_runner.moc"
