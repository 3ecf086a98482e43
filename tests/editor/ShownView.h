#pragma once

#include <QSize>
#include <memory>

class PtCloudWidget;

// A PtCloudWidget on screen with its GL context made. Tests never drop a
// view that was not shown: a view destroyed before it had a context leaves
// OSG with broken GL entry points for the next view's context.
class ShownView {
public:
    static std::unique_ptr<PtCloudWidget> create(const QSize& size = QSize(640, 480));
};
