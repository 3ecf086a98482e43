#pragma once

#include <QString>
#include <cstdint>
#include <vector>

#include "LazFormat.h"

namespace ptCloud {

// Turns one compressed chunk into LAS records and back. A chunk starts with
// its first record uncompressed; point-wise chunks (formats 0-5) then hold
// one arithmetic stream for all fields, layered chunks (6-10) the point
// count, the byte count of every layer and the layers. Chunks are
// independent: one codec serves any number of threads.
class LazChunkCodec {
public:
    // format must have passed LazFormat::check.
    LazChunkCodec(const LazFormat& format, int recordLength);

    // Decodes the first `wanted` of the chunk's `count` records into out
    // (wanted * recordLength bytes). False with a one-line reason when the
    // chunk is damaged.
    bool decode(const uint8_t* data, size_t size, uint32_t count, uint32_t wanted, uint8_t* out, QString* why) const;
    // Layered chunks only: the compressed form of count records.
    std::vector<uint8_t> encode(const uint8_t* records, uint32_t count) const;

private:
    bool decodePointWise(const uint8_t* data, size_t size, uint32_t wanted, uint8_t* out, QString* why) const;
    template <class Coder> bool codeLayered(Coder* const* layers, bool* used, uint8_t* records, uint32_t count) const;

    LazFormat m_format;
    int m_recordLength;
    int m_layerCount = 0;
};

}  // namespace ptCloud
