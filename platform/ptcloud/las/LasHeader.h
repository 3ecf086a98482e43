#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdint>

#include "PtCloudEnums.h"

namespace ptCloud {

// One variable-length record (or extended one) as found in the file.
struct LasVlr {
    QString userId;
    quint16 recordId = 0;
    QString description;
    QByteArray data;  // kept only for the coordinate-system and laszip records
    quint64 length = 0;
    bool extended = false;
};

// The public header of a LAS file, as read and normalised by LasReader.
struct LasHeader {
    quint8 versionMajor = 1, versionMinor = 2;
    QString systemIdentifier, generatingSoftware;
    quint16 globalEncoding = 0;
    quint16 headerSize = 0;
    quint32 offsetToPointData = 0;
    quint32 vlrCount = 0;        // as the header says
    quint8 pointFormat = 0;      // compression bits cleared
    quint16 recordLength = 0;    // as stored, extra bytes included
    quint64 pointCount = 0;      // the 64-bit count where present and non-zero, else legacy
    quint32 legacyPointCount = 0;
    double scale[3] = {0, 0, 0};
    double offset[3] = {0, 0, 0};
    double headerMin[3] = {0, 0, 0};   // as the header says (may disagree with the points)
    double headerMax[3] = {0, 0, 0};
    quint64 waveformDataStart = 0;
    quint64 evlrStart = 0;
    quint32 evlrCount = 0;
    QList<LasVlr> vlrs;          // VLRs and EVLRs that could be read
    QString wkt;                 // coordinate system as WKT, when the file has one
    QString geoKeys;             // GeoTIFF keys in readable form, when the file has them
    QString compression;         // how compressed points are stored (LAZ, COPC); empty for plain LAS

    int standardRecordLength() const;  // bytes of the point format without extra bytes
    int extraBytes() const { return recordLength - standardRecordLength(); }
    bool hasRgb() const;
    bool hasGpsTime() const;
    bool hasWavePacket() const;
    bool hasNir() const;
    bool isExtendedFormat() const { return pointFormat >= 6; }
    // The columns this file's point format really carries.
    QList<EDataSetColumn> columns() const;
};

}  // namespace ptCloud
