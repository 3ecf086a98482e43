#include "ShownView.h"

#include <QtTest>

#include "PtCloudWidget.h"

std::unique_ptr<PtCloudWidget> ShownView::create(const QSize& size)
{
    auto view = std::make_unique<PtCloudWidget>();
    view->resize(size);
    view->show();
    if (!QTest::qWaitForWindowExposed(view.get())) return nullptr;
    // The first frame makes the context and installs the point program.
    QTest::qWait(50);
    return view;
}

bool ShownProject::make(std::initializer_list<std::pair<const char*, int>> grids, const ptCloud::pcVec3d& origin)
{
    if (!project.open()) return false;
    for (const auto& grid : grids)
        if (!project.addGridDataSet(QString::fromLatin1(grid.first), grid.second, origin)) return false;
    return true;
}

bool ShownProject::show(const QSize& size)
{
    view = ShownView::create(size);
    if (!view) return false;
    view->onSceneOpened(project.scene());
    scene = view->ptCloudScene();
    return true;
}
