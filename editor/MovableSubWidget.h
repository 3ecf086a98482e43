#pragma once

#include <QPoint>
#include <QRect>
#include <QWidget>

class QKeyEvent;
class QMouseEvent;
class QPaintEvent;
class QWheelEvent;

// Base of the floating panels that lie over the 3D view: a frameless child
// that the user drags by its body and resizes by its edges and corners,
// that stays inside its parent while dragged, paints the background of the
// user's skin, and keeps wheel turns and keys from reaching the view below.
class MovableSubWidget : public QWidget {
    Q_OBJECT
public:
    // Where the cursor is: a bit set, corners combining two edges.
    enum ERegion { Region_Inside = 0, Region_Top = 1, Region_Bottom = 2, Region_Left = 4, Region_Right = 8 };

    explicit MovableSubWidget(QWidget* parent);

    // The region under pos for a widget of the given size and resize band.
    static int regionAt(const QSize& size, const QPoint& pos, int border);
    static Qt::CursorShape cursorFor(int region);
    // The position a dragged panel takes: never left of or above the
    // parent's origin, never past its right or bottom edge; when the panel
    // is larger than the parent the right and bottom edges win.
    static QPoint clampedPosition(const QPoint& wanted, const QSize& size, const QSize& parentSize);
    // The geometry after moving the region's edges by displacement from the
    // geometry at the press, each size kept within minimum and maximum with
    // the opposite edge fixed.
    static QRect resizedGeometry(const QRect& pressGeometry, int region, const QPoint& displacement,
                                 const QSize& minimum, const QSize& maximum);

    int activeRegion() const { return m_region; }
    int borderWidth() const { return m_borderWidth; }
    // The background picture of the current skin.
    static QString backgroundPicture();

    // Input that reached the 3D view while this panel is the open tool; a
    // panel that uses the event returns true and the view ignores it.
    virtual bool viewMousePressEvent(QMouseEvent* event);
    virtual bool viewMouseMoveEvent(QMouseEvent* event);
    virtual bool viewKeyPressEvent(QKeyEvent* event);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;

private:
    // Text and fields readable on the skin's background.
    void applySkinPalette();

    QPoint m_pressPos;       // global cursor position at the last left press
    QRect m_pressGeometry;   // geometry at that press
    // Global cursor position at the press minus the panel's position in its
    // parent: the global position minus it is where the panel goes.
    QPoint m_dragOffset;
    int m_borderWidth = 4;
    int m_region = Region_Inside;
};
