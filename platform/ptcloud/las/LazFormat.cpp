#include "LazFormat.h"

#include <QtEndian>
#include <vector>

namespace ptCloud {

namespace {

const int kFixedBytes = 34;

// The items a point format starts with, before any extra bytes.
QVector<LazFormat::ItemType> coreItems(int format, bool layered) {
    using F = LazFormat;
    if (layered) {
        switch (format) {
        case 6: return {F::Point14};
        case 7: return {F::Point14, F::Rgb14};
        case 8: return {F::Point14, F::RgbNir14};
        case 9: return {F::Point14, F::Wave14};
        case 10: return {F::Point14, F::RgbNir14, F::Wave14};
        default: return {};
        }
    }
    switch (format) {
    case 0: return {F::Point10};
    case 1: return {F::Point10, F::GpsTime11};
    case 2: return {F::Point10, F::Rgb12};
    case 3: return {F::Point10, F::GpsTime11, F::Rgb12};
    case 4: return {F::Point10, F::GpsTime11, F::Wave13};
    case 5: return {F::Point10, F::GpsTime11, F::Rgb12, F::Wave13};
    default: return {};
    }
}

int itemBytes(int type) {
    switch (type) {
    case LazFormat::Point10: return 20;
    case LazFormat::GpsTime11: return 8;
    case LazFormat::Rgb12: case LazFormat::Rgb14: return 6;
    case LazFormat::RgbNir14: return 8;
    case LazFormat::Wave13: case LazFormat::Wave14: return 29;
    case LazFormat::Point14: return 30;
    default: return 0;
    }
}

}  // namespace

bool LazFormat::parse(const QByteArray& data, QString* why) {
    const auto* p = reinterpret_cast<const uchar*>(data.constData());
    if (data.size() < kFixedBytes) {
        *why = QStringLiteral("laszip VLR is %1 bytes, too short").arg(data.size());
        return false;
    }
    compressor = qFromLittleEndian<quint16>(p);
    const quint16 coder = qFromLittleEndian<quint16>(p + 2);
    chunkSize = qFromLittleEndian<quint32>(p + 12);
    const int count = qFromLittleEndian<quint16>(p + 32);
    if (coder != 0) {
        *why = QStringLiteral("unknown LAZ coder %1").arg(coder);
        return false;
    }
    if (compressor != PointWiseChunked && compressor != LayeredChunked) {
        *why = compressor == PointWise ? QStringLiteral("LAZ without chunks (compressor 1) is not supported")
                                       : QStringLiteral("unknown LAZ compressor %1").arg(compressor);
        return false;
    }
    if (data.size() < kFixedBytes + 6 * count) {
        *why = QStringLiteral("laszip VLR ends inside its %1 items").arg(count);
        return false;
    }
    if (chunkSize == 0) {
        *why = QStringLiteral("laszip VLR gives a chunk size of 0");
        return false;
    }
    items.clear();
    for (int i = 0; i < count; ++i) {
        const uchar* q = p + kFixedBytes + 6 * i;
        items.append({qFromLittleEndian<quint16>(q), qFromLittleEndian<quint16>(q + 2), qFromLittleEndian<quint16>(q + 4)});
    }
    return true;
}

QByteArray LazFormat::serialise() const {
    std::vector<uchar> out(size_t(kFixedBytes + 6 * items.size()), 0);
    uchar* p = out.data();
    qToLittleEndian<quint16>(compressor, p);
    p[4] = 3;  // coder version 3.4 r0
    p[5] = 4;
    qToLittleEndian<quint32>(chunkSize, p + 12);
    qToLittleEndian<qint64>(-1, p + 16);  // no special EVLRs
    qToLittleEndian<qint64>(-1, p + 24);
    qToLittleEndian<quint16>(quint16(items.size()), p + 32);
    for (int i = 0; i < items.size(); ++i) {
        uchar* q = p + kFixedBytes + 6 * i;
        qToLittleEndian(items[i].type, q);
        qToLittleEndian(items[i].size, q + 2);
        qToLittleEndian(items[i].version, q + 4);
    }
    return QByteArray(reinterpret_cast<const char*>(out.data()), int(out.size()));
}

bool LazFormat::check(int pointFormat, int recordLength, QString* why) const {
    const bool layered = compressor == LayeredChunked;
    const QVector<ItemType> core = coreItems(pointFormat, layered);
    if (core.isEmpty()) {
        *why = QStringLiteral("point format %1 cannot be %2 LAZ").arg(pointFormat).arg(layered ? "layered" : "point-wise");
        return false;
    }
    int bytes = 0;
    for (int i = 0; i < items.size(); ++i) {
        const Item& it = items[i];
        const bool extra = i >= core.size();
        const int expected = extra ? (layered ? Byte14 : Byte) : core[i];
        if (it.type != expected || (!extra && it.size != itemBytes(it.type)) || it.size == 0) {
            *why = QStringLiteral("LAZ item %1 (type %2, %3 bytes) does not fit point format %4")
                       .arg(i + 1).arg(it.type).arg(it.size).arg(pointFormat);
            return false;
        }
        const bool known = layered ? (it.version == 3 || it.version == 4)
                                   : (it.version == 2 || (it.type == Wave13 && it.version == 1));
        if (!known) {
            *why = QStringLiteral("LAZ item type %1 version %2 is not supported").arg(it.type).arg(it.version);
            return false;
        }
        bytes += it.size;
    }
    if (items.size() < core.size() || bytes != recordLength) {
        *why = QStringLiteral("LAZ items make %1-byte records where the header says %2").arg(bytes).arg(recordLength);
        return false;
    }
    return true;
}

}  // namespace ptCloud
