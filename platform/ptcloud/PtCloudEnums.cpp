#include "PtCloudEnums.h"

namespace ptCloud {

namespace {
const char* const kColumnNames[DSC_Count] = {
    "Location", "", "", "Color", "Intensity", "ReturnNumber", "NumberOfReturnsGivenPulse",
    "ScanDirectionFlag", "EdgeOfFlightingLine", "Classification", "ScanAngleRank", "UserData",
    "PointSourceId", "GpsTime", "WavePacketDescriptorIndex", "ByteOffsetToWaveformData",
    "WaveformPacketSizeInBytes", "ReturnPointWaveformLocation", "Location_T"};
}

QString columnName(EDataSetColumn c)
{
    if (c < 0 || c >= DSC_Count) return QString();
    return QString::fromLatin1(kColumnNames[c]);
}

bool columnFromName(const QString& name, EDataSetColumn* out)
{
    if (name.isEmpty()) return false;
    for (int i = 0; i < DSC_Count; ++i) {
        if (name == QLatin1String(kColumnNames[i])) {
            *out = EDataSetColumn(i);
            return true;
        }
    }
    return false;
}

QList<EDataSetColumn> userColumns()
{
    QList<EDataSetColumn> out;
    for (int i = 0; i < DSC_Count; ++i)
        if (kColumnNames[i][0] != '\0') out << EDataSetColumn(i);
    return out;
}

}  // namespace ptCloud
