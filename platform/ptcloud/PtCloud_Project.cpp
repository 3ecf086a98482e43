#include "PtCloud_Project.h"

#include <QDir>

#include "PtCloud_Controller.h"

namespace ptCloud {

PtCloud_Project::PtCloud_Project() = default;
PtCloud_Project::~PtCloud_Project() = default;

QString PtCloud_Project::manifestFileName() { return QStringLiteral("project.json"); }

bool PtCloud_Project::open(const QString& folder, QString* error)
{
    if (folder.isEmpty()) {
        if (error) *error = QStringLiteral("no project folder given");
        return false;
    }
    if (!QDir().mkpath(folder)) {
        if (error) *error = QStringLiteral("cannot create project folder %1").arg(folder);
        return false;
    }
    auto controller = std::make_unique<PtCloud_Controller>(folder);
    if (!controller->load(error)) return false;
    m_controller = std::move(controller);
    return true;
}

bool PtCloud_Project::isOpen() const { return bool(m_controller); }

QString PtCloud_Project::getFolder() const { return m_controller ? m_controller->projectFolder() : QString(); }

PtCloud_Controller* PtCloud_Project::getController() const { return m_controller.get(); }

}  // namespace ptCloud
