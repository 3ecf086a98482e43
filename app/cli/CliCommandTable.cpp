#include "CliCommandTable.h"

#include "CliConsole.h"

const CliCommand* CliCommandTable::find(const QStringList& args) const
{
    for (const CliCommand& command : m_commands)
        if (args.mid(0, command.words.size()) == command.words) return &command;
    return nullptr;
}

QString CliCommandTable::signature(const CliCommand& command)
{
    return QStringLiteral("ptcloud %1 %2").arg(command.words.join(QLatin1Char(' ')), command.arguments);
}

QString CliCommandTable::usage() const
{
    QStringList lines{QStringLiteral("usage:")};
    for (const CliCommand& command : m_commands) {
        if (command.hidden) continue;
        lines << QStringLiteral("  %1").arg(signature(command));
        lines << QStringLiteral("      %1").arg(command.summary);
    }
    return lines.join(QLatin1Char('\n'));
}

int CliCommandTable::dispatch(const QStringList& args) const
{
    if (args.isEmpty()) return CliConsole::usage(QStringLiteral("no command given (ptcloud --help lists them)"));
    if (args.first() == QLatin1String("--help") || args.first() == QLatin1String("help")) {
        CliConsole::out(usage());
        return 0;
    }
    const CliCommand* command = find(args);
    if (!command) {
        const QString given = args.mid(0, 2).join(QLatin1Char(' '));
        return CliConsole::usage(QStringLiteral("unknown command \"%1\" (ptcloud --help lists them)").arg(given));
    }
    if (args.mid(command->words.size()).contains(QLatin1String("--help"))) {
        CliConsole::out(QStringLiteral("usage: %1\n  %2").arg(signature(*command), command->summary));
        return 0;
    }
    CliArguments parsed;
    QString error;
    if (!parsed.parse(args.mid(command->words.size()), command->valueOptions, command->flagOptions, &error))
        return CliConsole::usage(QStringLiteral("%1; usage: %2").arg(error, signature(*command)));
    const int count = parsed.positionals().size();
    if (count < command->minPositionals || (command->maxPositionals >= 0 && count > command->maxPositionals))
        return CliConsole::usage(QStringLiteral("usage: %1").arg(signature(*command)));
    return command->run(parsed);
}
