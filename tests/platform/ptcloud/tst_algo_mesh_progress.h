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

    bool isStopRequested() override {
        ++m_polls;
        if (m_stopAfter >= 0 && m_polls > m_stopAfter) m_stop = true;
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
    // Progress only ever rose and stayed within 0..100.
    bool wellFormed() const { return m_wellFormed; }

private:
    int m_stopAfter;
    int m_polls = 0;
    bool m_stop = false;
    int m_value = 0;
    bool m_wellFormed = true;
    QString m_text;
};
