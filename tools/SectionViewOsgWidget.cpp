#include "SectionViewOsgWidget.h"

#include <QCoreApplication>
#include <QProgressDialog>
#include <cmath>

#include "Algo_SectionStrip.h"
#include "OsgGraphItem_PointList.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_SimpleProgress.h"
#include "tk/Geometry.h"

using namespace ptCloud;

namespace {
// Below this many entries the arrays are given room for this many at once.
constexpr size_t kInitialReserve = 10000;
// A section that takes longer than this shows its progress.
constexpr int kProgressDelayMs = 400;
}  // namespace

SectionViewOsgWidget::SectionViewOsgWidget(QWidget* parent) : osgHelper::OsgQWidget(parent, true) {}

SectionViewOsgWidget::~SectionViewOsgWidget() = default;

void SectionViewOsgWidget::setDataSetFile(const QString& path)
{
    m_reader = std::make_unique<PtCloud_DataSetFile>(path);
}

osg::Quat SectionViewOsgWidget::faceRotation(double angle)
{
    // Tilt from the top view to look along +y (x to the right, z up), then
    // turn about the vertical so that the screen's x runs along the line.
    return osg::Quat(osg::PI_2, osg::X_AXIS) * osg::Quat(osg::DegreesToRadians(angle), osg::Z_AXIS);
}

bool SectionViewOsgWidget::showSection(const osg::Vec2d& start, const osg::Vec2d& end, double width,
                                       bool lookAcross, QString* error)
{
    if (!m_profile) {
        m_profile = new OsgGraphItem_PointList;
        getRoot()->addChild(m_profile.get());
    }
    osg::Vec3Array* vertices = m_profile->vertices();
    osg::Vec4Array* colors = m_profile->colors();
    vertices->clear();
    colors->clear();
    if (vertices->capacity() < kInitialReserve) vertices->reserve(kInitialReserve);
    if (colors->capacity() < kInitialReserve) colors->reserve(kInitialReserve);
    m_blocksRead = 0;

    bool ok = false;
    if (!m_reader || !(m_reader->isOpened() || m_reader->openFile())) {
        *error = m_reader ? m_reader->lastError() : QStringLiteral("no dataset");
    } else {
        QProgressDialog dialog(QCoreApplication::translate("section_view_widget", "Reading the section..."),
                               QCoreApplication::translate("section_view_widget", "Cancel"), 0, 100, this);
        dialog.setWindowModality(Qt::WindowModal);
        dialog.setMinimumDuration(kProgressDelayMs);
        PtCloud_SimpleProgress* sink = nullptr;
        PtCloud_SimpleProgress progress([&](int value, const QString&) {
            dialog.setValue(value);
            if (dialog.wasCanceled() && sink) sink->requestStop();
        });
        sink = &progress;
        const Algo_SectionStrip strip(start.x(), start.y(), end.x(), end.y(), width);
        auto keep = [&](const stPtCloud_PointArray& block, const std::vector<int>& inside, QString*) {
            const bool coloured = !block.colors.empty();
            for (int i : inside) {
                const pcVec3f& p = block.positions[size_t(i)];
                vertices->push_back(osg::Vec3(p.x, p.y, p.z));
                const pcVec4f c = coloured ? block.colors[size_t(i)] : pcVec4f(1.f, 1.f, 1.f, 1.f);
                colors->push_back(osg::Vec4(c.x, c.y, c.z, c.w));
            }
            return true;
        };
        ok = strip.run(*m_reader, keep, &progress, error, &m_blocksRead);
        dialog.reset();
    }
    if (!ok) {
        vertices->clear();
        colors->clear();
    }
    m_profile->rebuild();
    if (ok && lookAcross) {
        double angle = tk::Geometry::calc_angle(start.x(), start.y(), end.x(), end.y());
        tk::Geometry::clampAngle(angle);
        EnterFaceViewManipulate(faceRotation(angle));
    }
    requestRedraw();
    return ok;
}

void SectionViewOsgWidget::clearSection()
{
    if (!m_profile) return;
    m_profile->vertices()->clear();
    m_profile->colors()->clear();
    m_profile->rebuild();
    requestRedraw();
}

int SectionViewOsgWidget::sectionPointCount() const { return m_profile ? int(m_profile->vertices()->size()) : 0; }
