#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

#include "stPtCloud_DataSetHeader.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

// On-disk layout of a block file, shared by its writer and its readers.
//
//   header   kHeaderBytes: magic, version, header size, type, sort, colouring,
//            column mask, origin, point and block counts, index offset and
//            checksum, bounds, header checksum
//   payloads one a block: positions (float x3), triangles (uint32 x3, meshes
//            only), then every other column in value order (Color as three
//            uint16 channels, Normal as float x3, the rest raw)
//   index    kIndexEntryBytes a block, in id order, at the end of the file
//
// Everything is little-endian. The index goes last so that payloads can be
// streamed; the header is written once the index is known.
class PtCloud_BlockFileFormat {
public:
    static constexpr quint32 kVersion = 1;
    static constexpr int kHeaderBytes = 128;
    static constexpr int kIndexEntryBytes = 48;
    static constexpr int kTriangleBytes = 12;

    struct IndexEntry {
        int id;
        quint32 count;
        pcBoundingBoxf box;
        quint64 offset;
        quint64 bytes;
    };

    // Where the index is and what it should hash to, from a decoded header.
    struct IndexLocation {
        quint64 offset = 0;
        quint32 checksum = 0;
    };

    static QByteArray encodeHeader(const stPtCloud_DataSetHeader& header,
                                   const IndexLocation& index);
    // Checks magic, version, checksum, enumerations, columns and that the
    // index fits the file; false with a one-line reason.
    static bool decodeHeader(const QByteArray& bytes, quint64 fileSize,
                             stPtCloud_DataSetHeader* header, IndexLocation* index,
                             QString* error);

    static QByteArray encodeIndex(const std::vector<IndexEntry>& entries);
    // Checks the checksum and that every entry lies between the header and the
    // index, has the size its count implies and that the counts add up.
    static bool decodeIndex(const QByteArray& bytes, const stPtCloud_DataSetHeader& header,
                            const IndexLocation& index, std::vector<IndexEntry>* entries,
                            QString* error);

    // Bytes a point takes in a payload with these columns (Location included).
    static quint64 pointBytes(const QList<EDataSetColumn>& columns);
    // Triangles a payload of this size holds; -1 when the size does not fit.
    static qint64 triangleCount(const stPtCloud_DataSetHeader& header, quint64 count,
                                quint64 bytes);

    static quint32 checksum(const char* data, size_t n);

    // Colours travel as three 16-bit channels; alpha is not stored.
    static void encodeColors(const pcVec4f* colors, size_t n, quint16* out);
    static void decodeColors(const quint16* channels, size_t n, pcVec4f* out);
};

}  // namespace ptCloud
