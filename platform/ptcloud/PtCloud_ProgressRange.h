#pragma once

#include "ILongLiveActionProgress.h"

namespace ptCloud {

// Maps the 0..100 progress of one step of a longer action onto a part
// [from, to] of the whole, forwarding stop requests. The inner sink may be null.
class PtCloud_ProgressRange : public ILongLiveActionProgress {
public:
    PtCloud_ProgressRange(ILongLiveActionProgress* inner, int from, int to);
    ~PtCloud_ProgressRange() override;

    bool isStopRequested() override;
    void setProgress(int value) override;
    void setProgressText(const QString& text) override;
    void requestStop() override;
    int progress() override;
    QString progressText() override;

private:
    ILongLiveActionProgress* m_inner;
    int m_from, m_to;
};

}  // namespace ptCloud
