#pragma once
// Progress sink for the meshing, thinning and volume tests: counts polls,
// can ask for a stop after a given number of them, and records whether the
// reported progress ever went backwards or left 0..100.

#include <QString>

#include "ILongLiveActionProgress.h"

class AlgoTestProgress : public ptCloud::ILongLiveActionProgress {
public:
    // stopAfterPolls < 0: never ask for a stop.
    explicit AlgoTestProgress(int stopAfterPolls = -1) : m_stopAfter(stopAfterPolls) {}

    // Asks for a stop at the first poll once the reported progress reached
    // value: unlike a poll count, this does not vary with thread timing.
    void stopOnceProgressReaches(int value) { m_stopAtProgress = value; }

    bool isStopRequested() override {
        ++m_polls;
        if (m_stopAfter >= 0 && m_polls > m_stopAfter) m_stop = true;
        if (m_stopAtProgress >= 0 && m_value >= m_stopAtProgress) m_stop = true;
        if (m_stop && m_stopSeenAt < 0) m_stopSeenAt = m_polls;
        return m_stop;
    }
    void setProgress(int value) override {
        if (value < m_value || value < 0 || value > 100) m_wellFormed = false;
        m_value = value;
    }
    void setProgressText(const QString& text) override { m_text = text; }
    void requestStop() override { m_stop = true; }
    int progress() override { return m_value; }
    QString progressText() override { return m_text; }

    int polls() const { return m_polls; }
    // The poll that first answered yes; -1 when none did.
    int stopSeenAt() const { return m_stopSeenAt; }
    // Progress only ever rose and stayed within 0..100.
    bool wellFormed() const { return m_wellFormed; }

private:
    int m_stopAfter;
    int m_stopAtProgress = -1;
    int m_stopSeenAt = -1;
    int m_polls = 0;
    bool m_stop = false;
    int m_value = 0;
    bool m_wellFormed = true;
    QString m_text;
};
