#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

#include "stPtCloud_DataSetHeader.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

// On-disk layout of a block file, shared by its writer and its readers.
//
//   header   magic, version, header size, type, sort, colouring, column
//            mask, origin, point and block counts, index offset and
//            checksum, bounds, (version 2) quantum, header checksum
//   payloads one a block: positions, triangles (uint32 x3, meshes only), then
//            every other column in value order (Color as three uint16
//            channels, Normal as float x3, the rest raw)
//   index    an entry a block, in id order, at the end of the file
//
// Version 1 stores positions as floats relative to the origin. Version 2,
// written for headers with a quantum, stores them as whole quanta relative
// to the block's corner (kept in its index entry, in quanta from the
// origin), as unsigned 32-bit integers, or 64-bit where a block spans more
// than 2^32 quanta: whatever the dataset's extent, every position stays
// exact. The index entry also keeps the box of the float positions readers
// hand out.
//
// Everything is little-endian. The index goes last so that payloads can be
// streamed; the header is written once the index is known.
class PtCloud_BlockFileFormat {
public:
    static constexpr quint32 kVersionFloats = 1;
    static constexpr quint32 kVersionQuanta = 2;
    static constexpr int kMaxHeaderBytes = 160;
    static constexpr int kTriangleBytes = 12;

    struct IndexEntry {
        int id;
        quint32 count;
        pcBoundingBoxf box;
        quint64 offset;
        quint64 bytes;
        pcVec3q corner;     // version 2: quanta from the origin to the block's lowest position
        bool wide = false;  // version 2: positions take 64 bits an axis
    };

    // Where the index is and what it should hash to, from a decoded header.
    struct IndexLocation {
        quint64 offset = 0;
        quint32 checksum = 0;
    };

    static QByteArray encodeHeader(const stPtCloud_DataSetHeader& header,
                                   const IndexLocation& index);
    // Checks magic, version, checksum, quantum, enumerations, columns and that the
    // index fits the file; false with a one-line reason.
    static bool decodeHeader(const QByteArray& bytes, quint64 fileSize,
                             stPtCloud_DataSetHeader* header, IndexLocation* index,
                             QString* error);

    static QByteArray encodeIndex(const stPtCloud_DataSetHeader& header, const std::vector<IndexEntry>& entries);
    // Checks the checksum and that every entry lies between the header and the
    // index, has the size its count implies and that the counts add up.
    static bool decodeIndex(const QByteArray& bytes, const stPtCloud_DataSetHeader& header,
                            const IndexLocation& index, std::vector<IndexEntry>* entries,
                            QString* error);

    // Bytes a point takes in a payload with these columns (Location included).
    static quint64 pointBytes(const QList<EDataSetColumn>& columns);
    // Triangles the payload of an entry holds; -1 when its size does not fit.
    static qint64 triangleCount(const stPtCloud_DataSetHeader& header, const IndexEntry& entry);

    static int headerBytes(const stPtCloud_DataSetHeader& header);
    static int indexEntryBytes(const stPtCloud_DataSetHeader& header);

    static quint32 checksum(const char* data, size_t n);

    // The single-precision position relative to the origin of one in quanta:
    // what readers hand out for wide blocks, and what block cuts are made of.
    static pcVec3f floatOf(const pcVec3q& v, const pcVec3d& quantum)
    {
        return pcVec3f(float(double(v.x) * quantum.x), float(double(v.y) * quantum.y),
                       float(double(v.z) * quantum.z));
    }
    // What readers hand out for the 32-bit offsets of a narrow block (three
    // a point) from its corner, and what its box is made of: the offset
    // taken as a signed number from the corner plus 2^31 quanta, which
    // converts and scales in a few cheap instructions. Within a float's
    // rounding of floatOf. `into` may be `offsets` itself, read in place.
    static void decodeNarrow(const void* offsets, size_t n, const pcVec3q& corner, const pcVec3d& quantum,
                             void* into);

    // Colours travel as three 16-bit channels; alpha is not stored.
    static void encodeColors(const pcVec4f* colors, size_t n, quint16* out);
    static void decodeColors(const quint16* channels, size_t n, pcVec4f* out);
};

}  // namespace ptCloud
