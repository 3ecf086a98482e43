#pragma once

#include <QString>

namespace ptCloud {

// Progress sink of a long action. The library calls isStopRequested,
// setProgress and setProgressText from the worker thread; the owner calls
// requestStop, progress and progressText from its own thread. Implementations
// guard their state accordingly. Progress is 0..100.
class ILongLiveActionProgress {
public:
    ILongLiveActionProgress();
    virtual ~ILongLiveActionProgress();
    virtual bool isStopRequested() = 0;
    virtual void setProgress(int value) = 0;
    virtual void setProgressText(const QString& text) = 0;
    virtual void requestStop() = 0;
    virtual int progress() = 0;
    virtual QString progressText() = 0;
};

}  // namespace ptCloud
