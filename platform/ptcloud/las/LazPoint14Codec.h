#pragma once

#include <cstdint>
#include <memory>

#include "LazGpsCodec.h"
#include "LazIntegerModel.h"
#include "LazMedian5.h"

namespace ptCloud {

// The 30-byte core of point formats 6-10 in the layered layout (item
// versions 3 and 4): one context per scanner channel, each with its own last
// point and models; nine layers, each its own arithmetic stream, so that a
// field that never changes in a chunk costs nothing and layers decode
// independently. Coder is LazDecoder or LazEncoder; one routine does both.
class LazPoint14Codec {
public:
    enum Layer { XY, Z, Class, Flags, Intensity, ScanAngle, UserData, SourceId, GpsTime, LayerCount };

    explicit LazPoint14Codec(const uint8_t* first);
    ~LazPoint14Codec();

    // Decoding: writes the next record to rec from the layers whose used[]
    // is set. Encoding: codes rec into every layer and sets used[] of the
    // layers whose field changed. False on damaged input.
    template <class Coder> bool code(Coder* const* layers, bool* used, uint8_t* rec);
    int channel() const { return m_current; }

private:
    struct Point {
        int32_t x, y, z;
        uint16_t intensity;
        uint8_t r, n, classFlags, channel, scanDir, edge, cls, user;
        int16_t angle;
        uint16_t sourceId;
        int64_t gps;
        bool gpsChange;
    };
    struct Context;
    static Point unpack(const uint8_t* rec);
    static void pack(const Point& p, uint8_t* rec);
    void start(int channel, const Point& seed);

    std::unique_ptr<Context> m_contexts[4];
    LazSymbolModel m_channel{3};
    int m_current = 0;
};

}  // namespace ptCloud
