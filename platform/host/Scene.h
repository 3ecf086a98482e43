#pragma once

#include "Scene_PointsCloud.h"

// The host's scene: the documents the application has open. Only the point
// cloud part exists here.
class Scene {
public:
    Scene_PointsCloud* getPointsCloud() { return &m_pointsCloud; }

private:
    Scene_PointsCloud m_pointsCloud;
};
