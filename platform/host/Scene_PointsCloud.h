#pragma once

#include <QString>
#include <memory>

namespace ptCloud {
class PtCloud_Project;
}

// The point-cloud part of the host's scene: owns at most one open project.
class Scene_PointsCloud {
public:
    Scene_PointsCloud();
    ~Scene_PointsCloud();

    // Null while no project is open.
    ptCloud::PtCloud_Project* getPointsCloudProject() const;
    // Opens the project folder, creating it when it does not exist yet; the
    // project open before is closed first.
    bool openProject(const QString& folder, QString* error);
    void closeProject();

private:
    std::unique_ptr<ptCloud::PtCloud_Project> m_project;
};
