#pragma once

#include <QByteArray>
#include <QSaveFile>
#include <QString>
#include <memory>
#include <vector>

#include "PtCloudTypes.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

class LazChunkCodec;

// Writes LAS 1.4, point format 6 (7 with Color), which other software reads;
// a path ending in .laz gets the same records compressed (LAZ, layered
// chunks of 50 000 points with their chunk table).
// Atomic: the target appears only when close() succeeds.
// With the label field, every record ends in a signed 32-bit extra-bytes
// attribute "label" (described in the standard's Extra Bytes record) taken
// from the points' DSC_Label column: cluster ids survive the export whole,
// even where they do not fit the one-byte classification.
class LasWriter {
public:
    LasWriter();
    ~LasWriter();

    // Takes effect at the next open().
    void setLabelField(bool on) { m_withLabel = on; }

    // scale: the coordinate resolution (e.g. 0.001); offset: near the data.
    // wkt: coordinate system to record, may be empty.
    bool open(const QString& path, bool withColor, const double scale[3], const double offset[3],
              const QString& wkt, QString* error);
    // Points of a block (positions relative to points.origin, taken from
    // its quanta where it has them). A failure abandons the file: the target
    // stays as it was.
    bool write(const stPtCloud_PointArray& points, QString* error);
    bool close(QString* error);

private:
    int recordLength() const;
    // Records on their way to the file, through the chunk codec when compressing.
    bool putRecords(const char* records, int k);
    bool flushChunk();

    QSaveFile m_file;
    QByteArray m_wkt;  // NUL-terminated, empty when there is no coordinate system
    bool m_withColor = false;
    bool m_withLabel = false;
    double m_scale[3] = {0.001, 0.001, 0.001};
    double m_offset[3] = {0, 0, 0};
    quint64 m_count = 0;
    double m_min[3], m_max[3];
    quint64 m_byReturn[15] = {};
    quint32 m_headerSize = 375;
    quint32 m_offsetToPoints = 0;
    std::unique_ptr<LazChunkCodec> m_codec;  // set when compressing
    std::vector<char> m_chunk;               // records of the chunk being filled
    std::vector<quint32> m_chunkBytes;       // compressed size of each chunk written
};

}  // namespace ptCloud
