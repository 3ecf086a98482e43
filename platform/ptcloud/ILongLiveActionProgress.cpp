#include "ILongLiveActionProgress.h"

namespace ptCloud {
ILongLiveActionProgress::ILongLiveActionProgress() = default;
ILongLiveActionProgress::~ILongLiveActionProgress() = default;
}
