#pragma once

#include <QString>

namespace tk {

class Toolkits {
public:
    // Fixed-point text with the given number of decimals. Values that round
    // to zero are written without a minus sign ("0.000", never "-0.000").
    static QString DoubleToString(double value, int decimals);
};

}  // namespace tk
