#pragma once

#include <QElapsedTimer>
#include <QString>

#include "PtCloud_SimpleProgress.h"

// A one-line progress bar on stderr for long commands. It draws only when
// stderr is a terminal, so pipes and logs stay clean, and erases itself when
// the work ends.
class CliProgressBar {
public:
    explicit CliProgressBar(const QString& label);
    ~CliProgressBar();

    // The sink to hand to the library.
    ptCloud::ILongLiveActionProgress* sink() { return &m_progress; }
    void setProgress(int percent) { m_progress.setProgress(percent); }
    // Erases the bar (also done by the destructor).
    void finish();

private:
    void draw(int percent, const QString& text);

    QString m_label;
    bool m_enabled = false;
    bool m_drawn = false;
    int m_lastPercent = -1;
    QElapsedTimer m_sinceDraw;
    ptCloud::PtCloud_SimpleProgress m_progress;
};
