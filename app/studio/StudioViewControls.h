#pragma once

#include <QObject>
#include <QPoint>
#include <QTimer>

class PtCloudWidget;
class QAction;
class QLabel;
class QMenu;
class StudioColourLegend;
class StudioScaleBar;

// The studio's view commands and read-outs, driven through the view and its
// trackball (the component's fixed view commands stay unsupported): the
// View menu (home, the six standard views, perspective or orthographic, the
// axes and the scale bar), and the absolute coordinates of the point under
// the cursor for a status bar label.
class StudioViewControls : public QObject {
    Q_OBJECT
public:
    // coordinates: the label that shows the point under the cursor.
    StudioViewControls(PtCloudWidget* view, QLabel* coordinates);

    // Fills the menu with the view commands, each with its shortcut.
    void fillMenu(QMenu* menu);
    // Brings the legend in step with the shown dataset.
    void refresh();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Picks the point under the last cursor position.
    void showPointUnderCursor();
    // The modes the shown dataset allows are enabled, its own is checked.
    void updateColourMenu(QMenu* menu);

    PtCloudWidget* m_view;
    QLabel* m_coordinates;
    StudioScaleBar* m_scaleBar;
    StudioColourLegend* m_legend;
    QPoint m_cursor;
    // Picking reads a block: at most one pick per interval however fast the
    // mouse moves.
    QTimer m_pickThrottle;
};
