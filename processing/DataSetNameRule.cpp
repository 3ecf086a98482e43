#include "DataSetNameRule.h"

QString DataSetNameRule::accepted(const QString& text, const QSet<QString>& existingNames)
{
    static const QString kForbidden = QStringLiteral("\\/:*?\"<>|");
    const QString name = text.trimmed();
    if (name.isEmpty()) return QString();
    for (const QChar c : name)
        if (kForbidden.contains(c)) return QString();
    for (const QString& existing : existingNames)
        if (existing.compare(name, Qt::CaseInsensitive) == 0) return QString();
    return name;
}
