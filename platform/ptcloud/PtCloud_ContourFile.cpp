#include "PtCloud_ContourFile.h"

#include <QDataStream>
#include <QFile>
#include <QSaveFile>

#include "PtCloud_FileCommit.h"

namespace ptCloud {

namespace {
const char kMagic[8] = {'P', 'T', 'C', 'C', 'O', 'N', 'T', '1'};
const quint32 kVersion = 1;

bool readHeader(QDataStream& in, pcVec3d* origin, quint32* lineCount)
{
    char magic[8];
    if (in.readRawData(magic, 8) != 8 || memcmp(magic, kMagic, 8) != 0) return false;
    quint32 version = 0;
    in >> version;
    if (version != kVersion) return false;
    in >> origin->x >> origin->y >> origin->z >> *lineCount;
    return in.status() == QDataStream::Ok;
}
}  // namespace

PtCloud_ContourFile::PtCloud_ContourFile(const QString& filepath) : m_path(filepath) {}
PtCloud_ContourFile::~PtCloud_ContourFile() = default;

bool PtCloud_ContourFile::isValid() const
{
    QFile f(m_path);
    if (!f.open(QIODevice::ReadOnly)) return false;
    QDataStream in(&f);
    in.setByteOrder(QDataStream::LittleEndian);
    pcVec3d origin;
    quint32 count = 0;
    return readHeader(in, &origin, &count);
}

bool PtCloud_ContourFile::openFile()
{
    closeFile();
    QFile f(m_path);
    if (!f.open(QIODevice::ReadOnly)) return false;
    QDataStream in(&f);
    in.setByteOrder(QDataStream::LittleEndian);
    quint32 count = 0;
    if (!readHeader(in, &m_origin, &count)) return false;
    // Each line needs at least 13 bytes; a count beyond the file is corrupt.
    if (qint64(count) * 13 > f.size()) return false;
    std::vector<Polyline> lines(count);
    for (Polyline& line : lines) {
        quint8 closed = 0;
        quint32 n = 0;
        in.setFloatingPointPrecision(QDataStream::DoublePrecision);
        in >> line.level;
        in.setFloatingPointPrecision(QDataStream::SinglePrecision);
        in >> closed >> n;
        if (in.status() != QDataStream::Ok || qint64(n) * 12 > f.size()) return false;
        line.closed = closed != 0;
        line.points.resize(n);
        for (pcVec3f& p : line.points) in >> p.x >> p.y >> p.z;
        if (in.status() != QDataStream::Ok) return false;
    }
    m_lines = std::move(lines);
    m_opened = true;
    return true;
}

void PtCloud_ContourFile::closeFile()
{
    m_lines.clear();
    m_opened = false;
}

bool PtCloud_ContourFile::write(const QString& path, const pcVec3d& origin,
                                const std::vector<Polyline>& lines, QString* error)
{
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly)) {
        if (error) *error = QStringLiteral("cannot write %1: %2").arg(path, f.errorString());
        return false;
    }
    QDataStream out(&f);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData(kMagic, 8);
    out << kVersion << origin.x << origin.y << origin.z << quint32(lines.size());
    for (const Polyline& line : lines) {
        out.setFloatingPointPrecision(QDataStream::DoublePrecision);
        out << line.level;
        out.setFloatingPointPrecision(QDataStream::SinglePrecision);
        out << quint8(line.closed ? 1 : 0) << quint32(line.points.size());
        for (const pcVec3f& p : line.points) out << p.x << p.y << p.z;
    }
    if (out.status() != QDataStream::Ok) {
        if (error) *error = PtCloud_FileCommit::writeFailure(f);
        return false;
    }
    return PtCloud_FileCommit::commit(f, error);
}

}  // namespace ptCloud
