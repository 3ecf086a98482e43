// The section strip: points just inside and just outside its sides and ends
// for lines in several directions, and blocks whose plan box misses the
// strip (though not the strip's bounding box) are never read.

#include <QtTest>
#include <cmath>

#include "Algo_SectionStrip.h"
#include "IDataSetReader.h"

using namespace ptCloud;

namespace {

// Blocks held in memory that count how often each is read.
class CountingReader : public IDataSetReader {
public:
    void add(stPtCloud_PointArray block)
    {
        block.count = int(block.positions.size());
        m_blocks.push_back(std::move(block));
    }
    bool getBlocks(QMap<int, std::tuple<unsigned int, pcBoundingBoxf>>& out) const override
    {
        for (size_t i = 0; i < m_blocks.size(); ++i)
            out.insert(int(i), std::make_tuple(unsigned(m_blocks[i].count), m_blocks[i].computeBounds()));
        return true;
    }
    const stPtCloud_PointArray* readBlock(int index) override
    {
        reads.insert(index);
        return &m_blocks.at(size_t(index));
    }
    bool openFile() override { return true; }
    void closeFile() override {}
    EDataSetSort getSortType() const override { return DSS_None; }
    EDataSetType getDataSetType() const override { return DST_Points; }
    const stPtCloud_DataSetHeader& getHeader() const override { return m_header; }

    QSet<int> reads;

private:
    std::vector<stPtCloud_PointArray> m_blocks;
    stPtCloud_DataSetHeader m_header;
};

// Every point the strip hands over, as its z (which the tests use as an id).
QList<int> collect(const Algo_SectionStrip& strip, CountingReader& reader)
{
    QList<int> ids;
    QString error;
    const bool ok = strip.run(
        reader,
        [&](const stPtCloud_PointArray& block, const std::vector<int>& inside, QString*) {
            for (int i : inside) ids << int(block.positions[size_t(i)].z);
            return true;
        },
        nullptr, &error);
    if (!ok) QTest::qFail(qPrintable(error), __FILE__, __LINE__);
    std::sort(ids.begin(), ids.end());
    return ids;
}

}  // namespace

class TstSectionStrip : public QObject {
    Q_OBJECT
private slots:
    void sidesAndEnds_data();
    void sidesAndEnds();
    void blocksOffTheStripAreNotRead();
};

void TstSectionStrip::sidesAndEnds_data()
{
    QTest::addColumn<double>("angle");
    QTest::newRow("east") << 0.0;
    QTest::newRow("north") << 90.0;
    QTest::newRow("north-west") << 143.0;
    QTest::newRow("south-west") << 210.0;
    QTest::newRow("south") << 270.0;
}

void TstSectionStrip::sidesAndEnds()
{
    QFETCH(double, angle);
    const double length = 20.0, width = 4.0, half = width / 2, eps = 0.002;
    const double sx = 1234.5, sy = -987.25;
    const double dx = std::cos(angle * M_PI / 180), dy = std::sin(angle * M_PI / 180);
    // (along, across to the left, inside?) in metres from the start.
    struct Probe {
        double along, across;
        bool inside;
    };
    const Probe probes[] = {
        {eps, 0, true},            {length - eps, 0, true},      {length / 2, half - eps, true},
        {length / 2, -half + eps, true}, {eps, half - eps, true}, {length - eps, -half + eps, true},
        {length / 2, half + eps, false}, {length / 2, -half - eps, false}, {-eps, 0, false},
        {length + eps, 0, false},  {-eps, half - eps, false},   {length + eps, -half + eps, false},
    };
    CountingReader reader;
    stPtCloud_PointArray block;
    QList<int> expected;
    for (int id = 0; id < int(std::size(probes)); ++id) {
        const Probe& p = probes[id];
        block.positions.emplace_back(float(sx + p.along * dx - p.across * dy), float(sy + p.along * dy + p.across * dx),
                                     float(id));
        if (p.inside) expected << id;
    }
    reader.add(block);
    const Algo_SectionStrip strip(sx, sy, sx + length * dx, sy + length * dy, width);
    QCOMPARE(collect(strip, reader), expected);
}

void TstSectionStrip::blocksOffTheStripAreNotRead()
{
    // A 10 x 10 grid of 10 m blocks and a 2 m wide strip along its diagonal:
    // the strip's bounding box covers every block, the strip itself only the
    // blocks on the diagonal and those touching it at a corner.
    CountingReader reader;
    QList<int> expected;
    int id = 0;
    for (int bx = 0; bx < 10; ++bx)
        for (int by = 0; by < 10; ++by) {
            stPtCloud_PointArray block;
            for (int i = 0; i < 10; ++i)
                for (int j = 0; j < 10; ++j) {
                    const double x = bx * 10 + i + 0.25, y = by * 10 + j + 0.5;
                    block.positions.emplace_back(float(x), float(y), float(id));
                    // Within 1 m of the diagonal x = y.
                    if (std::fabs(x - y) / std::sqrt(2.0) <= 1.0) expected << id;
                    ++id;
                }
            reader.add(block);
        }
    const Algo_SectionStrip strip(0, 0, 100, 100, 2.0);
    QCOMPARE(collect(strip, reader), expected);
    QCOMPARE(reader.reads.size(), 10 + 2 * 9);
    for (int block : reader.reads) QVERIFY2(std::abs(block / 10 - block % 10) <= 1, qPrintable(QString::number(block)));
}

QTEST_GUILESS_MAIN(TstSectionStrip)
#include "tst_section_strip.moc"
