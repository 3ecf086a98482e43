// The resource library: every picture the component's forms and panels name
// is there and loads at a size that stays sharp on a 24-pixel button, the
// panel backgrounds are there and opaque for both skins, and the translation
// loads.

#include <QGuiApplication>
#include <QImage>
#include <QTranslator>
#include <QtTest>

#include "PtCloudResources.h"

class TestEditorResources : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void pictureLoads_data();
    void pictureLoads();
    void chineseTranslationLoads();
};

void TestEditorResources::initTestCase() { PtCloudResources::initialize(); }

void TestEditorResources::pictureLoads_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("minimumSize");
    QTest::addColumn<bool>("opaque");  // panel backgrounds: the view never shows through a panel
    const char* const icons[] = {
        ":/res/ptcloud/tool_triangle.png", ":/res/ptcloud/tool_dtm.png",         ":/res/ptcloud/tool_split.png",
        ":/res/ptcloud/tool_volumn.png",   ":/res/ptcloud/tool_plane_drvive.png", ":/res/ptcloud/tool_section.png",
        ":/res/ptcloud/tool_sample.png",   ":/res/ptcloud/tool_erase_noise.png", ":/res/ptcloud/tool_smooth.png",
        ":/res/ptcloud/cut.png",           ":/res/ptcloud/select_point.png",     ":/res/ptcloud/cut_outter.png",
        ":/res/ptcloud/cut_inner.png",     ":/res/ptcloud/tool_measure.png",     ":/res/close_project.png",
        ":res/graph_option_view.png",      ":res/graph_option_view_unchecked.png", ":res/ptcloud/clear.png",
        ":res/trash.png"};
    for (const char* icon : icons) QTest::newRow(icon) << QString::fromLatin1(icon) << 24 << false;
    QTest::newRow("dark background") << ":res/ptcloud/sub_widget_bg.png" << 256 << true;
    QTest::newRow("light background") << ":res/ptcloud/sub_widget_bg_light.png" << 256 << true;
}

void TestEditorResources::pictureLoads()
{
    QFETCH(QString, path);
    QFETCH(int, minimumSize);
    QFETCH(bool, opaque);
    const QImage image(path);
    QVERIFY2(!image.isNull(), qPrintable(path));
    QVERIFY(image.width() >= minimumSize && image.height() >= minimumSize);
    QCOMPARE(image.width(), image.height());
    // Something is drawn: not a blank square.
    bool drawn = false;
    for (int y = 0; y < image.height() && !drawn; ++y)
        for (int x = 0; x < image.width() && !drawn; ++x) drawn = qAlpha(image.pixel(x, y)) > 128;
    QVERIFY(drawn);
    // The lightness of each skin's background is checked where a panel paints it.
    if (opaque) QCOMPARE(qAlpha(image.pixel(image.width() / 2, image.height() / 2)), 255);
}

void TestEditorResources::chineseTranslationLoads()
{
    QTranslator translator;
    QVERIFY(PtCloudResources::loadTranslation(&translator, QLocale(QLocale::Chinese, QLocale::China)));
    QTranslator none;
    QVERIFY(!PtCloudResources::loadTranslation(&none, QLocale(QLocale::Icelandic, QLocale::Iceland)));
}

QTEST_MAIN(TestEditorResources)
#include "tst_EditorResources.moc"
