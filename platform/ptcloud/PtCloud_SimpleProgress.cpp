#include "PtCloud_SimpleProgress.h"

#include <QMutexLocker>

namespace ptCloud {

PtCloud_SimpleProgress::PtCloud_SimpleProgress(Callback callback) : m_callback(std::move(callback)) {}
PtCloud_SimpleProgress::~PtCloud_SimpleProgress() = default;

bool PtCloud_SimpleProgress::isStopRequested()
{
    if (m_pollsLeft.load() >= 0 && m_pollsLeft.fetch_sub(1) <= 0) m_stop = true;
    return m_stop.load();
}

void PtCloud_SimpleProgress::setProgress(int value)
{
    QString text;
    {
        QMutexLocker lock(&m_mutex);
        if (value == m_value) return;
        m_value = value;
        text = m_text;
    }
    if (m_callback) m_callback(value, text);
}

void PtCloud_SimpleProgress::setProgressText(const QString& text)
{
    int value;
    {
        QMutexLocker lock(&m_mutex);
        m_text = text;
        value = m_value;
    }
    if (m_callback) m_callback(value, text);
}

void PtCloud_SimpleProgress::requestStop() { m_stop = true; }

int PtCloud_SimpleProgress::progress()
{
    QMutexLocker lock(&m_mutex);
    return m_value;
}

QString PtCloud_SimpleProgress::progressText()
{
    QMutexLocker lock(&m_mutex);
    return m_text;
}

void PtCloud_SimpleProgress::stopAfterPolls(int polls) { m_pollsLeft = polls; }

}  // namespace ptCloud
