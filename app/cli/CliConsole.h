#pragma once

#include <QString>

// Where the command line talks: results on stdout, one-line errors on stderr.
class CliConsole {
public:
    static void out(const QString& line);
    // Prints "ptcloud: reason" on stderr; returns the failure exit code.
    static int fail(const QString& reason);
    // Prints "ptcloud: note: text" on stderr: the command goes on.
    static void note(const QString& text);
    // Same, for a call the user got wrong; returns the usage exit code.
    static int usage(const QString& reason);
    static bool stderrIsTerminal();

    static constexpr int kExitFailure = 1;
    static constexpr int kExitUsage = 2;
};
