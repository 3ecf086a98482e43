#include "CliArguments.h"

bool CliArguments::parse(const QStringList& args, const QStringList& valueOptions, const QStringList& flagOptions,
                         QString* error)
{
    m_positionals.clear();
    m_options.clear();
    bool onlyPositionals = false;
    for (int i = 0; i < args.size(); ++i) {
        const QString& arg = args[i];
        if (onlyPositionals || !arg.startsWith(QLatin1String("--")) || arg == QLatin1String("-")) {
            m_positionals << arg;
            continue;
        }
        if (arg == QLatin1String("--")) {  // what follows may start with "--" and still be a name
            onlyPositionals = true;
            continue;
        }
        const int eq = arg.indexOf(QLatin1Char('='));
        const QString name = eq < 0 ? arg : arg.left(eq);
        if (m_options.contains(name)) {
            *error = QStringLiteral("option %1 given twice").arg(name);
            return false;
        }
        if (flagOptions.contains(name)) {
            if (eq >= 0) {
                *error = QStringLiteral("option %1 takes no value").arg(name);
                return false;
            }
            m_options.insert(name, QString());
        } else if (valueOptions.contains(name)) {
            if (eq >= 0) {
                m_options.insert(name, arg.mid(eq + 1));
            } else if (i + 1 < args.size()) {
                m_options.insert(name, args[++i]);
            } else {
                *error = QStringLiteral("option %1 needs a value").arg(name);
                return false;
            }
        } else {
            *error = QStringLiteral("unknown option %1").arg(name);
            return false;
        }
    }
    return true;
}

bool CliArguments::number(const QString& option, quint64 fallback, quint64 minimum, quint64 maximum, quint64* out,
                          QString* error) const
{
    if (!has(option)) {
        *out = fallback;
        return true;
    }
    bool ok = false;
    const quint64 v = value(option).toULongLong(&ok);
    if (!ok || v < minimum || v > maximum) {
        *error = QStringLiteral("%1 wants a whole number from %2 to %3, not \"%4\"")
                     .arg(option).arg(minimum).arg(maximum).arg(value(option));
        return false;
    }
    *out = v;
    return true;
}
