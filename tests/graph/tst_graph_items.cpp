// Marker items, palettes, the point program and the DEM mesh, contour and
// volume-area items, without a display.
#include "GraphTestData.h"
#include "MarkerColors.h"
#include "OsgGraphItem_Box.h"
#include "OsgGraphItem_Contour.h"
#include "OsgGraphItem_DemMesh.h"
#include "OsgGraphItem_LineWithPedal.h"
#include "OsgGraphItem_Line_WithPlane.h"
#include "OsgGraphItem_Point.h"
#include "OsgGraphItem_PointList.h"
#include "OsgGraphItem_Point_Draggable.h"
#include "OsgGraphItem_Sphere.h"
#include "OsgGraphItem_TriangleLine_WithPlane.h"
#include "OsgGraphItem_VolumeArea.h"
#include "PointColors.h"
#include "PointShader.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_DataSetFile.h"
#include "VolumeCalcAreaList.h"

#include <QtTest>

#include <osg/Program>
#include <osg/ShapeDrawable>

#include <cmath>

Q_DECLARE_METATYPE(osg::Vec3f)
Q_DECLARE_METATYPE(osg::Vec4)
Q_DECLARE_METATYPE(osg::ref_ptr<osg::Geode>)
Q_DECLARE_METATYPE(ptCloud::EDataSetColumn)

using namespace ptCloud;

namespace {

const char* const kVertexSource =
    "#version 330 core\nuniform mat4 osg_ModelViewProjectionMatrix; layout(location = 0) in vec4 osg_Vertex; "
    "layout(location = 1) in vec3 osg_Normal; layout(location = 2) in vec4 osg_Color; out vec4 color; out vec3 "
    "normal; out vec3 fragPos; void main() { gl_Position = osg_ModelViewProjectionMatrix * osg_Vertex; color = "
    "osg_Color; normal = osg_Normal; fragPos = osg_Vertex.xyz; }";
const char* const kFragmentSource =
    "#version 330 core\nin vec4 color; out vec4 fragColor; uniform vec3 viewPos; in vec3 normal; in vec3 fragPos; "
    "void main() { fragColor = color; }";

bool near(const osg::Vec3f& a, const osg::Vec3f& b, float tolerance = 1e-4f) { return (a - b).length() < tolerance; }

QString text(const osg::Vec3f& v) { return QStringLiteral("(%1, %2, %3)").arg(v.x()).arg(v.y()).arg(v.z()); }

const osg::Vec3Array* verticesOf(const osg::Geometry* geometry)
{
    return dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray());
}

// The one colour of a drawable whose colour array is bound overall.
osg::Vec4 overallColour(const osg::Drawable* drawable)
{
    const osg::Geometry* geometry = drawable->asGeometry();
    const auto* colours = geometry ? dynamic_cast<const osg::Vec4Array*>(geometry->getColorArray()) : nullptr;
    if (!colours || colours->empty() || colours->getBinding() != osg::Array::BIND_OVERALL)
        return osg::Vec4(-1, -1, -1, -1);
    return colours->front();
}

osg::Vec4 bytes(int r, int g, int b, int a) { return osg::Vec4(r / 255.f, g / 255.f, b / 255.f, a / 255.f); }

bool sameColour(const osg::Vec4& a, const osg::Vec4& b)
{
    for (int i = 0; i < 4; ++i)
        if (std::abs(a[i] - b[i]) > 0.5f / 255.f) return false;
    return true;
}

double colourDistance(const osg::Vec4ub& a, const osg::Vec4ub& b)
{
    const double dr = a.r() - b.r(), dg = a.g() - b.g(), db = a.b() - b.b();
    return std::sqrt(dr * dr + dg * dg + db * db);
}

}  // namespace

class TestGraphItems : public QObject {
    Q_OBJECT

private slots:
    void pointLabel_data();
    void pointLabel();
    void markerColours_data();
    void markerColours();
    void handBuiltGeometriesUseBuffers();
    void boxHalfLengths_data();
    void boxHalfLengths();
    void sphereFromVectorAndModel();
    void lineComponents_data();
    void lineComponents();
    void triangleComponents_data();
    void triangleComponents();
    void pedalBand_data();
    void pedalBand();
    void pointListRebuild();
    void shaderSources();
    void heightRampStops_data();
    void heightRampStops();
    void neighbouringClustersDiffer();
    void classificationColours_data();
    void classificationColours();
    void intensityRampRises();
    void blockColoursByMode_data();
    void blockColoursByMode();
    void demMeshByHeight();
    void contourByLevel();
    void volumeAreaLabel();
};

void TestGraphItems::pointLabel_data()
{
    QTest::addColumn<QString>("label");
    QTest::newRow("empty") << QString();
    QTest::newRow("text") << QStringLiteral("P1 \u70b9");
}

void TestGraphItems::pointLabel()
{
    QFETCH(QString, label);
    osg::ref_ptr<OsgGraphItem_Point> point = new OsgGraphItem_Point(osg::Vec3f(1, 2, 3), label);
    const bool labelled = !label.isEmpty();
    QCOMPARE(point->getNumDrawables(), labelled ? 2u : 1u);
    QCOMPARE(point->labelText() != nullptr, labelled);

    point->setPosition(osg::Vec3f(10, 20, 30));
    const auto* sphere = dynamic_cast<const osg::Sphere*>(point->getDrawable(0)->getShape());
    QVERIFY(sphere);
    QVERIFY(near(sphere->getCenter(), osg::Vec3f(10, 20, 30)));
    QCOMPARE(sphere->getRadius(), 1.0f);
    QCOMPARE(point->getNumDrawables(), labelled ? 2u : 1u);
    if (!labelled) return;

    const osgText::Text* t = point->labelText();
    QVERIFY(near(t->getPosition(), osg::Vec3f(10, 20, 35)));
    QCOMPARE(t->getCharacterSizeMode(), osgText::Text::SCREEN_COORDS);
    QCOMPARE(t->getCharacterHeight(), 20.0f);
    QVERIFY(t->getAutoRotateToScreen());
    QCOMPARE(t->getAlignment(), osgText::Text::CENTER_CENTER);
    QVERIFY(sameColour(t->getColor(), bytes(255, 255, 255, 255)));
    QCOMPARE(QString::fromStdString(t->getText().createUTF8EncodedString()), label);
}

void TestGraphItems::markerColours_data()
{
    QTest::addColumn<osg::ref_ptr<osg::Geode>>("item");
    QTest::addColumn<unsigned int>("drawable");
    QTest::addColumn<osg::Vec4>("colour");
    QTest::addColumn<bool>("blended");
    const osg::Vec3f a(0, 0, 0), b(10, 0, 5), c(0, 10, 2);
    const osg::Vec4 red = bytes(255, 0, 0, 255), yellow = bytes(255, 255, 0, 51);
    const osg::Vec4 lineYellow = bytes(255, 253, 85, 255), violet = bytes(126, 132, 247, 255);
    QTest::newRow("point") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_Point(a, "x")) << 0u << red << false;
    QTest::newRow("draggable") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_Point_Draggable(a)) << 0u << red << false;
    QTest::newRow("sphere") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_Sphere) << 0u << yellow << true;
    QTest::newRow("box") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_Box(osg::BoundingBox(a, b))) << 0u << yellow
                         << true;
    QTest::newRow("line") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_Line_WithPlane(a, b)) << 0u << lineYellow
                          << false;
    QTest::newRow("line components") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_Line_WithPlane(a, b)) << 1u
                                     << violet << false;
    QTest::newRow("triangle") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_TriangleLine_WithPlane(a, b, c)) << 0u
                              << lineYellow << false;
    QTest::newRow("triangle components")
        << osg::ref_ptr<osg::Geode>(new OsgGraphItem_TriangleLine_WithPlane(a, b, c)) << 1u << violet << false;
    QTest::newRow("section line") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_LineWithPedal(a, b)) << 0u
                                  << bytes(235, 51, 36, 255) << false;
    QTest::newRow("section band") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_LineWithPedal(a, b)) << 1u
                                  << bytes(50, 130, 246, 255) << false;
    QTest::newRow("section pedal") << osg::ref_ptr<osg::Geode>(new OsgGraphItem_LineWithPedal(a, b)) << 2u
                                   << lineYellow << false;
}

void TestGraphItems::markerColours()
{
    QFETCH(osg::ref_ptr<osg::Geode>, item);
    QFETCH(unsigned int, drawable);
    QFETCH(osg::Vec4, colour);
    QFETCH(bool, blended);
    QVERIFY(drawable < item->getNumDrawables());
    const osg::Vec4 got = overallColour(item->getDrawable(drawable));
    QVERIFY2(sameColour(got, colour),
             qPrintable(QStringLiteral("%1 %2 %3 %4").arg(got.r()).arg(got.g()).arg(got.b()).arg(got.a())));
    const osg::StateSet* state = item->getStateSet();
    const bool blending = state && (state->getMode(GL_BLEND) & osg::StateAttribute::ON) &&
                          state->getRenderingHint() == osg::StateSet::TRANSPARENT_BIN;
    QCOMPARE(blending, blended);
}

void TestGraphItems::handBuiltGeometriesUseBuffers()
{
    osg::ref_ptr<OsgGraphItem_LineWithPedal> pedal = new OsgGraphItem_LineWithPedal(osg::Vec3f(), osg::Vec3f(1, 1, 0));
    osg::ref_ptr<OsgGraphItem_Line_WithPlane> line = new OsgGraphItem_Line_WithPlane(osg::Vec3f(), osg::Vec3f(1, 0, 1));
    osg::ref_ptr<OsgGraphItem_TriangleLine_WithPlane> triangle =
        new OsgGraphItem_TriangleLine_WithPlane(osg::Vec3f(), osg::Vec3f(1, 0, 1), osg::Vec3f(0, 1, 2));
    for (osg::Geode* item : {static_cast<osg::Geode*>(pedal.get()), static_cast<osg::Geode*>(line.get()),
                             static_cast<osg::Geode*>(triangle.get())}) {
        for (unsigned int i = 0; i < item->getNumDrawables(); ++i) {
            const osg::Drawable* d = item->getDrawable(i);
            QVERIFY(!d->getUseDisplayList());
            QVERIFY(d->getUseVertexBufferObjects());
        }
    }
}

void TestGraphItems::boxHalfLengths_data()
{
    QTest::addColumn<osg::Vec3f>("min");
    QTest::addColumn<osg::Vec3f>("max");
    QTest::newRow("ordered") << osg::Vec3f(0, 0, 0) << osg::Vec3f(2, 4, 6);
    QTest::newRow("all swapped") << osg::Vec3f(2, 4, 6) << osg::Vec3f(0, 0, 0);
    QTest::newRow("flat") << osg::Vec3f(-1, -1, 3) << osg::Vec3f(1, 3, 3);
}

void TestGraphItems::boxHalfLengths()
{
    QFETCH(osg::Vec3f, min);
    QFETCH(osg::Vec3f, max);
    const osg::Vec3f centre = (min + max) * 0.5f;
    const osg::Vec3f half(std::fabs(max.x() - min.x()) / 2, std::fabs(max.y() - min.y()) / 2,
                          std::fabs(max.z() - min.z()) / 2);

    osg::ref_ptr<OsgGraphItem_Box> box = new OsgGraphItem_Box(osg::BoundingBox(min, max));
    QVERIFY2(near(box->box()->getCenter(), centre), qPrintable(text(box->box()->getCenter())));
    QVERIFY2(near(box->box()->getHalfLengths(), half), qPrintable(text(box->box()->getHalfLengths())));

    // Moving it, also from the data model's box type, rebuilds in place.
    osg::ref_ptr<OsgGraphItem_Box> moved = new OsgGraphItem_Box(osg::BoundingBox(-9, -9, -9, 9, 9, 9));
    moved->setBox(pcBoundingBoxf(min.x(), min.y(), min.z(), max.x(), max.y(), max.z()));
    QVERIFY(near(moved->box()->getCenter(), centre));
    QVERIFY(near(moved->box()->getHalfLengths(), half));
    QCOMPARE(moved->getNumDrawables(), 1u);
    QVERIFY(near(moved->getDrawable(0)->getBoundingBox().center(), centre));
}

void TestGraphItems::sphereFromVectorAndModel()
{
    osg::ref_ptr<OsgGraphItem_Sphere> sphere = new OsgGraphItem_Sphere;
    QVERIFY(near(sphere->sphere()->getCenter(), osg::Vec3f()));
    QCOMPARE(sphere->sphere()->getRadius(), 1.0f);
    sphere->setSphere(osg::Vec4f(3, 4, 5, 2.5f));
    QVERIFY(near(sphere->sphere()->getCenter(), osg::Vec3f(3, 4, 5)));
    QCOMPARE(sphere->sphere()->getRadius(), 2.5f);
    QCOMPARE(sphere->getNumDrawables(), 1u);
    QVERIFY(std::fabs(sphere->getDrawable(0)->getBoundingBox().xMax() - 5.5f) < 1e-3f);

    osg::ref_ptr<OsgGraphItem_Sphere> model = new OsgGraphItem_Sphere(pcBoundingSpheref(-1, -2, -3, 7));
    QVERIFY(near(model->sphere()->getCenter(), osg::Vec3f(-1, -2, -3)));
    QCOMPARE(model->sphere()->getRadius(), 7.0f);
}

void TestGraphItems::lineComponents_data()
{
    QTest::addColumn<osg::Vec3f>("first");
    QTest::addColumn<osg::Vec3f>("second");
    QTest::addColumn<osg::Vec3f>("high");
    QTest::addColumn<osg::Vec3f>("low");
    QTest::newRow("first higher") << osg::Vec3f(0, 0, 10) << osg::Vec3f(3, 4, 2) << osg::Vec3f(0, 0, 10)
                                  << osg::Vec3f(3, 4, 2);
    QTest::newRow("second higher") << osg::Vec3f(0, 0, 2) << osg::Vec3f(3, 4, 10) << osg::Vec3f(3, 4, 10)
                                   << osg::Vec3f(0, 0, 2);
    QTest::newRow("equal heights") << osg::Vec3f(1, 1, 5) << osg::Vec3f(4, 5, 5) << osg::Vec3f(1, 1, 5)
                                   << osg::Vec3f(4, 5, 5);
}

void TestGraphItems::lineComponents()
{
    QFETCH(osg::Vec3f, first);
    QFETCH(osg::Vec3f, second);
    QFETCH(osg::Vec3f, high);
    QFETCH(osg::Vec3f, low);
    osg::ref_ptr<OsgGraphItem_Line_WithPlane> item = new OsgGraphItem_Line_WithPlane(first, second);

    const osg::Vec3Array* line = verticesOf(item->lineGeometry());
    QCOMPARE(line->size(), size_t(2));
    QVERIFY(near((*line)[0], first) && near((*line)[1], second));
    QCOMPARE(item->lineGeometry()->getPrimitiveSet(0)->getMode(), GLenum(GL_LINES));

    const osg::Vec3f drop(high.x(), high.y(), low.z());
    const osg::Vec3Array* parts = verticesOf(item->componentGeometry());
    QCOMPARE(parts->size(), size_t(4));
    QVERIFY2(near((*parts)[0], high), qPrintable(text((*parts)[0])));
    QVERIFY(near((*parts)[1], drop));
    QVERIFY(near((*parts)[2], low));
    QVERIFY(near((*parts)[3], drop));
    QCOMPARE(item->componentGeometry()->getPrimitiveSet(0)->getMode(), GLenum(GL_LINES));
    QCOMPARE(((*parts)[0] - (*parts)[1]).length(), std::fabs(high.z() - low.z()));
}

void TestGraphItems::triangleComponents_data()
{
    QTest::addColumn<osg::Vec3f>("p1");
    QTest::addColumn<osg::Vec3f>("p2");
    QTest::addColumn<osg::Vec3f>("p3");
    QTest::addColumn<int>("lowest");
    QTest::newRow("first lowest") << osg::Vec3f(0, 0, 1) << osg::Vec3f(10, 0, 4) << osg::Vec3f(0, 10, 7) << 0;
    QTest::newRow("second lowest") << osg::Vec3f(0, 0, 4) << osg::Vec3f(10, 0, 1) << osg::Vec3f(0, 10, 7) << 1;
    QTest::newRow("third lowest") << osg::Vec3f(0, 0, 4) << osg::Vec3f(10, 0, 7) << osg::Vec3f(0, 10, 1) << 2;
    // Of equal heights the later corner is the lower one.
    QTest::newRow("first two level") << osg::Vec3f(0, 0, 2) << osg::Vec3f(10, 0, 2) << osg::Vec3f(0, 10, 7) << 1;
    QTest::newRow("all level") << osg::Vec3f(0, 0, 2) << osg::Vec3f(10, 0, 2) << osg::Vec3f(0, 10, 2) << 2;
}

void TestGraphItems::triangleComponents()
{
    QFETCH(osg::Vec3f, p1);
    QFETCH(osg::Vec3f, p2);
    QFETCH(osg::Vec3f, p3);
    QFETCH(int, lowest);
    osg::ref_ptr<OsgGraphItem_TriangleLine_WithPlane> item = new OsgGraphItem_TriangleLine_WithPlane(p1, p2, p3);

    const osg::Vec3Array* outline = verticesOf(item->triangleGeometry());
    QCOMPARE(outline->size(), size_t(4));
    QVERIFY(near((*outline)[0], p1) && near((*outline)[1], p2) && near((*outline)[2], p3) &&
            near((*outline)[3], p1));
    QCOMPARE(item->triangleGeometry()->getPrimitiveSet(0)->getMode(), GLenum(GL_LINE_STRIP));

    const osg::Vec3f corners[] = {p1, p2, p3};
    const osg::Vec3f low = corners[lowest];
    const osg::Vec3Array* parts = verticesOf(item->componentGeometry());
    QCOMPARE(item->componentGeometry()->getPrimitiveSet(0)->getMode(), GLenum(GL_LINES));
    QCOMPARE(parts->size(), size_t(8));
    int k = 0;
    for (int i = 0; i < 3; ++i) {
        if (i == lowest) continue;
        const osg::Vec3f foot(corners[i].x(), corners[i].y(), low.z());
        QVERIFY(near((*parts)[k], corners[i]));
        QVERIFY(near((*parts)[k + 1], foot));
        QVERIFY(near((*parts)[k + 2], low));
        QVERIFY(near((*parts)[k + 3], foot));
        k += 4;
    }
}

void TestGraphItems::pedalBand_data()
{
    QTest::addColumn<osg::Vec3f>("a");
    QTest::addColumn<osg::Vec3f>("b");
    QTest::addColumn<float>("width");
    QTest::newRow("east, width 2") << osg::Vec3f(0, 0, 3) << osg::Vec3f(10, 0, 3) << 2.f;
    QTest::newRow("diagonal, B higher") << osg::Vec3f(0, 0, 2) << osg::Vec3f(-6, 8, 9) << 1.f;
    QTest::newRow("width 0") << osg::Vec3f(1, 2, 3) << osg::Vec3f(7, 10, 3) << 0.f;
}

void TestGraphItems::pedalBand()
{
    QFETCH(osg::Vec3f, a);
    QFETCH(osg::Vec3f, b);
    QFETCH(float, width);
    osg::ref_ptr<OsgGraphItem_LineWithPedal> item = new OsgGraphItem_LineWithPedal(a, b);
    QCOMPARE(item->width(), 0.1f);
    item->setWidth(width);

    // Unit vectors along A->B and to its right, in the plane.
    osg::Vec3f along(b.x() - a.x(), b.y() - a.y(), 0);
    along.normalize();
    const osg::Vec3f right(along.y(), -along.x(), 0);
    const float z = a.z();
    const osg::Vec3f a0(a.x(), a.y(), z), b0(b.x(), b.y(), z);
    const osg::Vec3f half = right * (width / 2);
    const osg::Vec3f expected[] = {a0 - half, b0 - half, b0 + half, a0 + half, a0 - half};
    const osg::Vec3Array* band = item->bandVertices();
    QCOMPARE(band->size(), size_t(5));
    for (int i = 0; i < 5; ++i)
        QVERIFY2(near((*band)[i], expected[i], 1e-3f),
                 qPrintable(QStringLiteral("%1: %2 vs %3").arg(i).arg(text((*band)[i]), text(expected[i]))));

    const osg::Vec3f middle = (a0 + b0) * 0.5f;
    const osg::Vec3Array* pedal = item->pedalVertices();
    QCOMPARE(pedal->size(), size_t(2));
    QVERIFY(near((*pedal)[0], middle, 1e-3f));
    QVERIFY2(near((*pedal)[1], middle + right * (2 * width), 1e-3f), qPrintable(text((*pedal)[1])));

    const osg::Vec3Array* line = item->lineVertices();
    QVERIFY(near((*line)[0], a) && near((*line)[1], b));
}

void TestGraphItems::pointListRebuild()
{
    osg::ref_ptr<OsgGraphItem_PointList> list = new OsgGraphItem_PointList;
    QVERIFY(!list->geometry());
    QCOMPARE(list->getNumDrawables(), 0u);
    QVERIFY(list->getStateSet() && list->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));

    for (int round = 1; round <= 2; ++round) {
        for (int i = 0; i < 3; ++i) {
            list->vertices()->push_back(osg::Vec3f(float(i), float(round), 0));
            list->colors()->push_back(osg::Vec4(1, 0, 0, 1));
        }
        list->rebuild();
        QCOMPARE(list->getNumDrawables(), 1u);
        const osg::Geometry* geometry = list->geometry();
        QCOMPARE(list->getDrawable(0), static_cast<const osg::Drawable*>(geometry));
        QCOMPARE(geometry->getVertexArray(), static_cast<const osg::Array*>(list->vertices()));
        QCOMPARE(geometry->getColorArray(), static_cast<const osg::Array*>(list->colors()));
        QCOMPARE(geometry->getColorArray()->getBinding(), osg::Array::BIND_PER_VERTEX);
        const auto* points = dynamic_cast<const osg::DrawArrays*>(geometry->getPrimitiveSet(0));
        QVERIFY(points);
        QCOMPARE(points->getMode(), GLenum(GL_POINTS));
        QCOMPARE(points->getCount(), GLsizei(3 * round));
        QVERIFY(!geometry->getUseDisplayList());
        QVERIFY(geometry->getUseVertexBufferObjects());
        QCOMPARE(geometry->getVertexArray()->getBufferObject()->getUsage(), GLenum(GL_STATIC_DRAW));
    }
}

void TestGraphItems::shaderSources()
{
    osg::ref_ptr<osg::Node> first = new osg::Node;
    osg::ref_ptr<osg::Node> second = new osg::Node;
    applyPointShader(first.get());
    applyPointShader(second.get());
    const auto* program =
        dynamic_cast<const osg::Program*>(first->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));
    QVERIFY(program);
    QCOMPARE(program->getNumShaders(), 2u);
    QCOMPARE(program->getShader(0)->getType(), osg::Shader::VERTEX);
    QCOMPARE(QByteArray(program->getShader(0)->getShaderSource().c_str()), QByteArray(kVertexSource));
    QCOMPARE(program->getShader(1)->getType(), osg::Shader::FRAGMENT);
    QCOMPARE(QByteArray(program->getShader(1)->getShaderSource().c_str()), QByteArray(kFragmentSource));
    QVERIFY(second->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM) != program);
}

void TestGraphItems::heightRampStops_data()
{
    QTest::addColumn<float>("t");
    QTest::addColumn<QColor>("colour");
    QTest::newRow("below") << -3.f << QColor(0, 0, 255);
    QTest::newRow("bottom") << 0.f << QColor(0, 0, 255);
    QTest::newRow("quarter") << 0.25f << QColor(0, 255, 255);
    QTest::newRow("middle") << 0.5f << QColor(0, 255, 0);
    QTest::newRow("three quarters") << 0.75f << QColor(255, 255, 0);
    QTest::newRow("top") << 1.f << QColor(255, 0, 0);
    QTest::newRow("above") << 7.f << QColor(255, 0, 0);
    QTest::newRow("between blue and cyan") << 0.125f << QColor(0, 128, 255);
}

void TestGraphItems::heightRampStops()
{
    QFETCH(float, t);
    QFETCH(QColor, colour);
    const osg::Vec4ub c = PointColors::heightRamp(t);
    QVERIFY2(std::abs(c.r() - colour.red()) <= 1 && std::abs(c.g() - colour.green()) <= 1 &&
                 std::abs(c.b() - colour.blue()) <= 1 && c.a() == 255,
             qPrintable(QStringLiteral("%1 %2 %3").arg(c.r()).arg(c.g()).arg(c.b())));
}

void TestGraphItems::neighbouringClustersDiffer()
{
    // Neighbouring labels are what the eye compares: far apart in colour.
    for (int label = 0; label < 5000; ++label) {
        const double d = colourDistance(PointColors::cluster(label), PointColors::cluster(label + 1));
        QVERIFY2(d > 80.0, qPrintable(QStringLiteral("labels %1 and %2: %3").arg(label).arg(label + 1).arg(d)));
        QCOMPARE(PointColors::cluster(label).a(), static_cast<unsigned char>(255));
    }
    // Noise is grey.
    const osg::Vec4ub noise = PointColors::cluster(-1);
    QVERIFY(noise.r() == noise.g() && noise.g() == noise.b());
}

void TestGraphItems::classificationColours_data()
{
    QTest::addColumn<unsigned int>("code");
    QTest::addColumn<QString>("dominant");  // the channel that must be the largest
    QTest::newRow("ground") << 2u << "red";
    QTest::newRow("low vegetation") << 3u << "green";
    QTest::newRow("medium vegetation") << 4u << "green";
    QTest::newRow("high vegetation") << 5u << "green";
    QTest::newRow("building") << 6u << "red";
    QTest::newRow("water") << 9u << "blue";
}

void TestGraphItems::classificationColours()
{
    QFETCH(unsigned int, code);
    QFETCH(QString, dominant);
    const osg::Vec4ub c = PointColors::classification(code);
    const int r = c.r(), g = c.g(), b = c.b();
    if (dominant == "red") QVERIFY(r > g && r > b);
    if (dominant == "green") QVERIFY(g > r && g > b);
    if (dominant == "blue") QVERIFY(b > r && b > g);
    // Ground and building are told apart, and so are the vegetation heights.
    QVERIFY(colourDistance(PointColors::classification(2), PointColors::classification(6)) > 60);
    QVERIFY(colourDistance(PointColors::classification(3), PointColors::classification(5)) > 60);
    // Unassigned codes still get a colour of their own.
    QVERIFY(colourDistance(PointColors::classification(64), PointColors::classification(65)) > 60);
}

void TestGraphItems::intensityRampRises()
{
    QVERIFY(PointColors::intensityRamp(0.f) == osg::Vec4ub(0, 0, 0, 255));
    QVERIFY(PointColors::intensityRamp(1.f) == osg::Vec4ub(255, 255, 255, 255));
    QVERIFY(PointColors::intensityRamp(2.f) == osg::Vec4ub(255, 255, 255, 255));
    int previous = -1;
    for (int i = 0; i <= 100; ++i) {
        const osg::Vec4ub c = PointColors::intensityRamp(float(i) / 100.f);
        QVERIFY(c.r() == c.g() && c.g() == c.b());
        QVERIFY(int(c.r()) >= previous);
        previous = c.r();
    }
}

void TestGraphItems::blockColoursByMode_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QList<EDataSetColumn>>("columns");
    QTest::addColumn<int>("stride");
    QTest::newRow("rgb") << int(CM_RGB) << QList<EDataSetColumn>{DSC_Location, DSC_Color} << 1;
    QTest::newRow("rgb, every 3rd") << int(CM_RGB) << QList<EDataSetColumn>{DSC_Location, DSC_Color} << 3;
    QTest::newRow("classes") << int(CM_Classification)
                             << QList<EDataSetColumn>{DSC_Location, DSC_Classification} << 1;
    QTest::newRow("clusters, every 10th") << int(CM_Cluster) << QList<EDataSetColumn>{DSC_Location, DSC_Label} << 10;
    QTest::newRow("height") << int(CM_Height) << QList<EDataSetColumn>{DSC_Location} << 1;
    QTest::newRow("8-bit intensity") << int(CM_Intensity) << QList<EDataSetColumn>{DSC_Location, DSC_Intensity}
                                     << 1;
    QTest::newRow("classes missing: height") << int(CM_Classification) << QList<EDataSetColumn>{DSC_Location} << 3;
}

void TestGraphItems::blockColoursByMode()
{
    QFETCH(int, mode);
    QFETCH(QList<EDataSetColumn>, columns);
    QFETCH(int, stride);
    const stPtCloud_DataSetHeader h = GraphTestData::header(EColoringMode(mode), columns);
    const int n = 95;
    stPtCloud_PointArray points = GraphTestData::block(h, n);
    for (int i = 0; i < n; ++i) {
        points.positions[size_t(i)] = pcVec3f(0, 0, float(i) - 10.f);  // heights -10 .. 84
        if (points.hasColumn(DSC_Color))
            points.colors[size_t(i)] = pcVec4f(float(i) / 100.f, 0.5f, 1.f - float(i) / 100.f, 1.f);
        if (points.hasColumn(DSC_Classification)) GraphTestData::setByte(points, DSC_Classification, i, quint8(i % 20));
        if (points.hasColumn(DSC_Label)) GraphTestData::setLabel(points, i, i - 1);
        if (points.hasColumn(DSC_Intensity)) GraphTestData::setIntensity(points, i, quint16(i * 2));
    }
    const pcBoundingBoxf range(0, 0, -10, 1, 1, 90);
    PointColoring coloring;
    coloring.mode = EColoringMode(mode);
    osg::ref_ptr<osg::Vec4ubArray> colours = PointColors::blockColors(points, coloring, stride, range);
    QCOMPARE(int(colours->size()), (n + stride - 1) / stride);
    for (int k = 0; k < int(colours->size()); ++k) {
        const int i = k * stride;
        osg::Vec4ub expected;
        if (mode == CM_RGB) {
            const pcVec4f& c = points.colors[size_t(i)];
            expected = osg::Vec4ub(quint8(std::lround(c.x * 255)), 128, quint8(std::lround(c.z * 255)), 255);
        } else if (mode == CM_Classification && points.hasColumn(DSC_Classification)) {
            expected = PointColors::classification(unsigned(i % 20));
        } else if (mode == CM_Cluster) {
            expected = PointColors::cluster(i - 1);
        } else if (mode == CM_Intensity) {
            // The block's largest value is below 256: an 8-bit scale.
            expected = PointColors::intensityRamp(float(i * 2) / 255.f);
        } else {
            expected = PointColors::heightRamp(float(i) / 100.f);
        }
        QVERIFY2((*colours)[size_t(k)] == expected, qPrintable(QStringLiteral("point %1").arg(i)));
    }
}

void TestGraphItems::demMeshByHeight()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath("dem.pcd");
    stPtCloud_DataSetHeader h = GraphTestData::header(CM_Height, {DSC_Location});
    h.type = DST_Mesh;
    // Two triangles of a square sloping from z = 0 (x = 0) to z = 4 (x = 2).
    stPtCloud_PointArray mesh = GraphTestData::block(h, 4);
    mesh.positions = {pcVec3f(0, 0, 0), pcVec3f(2, 0, 4), pcVec3f(2, 2, 4), pcVec3f(0, 2, 0)};
    mesh.triangles = {0, 1, 2, 0, 2, 3};
    QString error;
    QVERIFY2(GraphTestData::write(path, h, {{1, mesh}}, &error), qPrintable(error));

    PtCloud_DataSetFile file(path);
    osg::ref_ptr<OsgGraphItem_DemMesh> item = new OsgGraphItem_DemMesh(&file);
    QCOMPARE(item->getNumDrawables(), 1u);
    const osg::Geometry* geometry = item->getDrawable(0)->asGeometry();
    const auto* triangles = dynamic_cast<const osg::DrawElementsUInt*>(geometry->getPrimitiveSet(0));
    QVERIFY(triangles);
    QCOMPARE(triangles->getMode(), GLenum(GL_TRIANGLES));
    QCOMPARE(std::vector<unsigned int>(triangles->begin(), triangles->end()), mesh.triangles);
    const auto* colours = dynamic_cast<const osg::Vec4ubArray*>(geometry->getColorArray());
    QVERIFY(colours && colours->size() == 4);
    QVERIFY((*colours)[0] == PointColors::heightRamp(0.f));
    QVERIFY((*colours)[1] == PointColors::heightRamp(1.f));
    QVERIFY(item->getStateSet()->getAttribute(osg::StateAttribute::PROGRAM));

    item->setVisible(false);
    QCOMPARE(item->getNodeMask(), 0u);

    // A file that went away leaves nothing drawn.
    QVERIFY(QFile::remove(path));
    QVERIFY(!item->rebuild());
    QCOMPARE(item->getNumDrawables(), 0u);
}

void TestGraphItems::contourByLevel()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath("contours.json");
    std::vector<PtCloud_ContourFile::Polyline> lines(3);
    lines[0].level = 100.0;
    lines[0].points = {pcVec3f(0, 0, 12.5f), pcVec3f(1, 0, 12.5f), pcVec3f(1, 1, 12.5f)};
    lines[1].level = 110.0;
    lines[1].closed = true;
    lines[1].points = {pcVec3f(0, 0, 22.5f), pcVec3f(2, 0, 22.5f), pcVec3f(2, 2, 22.5f), pcVec3f(0, 2, 22.5f)};
    lines[2].level = 105.0;
    lines[2].points = {pcVec3f(5, 5, 17.5f), pcVec3f(6, 5, 17.5f)};
    QString error;
    QVERIFY2(PtCloud_ContourFile::write(path, pcVec3d(0, 0, 87.5), lines, &error), qPrintable(error));

    PtCloud_ContourFile file(path);
    osg::ref_ptr<OsgGraphItem_Contour> item = new OsgGraphItem_Contour(&file);
    QCOMPARE(item->getNumDrawables(), 1u);
    const osg::Geometry* geometry = item->getDrawable(0)->asGeometry();
    QCOMPARE(geometry->getNumPrimitiveSets(), 3u);
    const GLenum modes[] = {GL_LINE_STRIP, GL_LINE_LOOP, GL_LINE_STRIP};
    const osg::Vec4ub colours[] = {PointColors::heightRamp(0.f), PointColors::heightRamp(1.f),
                                   PointColors::heightRamp(0.5f)};
    const auto* colourArray = dynamic_cast<const osg::Vec4ubArray*>(geometry->getColorArray());
    QVERIFY(colourArray);
    for (unsigned int i = 0; i < 3; ++i) {
        const auto* strip = dynamic_cast<const osg::DrawArrays*>(geometry->getPrimitiveSet(i));
        QCOMPARE(strip->getMode(), modes[i]);
        QCOMPARE(strip->getCount(), GLsizei(lines[i].points.size()));
        QVERIFY((*colourArray)[size_t(strip->getFirst())] == colours[i]);
    }
}

void TestGraphItems::volumeAreaLabel()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    VolumeCalcAreaList areas(dir.filePath("volumes.json"));
    VolumeCalcArea* area = areas.addArea("pile");
    QVERIFY(area);
    area->setBoundary({pcVec3f(0, 0, 1), pcVec3f(4, 0, 1), pcVec3f(4, 4, 3), pcVec3f(0, 4, 3)});

    osg::ref_ptr<OsgGraphItem_VolumeArea> item = new OsgGraphItem_VolumeArea("pile", area);
    QCOMPARE(item->labelString(), QStringLiteral("to dig: 0.00 m\u00b3.\nto fill: 0.00 m\u00b3."));
    QCOMPARE(item->getNumDrawables(), 2u);
    const osg::Geometry* boundary = item->getDrawable(0)->asGeometry();
    QCOMPARE(boundary->getPrimitiveSet(0)->getMode(), GLenum(GL_LINE_LOOP));
    QCOMPARE(verticesOf(boundary)->size(), size_t(4));
    const auto* label = dynamic_cast<const osgText::Text*>(item->getDrawable(1));
    QVERIFY(label);
    QVERIFY(near(label->getPosition(), osg::Vec3f(2, 2, 2)));

    // After a calculation the label shows the method's volumes, or "error."
    // when the area could not be calculated.
    const QString pointsPath = dir.filePath("points.pcd");
    const stPtCloud_DataSetHeader h = GraphTestData::header(CM_Height, {DSC_Location});
    QString error;
    QVERIFY2(GraphTestData::write(pointsPath, h, {{0, GraphTestData::grid(h, 10, pcVec3f(0, 0, 2), 4.f)}}, &error),
             qPrintable(error));
    PtCloud_DataSetFile points(pointsPath);
    areas.setGridFile(&points);
    area->setBoundary({pcVec3f(-1, -1, 0), pcVec3f(5, -1, 0), pcVec3f(5, 5, 0), pcVec3f(-1, 5, 0)});
    area->setGroundHeightMode(VolumeCalcArea::GroundFixed);
    area->setGridSize(0.5);
    QVERIFY2(areas.doCalc(VCF_Grid), qPrintable(area->lastError()));
    QVERIFY(area->lastCalcOk());
    item->rebuild();
    QCOMPARE(item->labelString(), QStringLiteral("to dig: %1 m\u00b3.\nto fill: %2 m\u00b3.")
                                      .arg(area->getDigVolume_grid(), 0, 'f', 2)
                                      .arg(area->getFillVolume_grid(), 0, 'f', 2));

    area->setBoundary({pcVec3f(0, 0, 1), pcVec3f(4, 0, 1)});
    areas.doCalc(VCF_Grid);
    QVERIFY(!area->lastCalcOk());
    item->rebuild();
    QCOMPARE(item->labelString(), QStringLiteral("error."));
    QCOMPARE(item->getNumDrawables(), 2u);

    item->setFunction(VCF_DTM);
    item->setVisible(false);
    QCOMPARE(item->getNodeMask(), 0u);
}

QTEST_MAIN(TestGraphItems)
#include "tst_graph_items.moc"
