#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

// The arguments of one command after its words: positionals and --options.
class CliArguments {
public:
    // valueOptions take a value ("--las K" or "--las=K"); flagOptions stand
    // alone. Any other "--" argument is an error, as is a repeated option.
    bool parse(const QStringList& args, const QStringList& valueOptions, const QStringList& flagOptions,
               QString* error);

    const QStringList& positionals() const { return m_positionals; }
    QString positional(int index) const { return m_positionals.value(index); }
    bool has(const QString& option) const { return m_options.contains(option); }
    QString value(const QString& option) const { return m_options.value(option); }
    // A whole number option; fallback when absent. False with a reason when
    // it is not a number within [minimum, maximum].
    bool number(const QString& option, quint64 fallback, quint64 minimum, quint64 maximum, quint64* out,
                QString* error) const;

private:
    QStringList m_positionals;
    QMap<QString, QString> m_options;
};
