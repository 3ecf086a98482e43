#pragma once

#include <QSaveFile>
#include <QString>
#include <set>
#include <vector>

#include "PtCloud_BlockFileFormat.h"
#include "stPtCloud_DataSetHeader.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

// Writes a block file atomically: everything goes to a temporary file beside
// the target, which replaces the target only when commit() succeeds. A failed
// or abandoned write leaves the old file as it was.
class PtCloud_BlockFileWriter {
public:
    explicit PtCloud_BlockFileWriter(const QString& filepath);
    ~PtCloud_BlockFileWriter();  // an uncommitted write is discarded

    // header.columns, type, sort, colouring, origin and quantum are taken
    // from it; counts and bounds are computed from the blocks written. With
    // a quantum, positions are stored exactly on its grid.

    bool begin(const stPtCloud_DataSetHeader& header, QString* error);
    // Ids unique. With a quantum, the block's quanta are kept when it has
    // them; its float positions go to the nearest quantum otherwise.
    bool writeBlock(int id, const stPtCloud_PointArray& block, QString* error);
    // A block of points already in the file's encoding (the header has a
    // quantum): positions in quanta from the header's origin, and for each
    // of the header's other columns, in value order, n values as stored
    // (colours as three 16-bit channels).
    bool writeEncodedBlock(int id, size_t n, const pcVec3q* positions, const std::vector<const void*>& columns,
                           QString* error);
    bool commit(QString* error);
    void cancel();

    // Test hook: make every write fail once this many payload bytes were written
    // (negative: never). Simulates a full disk half-way through a save.
    static void setFailAfterBytesForTesting(qint64 bytes);

private:
    using Entry = PtCloud_BlockFileFormat::IndexEntry;
    bool writeRaw(const void* data, qint64 n, QString* error);
    // Checks the id, writes positions (floats, or quanta when the header has
    // a quantum), triangles and the columns that columnData gives one at a
    // time (it may reuse m_scratch), and indexes the block.
    template <class ColumnData>
    bool writePayload(int id, size_t n, const pcVec3f* floats, const pcVec3q* quanta,
                      const std::vector<unsigned int>* triangles, ColumnData columnData, QString* error);
    // Stores positions in quanta relative to the block's lowest corner.
    bool writeQuanta(const pcVec3q* quanta, size_t n, Entry* e, QString* error);
    bool fail(const QString& why, QString* error);

    QString m_path;
    QSaveFile m_file;
    stPtCloud_DataSetHeader m_header;
    std::vector<Entry> m_entries;
    quint64 m_pos = 0;
    bool m_open = false;
    std::set<int> m_ids;
    std::vector<char> m_scratch;     // a column on its way out
    std::vector<pcVec3f> m_moved;    // positions re-based to the header's origin
    std::vector<pcVec3q> m_quanta;   // a block's positions on the header's grid
};

}  // namespace ptCloud
