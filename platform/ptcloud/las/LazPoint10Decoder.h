#pragma once

#include <cstdint>
#include <memory>

#include "LazDecoder.h"
#include "LazIntegerModel.h"
#include "LazMedian5.h"

namespace ptCloud {

// The 20-byte core of point formats 0-5 in the point-wise layout (item
// version 2): which fields changed, then x and y as corrections from the
// median of recent steps and z from the last height, each in contexts of
// the return number and count.
class LazPoint10Decoder {
public:
    explicit LazPoint10Decoder(const uint8_t* first);
    void decode(LazDecoder& d, uint8_t* out);

private:
    LazSymbolModel& lazy(std::unique_ptr<LazSymbolModel>* table, int i);

    uint8_t m_last[20];
    uint16_t m_lastIntensity[16] = {};
    LazMedian5 m_xMedian[16], m_yMedian[16];
    int32_t m_lastHeight[8] = {};
    LazSymbolModel m_changed{64};
    LazSymbolModel m_scanAngle[2] = {LazSymbolModel(256), LazSymbolModel(256)};
    std::unique_ptr<LazSymbolModel> m_bitByte[256], m_class[256], m_user[256];
    LazIntegerModel m_intensity{16, 4}, m_sourceId{16, 1}, m_dx{32, 2}, m_dy{32, 22}, m_z{32, 20};
};

}  // namespace ptCloud
