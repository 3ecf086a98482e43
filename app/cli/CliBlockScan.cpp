#include "CliBlockScan.h"

#include <QMap>

#include "ILongLiveActionProgress.h"
#include "PtCloud_DataSetFile.h"

using namespace ptCloud;

bool CliBlockScan::run(const QString& pointsFile, ILongLiveActionProgress* progress, stPtCloud_DataSetHeader* header,
                       const Visitor& visit, QString* error)
{
    PtCloud_DataSetFile file(pointsFile);
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    if (!file.openFile() || !file.getBlocks(blocks)) {
        *error = QStringLiteral("%1: %2").arg(pointsFile, file.lastError());
        return false;
    }
    *header = file.getHeader();
    // Counts, bounds and exports work from the exact positions.
    file.setExactPositions(true);
    qint64 done = 0;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        const stPtCloud_PointArray* block = file.readBlock(it.key());
        if (!block) {
            *error = QStringLiteral("%1: block %2: %3").arg(pointsFile).arg(it.key()).arg(file.lastError());
            return false;
        }
        if (!visit(*block, error)) return false;
        if (progress) {
            progress->setProgress(int(++done * 100 / blocks.size()));
            if (progress->isStopRequested()) {
                *error = QStringLiteral("cancelled");
                return false;
            }
        }
    }
    return true;
}
