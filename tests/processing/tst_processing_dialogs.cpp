// Parameter dialogs: what an untouched page hands to the runner (codes,
// positional lists and their value types), the limits of every box that
// matters, the new-name rule, and the translation context of the texts.

#include <QAbstractSpinBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QStackedWidget>
#include <QtTest>
#include <memory>

#include "Dlg_Do_MakeMesh.h"
#include "Dlg_Do_Sample.h"
#include "Dlg_Do_Split.h"
#include "RecordingTranslator.h"

namespace {
const QSet<QString> kExisting{"ds", "Survey 2021"};

std::unique_ptr<QDialog> makeDialog(const QString& kind)
{
    if (kind == "mesh") return std::make_unique<Dlg_Do_MakeMesh>(kExisting);
    if (kind == "split") return std::make_unique<Dlg_Do_Split>(kExisting);
    return std::make_unique<Dlg_Do_Sample>();
}

// The result the dialog holds after OK, whatever its class.
int funcOf(const QDialog* d)
{
    if (auto* named = qobject_cast<const Dlg_Do_Named*>(d)) return named->func();
    return static_cast<const Dlg_Do_Sample*>(d)->func();
}

QVariant paramsOf(const QDialog* d)
{
    if (auto* named = qobject_cast<const Dlg_Do_Named*>(d)) return named->params();
    return static_cast<const Dlg_Do_Sample*>(d)->params();
}

template <class W>
W* child(QDialog* d, const char* name)
{
    W* w = d->findChild<W*>(QString::fromLatin1(name));
    if (!w) qWarning("no %s named %s", W::staticMetaObject.className(), name);
    return w;
}

// Chooses the function and types a valid new name where there is one.
void prepare(QDialog* d, int index)
{
    if (auto* name = d->findChild<QLineEdit*>("lineEdit_name")) name->setText("result");
    child<QComboBox>(d, "comboBox_function")->setCurrentIndex(index);
}
}  // namespace

class TestDialogs : public QObject {
    Q_OBJECT
private slots:
    void untouchedPages_data();
    void untouchedPages();
    void boxesClampToTheirRange_data();
    void boxesClampToTheirRange();
    void depthRefusesTypedOutOfRange_data();
    void depthRefusesTypedOutOfRange();
    void targetShareFollowsSlider_data();
    void targetShareFollowsSlider();
    void nameRule_data();
    void nameRule();
    void textsUseTheFormContext_data();
    void textsUseTheFormContext();
};

void TestDialogs::untouchedPages_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("code");
    QTest::addColumn<QVariantList>("list");
    QTest::newRow("mesh alpha") << "mesh" << 0 << 0 << QVariantList{true, 1.0};
    QTest::newRow("mesh ball pivoting") << "mesh" << 1 << 1 << QVariantList{true, 0.6};
    QTest::newRow("mesh poisson") << "mesh" << 2 << 2 << QVariantList{true, 8u, 0.12, 1.0};
    QTest::newRow("split dbscan") << "split" << 0 << 100 << QVariantList{0.2, 45, true};
    QTest::newRow("split kmeans") << "split" << 1 << 101 << QVariantList{10, 100};
    QTest::newRow("split kmeans extra") << "split" << 2 << 102 << QVariantList{10, 100};
    QTest::newRow("split euclidean") << "split" << 3 << 103 << QVariantList{0.1, 20, 1000000};
    QTest::newRow("split euclidean fast") << "split" << 4 << 104 << QVariantList{0.2, 50};
    QTest::newRow("split region growing") << "split" << 5 << 105 << QVariantList{20, 10.0, 1.0, 50, 1000000};
    QTest::newRow("split patchwork++") << "split" << 6 << 106 << QVariantList{};
    QTest::newRow("split csf") << "split" << 7 << 107 << QVariantList{true, 0.5, 0.5, 500, 3, 0.65, true};
    QTest::newRow("sample poisson disk") << "sample" << 0 << 200 << QVariantList{1.0, 5.0, 0.1};
}

void TestDialogs::untouchedPages()
{
    QFETCH(QString, kind);
    QFETCH(int, index);
    QFETCH(int, code);
    QFETCH(QVariantList, list);
    auto d = makeDialog(kind);
    prepare(d.get(), index);
    QCOMPARE(child<QStackedWidget>(d.get(), "stackedWidget")->currentIndex(), index);
    QVERIFY(child<QPushButton>(d.get(), "pushButton_ok")->isEnabled());
    QTest::mouseClick(child<QPushButton>(d.get(), "pushButton_ok"), Qt::LeftButton);
    QCOMPARE(d->result(), int(QDialog::Accepted));
    QCOMPARE(funcOf(d.get()), code);
    const QVariant params = paramsOf(d.get());
    QCOMPARE(params.userType(), int(QMetaType::QVariantList));
    const QVariantList got = params.toList();
    QCOMPARE(got.size(), list.size());
    for (int i = 0; i < list.size(); ++i) {
        QVERIFY2(got[i].userType() == list[i].userType(),
                 qPrintable(QStringLiteral("entry %1 is a %2").arg(i).arg(got[i].typeName())));
        if (list[i].userType() == QMetaType::Double)
            QVERIFY2(qFuzzyCompare(got[i].toDouble(), list[i].toDouble()), qPrintable(QString::number(i)));
        else
            QCOMPARE(got[i], list[i]);
    }
}

void TestDialogs::boxesClampToTheirRange_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("box");
    QTest::addColumn<double>("set");
    QTest::addColumn<double>("shown");
    QTest::newRow("alpha below") << "mesh" << "doubleSpinBox_alpha_alpha" << 0.0 << 0.0001;
    QTest::newRow("alpha above") << "mesh" << "doubleSpinBox_alpha_alpha" << 150.0 << 100.0;
    QTest::newRow("alpha four decimals") << "mesh" << "doubleSpinBox_alpha_alpha" << 0.12345 << 0.1235;
    QTest::newRow("radius above") << "mesh" << "doubleSpinBox_ball_pivoting_radius" << 101.0 << 100.0;
    QTest::newRow("depth below") << "mesh" << "spinBox_poisson_depth" << 0.0 << 1.0;
    QTest::newRow("depth above") << "mesh" << "spinBox_poisson_depth" << 17.0 << 16.0;
    QTest::newRow("width above") << "mesh" << "doubleSpinBox_poisson_width" << 5000.0 << 1000.0;
    QTest::newRow("density divide below") << "mesh" << "doubleSpinBox_poisson_density_divide" << 0.5 << 1.0;
    QTest::newRow("density divide two decimals") << "mesh" << "doubleSpinBox_poisson_density_divide" << 1.234 << 1.23;
    QTest::newRow("epsilon below") << "split" << "doubleSpinBox_dbscan_epsilon" << 0.0 << 0.0001;
    QTest::newRow("min pts below") << "split" << "spinBox_dbscan_min_pts" << 1.0 << 5.0;
    QTest::newRow("min pts above") << "split" << "spinBox_dbscan_min_pts" << 2e7 << 1e7;
    QTest::newRow("kmeans iterations above") << "split" << "spinBox_kmeans_max_iteration" << 101.0 << 100.0;
    QTest::newRow("kmeans extra clusters below") << "split" << "spinBox_kmeans_extra_cluster_number" << 0.0 << 1.0;
    QTest::newRow("euclidean max cluster above") << "split" << "spinBox_euclidean_max_cluster" << 2e7 << 1e7;
    QTest::newRow("euclidean fast max size") << "split" << "spinBox_euclidean_fast_max_size" << 20000.0 << 10000.0;
    QTest::newRow("region tolerance below") << "split" << "spinBox_region_growing_tolerance" << 0.0 << 1.0;
    QTest::newRow("region smooth keeps the standard limit")
        << "split" << "doubleSpinBox_region_growing_smooth" << 150.0 << 99.99;
    QTest::newRow("region cure two decimals") << "split" << "doubleSpinBox_region_growing_cure" << 1.234 << 1.23;
    QTest::newRow("region min cluster below") << "split" << "spinBox_region_growing_min_cluster" << 1.0 << 5.0;
    QTest::newRow("region max cluster below") << "split" << "spinBox_region_growing_max_cluster" << 1.0 << 10.0;
    QTest::newRow("csf class threshold above") << "split" << "doubleSpinBox_csf_class_threshold" << 2e4 << 1e4;
    QTest::newRow("csf cloth resolution above") << "split" << "doubleSpinBox_csf_cloth_resolution" << 200.0 << 100.0;
    QTest::newRow("csf iterations below") << "split" << "spinBox_csf_interations" << 1.0 << 5.0;
    QTest::newRow("csf rigidness above") << "split" << "spinBox_csf_rigidness" << 101.0 << 100.0;
    QTest::newRow("csf time step below") << "split" << "doubleSpinBox_csf_time_step" << 0.001 << 0.01;
    QTest::newRow("init factor below") << "sample" << "doubleSpinBox_poisson_disk_init_factor" << 0.5 << 1.0;
    QTest::newRow("make mesh alpha above")
        << "sample" << "doubleSpinBox_poisson_disk_make_mesh_alpha" << 200.0 << 100.0;
}

void TestDialogs::boxesClampToTheirRange()
{
    QFETCH(QString, kind);
    QFETCH(QString, box);
    QFETCH(double, set);
    QFETCH(double, shown);
    auto d = makeDialog(kind);
    if (auto* spin = d->findChild<QSpinBox*>(box)) {
        spin->setValue(int(set));
        QCOMPARE(spin->value(), int(shown));
    } else {
        auto* dspin = d->findChild<QDoubleSpinBox*>(box);
        QVERIFY2(dspin, qPrintable(box));
        dspin->setValue(set);
        QVERIFY2(qFuzzyCompare(dspin->value(), shown), qPrintable(QString::number(dspin->value())));
    }
}

void TestDialogs::depthRefusesTypedOutOfRange_data()
{
    QTest::addColumn<QString>("typed");
    QTest::newRow("0") << "0";
    QTest::newRow("17") << "17";
}

void TestDialogs::depthRefusesTypedOutOfRange()
{
    QFETCH(QString, typed);
    auto d = makeDialog("mesh");
    QAbstractSpinBox* depth = child<QSpinBox>(d.get(), "spinBox_poisson_depth");
    int pos = typed.size();
    QString text = typed;
    QVERIFY(depth->validate(text, pos) != QValidator::Acceptable);
    depth->selectAll();
    QTest::keyClicks(depth, typed);
    QTest::keyClick(depth, Qt::Key_Return);
    const int value = static_cast<QSpinBox*>(depth)->value();
    QVERIFY2(value >= 1 && value <= 16, qPrintable(QString::number(value)));
}

void TestDialogs::targetShareFollowsSlider_data()
{
    QTest::addColumn<int>("set");
    QTest::addColumn<QString>("label");
    QTest::addColumn<double>("share");
    QTest::newRow("below the minimum") << 0 << "1%" << 0.01;
    QTest::newRow("minimum") << 1 << "1%" << 0.01;
    QTest::newRow("inside") << 37 << "37%" << 0.37;
    QTest::newRow("above the maximum") << 150 << "100%" << 1.0;
}

void TestDialogs::targetShareFollowsSlider()
{
    QFETCH(int, set);
    QFETCH(QString, label);
    QFETCH(double, share);
    auto d = makeDialog("sample");
    QCOMPARE(child<QLabel>(d.get(), "label_poisson_disk_percents")->text(), QString("100%"));
    child<QSlider>(d.get(), "horizontalSlider_poisson_disk_target_percents")->setValue(set);
    QCOMPARE(child<QLabel>(d.get(), "label_poisson_disk_percents")->text(), label);
    QTest::mouseClick(child<QPushButton>(d.get(), "pushButton_ok"), Qt::LeftButton);
    QCOMPARE(d->result(), int(QDialog::Accepted));
    QVERIFY(qFuzzyCompare(paramsOf(d.get()).toList().value(0).toDouble(), share));
}

void TestDialogs::nameRule_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("accepted");  // empty: OK stays disabled
    for (const QString kind : {"mesh", "split"}) {
        const QByteArray k = kind.toLatin1();
        QTest::addRow("%s: plain", k.constData()) << kind << "roof mesh" << "roof mesh";
        QTest::addRow("%s: trimmed", k.constData()) << kind << "  roof mesh\t" << "roof mesh";
        QTest::addRow("%s: empty", k.constData()) << kind << "" << "";
        QTest::addRow("%s: spaces only", k.constData()) << kind << "   " << "";
        for (const QChar c : QStringLiteral("\\/:*?\"<>|"))
            QTest::addRow("%s: with %c", k.constData(), c.toLatin1()) << kind << QString("a%1b").arg(c) << "";
        QTest::addRow("%s: existing name", k.constData()) << kind << "ds" << "";
        QTest::addRow("%s: existing name in other case", k.constData()) << kind << "DS" << "";
        QTest::addRow("%s: existing name in other case, padded", k.constData()) << kind << " survey 2021 " << "";
        QTest::addRow("%s: existing name as part", k.constData()) << kind << "ds2" << "ds2";
    }
}

void TestDialogs::nameRule()
{
    QFETCH(QString, kind);
    QFETCH(QString, typed);
    QFETCH(QString, accepted);
    auto d = makeDialog(kind);
    auto* named = qobject_cast<Dlg_Do_Named*>(d.get());
    QTest::keyClicks(child<QLineEdit>(d.get(), "lineEdit_name"), typed);
    auto* ok = child<QPushButton>(d.get(), "pushButton_ok");
    QCOMPARE(named->name(), accepted);
    QCOMPARE(ok->isEnabled(), !accepted.isEmpty());
    // Another function keeps the name's verdict.
    auto* function = child<QComboBox>(d.get(), "comboBox_function");
    function->setCurrentIndex(function->count() - 1);
    QCOMPARE(ok->isEnabled(), !accepted.isEmpty());
    QTest::mouseClick(ok, Qt::LeftButton);
    QCOMPARE(d->result(), int(accepted.isEmpty() ? QDialog::Rejected : QDialog::Accepted));
}

void TestDialogs::textsUseTheFormContext_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("context");
    QTest::addColumn<QStringList>("texts");
    QTest::newRow("mesh") << "mesh" << "do_make_mesh_paramter_dlg"
                          << QStringList{"Make Mesh", "function", "name", "Alpha", "Ball Pivoting", "Poisson",
                                         "fast normal", "depth", "density divide", "meter", "Cancel"};
    QTest::newRow("split") << "split" << "do_split_parameters_dlg"
                           << QStringList{"Do Split", "DbScan", "KMeans", "KMeans Extra", "Euclidean",
                                          "Euclidean Fast", "Region Growing", "Patchwork++", "CSF", "sloop smooth",
                                          "interations", "retain noise", "Cancel"};
    QTest::newRow("sample") << "sample" << "do_sample_param_dlg"
                            << QStringList{"Do Sample", "Poisson Disk", "target percents", "init factor",
                                           "make mesh alpha", "%1%", "Cancel"};
}

void TestDialogs::textsUseTheFormContext()
{
    QFETCH(QString, kind);
    QFETCH(QString, context);
    QFETCH(QStringList, texts);
    RecordingTranslator translator;
    QCoreApplication::installTranslator(&translator);
    auto d = makeDialog(kind);
    QCoreApplication::removeTranslator(&translator);
    QCOMPARE(d->objectName(), context);
    for (const QString& text : texts) {
        const QStringList contexts = translator.seen.values(text);
        QVERIFY2(!contexts.isEmpty(), qPrintable(text + " was not translated"));
        for (const QString& c : contexts) QVERIFY2(c == context, qPrintable(text + " in " + c));
    }
}

QTEST_MAIN(TestDialogs)
#include "tst_processing_dialogs.moc"
