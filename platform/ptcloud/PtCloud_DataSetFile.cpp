#include "PtCloud_DataSetFile.h"

#include <algorithm>
#include <cstring>

namespace ptCloud {

namespace {

using Format = PtCloud_BlockFileFormat;

bool readHeaderOf(QFile& file, stPtCloud_DataSetHeader* header, Format::IndexLocation* index,
                  QString* error)
{
    const QByteArray bytes = file.read(Format::kMaxHeaderBytes);
    return Format::decodeHeader(bytes, quint64(file.size()), header, index, error);
}

}  // namespace

PtCloud_DataSetFile::PtCloud_DataSetFile(const QString& filepath)
    : m_path(filepath), m_file(filepath)
{
}

PtCloud_DataSetFile::~PtCloud_DataSetFile() = default;

bool PtCloud_DataSetFile::fail(const QString& why)
{
    m_error = why;
    return false;
}

bool PtCloud_DataSetFile::isValid() const
{
    QFile probe(m_path);
    if (!probe.open(QIODevice::ReadOnly)) return false;
    stPtCloud_DataSetHeader header;
    return readHeaderOf(probe, &header, nullptr, nullptr);
}

bool PtCloud_DataSetFile::isOpened() const
{
    return m_file.isOpen();
}

QString PtCloud_DataSetFile::getFilepath() const
{
    return m_path;
}

QString PtCloud_DataSetFile::lastError() const
{
    return m_error;
}

bool PtCloud_DataSetFile::moveTo(const QString& filepath)
{
    const bool wasOpen = isOpened();
    closeFile();
    const bool moved = QFile::rename(m_path, filepath);
    if (moved) {
        m_path = filepath;
        m_file.setFileName(filepath);
    }
    if (wasOpen) openFile();
    return moved;
}

bool PtCloud_DataSetFile::openFile()
{
    if (m_file.isOpen()) return true;
    m_error.clear();
    // Payloads are read in a few large reads straight into the arrays.
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(QStringLiteral("cannot open %1: %2").arg(m_path, m_file.errorString()));
    stPtCloud_DataSetHeader header;
    Format::IndexLocation where;
    QString why;
    std::vector<BlockEntry> index;
    bool ok = readHeaderOf(m_file, &header, &where, &why);
    if (ok) {
        ok = m_file.seek(qint64(where.offset));
        const QByteArray bytes = m_file.read(qint64(header.blockCount) * Format::indexEntryBytes(header));
        ok = ok && Format::decodeIndex(bytes, header, where, &index, &why);
    }
    if (!ok) {
        m_file.close();
        return fail(QStringLiteral("%1: %2").arg(m_path, why));
    }
    m_header = header;
    m_index = std::move(index);
    return true;
}

void PtCloud_DataSetFile::closeFile()
{
    m_file.close();
    m_index.clear();
    m_block.reset();
}

EDataSetSort PtCloud_DataSetFile::getSortType() const
{
    return m_header.sort;
}

EDataSetType PtCloud_DataSetFile::getDataSetType() const
{
    return m_header.type;
}

const stPtCloud_DataSetHeader& PtCloud_DataSetFile::getHeader() const
{
    return m_header;
}

bool PtCloud_DataSetFile::getBlocks(QMap<int, std::tuple<unsigned int, pcBoundingBoxf>>& out) const
{
    out.clear();
    if (!m_file.isOpen()) return false;
    for (const BlockEntry& e : m_index) out.insert(e.id, std::make_tuple(unsigned(e.count), e.box));
    return true;
}

const stPtCloud_PointArray* PtCloud_DataSetFile::readBlock(int index)
{
    if (!m_block) m_block.reset(new stPtCloud_PointArray);
    return readBlockInto(index, *m_block) ? m_block.get() : nullptr;
}

bool PtCloud_DataSetFile::readExact(void* into, quint64 bytes, int id)
{
    if (bytes == 0) return true;
    if (m_file.read(static_cast<char*>(into), qint64(bytes)) != qint64(bytes))
        return fail(QStringLiteral("%1: block %2 cannot be read (%3)")
                        .arg(m_path)
                        .arg(id)
                        .arg(m_file.error() == QFileDevice::NoError ? QStringLiteral("file ends early")
                                                                    : m_file.errorString()));
    return true;
}

bool PtCloud_DataSetFile::readQuanta(const BlockEntry& e, stPtCloud_PointArray& out)
{
    const size_t n = e.count;
    const pcVec3q& c = e.corner;
    if (e.wide) {
        m_positionScratch.resize(n * 3 * sizeof(quint64));
        if (!readExact(m_positionScratch.data(), m_positionScratch.size(), e.id)) return false;
        const quint64* from = reinterpret_cast<const quint64*>(m_positionScratch.data());
        for (size_t i = 0; i < n; ++i) {
            const pcVec3q q(c.x + std::int64_t(from[3 * i]), c.y + std::int64_t(from[3 * i + 1]),
                            c.z + std::int64_t(from[3 * i + 2]));
            out.positions[i] = Format::floatOf(q, m_header.quantum);
            if (!out.quanta.empty()) out.quanta[i] = q;
        }
        return true;
    }
    // Narrow offsets take the room of the floats they become: read and turned in place.
    char* raw = reinterpret_cast<char*>(out.positions.data());
    if (!readExact(raw, n * sizeof(pcVec3f), e.id)) return false;
    for (size_t i = 0; i < out.quanta.size(); ++i) {
        quint32 u[3];
        std::memcpy(u, raw + i * sizeof u, sizeof u);
        out.quanta[i] = pcVec3q(c.x + u[0], c.y + u[1], c.z + u[2]);
    }
    Format::decodeNarrow(raw, n, c, m_header.quantum, raw);
    return true;
}

bool PtCloud_DataSetFile::readBlockInto(int index, stPtCloud_PointArray& out)
{
    if (!m_file.isOpen()) return fail(QStringLiteral("%1 is not open").arg(m_path));
    const auto it = std::lower_bound(m_index.begin(), m_index.end(), index,
                                     [](const BlockEntry& e, int id) { return e.id < id; });
    if (it == m_index.end() || it->id != index)
        return fail(QStringLiteral("%1 has no block %2").arg(m_path).arg(index));
    const BlockEntry& e = *it;
    const size_t n = e.count;
    const qint64 triangles = Format::triangleCount(m_header, e);

    // An array reused for blocks of one file keeps its buffers between reads.
    if (out.columnList() != m_header.columns) {
        out = stPtCloud_PointArray();
        for (EDataSetColumn c : m_header.columns) out.addColumn(c);
    }
    out.origin = m_header.origin;
    out.quantum = m_header.quantum;
    out.coloringMode = m_header.coloringMode;
    out.quanta.resize(m_exact && m_header.storesQuanta() ? n : 0);
    out.resize(int(n));
    out.triangles.resize(size_t(triangles) * 3);

    if (!m_file.seek(qint64(e.offset)))
        return fail(QStringLiteral("%1: cannot seek to block %2").arg(m_path).arg(index));
    const bool positionsRead = m_header.storesQuanta() ? readQuanta(e, out)
                                                       : readExact(out.positions.data(), n * sizeof(pcVec3f), index);
    if (!positionsRead || !readExact(out.triangles.data(), out.triangles.size() * sizeof(unsigned int), index))
        return false;
    for (EDataSetColumn c : m_header.columns) {
        if (c == DSC_Location) continue;
        if (c == DSC_Color) {
            m_colorScratch.resize(n * 3);
            if (!readExact(m_colorScratch.data(), n * 3 * sizeof(quint16), index)) return false;
            Format::decodeColors(m_colorScratch.data(), n, out.colors.data());
        } else if (c == DSC_Normal) {
            if (!readExact(out.normals.data(), n * sizeof(pcVec3f), index)) return false;
        } else {
            std::vector<uint8_t>& raw = out.columns[c];
            if (!readExact(raw.data(), raw.size(), index)) return false;
        }
    }
    // A damaged mesh payload must not send the renderer past its vertices.
    if (std::any_of(out.triangles.begin(), out.triangles.end(),
                    [n](unsigned int v) { return v >= n; }))
        return fail(QStringLiteral("%1: block %2 has a triangle past its points").arg(m_path).arg(index));
    return true;
}

}  // namespace ptCloud
