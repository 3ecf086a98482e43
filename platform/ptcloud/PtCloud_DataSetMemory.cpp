#include "PtCloud_DataSetMemory.h"

#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_DataSetFile.h"

namespace ptCloud {

PtCloud_DataSetMemory::PtCloud_DataSetMemory() = default;

PtCloud_DataSetMemory::~PtCloud_DataSetMemory()
{
    clear();
}

void PtCloud_DataSetMemory::clear()
{
    for (auto& entry : m_blocks) delete std::get<1>(entry);
    m_blocks.clear();
    m_header = stPtCloud_DataSetHeader();
    m_made = false;
}

bool PtCloud_DataSetMemory::makeFromFile(PtCloud_DataSetFile* file)
{
    clear();
    m_error.clear();
    if (!file) return false;
    // A handle of our own: the caller's may be closed, or in use by a loader.
    PtCloud_DataSetFile own(file->getFilepath());
    if (!own.openFile()) {
        m_error = own.lastError();
        return false;
    }
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    own.getBlocks(blocks);
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        auto* points = new stPtCloud_PointArray;
        if (!own.readBlockInto(it.key(), *points)) {
            delete points;
            clear();
            m_error = own.lastError();
            return false;
        }
        m_blocks.insert(it.key(), std::make_tuple(std::get<1>(it.value()), points));
    }
    m_header = own.getHeader();
    m_made = true;
    return true;
}

QMap<int, std::tuple<pcBoundingBoxf, stPtCloud_PointArray*>>* PtCloud_DataSetMemory::getAllBlocksPtr()
{
    return &m_blocks;
}

bool PtCloud_DataSetMemory::saveToFile(PtCloud_DataSetFile* file)
{
    if (!file || !m_made) {
        m_error = QStringLiteral("nothing loaded to save");
        return false;
    }
    // An open handle would keep reading the replaced file through a stale index.
    const bool wasOpen = file->isOpened();
    file->closeFile();
    PtCloud_BlockFileWriter writer(file->getFilepath());
    bool ok = writer.begin(m_header, &m_error);
    for (auto it = m_blocks.cbegin(); ok && it != m_blocks.cend(); ++it) {
        const stPtCloud_PointArray* points = std::get<1>(it.value());
        if (points) ok = writer.writeBlock(it.key(), *points, &m_error);
    }
    ok = ok && writer.commit(&m_error);
    if (ok) {
        // Mirror what was written: boxes recomputed, empty blocks gone.
        stPtCloud_DataSetHeader header = m_header;
        header.pointCount = 0;
        header.bounds = pcBoundingBoxf();
        for (auto it = m_blocks.begin(); it != m_blocks.end();) {
            stPtCloud_PointArray* points = std::get<1>(it.value());
            if (!points || points->count == 0) {
                delete points;
                it = m_blocks.erase(it);
                continue;
            }
            const pcBoundingBoxf box = points->computeBounds();
            std::get<0>(it.value()) = box;
            header.pointCount += quint64(points->count);
            header.bounds.expandBy(box);
            ++it;
        }
        header.blockCount = quint32(m_blocks.size());
        m_header = header;
    }
    if (wasOpen) file->openFile();
    return ok;
}

QString PtCloud_DataSetMemory::lastError() const
{
    return m_error;
}

bool PtCloud_DataSetMemory::getBlocks(QMap<int, std::tuple<unsigned int, pcBoundingBoxf>>& out) const
{
    out.clear();
    if (!m_made) return false;
    for (auto it = m_blocks.cbegin(); it != m_blocks.cend(); ++it) {
        const stPtCloud_PointArray* points = std::get<1>(it.value());
        out.insert(it.key(), std::make_tuple(points ? unsigned(points->count) : 0u,
                                             std::get<0>(it.value())));
    }
    return true;
}

const stPtCloud_PointArray* PtCloud_DataSetMemory::readBlock(int index)
{
    const auto it = m_blocks.constFind(index);
    return it == m_blocks.cend() ? nullptr : std::get<1>(it.value());
}

bool PtCloud_DataSetMemory::openFile()
{
    return m_made;
}

void PtCloud_DataSetMemory::closeFile()
{
}

EDataSetSort PtCloud_DataSetMemory::getSortType() const
{
    return m_header.sort;
}

EDataSetType PtCloud_DataSetMemory::getDataSetType() const
{
    return m_header.type;
}

const stPtCloud_DataSetHeader& PtCloud_DataSetMemory::getHeader() const
{
    return m_header;
}

}  // namespace ptCloud
