#pragma once

#include <QList>
#include <QString>
#include <memory>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"
#include "stPtCloud_DataSetHeader.h"
#include "stPtCloud_PointArray.h"
#include "stPtCloud_RecordLayout.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Makes a block file from a stream of points, out of core: points are dealt
// into spatial buckets, kept in memory while they fit and spilled to a
// temporary file beyond that; then each bucket is cut into blocks of at most
// targetBlockPoints points, cells of a k-d tree that halves the longest side
// at every level (PtCloud_CurveOrder), each ordered along a Morton curve of
// its own box so that every k-th point is an even thinning and nearby points
// are drawn together, and written while the next bucket is cut. Memory stays
// within memoryBudgetBytes whatever the number of points.
class PtCloud_DataSetBuilder {
public:
    struct Options {
        int targetBlockPoints = 50000;               // points per block, at most
        // Points in memory, spill buffers and the blocks on their way out.
        // The default holds some 20 million points of every LAS column, so a
        // typical survey file is never spilled, and keeps the process under
        // 1 GiB.
        qint64 memoryBudgetBytes = 864ll << 20;
        QString tempDir;                             // for the spill files; empty: beside the output
    };

    // header: type, colouring mode, origin, quantum and columns of the new
    // file (without a quantum, one finer than single precision over the
    // bounds); its pointCount, when not 0, announces how many points will
    // come, which sizes the spatial buckets (without it they are sized from
    // the first points).
    // bounds: a box (relative to header.origin) that holds the points; points
    // outside it are still kept (they land in the edge buckets).
    PtCloud_DataSetBuilder(const QString& outPath, const stPtCloud_DataSetHeader& header,
                           const pcBoundingBoxf& bounds, const Options& options);
    PtCloud_DataSetBuilder(const QString& outPath, const stPtCloud_DataSetHeader& header,
                           const pcBoundingBoxf& bounds);
    ~PtCloud_DataSetBuilder();  // removes the spill files; an unfinished output is not written

    // Adds points (positions relative to chunk.origin, exact where the chunk
    // carries quanta; re-based to the header's origin and quantum). Columns
    // the builder was not asked for are ignored.
    bool addPoints(const stPtCloud_PointArray& chunk, QString* error);
    // The records addRecords takes: the columns of the header, positions in
    // quanta of the header's grid (see header()).
    const stPtCloud_RecordLayout& recordLayout() const;
    // The header of the file being made, its quantum chosen.
    const stPtCloud_DataSetHeader& header() const;
    // Adds n points as records of recordLayout(): cheaper than addPoints for a
    // source that can write them so (the LAS reader).
    bool addRecords(const char* records, size_t n, QString* error);
    // Partitions, orders and writes the file atomically. Honours the
    // progress sink's stop request (returns false with error "cancelled").
    bool finish(ILongLiveActionProgress* progress, QString* error);
    quint64 pointCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

}  // namespace ptCloud
