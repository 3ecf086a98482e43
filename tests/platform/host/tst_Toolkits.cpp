#include "Toolkits.h"

#include <QtTest>

using tk::Toolkits;

class TestToolkits : public QObject {
    Q_OBJECT

private slots:
    void doubleToString_data();
    void doubleToString();
};

void TestToolkits::doubleToString_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("decimals");
    QTest::addColumn<QString>("text");

    QTest::newRow("three decimals") << 12.3456 << 3 << "12.346";
    QTest::newRow("padded with zeros") << 2.5 << 3 << "2.500";
    QTest::newRow("no decimals") << 7.4 << 0 << "7";
    QTest::newRow("negative") << -12.3456 << 2 << "-12.35";

    // Exact binary halves round away from zero, as a surveyor rounds.
    QTest::newRow("half: 0.125 to 2") << 0.125 << 2 << "0.13";
    QTest::newRow("half: -0.125 to 2") << -0.125 << 2 << "-0.13";
    QTest::newRow("half: 2.5 to 0") << 2.5 << 0 << "3";
    QTest::newRow("half: -2.5 to 0") << -2.5 << 0 << "-3";

    // Large values keep every digit, never an exponent.
    QTest::newRow("2^52") << 4503599627370496.0 << 3 << "4503599627370496.000";
    QTest::newRow("1e20") << 1e20 << 2 << "100000000000000000000.00";
    QTest::newRow("-1e20") << -1e20 << 0 << "-100000000000000000000";

    // What rounds to zero carries no sign.
    QTest::newRow("-0.0001 to 3") << -0.0001 << 3 << "0.000";
    QTest::newRow("-0.4 to 0") << -0.4 << 0 << "0";
    QTest::newRow("negative zero") << -0.0 << 2 << "0.00";
    QTest::newRow("-0.0006 keeps its sign") << -0.0006 << 3 << "-0.001";
}

void TestToolkits::doubleToString()
{
    QFETCH(double, value);
    QFETCH(int, decimals);
    QFETCH(QString, text);
    QCOMPARE(Toolkits::DoubleToString(value, decimals), text);
}

QTEST_APPLESS_MAIN(TestToolkits)
#include "tst_Toolkits.moc"
