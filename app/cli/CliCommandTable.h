#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>

#include "CliArguments.h"

// One subcommand: the words that name it, what it accepts, what it runs.
struct CliCommand {
    using Run = std::function<int(const CliArguments&)>;
    CliCommand(const QStringList& words_, const QString& arguments_, const QString& summary_, int minPositionals_,
               int maxPositionals_, const Run& run_, const QStringList& valueOptions_ = {},
               const QStringList& flagOptions_ = {})
        : words(words_), arguments(arguments_), summary(summary_), minPositionals(minPositionals_),
          maxPositionals(maxPositionals_), valueOptions(valueOptions_), flagOptions(flagOptions_), run(run_)
    {
    }

    QStringList words;        // e.g. {"dataset", "make"}
    QString arguments;        // shown in the usage, e.g. "DIR NAME --las KEY[,KEY...]"
    QString summary;
    int minPositionals = 0;
    int maxPositionals = 0;   // negative: no limit
    QStringList valueOptions;
    QStringList flagOptions;
    bool hidden = false;      // a tool for benchmarks, left out of the usage
    Run run;
};

// Finds the command named by the leading words, checks its arguments and runs it.
class CliCommandTable {
public:
    void add(const QList<CliCommand>& commands) { m_commands << commands; }
    // args: the process arguments after the program name. Returns the exit code.
    int dispatch(const QStringList& args) const;
    QString usage() const;

private:
    const CliCommand* find(const QStringList& args) const;
    static QString signature(const CliCommand& command);

    QList<CliCommand> m_commands;
};
