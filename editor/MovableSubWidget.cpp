#include "MovableSubWidget.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPixmap>
#include <QWheelEvent>
#include <algorithm>

#include "AppConfig.h"
#include "PtCloudResources.h"

MovableSubWidget::MovableSubWidget(QWidget* parent) : QWidget(parent)
{
    PtCloudResources::initialize();
    setMinimumSize(1, 1);
    setMouseTracking(true);
    setWindowFlags(Qt::FramelessWindowHint);
    applySkinPalette();
}

int MovableSubWidget::regionAt(const QSize& size, const QPoint& pos, int border)
{
    const int x = pos.x(), y = pos.y();
    const int r = size.width() - x, b = size.height() - y;
    if (y < border) {
        if (x < border) return Region_Top | Region_Left;
        if (r >= border) return Region_Top;
        return Region_Top | Region_Right;
    }
    if (b >= border) {
        if (x < border) return Region_Left;
        if (r >= border) return Region_Inside;
        return Region_Right;
    }
    if (x < border) return Region_Bottom | Region_Left;
    if (r >= border) return Region_Bottom;
    return Region_Bottom | Region_Right;
}

Qt::CursorShape MovableSubWidget::cursorFor(int region)
{
    switch (region) {
    case Region_Top | Region_Left:
    case Region_Bottom | Region_Right: return Qt::SizeFDiagCursor;
    case Region_Top | Region_Right:
    case Region_Bottom | Region_Left: return Qt::SizeBDiagCursor;
    case Region_Top:
    case Region_Bottom: return Qt::SizeVerCursor;
    case Region_Left:
    case Region_Right: return Qt::SizeHorCursor;
    default: return Qt::ArrowCursor;
    }
}

QPoint MovableSubWidget::clampedPosition(const QPoint& wanted, const QSize& size, const QSize& parentSize)
{
    QPoint p(std::max(wanted.x(), 0), std::max(wanted.y(), 0));
    if (p.x() + size.width() > parentSize.width()) p.setX(parentSize.width() - size.width());
    if (p.y() + size.height() > parentSize.height()) p.setY(parentSize.height() - size.height());
    return p;
}

QRect MovableSubWidget::resizedGeometry(const QRect& pressGeometry, int region, const QPoint& displacement,
                                        const QSize& minimum, const QSize& maximum)
{
    int left = pressGeometry.left(), top = pressGeometry.top();
    int right = pressGeometry.right(), bottom = pressGeometry.bottom();
    // QRect's right and bottom are inclusive: a width is right - left + 1.
    const auto clampSize = [](int size, int lo, int hi) { return std::min(std::max(size, lo), hi); };
    if (region & Region_Left)
        left = right + 1 - clampSize(right + 1 - (left + displacement.x()), minimum.width(), maximum.width());
    if (region & Region_Right)
        right = left - 1 + clampSize(right + displacement.x() + 1 - left, minimum.width(), maximum.width());
    if (region & Region_Top)
        top = bottom + 1 - clampSize(bottom + 1 - (top + displacement.y()), minimum.height(), maximum.height());
    if (region & Region_Bottom)
        bottom = top - 1 + clampSize(bottom + displacement.y() + 1 - top, minimum.height(), maximum.height());
    return QRect(QPoint(left, top), QPoint(right, bottom));
}

QString MovableSubWidget::backgroundPicture()
{
    return AppConfig::getInstance().module_userSettings().getSelectedSkin() != 0
               ? QStringLiteral(":res/ptcloud/sub_widget_bg.png")
               : QStringLiteral(":res/ptcloud/sub_widget_bg_light.png");
}

bool MovableSubWidget::viewMousePressEvent(QMouseEvent*) { return false; }

bool MovableSubWidget::viewMouseMoveEvent(QMouseEvent*) { return false; }

bool MovableSubWidget::viewKeyPressEvent(QKeyEvent*) { return false; }

void MovableSubWidget::applySkinPalette()
{
    if (AppConfig::getInstance().module_userSettings().getSelectedSkin() == 0) return;
    QPalette p = palette();
    const QColor text(0xe6, 0xe9, 0xee), field(0x22, 0x26, 0x2c), button(0x3a, 0x40, 0x4a);
    for (QPalette::ColorGroup g : {QPalette::Active, QPalette::Inactive}) {
        p.setColor(g, QPalette::WindowText, text);
        p.setColor(g, QPalette::Text, text);
        p.setColor(g, QPalette::ButtonText, text);
        p.setColor(g, QPalette::Base, field);
        p.setColor(g, QPalette::AlternateBase, button);
        p.setColor(g, QPalette::Window, button);
        p.setColor(g, QPalette::Button, button);
    }
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x87, 0x92));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x80, 0x87, 0x92));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x87, 0x92));
    p.setColor(QPalette::Disabled, QPalette::Base, field);
    setPalette(p);
}

void MovableSubWidget::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.drawPixmap(QRect(0, 0, width(), height()), QPixmap(backgroundPicture()));
}

void MovableSubWidget::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_pressPos = event->globalPos();
        m_pressGeometry = geometry();
        m_dragOffset = event->globalPos() - frameGeometry().topLeft();
        m_region = regionAt(size(), event->pos(), m_borderWidth);
    }
    event->accept();
}

void MovableSubWidget::mouseMoveEvent(QMouseEvent* event)
{
    if (!(event->buttons() & Qt::LeftButton)) {
        m_region = regionAt(size(), event->pos(), m_borderWidth);
        setCursor(cursorFor(m_region));
    } else if (m_region == Region_Inside) {
        const QSize parentSize = parentWidget() ? parentWidget()->size() : size();
        move(clampedPosition(event->globalPos() - m_dragOffset, size(), parentSize));
    } else {
        setGeometry(resizedGeometry(m_pressGeometry, m_region, event->globalPos() - m_pressPos, minimumSize(),
                                    maximumSize()));
    }
    event->accept();
}

void MovableSubWidget::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) m_region = regionAt(size(), event->pos(), m_borderWidth);
    event->accept();
}

void MovableSubWidget::wheelEvent(QWheelEvent* event)
{
    QWidget::wheelEvent(event);
    event->accept();
}

void MovableSubWidget::keyPressEvent(QKeyEvent* event)
{
    QWidget::keyPressEvent(event);
    event->accept();
}

void MovableSubWidget::keyReleaseEvent(QKeyEvent* event)
{
    QWidget::keyReleaseEvent(event);
    event->accept();
}
