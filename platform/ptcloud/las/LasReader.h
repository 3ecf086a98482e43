#pragma once

#include <QFile>
#include <QList>
#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

#include "LasHeader.h"
#include "PtCloudTypes.h"
#include "stPtCloud_PointArray.h"
#include "stPtCloud_RecordLayout.h"

namespace ptCloud {

class LazChunkReader;

// Streaming reader of LAS 1.0 to 1.4, point formats 0 to 10. Reads the way
// the established lidar libraries do: trusts the offset to the point data,
// prefers the 64-bit count, keeps the whole classification byte in formats
// 6-10 (low five bits in 0-5), scales 8-bit colours stored in 16-bit fields.
// Memory does not grow with the file. LAZ files (compressed, COPC among
// them) are recognised by their content and read the same way.
class LasReader {
public:
    LasReader();
    ~LasReader();

    // Reads and checks the header; false with a one-line reason in *error.
    bool open(const QString& path, QString* error);
    void close();
    const LasHeader& header() const { return m_header; }

    // Reads up to maxPoints further points into out (replacing its content):
    // positions relative to origin, and the requested columns the file has.
    // Returns the number read (0 at the end); -1 on a read error.
    qint64 readChunk(stPtCloud_PointArray& out, int maxPoints, const QList<EDataSetColumn>& columns,
                     const pcVec3d& origin, QString* error);
    // Reads up to maxPoints further points into out (replacing its content)
    // as records of the given layout, positions in whole quanta from origin
    // (exact when the quantum divides the file's scale and the offset lies on
    // its grid): one pass where readChunk's columns would take a pass each to
    // interleave. Columns of the layout the file lacks are zero. Returns as
    // readChunk.
    qint64 readRecords(std::vector<char>& out, int maxPoints, const stPtCloud_RecordLayout& layout,
                       const pcVec3d& origin, const pcVec3d& quantum, QString* error);
    // Restarts reading at the first point.
    bool rewind();
    quint64 pointsRead() const { return m_read; }

    // Colours of this file are 8-bit values in the 16-bit fields (decided from
    // points sampled over the whole file); they are scaled by 257 when read.
    bool colorsAre8Bit() const { return m_color8; }
    // Departures from the standard that open() read past, one line each.
    const QStringList& warnings() const { return m_warnings; }

private:
    bool readHeader(QString* why);
    void readVlrs();
    void readEvlrs();
    bool openCompressed(QString* why);
    bool detectColorDepth(QString* why);
    // Reads the next min(maxPoints, what is left) records a buffer at a time:
    // decode(nullptr, n, -1) first, then decode(records, k, at) for every k
    // records from the at-th.
    template <class Decode> qint64 readPoints(int maxPoints, QString* error, Decode decode);
    // Position and one column of k records, one value every `stride` bytes.
    void decodePositions(const char* src, int k, const pcVec3d& origin, uint8_t* dst, size_t stride) const;
    void decodeColumn(EDataSetColumn c, const char* src, int k, uint8_t* dst, size_t stride) const;

    QFile m_file;
    LasHeader m_header;
    bool m_compressed = false;
    std::unique_ptr<LazChunkReader> m_laz;
    quint64 m_read = 0;
    bool m_color8 = false;
    std::vector<char> m_buffer;
    QStringList m_warnings;
};

}  // namespace ptCloud
