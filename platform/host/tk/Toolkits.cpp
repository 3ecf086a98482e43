#include "Toolkits.h"

namespace tk {

QString Toolkits::DoubleToString(double value, int decimals)
{
    if (decimals < 0) decimals = 0;
    QString s = QString::number(value, 'f', decimals);
    if (s.startsWith(QLatin1Char('-'))) {
        bool allZero = true;
        for (int i = 1; i < s.size() && allZero; ++i)
            allZero = s[i] == QLatin1Char('0') || s[i] == QLatin1Char('.');
        if (allZero) s.remove(0, 1);
    }
    return s;
}

}  // namespace tk
