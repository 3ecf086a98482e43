#pragma once

#include <QList>
#include <QWidget>

#include "PointColors.h"

class PtCloudWidget;

// The key to the shown dataset's colours in the view's top-right corner:
// the classes present with their ASPRS names, or the height or intensity
// ramp with the values at its ends and middle (heights absolute). Hidden
// for the other modes and when no dataset is shown.
class StudioColourLegend : public QWidget {
    Q_OBJECT
public:
    explicit StudioColourLegend(PtCloudWidget* view);

    // Follows the shown dataset's colouring; repaints only on a change.
    void refresh();

protected:
    void paintEvent(QPaintEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void place();

    PtCloudWidget* m_view;
    PointColoring m_coloring;
    QList<int> m_classes;
    double m_originZ = 0.0;
};
