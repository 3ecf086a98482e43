#include "PtCloud_ProgressRange.h"

namespace ptCloud {

PtCloud_ProgressRange::PtCloud_ProgressRange(ILongLiveActionProgress* inner, int from, int to)
    : m_inner(inner), m_from(from), m_to(to)
{
}

PtCloud_ProgressRange::~PtCloud_ProgressRange() = default;

bool PtCloud_ProgressRange::isStopRequested() { return m_inner && m_inner->isStopRequested(); }

void PtCloud_ProgressRange::setProgress(int value)
{
    if (!m_inner) return;
    value = value < 0 ? 0 : (value > 100 ? 100 : value);
    m_inner->setProgress(m_from + (m_to - m_from) * value / 100);
}

void PtCloud_ProgressRange::setProgressText(const QString& text)
{
    if (m_inner) m_inner->setProgressText(text);
}

void PtCloud_ProgressRange::requestStop()
{
    if (m_inner) m_inner->requestStop();
}

int PtCloud_ProgressRange::progress() { return m_inner ? m_inner->progress() : 0; }

QString PtCloud_ProgressRange::progressText() { return m_inner ? m_inner->progressText() : QString(); }

}  // namespace ptCloud
