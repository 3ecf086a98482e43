#include "StudioScaleBar.h"

#include <QEvent>
#include <QLocale>
#include <QPainter>

#include <cmath>

#include "OsgQWidget.h"
#include "OsgTackballManipulate.h"

namespace {
constexpr int kWidth = 200;
constexpr int kHeight = 34;
constexpr int kMargin = 12;
}  // namespace

StudioScaleBar::StudioScaleBar(osgHelper::OsgQWidget* view) : QWidget(view), m_view(view)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    resize(kWidth, kHeight);
    view->installEventFilter(this);
    view->getManipulate()->addMonitor(this);
    place();
}

StudioScaleBar::~StudioScaleBar() { m_view->getManipulate()->removeMonitor(this); }

void StudioScaleBar::onCameraChanged() { update(); }

double StudioScaleBar::roundLength(double atMost)
{
    if (!(atMost > 0.0) || !std::isfinite(atMost)) return 0.0;
    const double power = std::pow(10.0, std::floor(std::log10(atMost)));
    for (const double step : {5.0, 2.0, 1.0})
        if (step * power <= atMost) return step * power;
    return power;
}

void StudioScaleBar::paintEvent(QPaintEvent*)
{
    const double metresPerPixel = m_view->pixelSizeAtCentre();
    const double metres = roundLength((kWidth - 2 * kMargin) * metresPerPixel);
    if (metres <= 0.0) return;
    const int length = int(std::lround(metres / metresPerPixel));
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 110));
    const QRect bar(width() - kMargin - length - 6, 2, length + 12, height() - 4);
    painter.drawRoundedRect(bar, 4, 4);
    const int x0 = width() - kMargin - length, x1 = width() - kMargin, y = height() - 9;
    painter.setPen(QPen(Qt::white, 2));
    painter.drawLine(x0, y, x1, y);
    painter.drawLine(x0, y - 5, x0, y);
    painter.drawLine(x1, y - 5, x1, y);
    const QString text = metres >= 1000.0 ? tr("%1 km").arg(QLocale().toString(metres / 1000.0))
                                          : tr("%1 m").arg(QLocale().toString(metres));
    painter.drawText(QRect(x0, 2, length, y - 6), Qt::AlignCenter, text);
}

bool StudioScaleBar::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_view && event->type() == QEvent::Resize) place();
    return QWidget::eventFilter(watched, event);
}

void StudioScaleBar::place() { move(m_view->width() - width() - 4, m_view->height() - height() - 4); }
