#pragma once

#include <QMultiMap>
#include <QString>
#include <QTranslator>

// Records the context of every text looked up while it is installed, and
// translates nothing: lets a test check which context a text is looked up in.
class RecordingTranslator : public QTranslator {
public:
    QString translate(const char* context, const char* sourceText, const char*, int) const override
    {
        seen.insert(QString::fromUtf8(sourceText), QString::fromUtf8(context));
        return QString();
    }
    bool isEmpty() const override { return false; }

    mutable QMultiMap<QString, QString> seen;  // text -> contexts
};
