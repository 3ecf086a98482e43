#pragma once

#include <QMutex>
#include <QString>
#include <atomic>
#include <functional>

#include "ILongLiveActionProgress.h"

namespace ptCloud {

// A thread-safe progress sink for callers without a dialog (the command
// line, tests). An optional callback sees each change, on the reporting thread.
class PtCloud_SimpleProgress : public ILongLiveActionProgress {
public:
    using Callback = std::function<void(int value, const QString& text)>;
    explicit PtCloud_SimpleProgress(Callback callback = Callback());
    ~PtCloud_SimpleProgress() override;

    bool isStopRequested() override;
    void setProgress(int value) override;
    void setProgressText(const QString& text) override;
    void requestStop() override;
    int progress() override;
    QString progressText() override;

    // Requests a stop by itself after this many isStopRequested() calls
    // (negative: never). Lets tests stop an action part-way.
    void stopAfterPolls(int polls);

private:
    Callback m_callback;
    QMutex m_mutex;
    int m_value = 0;
    QString m_text;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_pollsLeft{-1};
};

}  // namespace ptCloud
