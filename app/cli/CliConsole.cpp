#include "CliConsole.h"

#include <cstdio>
#include <unistd.h>

void CliConsole::out(const QString& line)
{
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fputc('\n', stdout);
}

int CliConsole::fail(const QString& reason)
{
    // Scripts read the reason from one line, whatever the library said.
    QString oneLine = reason.simplified();
    if (oneLine.isEmpty()) oneLine = QStringLiteral("failed for an unknown reason");
    std::fflush(stdout);
    std::fprintf(stderr, "ptcloud: %s\n", oneLine.toUtf8().constData());
    return kExitFailure;
}

void CliConsole::note(const QString& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "ptcloud: note: %s\n", text.simplified().toUtf8().constData());
}

int CliConsole::usage(const QString& reason)
{
    fail(reason);
    return kExitUsage;
}

bool CliConsole::stderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }
