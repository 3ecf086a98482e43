#include "Scene_PointsCloud.h"

#include "PtCloud_Project.h"

Scene_PointsCloud::Scene_PointsCloud() = default;
Scene_PointsCloud::~Scene_PointsCloud() = default;

ptCloud::PtCloud_Project* Scene_PointsCloud::getPointsCloudProject() const { return m_project.get(); }

bool Scene_PointsCloud::openProject(const QString& folder, QString* error)
{
    closeProject();
    auto project = std::make_unique<ptCloud::PtCloud_Project>();
    if (!project->open(folder, error)) return false;
    m_project = std::move(project);
    return true;
}

void Scene_PointsCloud::closeProject() { m_project.reset(); }
