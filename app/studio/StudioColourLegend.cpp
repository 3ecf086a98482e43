#include "StudioColourLegend.h"

#include <QEvent>
#include <QFontMetrics>
#include <QLinearGradient>
#include <QLocale>
#include <QPainter>

#include "OsgGraphItem_PcDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"

namespace {
constexpr int kMargin = 8;
constexpr int kSwatch = 12;
constexpr int kRampWidth = 16;
constexpr int kRampHeight = 160;
constexpr int kClassWidth = 220;

QColor toColour(const osg::Vec4ub& c) { return QColor(c.r(), c.g(), c.b()); }
}  // namespace

StudioColourLegend::StudioColourLegend(PtCloudWidget* view) : QWidget(view), m_view(view)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    view->installEventFilter(this);
    hide();
}

void StudioColourLegend::refresh()
{
    PtCloudScene* scene = m_view->ptCloudScene();
    const OsgGraphItem_PcDataSet* item = scene ? scene->pointsItem() : nullptr;
    const bool shown = item && (item->coloring().mode == ptCloud::CM_Classification ||
                                item->coloring().mode == ptCloud::CM_Height ||
                                item->coloring().mode == ptCloud::CM_Intensity);
    if (!shown) return hide();
    const PointColoring& coloring = item->coloring();
    const bool changed = isHidden() || coloring.mode != m_coloring.mode || coloring.low != m_coloring.low ||
                         coloring.high != m_coloring.high || item->sampledClasses() != m_classes ||
                         item->origin().z != m_originZ;
    if (!changed) return;
    m_coloring = coloring;
    m_classes = item->sampledClasses();
    m_originZ = item->origin().z;
    const int line = fontMetrics().height() + 2;
    if (m_coloring.mode == ptCloud::CM_Classification)
        resize(kClassWidth, 2 * kMargin + line * int(m_classes.size()));
    else
        resize(2 * kMargin + kRampWidth + 8 + fontMetrics().horizontalAdvance(QStringLiteral("-00000.00 m")),
               2 * kMargin + kRampHeight + line);
    place();
    show();
    update();
}

void StudioColourLegend::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 140));
    painter.drawRoundedRect(rect(), 6, 6);
    painter.setPen(Qt::white);
    const int line = fontMetrics().height() + 2;
    if (m_coloring.mode == ptCloud::CM_Classification) {
        int y = kMargin;
        for (const int code : m_classes) {
            painter.fillRect(QRect(kMargin, y + (line - kSwatch) / 2, kSwatch, kSwatch),
                             toColour(PointColors::classification(unsigned(code))));
            painter.drawText(QRect(kMargin + kSwatch + 6, y, width(), line), Qt::AlignVCenter,
                             tr("%1  %2").arg(code).arg(PointColors::className(unsigned(code))));
            y += line;
        }
        return;
    }
    const bool height = m_coloring.mode == ptCloud::CM_Height;
    painter.drawText(QRect(kMargin, kMargin, width(), line), Qt::AlignVCenter,
                     height ? tr("Height") : tr("Intensity"));
    const QRect ramp(kMargin, kMargin + line, kRampWidth, kRampHeight);
    QLinearGradient gradient(ramp.bottomLeft(), ramp.topLeft());
    for (int i = 0; i <= 10; ++i) {
        const float t = float(i) / 10.f;
        gradient.setColorAt(t, toColour(height ? PointColors::heightRamp(t) : PointColors::intensityRamp(t)));
    }
    painter.fillRect(ramp, gradient);
    // Heights read absolute, as users type them; intensities raw.
    const double offset = height ? m_originZ : 0.0;
    for (int i = 0; i <= 2; ++i) {
        const double value = offset + m_coloring.low + (m_coloring.high - m_coloring.low) * i / 2.0;
        const int y = ramp.bottom() - ramp.height() * i / 2;
        const QString text = height ? tr("%1 m").arg(QLocale().toString(value, 'f', 2))
                                    : QLocale().toString(qRound(value));
        painter.drawText(QRect(ramp.right() + 6, y - line / 2, width(), line), Qt::AlignVCenter, text);
    }
}

bool StudioColourLegend::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_view && event->type() == QEvent::Resize) place();
    return QWidget::eventFilter(watched, event);
}

void StudioColourLegend::place() { move(m_view->width() - width() - kMargin, kMargin); }
