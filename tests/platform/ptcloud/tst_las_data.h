#pragma once
// Access to the shared real LAS files and their independently computed
// MANIFEST.json, for the LAS tests.

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "LasReader.h"

namespace lasTestData {

inline QString dataDir() { return QStringLiteral(PTCLOUD_SHARED_DATA_DIR); }

inline QJsonObject manifest() {
    static const QJsonObject m = [] {
        QFile f(dataDir() + QStringLiteral("/MANIFEST.json"));
        return f.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(f.readAll()).object() : QJsonObject();
    }();
    return m;
}

// Manifest keys of one folder ("las/" or "laz/"), in name order.
inline QStringList entries(const QString& folder) {
    QStringList out;
    for (const QString& key : manifest().keys())
        if (key.startsWith(folder)) out << key;
    return out;
}

// One row named after each key of the folder, in a "key" column.
inline void addRows(const QString& folder) {
    QTest::addColumn<QString>("key");
    for (const QString& key : entries(folder)) QTest::newRow(qPrintable(key)) << key;
}

inline QString path(const QString& key) { return dataDir() + QLatin1Char('/') + key; }

// Centre of the manifest's record bounds: a block origin that keeps float
// positions as precise as the data allows.
inline ptCloud::pcVec3d centre(const QJsonObject& entry) {
    const QJsonArray b = entry.value(QStringLiteral("bounds_records")).toArray();
    if (b.size() != 6) return {};
    return {(b[0].toDouble() + b[3].toDouble()) / 2, (b[1].toDouble() + b[4].toDouble()) / 2,
            (b[2].toDouble() + b[5].toDouble()) / 2};
}

// Reads every point of an open reader into one array, through chunks of
// chunkSize points.
inline bool readAll(ptCloud::LasReader& reader, const QList<ptCloud::EDataSetColumn>& columns,
                    const ptCloud::pcVec3d& origin, int chunkSize, ptCloud::stPtCloud_PointArray& all,
                    QString* error) {
    all = ptCloud::stPtCloud_PointArray();
    all.origin = origin;
    ptCloud::stPtCloud_PointArray chunk;
    for (;;) {
        const qint64 n = reader.readChunk(chunk, chunkSize, columns, origin, error);
        if (n < 0) return false;
        if (n == 0) return true;
        all.count += int(n);
        all.positions.insert(all.positions.end(), chunk.positions.begin(), chunk.positions.end());
        all.colors.insert(all.colors.end(), chunk.colors.begin(), chunk.colors.end());
        for (const auto& c : chunk.columns)
            all.columns[c.first].insert(all.columns[c.first].end(), c.second.begin(), c.second.end());
    }
}

}  // namespace lasTestData

#define LAS_REQUIRE_SHARED_DATA()                                                                   \
    do {                                                                                            \
        if (lasTestData::manifest().isEmpty())                                                      \
            QSKIP("shared LAS data (MANIFEST.json) not found in " PTCLOUD_SHARED_DATA_DIR);          \
    } while (false)
