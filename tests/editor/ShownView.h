#pragma once

#include <QSize>
#include <initializer_list>
#include <memory>
#include <utility>

#include "TestProject.h"

class PtCloudScene;
class PtCloudWidget;

// A PtCloudWidget on screen with its GL context made. Tests never drop a
// view that was not shown: a view destroyed before it had a context leaves
// OSG with broken GL entry points for the next view's context.
class ShownView {
public:
    static std::unique_ptr<PtCloudWidget> create(const QSize& size = QSize(640, 480));
};

// A project of grid datasets, opened in a shown view once the test has
// added what it wants before the scene opens.
class ShownProject {
public:
    // Opens the project with n x n grid datasets of these names.
    bool make(std::initializer_list<std::pair<const char*, int>> grids,
              const ptCloud::pcVec3d& origin = ptCloud::pcVec3d(0, 0, 0));
    bool show(const QSize& size = QSize(640, 480));

    TestProject project;
    std::unique_ptr<PtCloudWidget> view;
    PtCloudScene* scene = nullptr;
};
