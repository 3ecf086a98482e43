// Fuzz target for the LAS header, VLR and record parser and the LAZ chunk
// table and decoders: any input is written to a file, opened and read to the
// end, as columns and again as records. A refusal is fine; a crash, a
// sanitizer report or a hang is not.

#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "LasReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QTemporaryDir dir;
    static const QString path = dir.filePath(QStringLiteral("input.las"));
    {
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate)) return 0;
        f.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    ptCloud::LasReader reader;
    QString error;
    if (!reader.open(path, &error)) return 0;
    QList<ptCloud::EDataSetColumn> all = ptCloud::userColumns();
    ptCloud::stPtCloud_PointArray points;
    const ptCloud::pcVec3d origin(reader.header().offset[0], reader.header().offset[1], reader.header().offset[2]);
    while (reader.readChunk(points, 4096, all, origin, &error) > 0) {
    }
    if (!reader.rewind()) return 0;
    const ptCloud::stPtCloud_RecordLayout layout = ptCloud::stPtCloud_RecordLayout::forColumns(all);
    std::vector<char> records;
    const ptCloud::pcVec3d quantum(reader.header().scale[0], reader.header().scale[1], reader.header().scale[2]);
    while (reader.readRecords(records, 4096, layout, origin, quantum, &error) > 0) {
    }
    return 0;
}
