#include "CliProgressBar.h"

#include <algorithm>
#include <cstdio>

#include "CliConsole.h"

namespace {
const int kBarWidth = 30;
const int kMinRedrawMs = 100;  // a redraw per percent is plenty; text changes can come faster
}  // namespace

CliProgressBar::CliProgressBar(const QString& label)
    : m_label(label),
      m_enabled(CliConsole::stderrIsTerminal()),
      m_progress([this](int value, const QString& text) { draw(value, text); })
{
    m_sinceDraw.start();
}

CliProgressBar::~CliProgressBar() { finish(); }

void CliProgressBar::draw(int percent, const QString& text)
{
    if (!m_enabled) return;
    percent = std::clamp(percent, 0, 100);
    if (percent == m_lastPercent && m_sinceDraw.elapsed() < kMinRedrawMs) return;
    m_lastPercent = percent;
    m_sinceDraw.restart();
    const int filled = percent * kBarWidth / 100;
    const QString bar = QString(filled, QLatin1Char('#')) + QString(kBarWidth - filled, QLatin1Char('.'));
    QString line = QStringLiteral("%1 [%2] %3%").arg(m_label, bar).arg(percent, 3);
    if (!text.isEmpty()) line += QLatin1Char(' ') + text;
    // \r plus erase-to-end keeps the bar on one line however the text shrinks.
    std::fprintf(stderr, "\r%s\033[K", line.left(160).toUtf8().constData());
    std::fflush(stderr);
    m_drawn = true;
}

void CliProgressBar::finish()
{
    if (!m_drawn) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    m_drawn = false;
}
