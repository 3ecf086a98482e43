#pragma once

#include <QString>
#include <functional>

#include "stPtCloud_DataSetHeader.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {
class ILongLiveActionProgress;
}

// Walks every block of a points file in id order through a reader of its
// own, reporting progress and honouring a stop request ("cancelled"). Blocks
// carry their exact positions where the file stores them.
class CliBlockScan {
public:
    using Visitor = std::function<bool(const ptCloud::stPtCloud_PointArray& block, QString* error)>;

    // header is filled once the file is open, before the first block is visited.
    static bool run(const QString& pointsFile, ptCloud::ILongLiveActionProgress* progress,
                    ptCloud::stPtCloud_DataSetHeader* header, const Visitor& visit, QString* error);
};
