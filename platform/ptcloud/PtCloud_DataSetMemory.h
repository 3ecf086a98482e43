#pragma once

#include <QMap>
#include <tuple>

#include "IDataSetReader.h"

namespace ptCloud {

class PtCloud_DataSetFile;

// Every block of a data file held in memory, editable in place and written
// back atomically.
class PtCloud_DataSetMemory : public IDataSetReader {
public:
    PtCloud_DataSetMemory();
    ~PtCloud_DataSetMemory() override;

    bool getBlocks(QMap<int, std::tuple<unsigned int, pcBoundingBoxf>>& out) const override;
    const stPtCloud_PointArray* readBlock(int index) override;
    bool openFile() override;   // nothing to open: true once made
    void closeFile() override;  // keeps the blocks
    EDataSetSort getSortType() const override;
    EDataSetType getDataSetType() const override;
    const stPtCloud_DataSetHeader& getHeader() const override;

    // Loads every block of the file (through a handle of its own, so the
    // given file may be closed). False, and empty, when it cannot be read.
    bool makeFromFile(PtCloud_DataSetFile* file);
    // The blocks themselves (owned by this object), editable in place; an
    // erased entry's array must be deleted by whoever erases it.
    QMap<int, std::tuple<pcBoundingBoxf, stPtCloud_PointArray*>>* getAllBlocksPtr();
    // Writes all blocks to the file's path (atomically; boxes recomputed).
    bool saveToFile(PtCloud_DataSetFile* file);
    void clear();
    // Why the last makeFromFile or saveToFile failed.
    QString lastError() const;

private:
    stPtCloud_DataSetHeader m_header;
    QMap<int, std::tuple<pcBoundingBoxf, stPtCloud_PointArray*>> m_blocks;
    bool m_made = false;
    QString m_error;
};

}  // namespace ptCloud
