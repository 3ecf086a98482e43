#pragma once

#include <QSet>
#include <QString>

// The rule every new dataset name obeys, so that a name is also a safe
// folder name on every file system and never clashes with a dataset that
// differs only in letter case.
class DataSetNameRule {
public:
    // The trimmed text when it is non-empty, free of \ / : * ? " < > | and
    // unlike every existing name ignoring case; otherwise an empty string.
    static QString accepted(const QString& text, const QSet<QString>& existingNames);
};
