#include "StudioViewControls.h"

#include <QAction>
#include <QActionGroup>
#include <QLabel>
#include <QMenu>
#include <QMouseEvent>

#include "OsgGraphItem_PcDataSet.h"
#include "OsgTackballManipulate.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "StudioColourLegend.h"
#include "StudioScaleBar.h"

namespace {
constexpr int kPickIntervalMs = 80;
using Manipulator = osgHelper::OsgTackballManipulate;
}  // namespace

StudioViewControls::StudioViewControls(PtCloudWidget* view, QLabel* coordinates)
    : QObject(view),
      m_view(view),
      m_coordinates(coordinates),
      m_scaleBar(new StudioScaleBar(view)),
      m_legend(new StudioColourLegend(view))
{
    view->setAxisIndicatorShown(true);
    view->setMouseTracking(true);
    view->installEventFilter(this);
    m_pickThrottle.setSingleShot(true);
    m_pickThrottle.setInterval(kPickIntervalMs);
    connect(&m_pickThrottle, &QTimer::timeout, this, &StudioViewControls::showPointUnderCursor);
}

void StudioViewControls::fillMenu(QMenu* menu)
{
    menu->addAction(tr("&Home"), this, [this] {
        if (PtCloudScene* scene = m_view->ptCloudScene()) scene->viewHome();
    }, QKeySequence(Qt::CTRL + Qt::Key_0));
    const struct {
        const char* text;
        Manipulator::EStandardView view;
        int key;
    } views[] = {
        {QT_TR_NOOP("&Top"), Manipulator::View_Top, Qt::Key_1},
        {QT_TR_NOOP("&Front"), Manipulator::View_Front, Qt::Key_2},
        {QT_TR_NOOP("&Back"), Manipulator::View_Back, Qt::Key_3},
        {QT_TR_NOOP("&Left"), Manipulator::View_Left, Qt::Key_4},
        {QT_TR_NOOP("&Right"), Manipulator::View_Right, Qt::Key_5},
        {QT_TR_NOOP("&Isometric"), Manipulator::View_Isometric, Qt::Key_6},
    };
    for (const auto& v : views) {
        const osg::Quat rotation = Manipulator::standardRotation(v.view);
        menu->addAction(tr(v.text), this, [this, rotation] {
            if (PtCloudScene* scene = m_view->ptCloudScene()) scene->fitView(rotation);
        }, QKeySequence(Qt::CTRL + v.key));
    }
    menu->addSeparator();
    QAction* orthographic = menu->addAction(tr("&Orthographic"));
    orthographic->setCheckable(true);
    orthographic->setShortcut(QKeySequence(Qt::CTRL + Qt::Key_7));
    connect(orthographic, &QAction::toggled, m_view, &PtCloudWidget::setOrthographic);
    QAction* axes = menu->addAction(tr("&Axes"));
    axes->setCheckable(true);
    axes->setChecked(true);
    axes->setShortcut(QKeySequence(Qt::CTRL + Qt::Key_8));
    connect(axes, &QAction::toggled, m_view, &PtCloudWidget::setAxisIndicatorShown);
    QAction* scale = menu->addAction(tr("&Scale Bar"));
    scale->setCheckable(true);
    scale->setChecked(true);
    scale->setShortcut(QKeySequence(Qt::CTRL + Qt::Key_9));
    connect(scale, &QAction::toggled, m_scaleBar, &QWidget::setVisible);

    menu->addSeparator();
    QMenu* colours = menu->addMenu(tr("&Colour by"));
    auto* group = new QActionGroup(colours);
    const struct {
        const char* text;
        ptCloud::EColoringMode mode;
    } modes[] = {
        {QT_TR_NOOP("RGB"), ptCloud::CM_RGB},
        {QT_TR_NOOP("Classification"), ptCloud::CM_Classification},
        {QT_TR_NOOP("Height"), ptCloud::CM_Height},
        {QT_TR_NOOP("Intensity"), ptCloud::CM_Intensity},
        {QT_TR_NOOP("Return Number"), ptCloud::CM_ReturnNumber},
        {QT_TR_NOOP("Point Source"), ptCloud::CM_PointSource},
    };
    for (const auto& m : modes) {
        QAction* action = colours->addAction(tr(m.text));
        action->setCheckable(true);
        action->setData(int(m.mode));
        group->addAction(action);
        const ptCloud::EColoringMode mode = m.mode;
        connect(action, &QAction::triggered, this, [this, mode] {
            if (PtCloudScene* scene = m_view->ptCloudScene()) scene->setColoringMode(mode);
            refresh();
        });
    }
    connect(colours, &QMenu::aboutToShow, this, [this, colours] { updateColourMenu(colours); });
    updateColourMenu(colours);
}

void StudioViewControls::refresh() { m_legend->refresh(); }

void StudioViewControls::updateColourMenu(QMenu* menu)
{
    PtCloudScene* scene = m_view->ptCloudScene();
    const OsgGraphItem_PcDataSet* item = scene ? scene->pointsItem() : nullptr;
    const QList<ptCloud::EColoringMode> allowed = item ? item->coloringModes() : QList<ptCloud::EColoringMode>();
    for (QAction* action : menu->actions()) {
        const auto mode = ptCloud::EColoringMode(action->data().toInt());
        action->setEnabled(allowed.contains(mode));
        action->setChecked(item && item->coloring().mode == mode);
    }
}

bool StudioViewControls::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_view && event->type() == QEvent::MouseMove) {
        m_cursor = static_cast<QMouseEvent*>(event)->pos();
        if (!m_pickThrottle.isActive()) m_pickThrottle.start();
    } else if (watched == m_view && event->type() == QEvent::Leave) {
        m_coordinates->clear();
    }
    return QObject::eventFilter(watched, event);
}

void StudioViewControls::showPointUnderCursor()
{
    PtCloudScene* scene = m_view->ptCloudScene();
    OsgGraphItem_PcDataSet* item = scene ? scene->pointsItem() : nullptr;
    if (!item || !m_view->rect().contains(m_cursor)) return m_coordinates->clear();
    const double scale = m_view->getPixelScale();
    int block = -1, index = -1;
    QMap<ptCloud::EDataSetColumn, QVariant> attributes;
    if (!item->pickNearest(m_cursor.x() * scale, (m_view->height() - m_cursor.y()) * scale, &block, &index, nullptr,
                           &attributes))
        return m_coordinates->clear();
    const QVariantList xyz = attributes.value(ptCloud::DSC_Location).toList();
    if (xyz.size() != 3) return m_coordinates->clear();
    m_coordinates->setText(tr("X %1  Y %2  Z %3")
                               .arg(xyz[0].toDouble(), 0, 'f', 3)
                               .arg(xyz[1].toDouble(), 0, 'f', 3)
                               .arg(xyz[2].toDouble(), 0, 'f', 3));
}
