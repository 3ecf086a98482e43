#include "PtCloud_PointsCut.h"

#include "ILongLiveActionProgress.h"
#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_DataSetFile.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

PtCloud_PointsCut::PtCloud_PointsCut(ESide side) : m_side(side) {}

PtCloud_PointsCut PtCloud_PointsCut::byBox(const pcBoundingBoxf& box, ESide side)
{
    PtCloud_PointsCut cut(side);
    cut.m_shape = Shape_Box;
    cut.m_box = box;
    return cut;
}

PtCloud_PointsCut PtCloud_PointsCut::bySphere(const pcBoundingSpheref& sphere, ESide side)
{
    PtCloud_PointsCut cut(side);
    cut.m_shape = Shape_Sphere;
    cut.m_sphere = sphere;
    return cut;
}

bool PtCloud_PointsCut::meets(const pcBoundingBoxf& blockBox) const
{
    switch (m_shape) {
    case Shape_Box: return m_box.intersects(blockBox);
    case Shape_Sphere: return m_sphere.intersects(blockBox);
    case Shape_None: break;
    }
    return false;
}

PtCloud_PointsCut::EResult PtCloud_PointsCut::run(const QString& source, const QString& target,
                                                  ILongLiveActionProgress* progress, QString* error) const
{
    PtCloud_DataSetFile reader(source);
    if (!reader.openFile()) {
        *error = reader.lastError();
        return Result_Failed;
    }
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    reader.getBlocks(blocks);
    bool anyMet = false;
    for (const auto& block : blocks) anyMet = anyMet || meets(std::get<1>(block));
    const bool changes = m_shape != Shape_None && (m_side == Side_Inner ? anyMet : !blocks.isEmpty());
    if (!changes) return Result_Unchanged;

    PtCloud_BlockFileWriter writer(target);
    if (!writer.begin(reader.getHeader(), error)) return Result_Failed;
    stPtCloud_PointArray points;
    int done = 0;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it, ++done) {
        if (progress) {
            if (progress->isStopRequested()) return Result_Stopped;
            progress->setProgress(done * 100 / blocks.size());
        }
        const bool met = meets(std::get<1>(it.value()));
        if (!met && m_side == Side_Outter) continue;
        if (!reader.readBlockInto(it.key(), points)) {
            *error = reader.lastError();
            return Result_Failed;
        }
        if (met) {
            if (m_shape == Shape_Box)
                m_side == Side_Inner ? points.removeInnerByBox(m_box) : points.removeOutterByBox(m_box);
            else
                m_side == Side_Inner ? points.removeInnerBySphere(m_sphere) : points.removeOutterBySphere(m_sphere);
        }
        if (points.count > 0 && !writer.writeBlock(it.key(), points, error)) return Result_Failed;
    }
    if (progress) progress->setProgress(100);
    return writer.commit(error) ? Result_Written : Result_Failed;
}

}  // namespace ptCloud
