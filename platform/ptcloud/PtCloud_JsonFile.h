#pragma once

#include <QJsonObject>
#include <QString>

namespace ptCloud {

// Small JSON documents (manifests) read whole and written atomically.
class PtCloud_JsonFile {
public:
    static bool read(const QString& path, QJsonObject* out, QString* error);
    static bool write(const QString& path, const QJsonObject& object, QString* error);
};

}  // namespace ptCloud
