#pragma once

#include <QOpenGLWidget>
#include <QRect>

#include <osg/BoundingSphere>
#include <osg/Group>
#include <osg/Quat>
#include <osg/ref_ptr>
#include <osgViewer/GraphicsWindow>
#include <osgViewer/Viewer>

class QCloseEvent;
class QKeyEvent;
class QMouseEvent;
class QWheelEvent;

namespace osgHelper {

class OsgAxisIndicator;
class OsgTackballManipulate;

// A 3D view: an OSG viewer, single threaded, drawing into this widget through
// an embedded graphics window, with a trackball for the camera.
//
// Context settings that the scene's GLSL programs rely on:
// - The context keeps Qt's default request, which gives a compatibility
//   profile. OSG here is a GL2 build: in a core profile it would need vertex
//   array objects and osgText would draw boxes. Anyone asking for an explicit
//   3.3 context must add QSurfaceFormat::DeprecatedFunctions for that reason.
// - The window's osg::State has vertex attribute aliasing and model-view and
//   projection uniforms switched on. A "#version 330 core" program therefore
//   reads osg_Vertex at location 0, osg_Normal at 1 and osg_Color at 2, and
//   gets osg_ModelViewProjectionMatrix (with osg_ModelViewMatrix,
//   osg_ProjectionMatrix, osg_NormalMatrix). Colours do not reach
//   fixed-function drawing: everything drawn needs such a program.
// - Each frame renders into the widget's framebuffer object, whose id changes
//   when the widget is resized; the camera's draw buffer is left unset so
//   that OSG does not select a buffer of the window instead.
// - Viewports, sizes and mouse positions given to OSG are in device pixels:
//   logical pixels times getPixelScale().
//
// Frames are drawn on demand only: after an input event, while the camera is
// thrown, and when an owner calls requestRedraw() after changing the scene.
// The widget must stay in the top-level window it was first shown in: its
// GL objects belong to that window's context.
class OsgQWidget : public QOpenGLWidget {
    Q_OBJECT

public:
    // showAxisIndicator: draw the turning x/y/z axes in the bottom-left
    // corner (the studio wants them; an embedding editor may not).
    OsgQWidget(QWidget* parent, bool showAxisIndicator);
    ~OsgQWidget() override;

    // The owners' scene. Its first two children are the text and the
    // coordination groups below; owners add and remove the rest.
    osg::Group* getRoot() const;
    osgViewer::Viewer* getViewer() const;
    OsgTackballManipulate* getManipulate() const;
    // Device pixels per logical pixel.
    double getPixelScale() const;

    // Frames the home bound (or the scene) from the given camera orientation;
    // the identity is the top view (see OsgTackballManipulate).
    void EnterFaceViewManipulate(const osg::Quat& rotation);
    // The same inside a part of the view (logical pixels, rows from the
    // top), such as what a floating panel leaves free; an empty rectangle
    // means the whole view.
    void fitView(const osg::Quat& rotation, const QRect& area);
    // Looks straight down -z with +y up on the screen.
    void EnterTopViewManipulate();
    // The trackball's home view: along +y with +z up, framing the home bound.
    void viewHome();
    // The sphere the home, face and top views frame; an invalid sphere means
    // the bound of the scene.
    void setHomeBound(const osg::BoundingSphere& bound);

    // Orthographic: a parallel projection whose height follows the
    // trackball's distance (it frames what the perspective frames at the
    // orbit centre), so zooming works alike in both.
    void setOrthographic(bool orthographic);
    bool isOrthographic() const;
    // The length in scene units that one logical pixel spans at the orbit
    // centre's distance; what a scale bar shows.
    double pixelSizeAtCentre() const;
    void setAxisIndicatorShown(bool shown);

    // Labels and axis items (such as those of a profile view) have groups of
    // their own so that they can be cleared without touching the scene.
    void addTextItem(osg::Node* item);
    void addCoordinationItem(osg::Node* item);
    void clearTextItem();
    void clearCoordinationItem();

public slots:
    // Draws a frame soon; owners call it after changing the scene.
    void requestRedraw();

protected:
    // The GL context exists (it is current).
    virtual void onInitialized();
    // A frame has just been drawn (the context is current).
    virtual void onPainted();
    // The widget's new size, in logical pixels.
    virtual void onResized(int width, int height);

    void initializeGL() override;
    void resizeGL(int width, int height) override;
    void paintGL() override;

    // Camera handling: the events go to the trackball. Subclasses that use
    // some events themselves call these for the rest.
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    // Stops a throw so that a closed view draws nothing more.
    void closeEvent(QCloseEvent* event) override;

private:
    // type: PUSH, RELEASE or DOUBLECLICK.
    void forwardButton(QMouseEvent* event, osgGA::GUIEventAdapter::EventType type);
    void forwardKey(QKeyEvent* event, bool pressed);
    osgGA::EventQueue* eventQueue() const;
    void setModifiers(Qt::KeyboardModifiers modifiers);
    void clearGroup(osg::Group* group);
    // From the view's size in device pixels, and in orthographic mode from
    // the trackball's distance.
    void applyProjection();

    osg::ref_ptr<osgViewer::Viewer> m_viewer;
    osg::ref_ptr<osgViewer::GraphicsWindowEmbedded> m_window;
    osg::ref_ptr<OsgTackballManipulate> m_manipulator;
    osg::ref_ptr<osg::Group> m_scene;
    osg::ref_ptr<osg::Group> m_root;
    osg::ref_ptr<osg::Group> m_textGroup;
    osg::ref_ptr<osg::Group> m_coordinationGroup;
    osg::ref_ptr<OsgAxisIndicator> m_axisIndicator;
    bool m_orthographic = false;
};

}  // namespace osgHelper
