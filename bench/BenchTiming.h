#pragma once
// Timing shared by the processing benchmarks: the median of a few runs in
// wall and process CPU seconds (the CPU figure stays meaningful on a
// machine shared with other jobs; the median is what a user sees most
// often), and the load average to print beside them. Header only, so each
// benchmark stays a single source file.

#include <QElapsedTimer>
#include <QFile>
#include <QString>
#include <algorithm>
#include <functional>
#include <sys/resource.h>
#include <vector>

class BenchTiming {
public:
    struct Result {
        double wall = 0, cpu = 0;                // medians
        double fastestWall = 0, slowestWall = 0;
    };

    static Result median(const std::function<void()>& fn, int runs) {
        std::vector<double> wall, cpu;
        for (int i = 0; i < std::max(runs, 1); ++i) {
            QElapsedTimer t;
            const double c0 = cpuSeconds();
            t.start();
            fn();
            wall.push_back(t.elapsed() / 1000.0);
            cpu.push_back(cpuSeconds() - c0);
        }
        std::sort(wall.begin(), wall.end());
        std::sort(cpu.begin(), cpu.end());
        return {wall[wall.size() / 2], cpu[cpu.size() / 2], wall.front(), wall.back()};
    }

    static double cpuSeconds() {
        rusage u{};
        getrusage(RUSAGE_SELF, &u);
        return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
               1e-6 * double(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
    }

    // "1-minute 5-minute 15-minute", or "unknown".
    static QString loadAverage() {
        QFile f(QStringLiteral("/proc/loadavg"));
        if (!f.open(QIODevice::ReadOnly)) return QStringLiteral("unknown");
        return QString::fromLatin1(f.readAll()).section(QLatin1Char(' '), 0, 2);
    }
};
