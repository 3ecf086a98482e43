#include "Func_Section_Widget.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QMessageBox>
#include <QMouseEvent>

#include "OsgGraphItem_LineWithPedal.h"
#include "OsgGraphItem_PcDataSet.h"
#include "OsgGraphItem_Point_Draggable.h"
#include "OsgQWidget.h"
#include "OsgTackballManipulate.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "SectionViewOsgWidget.h"
#include "SectionViewWidget.h"
#include "ui_Func_Section_Widget.h"

using namespace ptCloud;

namespace {
// The profile window's margin from the view's bottom-left corner.
constexpr int kProfileMargin = 20;
}  // namespace

Func_Section_Widget::Func_Section_Widget(PtCloudScene* scene, osgHelper::OsgQWidget* view)
    : MovableSubWidget(view), m_view(view), m_scene(scene), ui(std::make_unique<Ui::func_section_widget>())
{
    ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    m_savedTrackNode = view->getManipulate()->getTrackNode();
    m_item = scene->pointsItem();

    m_sectionView = new SectionViewWidget(view);
    if (const PtCloudDataSet* ds = scene->currentDataSet())
        m_sectionView->profileView()->setDataSetFile(ds->getFilePath_Points());
    const QSize size(std::min(640, std::max(view->width() - 2 * kProfileMargin, 200)), 320);
    m_sectionView->resize(size);
    m_sectionView->move(clampedPosition(QPoint(kProfileMargin, view->height() - size.height() - kProfileMargin),
                                        size, view->size()));
    m_sectionView->show();

    connect(ui->pushButton_clear, SIGNAL(clicked(bool)), this, SLOT(onClickedClear()), Qt::UniqueConnection);
    connect(ui->doubleSpinBox_width, SIGNAL(valueChanged(double)), this, SLOT(onWidthChanged()),
            Qt::UniqueConnection);
    connect(ui->toolButton_close, SIGNAL(clicked(bool)), this, SLOT(onClickedClose()), Qt::UniqueConnection);
}

// The view may be half destroyed here (the panel is its child): overlays
// and the tracked node were dealt with at close.
Func_Section_Widget::~Func_Section_Widget() { delete m_sectionView.data(); }

SectionViewWidget* Func_Section_Widget::sectionView() const { return m_sectionView.data(); }

bool Func_Section_Widget::viewMousePressEvent(QMouseEvent* event)
{
    osg::ref_ptr<OsgGraphItem_PcDataSet> item;
    if (event->button() != Qt::LeftButton || !m_item.lock(item) || !item->isReady()) return false;
    const double scale = m_view->getPixelScale();
    int block = -1, index = -1;
    osg::Vec3f position;
    if (!item->pickNearest(event->x() * scale, (m_view->height() - event->y()) * scale, &block, &index, &position,
                           nullptr))
        return false;
    pickPoint(position);
    return true;
}

void Func_Section_Widget::pickPoint(const osg::Vec3f& position)
{
    osg::Group* root = m_view->getRoot();
    if (m_startMarker && m_endMarker) onClickedClear();
    if (!m_startMarker) {
        m_startMarker = new OsgGraphItem_Point_Draggable(position);
        root->addChild(m_startMarker.get());
        m_view->requestRedraw();
        return;
    }
    // The same point again would be a line of no length.
    if (position == m_startMarker->position()) return;
    m_endMarker = new OsgGraphItem_Point_Draggable(position);
    m_line = new OsgGraphItem_LineWithPedal(m_startMarker->position(), position);
    m_line->setWidth(float(ui->doubleSpinBox_width->value()));
    root->addChild(m_endMarker.get());
    root->addChild(m_line.get());
    m_view->getManipulate()->setTrackNode(m_line.get());
    m_view->requestRedraw();
    showSection(true);
}

void Func_Section_Widget::showSection(bool lookAcross)
{
    if (!m_startMarker || !m_endMarker || !m_sectionView) return;
    const osg::Vec3f a = m_startMarker->position(), b = m_endMarker->position();
    QString error;
    SectionViewOsgWidget* profile = m_sectionView->profileView();
    const bool ok = profile->showSection(osg::Vec2d(a.x(), a.y()), osg::Vec2d(b.x(), b.y()),
                                         ui->doubleSpinBox_width->value(), lookAcross, &error);
    m_sectionView->setPointCount(ok ? profile->sectionPointCount() : -1);
    if (!ok && error != QLatin1String("cancelled"))
        QMessageBox::critical(
            this, QCoreApplication::translate("func_section_widget", "error"),
            QCoreApplication::translate("func_section_widget", "The section cannot be read: %1").arg(error));
}

void Func_Section_Widget::onClickedClear()
{
    removeOverlays();
    if (m_sectionView) {
        m_sectionView->profileView()->clearSection();
        m_sectionView->setPointCount(-1);
    }
}

void Func_Section_Widget::onWidthChanged()
{
    if (!m_line) return;
    m_line->setWidth(float(ui->doubleSpinBox_width->value()));
    m_view->requestRedraw();
    showSection(false);
}

void Func_Section_Widget::onClickedClose() { close(); }

void Func_Section_Widget::closeEvent(QCloseEvent* event)
{
    removeOverlays();
    if (m_sectionView) m_sectionView->close();
    MovableSubWidget::closeEvent(event);
}

void Func_Section_Widget::removeOverlays()
{
    osgHelper::OsgTackballManipulate* manipulator = m_view->getManipulate();
    if (m_line && manipulator->getTrackNode() == m_line.get()) {
        osg::ref_ptr<osg::Node> saved;
        m_savedTrackNode.lock(saved);
        manipulator->setTrackNode(saved.get());
    }
    osg::Group* root = m_view->getRoot();
    for (osg::Node* node : {static_cast<osg::Node*>(m_startMarker.get()), static_cast<osg::Node*>(m_endMarker.get()),
                            static_cast<osg::Node*>(m_line.get())})
        if (node) root->removeChild(node);
    m_startMarker = nullptr;
    m_endMarker = nullptr;
    m_line = nullptr;
    m_view->requestRedraw();
}
