#pragma once

#include <QFile>
#include <QString>
#include <deque>
#include <future>
#include <memory>
#include <vector>

#include "LazChunkCodec.h"
#include "LazFormat.h"

namespace ptCloud {

// The compressed points of a LAZ file as a stream of LAS records: reads the
// chunk table, checks it against the file and the header, then hands out
// records chunk after chunk while the next chunks decode on other threads
// (one per core). Memory holds a chunk per core and one more (a chunk may not
// decode to more than 256 MiB).
class LazChunkReader {
public:
    LazChunkReader();
    ~LazChunkReader();

    // pointData: where the compressed points start; false with a one-line reason.
    bool open(const QString& path, const LazFormat& format, int recordLength, quint64 pointData, quint64 pointCount,
              QString* why);
    // The next k records, into dst.
    bool read(char* dst, quint64 k, QString* why);
    void rewind();
    int chunkCount() const { return int(m_chunks.size()); }
    quint32 chunkPoints(int i) const { return m_chunks[size_t(i)].points; }
    // The first k records of chunk i, into dst (no effect on read()).
    bool sample(int i, quint32 k, char* dst, QString* why);
    // "point-wise"/"layered", chunk count and kind, for the header description.
    QString describe() const;

private:
    struct Chunk {
        quint64 offset = 0, bytes = 0;
        quint32 points = 0;
    };
    struct Decoded {
        std::unique_ptr<uint8_t[]> records;
        size_t size = 0;
        QString error;
    };
    bool readTable(quint64 pointData, quint64 pointCount, QString* why);
    bool load(int i, QByteArray* bytes, QString* why);
    std::future<Decoded> launch(int i);
    bool advance(QString* why);

    QFile m_file;
    LazFormat m_format;
    std::unique_ptr<LazChunkCodec> m_codec;
    int m_recordLength = 0;
    std::vector<Chunk> m_chunks;
    int m_next = 0;      // chunk that advance() takes next
    int m_launched = 0;  // chunks handed to decoding threads
    int m_ahead = 1;     // chunks decoded ahead at once
    std::deque<std::future<Decoded>> m_pending;
    Decoded m_current;
    size_t m_at = 0;
};

}  // namespace ptCloud
