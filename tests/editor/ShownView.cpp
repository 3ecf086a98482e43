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
