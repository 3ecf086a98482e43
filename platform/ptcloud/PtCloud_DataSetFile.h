#pragma once

#include <QFile>
#include <QString>
#include <memory>
#include <vector>

#include "IDataSetReader.h"
#include "PtCloud_BlockFileFormat.h"

namespace ptCloud {

// A block file on disk: header, block index and per-block column payloads.
// The handle is cheap; open it to read. isValid() checks the header on disk
// even while the handle is closed.
class PtCloud_DataSetFile : public IDataSetReader {
public:
    explicit PtCloud_DataSetFile(const QString& filepath);
    ~PtCloud_DataSetFile() override;

    bool getBlocks(QMap<int, std::tuple<unsigned int, pcBoundingBoxf>>& out) const override;
    const stPtCloud_PointArray* readBlock(int index) override;
    bool openFile() override;
    void closeFile() override;
    EDataSetSort getSortType() const override;
    EDataSetType getDataSetType() const override;
    const stPtCloud_DataSetHeader& getHeader() const override;

    // The file exists and carries a readable header of a known version.
    bool isValid() const;
    bool isOpened() const;
    QString getFilepath() const;
    // Renames the file (closed meanwhile); false when it cannot be.
    bool moveTo(const QString& filepath);
    // Why the last open or read failed.
    QString lastError() const;
    // Reads a block into an array of the caller's; false (and lastError) when
    // the id is unknown or the payload cannot be read.
    bool readBlockInto(int index, stPtCloud_PointArray& out);
    // Blocks read from now on also carry their exact positions (quanta), in
    // files that store them.
    void setExactPositions(bool on) { m_exact = on; }

private:
    using BlockEntry = PtCloud_BlockFileFormat::IndexEntry;
    bool fail(const QString& why);
    bool readExact(void* into, quint64 bytes, int id);
    bool readQuanta(const BlockEntry& e, stPtCloud_PointArray& out);

    QString m_path;
    QFile m_file;
    stPtCloud_DataSetHeader m_header;
    std::vector<BlockEntry> m_index;  // in id order
    std::unique_ptr<stPtCloud_PointArray> m_block;  // the last block read
    QString m_error;
    std::vector<quint16> m_colorScratch;
    std::vector<char> m_positionScratch;
    bool m_exact = false;
};

}  // namespace ptCloud
