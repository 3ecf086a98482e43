#pragma once

#include <QWidget>

#include "OsgTackballManipulate_monitor.h"

namespace osgHelper {
class OsgQWidget;
}

// A scale bar in the view's bottom-right corner: a round length in metres
// (1, 2 or 5 times a power of ten) that spans at most a fifth of the view at
// the orbit centre's distance, redrawn as the camera moves. It lets mouse
// events through to the view.
class StudioScaleBar : public QWidget, public osgHelper::OsgTackballManipulate_monitor {
    Q_OBJECT
public:
    explicit StudioScaleBar(osgHelper::OsgQWidget* view);
    ~StudioScaleBar() override;

    void onCameraChanged() override;

    // The longest round length (1, 2 or 5 times a power of ten) not above
    // the given length; 0 for lengths that are not positive and finite.
    static double roundLength(double atMost);

protected:
    void paintEvent(QPaintEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void place();

    osgHelper::OsgQWidget* m_view;
};
