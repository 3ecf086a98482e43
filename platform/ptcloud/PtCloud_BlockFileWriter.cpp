#include "PtCloud_BlockFileWriter.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "PtCloud_FileCommit.h"
#include "PtCloud_GridMap.h"

namespace ptCloud {

namespace {
std::atomic<qint64> g_failAfterBytes{-1};

using Format = PtCloud_BlockFileFormat;

// The pages of a large file are handed to the disk window by window as they
// are written, so that the flush of commit() finds little left to do.
void startWriteback(int fd, quint64 before, quint64 after)
{
    constexpr quint64 kWindow = 32ull << 20;
    if (fd < 0 || before / kWindow == after / kWindow) return;
    const quint64 from = before / kWindow * kWindow;
    const quint64 to = after / kWindow * kWindow;
    sync_file_range(fd, off64_t(from), off64_t(to - from), SYNC_FILE_RANGE_WRITE);
}
}  // namespace

PtCloud_BlockFileWriter::PtCloud_BlockFileWriter(const QString& filepath)
    : m_path(filepath), m_file(filepath)
{
}

PtCloud_BlockFileWriter::~PtCloud_BlockFileWriter()
{
    cancel();
}

void PtCloud_BlockFileWriter::setFailAfterBytesForTesting(qint64 bytes)
{
    g_failAfterBytes.store(bytes);
}

bool PtCloud_BlockFileWriter::fail(const QString& why, QString* error)
{
    if (error) *error = why;
    cancel();
    return false;
}

void PtCloud_BlockFileWriter::cancel()
{
    if (!m_open) return;
    // A commit after cancelWriting() fails and removes the temporary file.
    m_file.cancelWriting();
    m_file.commit();
    m_open = false;
}

bool PtCloud_BlockFileWriter::begin(const stPtCloud_DataSetHeader& header, QString* error)
{
    cancel();
    m_header = header;
    m_header.pointCount = 0;
    m_header.blockCount = 0;
    m_header.bounds = pcBoundingBoxf();
    // Payload columns go in value order, whatever order the caller listed.
    m_header.columns.clear();
    for (int c = 0; c < DSC_Count; ++c)
        if (c == DSC_Location || header.columns.contains(EDataSetColumn(c)))
            m_header.columns << EDataSetColumn(c);
    m_entries.clear();
    m_ids.clear();
    // Direct write would overwrite the target in place, losing atomicity.
    m_file.setDirectWriteFallback(false);
    if (!m_file.open(QIODevice::WriteOnly)) {
        if (error) *error = QStringLiteral("cannot write %1: %2").arg(m_path, m_file.errorString());
        return false;
    }
    m_open = true;
    m_pos = 0;
    // The real header is written by commit(), when the index is known.
    const QByteArray placeholder(Format::headerBytes(m_header), '\0');
    if (m_file.write(placeholder) != placeholder.size())
        return fail(PtCloud_FileCommit::writeFailure(m_file), error);
    m_pos = quint64(placeholder.size());
    return true;
}

bool PtCloud_BlockFileWriter::writeRaw(const void* data, qint64 n, QString* error)
{
    if (n <= 0) return true;
    const qint64 limit = g_failAfterBytes.load();
    const qint64 payloadSoFar = qint64(m_pos) - Format::headerBytes(m_header);
    if (limit >= 0 && payloadSoFar + n > limit) {
        // Write what would have fitted, as a full disk does, then fail.
        const qint64 fits = std::max<qint64>(0, limit - payloadSoFar);
        m_file.write(static_cast<const char*>(data), fits);
        return fail(PtCloud_FileCommit::writeError(m_path, ENOSPC), error);
    }
    if (m_file.write(static_cast<const char*>(data), n) != n)
        return fail(PtCloud_FileCommit::writeFailure(m_file), error);
    startWriteback(m_file.handle(), m_pos, m_pos + quint64(n));
    m_pos += quint64(n);
    return true;
}

bool PtCloud_BlockFileWriter::writeBlock(int id, const stPtCloud_PointArray& block, QString* error)
{
    if (!m_open) {
        if (error) *error = QStringLiteral("block file writer is not open");
        return false;
    }
    const size_t n = size_t(std::max(block.count, 0));
    if (block.positions.size() != n)
        return fail(QStringLiteral("block %1 is inconsistent: %2 points, %3 positions")
                        .arg(id)
                        .arg(n)
                        .arg(block.positions.size()),
                    error);
    // Empty blocks carry nothing worth reading back.
    if (n == 0) return true;
    const bool mesh = m_header.type == DST_Mesh;
    if (mesh && block.triangles.size() % 3 != 0)
        return fail(QStringLiteral("block %1 has a partial triangle").arg(id), error);
    if (mesh && std::any_of(block.triangles.begin(), block.triangles.end(),
                            [n](unsigned int v) { return v >= n; }))
        return fail(QStringLiteral("block %1 has a triangle past its points").arg(id), error);

    const pcVec3f* positions = block.positions.data();
    const pcVec3q* quanta = nullptr;
    if (m_header.storesQuanta()) {
        m_quanta.resize(n);
        if (block.quanta.size() == n) {
            const PtCloud_GridMap map(block.origin, block.quantum, m_header.origin, m_header.quantum);
            for (size_t i = 0; i < n; ++i) m_quanta[i] = map.map(block.quanta[i]);
        } else {
            for (size_t i = 0; i < n; ++i)
                m_quanta[i] = PtCloud_GridMap::quantize(positions[i], block.origin, m_header.origin, m_header.quantum);
        }
        quanta = m_quanta.data();
    } else if (block.origin != m_header.origin) {
        m_moved.resize(n);
        const double dx = block.origin.x - m_header.origin.x;
        const double dy = block.origin.y - m_header.origin.y;
        const double dz = block.origin.z - m_header.origin.z;
        for (size_t i = 0; i < n; ++i) {
            const pcVec3f& p = block.positions[i];
            m_moved[i] = pcVec3f(float(dx + p.x), float(dy + p.y), float(dz + p.z));
        }
        positions = m_moved.data();
    }
    auto columnData = [&](EDataSetColumn c, size_t width) -> const void* {
        if (c == DSC_Color && block.colors.size() == n) {
            m_scratch.resize(n * width);
            Format::encodeColors(block.colors.data(), n, reinterpret_cast<quint16*>(m_scratch.data()));
            return m_scratch.data();
        }
        if (c == DSC_Normal && block.normals.size() == n) return block.normals.data();
        const uint8_t* raw = block.columnData<uint8_t>(c);
        return raw && block.columns.at(c).size() == n * width ? raw : nullptr;
    };
    return writePayload(id, n, positions, quanta, mesh ? &block.triangles : nullptr, columnData, error);
}

bool PtCloud_BlockFileWriter::writeEncodedBlock(int id, size_t n, const pcVec3q* positions,
                                                const std::vector<const void*>& columns, QString* error)
{
    if (!m_open) {
        if (error) *error = QStringLiteral("block file writer is not open");
        return false;
    }
    if (!m_header.storesQuanta())
        return fail(QStringLiteral("block %1 comes in quanta for a file without a quantum").arg(id), error);
    if (columns.size() + 1 != size_t(m_header.columns.size()))
        return fail(QStringLiteral("block %1 has %2 columns for %3")
                        .arg(id)
                        .arg(columns.size())
                        .arg(m_header.columns.size() - 1),
                    error);
    if (n == 0) return true;
    size_t next = 0;
    return writePayload(id, n, nullptr, positions, nullptr,
                        [&](EDataSetColumn, size_t) { return columns[next++]; }, error);
}

bool PtCloud_BlockFileWriter::writeQuanta(const pcVec3q* quanta, size_t n, Entry* e, QString* error)
{
    pcVec3q lo = quanta[0], hi = quanta[0];
    for (size_t i = 1; i < n; ++i) {
        const pcVec3q& q = quanta[i];
        lo = pcVec3q(std::min(lo.x, q.x), std::min(lo.y, q.y), std::min(lo.z, q.z));
        hi = pcVec3q(std::max(hi.x, q.x), std::max(hi.y, q.y), std::max(hi.z, q.z));
    }
    e->corner = lo;
    // Spans are compared unsigned: a difference of extreme values wraps.
    const quint64 narrow = 0xFFFFFFFFull;
    e->wide = quint64(hi.x) - quint64(lo.x) > narrow || quint64(hi.y) - quint64(lo.y) > narrow ||
              quint64(hi.z) - quint64(lo.z) > narrow;
    if (e->wide) {
        m_scratch.resize(n * 3 * sizeof(quint64));
        quint64* out = reinterpret_cast<quint64*>(m_scratch.data());
        for (size_t i = 0; i < n; ++i) {
            out[3 * i] = quint64(quanta[i].x) - quint64(lo.x);
            out[3 * i + 1] = quint64(quanta[i].y) - quint64(lo.y);
            out[3 * i + 2] = quint64(quanta[i].z) - quint64(lo.z);
            e->box.expandBy(Format::floatOf(quanta[i], m_header.quantum));
        }
    } else {
        m_scratch.resize(n * 3 * sizeof(quint32));
        quint32* out = reinterpret_cast<quint32*>(m_scratch.data());
        for (size_t i = 0; i < n; ++i) {
            out[3 * i] = quint32(quanta[i].x - lo.x);
            out[3 * i + 1] = quint32(quanta[i].y - lo.y);
            out[3 * i + 2] = quint32(quanta[i].z - lo.z);
        }
        // The box of the floats readers will make of these.
        m_moved.resize(n);
        Format::decodeNarrow(out, n, lo, m_header.quantum, m_moved.data());
        for (const pcVec3f& p : m_moved) e->box.expandBy(p);
    }
    return writeRaw(m_scratch.data(), qint64(m_scratch.size()), error);
}

template <class ColumnData>
bool PtCloud_BlockFileWriter::writePayload(int id, size_t n, const pcVec3f* floats, const pcVec3q* quanta,
                                           const std::vector<unsigned int>* triangles, ColumnData columnData,
                                           QString* error)
{
    if (!m_ids.insert(id).second)
        return fail(QStringLiteral("block id %1 written twice").arg(id), error);
    Entry e;
    e.id = id;
    e.count = quint32(n);
    e.offset = m_pos;
    if (quanta) {
        if (!writeQuanta(quanta, n, &e, error)) return false;
    } else {
        for (size_t i = 0; i < n; ++i) e.box.expandBy(floats[i]);
        if (!writeRaw(floats, qint64(n * sizeof(pcVec3f)), error)) return false;
    }
    if (triangles && !writeRaw(triangles->data(), qint64(triangles->size() * sizeof(unsigned int)), error))
        return false;
    for (EDataSetColumn c : m_header.columns) {
        if (c == DSC_Location) continue;
        const size_t width = size_t(columnValueBytes(c));
        const void* data = columnData(c, width);
        if (!data) {
            // A column the block lacks is stored as zeros.
            m_scratch.assign(n * width, 0);
            data = m_scratch.data();
        }
        if (!writeRaw(data, qint64(n * width), error)) return false;
    }
    e.bytes = m_pos - e.offset;
    m_entries.push_back(e);
    m_header.pointCount += n;
    m_header.bounds.expandBy(e.box);
    return true;
}

bool PtCloud_BlockFileWriter::commit(QString* error)
{
    if (!m_open) {
        if (error) *error = QStringLiteral("block file writer is not open");
        return false;
    }
    std::sort(m_entries.begin(), m_entries.end(),
              [](const Entry& a, const Entry& b) { return a.id < b.id; });
    m_header.blockCount = quint32(m_entries.size());
    const QByteArray index = Format::encodeIndex(m_header, m_entries);
    PtCloud_BlockFileFormat::IndexLocation where;
    where.offset = m_pos;
    where.checksum = Format::checksum(index.constData(), size_t(index.size()));
    if (!writeRaw(index.constData(), index.size(), error)) return false;
    const QByteArray head = Format::encodeHeader(m_header, where);
    if (!m_file.seek(0) || m_file.write(head) != head.size())
        return fail(PtCloud_FileCommit::writeFailure(m_file), error);
    m_open = false;
    return PtCloud_FileCommit::commit(m_file, error);
}

}  // namespace ptCloud
