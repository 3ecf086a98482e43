#include "PtCloud_JsonFile.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>

#include "PtCloud_FileCommit.h"

namespace ptCloud {

bool PtCloud_JsonFile::read(const QString& path, QJsonObject* out, QString* error)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        if (error) *error = QStringLiteral("cannot read %1: %2").arg(path, f.errorString());
        return false;
    }
    QJsonParseError perr;
    const QJsonDocument doc = QJsonDocument::fromJson(f.readAll(), &perr);
    if (perr.error != QJsonParseError::NoError || !doc.isObject()) {
        if (error) *error = QStringLiteral("%1 is not a valid manifest: %2").arg(path, perr.errorString());
        return false;
    }
    *out = doc.object();
    return true;
}

bool PtCloud_JsonFile::write(const QString& path, const QJsonObject& object, QString* error)
{
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly)) {
        if (error) *error = QStringLiteral("cannot write %1: %2").arg(path, f.errorString());
        return false;
    }
    const QByteArray data = QJsonDocument(object).toJson(QJsonDocument::Indented);
    if (f.write(data) != data.size()) {
        if (error) *error = PtCloud_FileCommit::writeFailure(f);
        return false;
    }
    return PtCloud_FileCommit::commit(f, error);
}

}  // namespace ptCloud
