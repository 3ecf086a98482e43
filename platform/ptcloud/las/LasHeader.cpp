#include "LasHeader.h"

namespace ptCloud {

namespace {
// Bytes of point formats 0 to 10 as the LAS 1.4 standard defines them.
const int kStandardRecordLength[11] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
}  // namespace

int LasHeader::standardRecordLength() const {
    return pointFormat <= 10 ? kStandardRecordLength[pointFormat] : 0;
}

bool LasHeader::hasRgb() const {
    switch (pointFormat) {
    case 2: case 3: case 5: case 7: case 8: case 10: return true;
    default: return false;
    }
}

bool LasHeader::hasGpsTime() const { return pointFormat != 0 && pointFormat != 2 && pointFormat <= 10; }

bool LasHeader::hasWavePacket() const {
    return pointFormat == 4 || pointFormat == 5 || pointFormat == 9 || pointFormat == 10;
}

bool LasHeader::hasNir() const { return pointFormat == 8 || pointFormat == 10; }

QList<EDataSetColumn> LasHeader::columns() const {
    QList<EDataSetColumn> out{DSC_Location};
    if (hasRgb()) out << DSC_Color;
    out << DSC_Intensity << DSC_ReturnNumber << DSC_NumberOfReturnsGivenPulse << DSC_ScanDirectionFlag
        << DSC_EdgeOfFlightingLine << DSC_Classification << DSC_ScanAngleRank << DSC_UserData
        << DSC_PointSourceId;
    if (hasGpsTime()) out << DSC_GpsTime;
    if (hasWavePacket())
        out << DSC_WavePacketDescriptorIndex << DSC_ByteOffsetToWaveformData << DSC_WaveformPacketSizeInBytes
            << DSC_ReturnPointWaveformLocation << DSC_Location_T;
    return out;
}

}  // namespace ptCloud
