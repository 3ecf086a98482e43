// The shared pseudo-random generator: a seed fixes the sequence, seeds are
// independent of each other (0 and all-ones included), and the uniform
// numbers fill their range evenly.

#include <QtTest>
#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include "Algo_Random.h"

using namespace ptCloud;

class TstAlgoRandom : public QObject {
    Q_OBJECT
private slots:
    void seedFixesTheSequence_data();
    void seedFixesTheSequence();
    void uniformFillsItsRange_data();
    void uniformFillsItsRange();
};

void TstAlgoRandom::seedFixesTheSequence_data() {
    QTest::addColumn<quint64>("seed");
    QTest::newRow("0") << quint64(0);
    QTest::newRow("1") << quint64(1);
    QTest::newRow("all ones") << ~quint64(0);
}

void TstAlgoRandom::seedFixesTheSequence() {
    QFETCH(quint64, seed);
    Algo_Random a(seed), b(seed ^ 1);
    std::vector<uint64_t> first, other;
    for (int i = 0; i < 64; ++i) {
        first.push_back(a.next());
        other.push_back(b.next());
    }
    // no stuck state: 64 distinct words, and a neighbouring seed shares none
    QCOMPARE(std::set<uint64_t>(first.begin(), first.end()).size(), first.size());
    std::vector<uint64_t> common;
    std::sort(first.begin(), first.end());
    std::sort(other.begin(), other.end());
    std::set_intersection(first.begin(), first.end(), other.begin(), other.end(), std::back_inserter(common));
    QVERIFY(common.empty());
    // reseeding restarts the same sequence
    Algo_Random again(0);
    again.seed(seed);
    Algo_Random fresh(seed);
    for (int i = 0; i < 64; ++i) QCOMPARE(again.next(), fresh.next());
}

void TstAlgoRandom::uniformFillsItsRange_data() {
    QTest::addColumn<double>("lo");
    QTest::addColumn<double>("hi");
    QTest::newRow("unit") << 0.0 << 1.0;
    QTest::newRow("negative") << -3.0 << -1.0;
    QTest::newRow("around zero, wide") << -1e6 << 1e6;
}

void TstAlgoRandom::uniformFillsItsRange() {
    QFETCH(double, lo);
    QFETCH(double, hi);
    constexpr int kDraws = 200000, kBins = 20;
    Algo_Random random(42);
    std::vector<int> bins(kBins, 0);
    double sum = 0;
    for (int i = 0; i < kDraws; ++i) {
        const double v = (lo == 0.0 && hi == 1.0) ? random.uniform() : random.uniform(lo, hi);
        QVERIFY(v >= lo && v < hi);
        sum += v;
        ++bins[std::min(kBins - 1, int((v - lo) / (hi - lo) * kBins))];
    }
    // mean within 4 standard errors of the middle
    const double sigma = (hi - lo) / std::sqrt(12.0 * kDraws);
    QVERIFY(std::abs(sum / kDraws - 0.5 * (lo + hi)) < 4 * sigma);
    // chi-square with 19 degrees of freedom: above 43.8 one time in 1000
    double chi2 = 0;
    const double expected = double(kDraws) / kBins;
    for (int n : bins) chi2 += (n - expected) * (n - expected) / expected;
    QVERIFY2(chi2 < 43.8, qPrintable(QString::number(chi2)));
}

QTEST_GUILESS_MAIN(TstAlgoRandom)
#include "tst_algo_random.moc"
