#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>
#include <cstdint>

namespace ptCloud {

// What the "laszip encoded" VLR says about the compressed points: how they
// are laid out (point-wise or layered chunks), the chunk size, and the
// items each record is made of, in record order.
struct LazFormat {
    enum Compressor { None = 0, PointWise = 1, PointWiseChunked = 2, LayeredChunked = 3 };
    enum ItemType { Byte = 0, Point10 = 6, GpsTime11 = 7, Rgb12 = 8, Wave13 = 9, Point14 = 10, Rgb14 = 11,
                    RgbNir14 = 12, Wave14 = 13, Byte14 = 14 };
    struct Item {
        quint16 type = 0, size = 0, version = 0;
    };
    static constexpr quint32 kVariableChunks = 0xFFFFFFFFu;
    static constexpr quint16 kRecordId = 22204;

    quint16 compressor = 0;
    quint32 chunkSize = 0;
    QVector<Item> items;

    // Reads the VLR's payload; false with a one-line reason.
    bool parse(const QByteArray& data, QString* why);
    // The VLR's payload for these items (coder version 3.4, layered chunks).
    QByteArray serialise() const;
    // The items must make up exactly the records of the point format.
    bool check(int pointFormat, int recordLength, QString* why) const;
};

}  // namespace ptCloud
