#include "LazChunkReader.h"

#include <QtEndian>
#include <algorithm>
#include <cstring>
#include <thread>

#include "LazDecoder.h"
#include "LazIntegerModel.h"

namespace ptCloud {

namespace {
const quint64 kMaxChunkBytes = quint64(256) << 20;
}

LazChunkReader::LazChunkReader() = default;

LazChunkReader::~LazChunkReader() { rewind(); }

bool LazChunkReader::open(const QString& path, const LazFormat& format, int recordLength, quint64 pointData,
                          quint64 pointCount, QString* why) {
    m_format = format;
    m_recordLength = recordLength;
    m_codec.reset(new LazChunkCodec(format, recordLength));
    m_ahead = int(std::min(4u, std::max(1u, std::thread::hardware_concurrency())));
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly)) {
        *why = QStringLiteral("cannot open %1: %2").arg(path, m_file.errorString());
        return false;
    }
    return pointCount == 0 || readTable(pointData, pointCount, why);
}

bool LazChunkReader::readTable(quint64 pointData, quint64 pointCount, QString* why) {
    const quint64 fileSize = quint64(m_file.size());
    char head[8];
    if (!m_file.seek(qint64(pointData)) || m_file.read(head, 8) != 8) {
        *why = QStringLiteral("LAZ file ends before its points");
        return false;
    }
    qint64 tableAt = qFromLittleEndian<qint64>(head);
    // Writers that could not seek back leave -1 here and the offset at the end of the file.
    if (tableAt == -1 && fileSize >= 8 && m_file.seek(qint64(fileSize - 8)) && m_file.read(head, 8) == 8)
        tableAt = qFromLittleEndian<qint64>(head);
    if (tableAt < qint64(pointData + 8) || quint64(tableAt) + 8 > fileSize) {
        *why = QStringLiteral("LAZ chunk table at byte %1 lies outside the file (%2 bytes): truncated or damaged")
                   .arg(tableAt).arg(fileSize);
        return false;
    }
    char tableHead[8];
    if (!m_file.seek(tableAt) || m_file.read(tableHead, 8) != 8) {
        *why = QStringLiteral("cannot read the LAZ chunk table: %1").arg(m_file.errorString());
        return false;
    }
    const quint32 version = qFromLittleEndian<quint32>(tableHead);
    const quint32 count = qFromLittleEndian<quint32>(tableHead + 4);
    const bool variable = m_format.chunkSize == LazFormat::kVariableChunks;
    const quint64 expected = variable ? 0 : (pointCount + m_format.chunkSize - 1) / m_format.chunkSize;
    if (version != 0 || count == 0 || quint64(count) > quint64(tableAt) - pointData || (!variable && count != expected)) {
        *why = QStringLiteral("LAZ chunk table is damaged (version %1, %2 chunks for %3 points)")
                   .arg(version).arg(count).arg(pointCount);
        return false;
    }
    // Each entry takes a few bytes once coded; reading more than needed is harmless.
    const qint64 want = std::min<qint64>(qint64(fileSize) - tableAt - 8, 16 + qint64(count) * 20);
    const QByteArray coded = m_file.read(want);
    LazDecoder d;
    d.start(reinterpret_cast<const uint8_t*>(coded.constData()), size_t(coded.size()));
    LazIntegerModel ic(32, 2);
    m_chunks.assign(count, Chunk());
    quint64 offset = pointData + 8, points = 0;
    int32_t lastPoints = 0, lastBytes = 0;
    for (quint32 i = 0; i < count; ++i) {
        Chunk& c = m_chunks[i];
        if (variable) c.points = quint32(lastPoints = ic.code(d, lastPoints, 0, 0));
        else c.points = quint32(std::min<quint64>(m_format.chunkSize, pointCount - points));
        c.bytes = quint32(lastBytes = ic.code(d, lastBytes, 0, 1));
        c.offset = offset;
        offset += c.bytes;
        points += c.points;
        if (offset > quint64(tableAt) || c.points == 0) {
            *why = QStringLiteral("LAZ chunk table is damaged: chunk %1 of %2 would end at byte %3, past the table at %4")
                       .arg(i + 1).arg(count).arg(offset).arg(tableAt);
            return false;
        }
        if (quint64(c.points) * quint64(m_recordLength) > kMaxChunkBytes) {
            *why = QStringLiteral("LAZ chunk %1 holds %2 points, more than this reader takes in one chunk")
                       .arg(i + 1).arg(c.points);
            return false;
        }
    }
    if (points != pointCount) {
        *why = QStringLiteral("LAZ chunk table holds %1 points where the header says %2").arg(points).arg(pointCount);
        return false;
    }
    return true;
}

QString LazChunkReader::describe() const {
    return QStringLiteral("LAZ, %1 chunks (%2), %3")
        .arg(m_chunks.size())
        .arg(m_format.chunkSize == LazFormat::kVariableChunks ? QStringLiteral("variable size")
                                                              : QStringLiteral("%1 points each").arg(m_format.chunkSize))
        .arg(m_format.compressor == LazFormat::LayeredChunked ? QStringLiteral("layered") : QStringLiteral("point-wise"));
}

bool LazChunkReader::load(int i, QByteArray* bytes, QString* why) {
    const Chunk& c = m_chunks[size_t(i)];
    if (!m_file.seek(qint64(c.offset)) || (*bytes = m_file.read(qint64(c.bytes))).size() != qint64(c.bytes)) {
        *why = QStringLiteral("cannot read LAZ chunk %1 of %2: %3").arg(i + 1).arg(m_chunks.size()).arg(m_file.errorString());
        return false;
    }
    return true;
}

std::future<LazChunkReader::Decoded> LazChunkReader::launch(int i) {
    QByteArray bytes;
    QString why;
    if (!load(i, &bytes, &why)) {
        std::promise<Decoded> failed;
        Decoded d;
        d.error = why;
        failed.set_value(std::move(d));
        return failed.get_future();
    }
    const LazChunkCodec* codec = m_codec.get();
    const quint32 points = m_chunks[size_t(i)].points;
    const size_t recordBytes = size_t(points) * size_t(m_recordLength);
    const QString name = QStringLiteral("LAZ chunk %1 of %2").arg(i + 1).arg(m_chunks.size());
    return std::async(std::launch::async, [codec, bytes, points, recordBytes, name]() {
        Decoded out;
        out.records.reset(new uint8_t[recordBytes]);
        out.size = recordBytes;
        QString why;
        if (!codec->decode(reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size()), points, points,
                           out.records.get(), &why))
            out.error = name + QStringLiteral(": ") + why;
        return out;
    });
}

bool LazChunkReader::advance(QString* why) {
    if (m_next >= int(m_chunks.size())) {
        *why = QStringLiteral("LAZ file has no more points");
        return false;
    }
    while (int(m_pending.size()) < m_ahead && m_launched < int(m_chunks.size())) m_pending.push_back(launch(m_launched++));
    m_current = m_pending.front().get();
    m_pending.pop_front();
    ++m_next;
    m_at = 0;
    if (!m_current.error.isEmpty()) {
        *why = m_current.error;
        return false;
    }
    // The next chunk starts decoding while this one is handed out.
    if (m_launched < int(m_chunks.size())) m_pending.push_back(launch(m_launched++));
    return true;
}

bool LazChunkReader::read(char* dst, quint64 k, QString* why) {
    quint64 bytes = k * quint64(m_recordLength);
    while (bytes > 0) {
        if (m_at == m_current.size && !advance(why)) return false;
        const size_t n = size_t(std::min<quint64>(bytes, m_current.size - m_at));
        std::memcpy(dst, m_current.records.get() + m_at, n);
        m_at += n;
        dst += n;
        bytes -= n;
    }
    return true;
}

void LazChunkReader::rewind() {
    for (std::future<Decoded>& f : m_pending) f.wait();
    m_pending.clear();
    m_next = m_launched = 0;
    m_current = Decoded();
    m_at = 0;
}

bool LazChunkReader::sample(int i, quint32 k, char* dst, QString* why) {
    QByteArray bytes;
    if (!load(i, &bytes, why)) return false;
    if (!m_codec->decode(reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size()),
                         m_chunks[size_t(i)].points, k, reinterpret_cast<uint8_t*>(dst), why)) {
        *why = QStringLiteral("LAZ chunk %1 of %2: %3").arg(i + 1).arg(m_chunks.size()).arg(*why);
        return false;
    }
    return true;
}

}  // namespace ptCloud
