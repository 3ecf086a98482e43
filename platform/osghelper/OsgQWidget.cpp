#include "OsgQWidget.h"

#include <QOffscreenSurface>
#include <QOpenGLContext>

#include "OsgAxisIndicator.h"
#include "OsgTackballManipulate.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include <cmath>

namespace osgHelper {

namespace {

constexpr double kFieldOfViewY = 30.0;
constexpr double kNear = 1.0;
constexpr double kFar = 10000.0;

unsigned int osgButton(Qt::MouseButton button)
{
    switch (button) {
    case Qt::LeftButton: return 1;
    case Qt::MiddleButton: return 2;
    case Qt::RightButton: return 3;
    default: return 0;
    }
}

int osgKey(const QKeyEvent* event)
{
    using K = osgGA::GUIEventAdapter::KeySymbol;
    switch (event->key()) {
    case Qt::Key_Escape: return K::KEY_Escape;
    case Qt::Key_Tab: return K::KEY_Tab;
    case Qt::Key_Backspace: return K::KEY_BackSpace;
    case Qt::Key_Return: return K::KEY_Return;
    case Qt::Key_Enter: return K::KEY_KP_Enter;
    case Qt::Key_Delete: return K::KEY_Delete;
    case Qt::Key_Home: return K::KEY_Home;
    case Qt::Key_End: return K::KEY_End;
    case Qt::Key_Left: return K::KEY_Left;
    case Qt::Key_Up: return K::KEY_Up;
    case Qt::Key_Right: return K::KEY_Right;
    case Qt::Key_Down: return K::KEY_Down;
    case Qt::Key_PageUp: return K::KEY_Page_Up;
    case Qt::Key_PageDown: return K::KEY_Page_Down;
    case Qt::Key_Shift: return K::KEY_Shift_L;
    case Qt::Key_Control: return K::KEY_Control_L;
    case Qt::Key_Alt: return K::KEY_Alt_L;
    default: break;
    }
    if (event->key() >= Qt::Key_F1 && event->key() <= Qt::Key_F12)
        return K::KEY_F1 + (event->key() - Qt::Key_F1);
    // Printable keys (space included) are their own code, as in OSG.
    const QString text = event->text();
    return text.isEmpty() ? 0 : int(text.at(0).unicode());
}

}  // namespace

OsgQWidget::OsgQWidget(QWidget* parent, bool showAxisIndicator)
    : QOpenGLWidget(parent),
      m_viewer(new osgViewer::Viewer),
      m_window(new osgViewer::GraphicsWindowEmbedded(0, 0, std::max(width(), 1), std::max(height(), 1))),
      m_manipulator(new OsgTackballManipulate),
      m_scene(new osg::Group),
      m_root(new osg::Group),
      m_textGroup(new osg::Group),
      m_coordinationGroup(new osg::Group)
{
    setFocusPolicy(Qt::StrongFocus);

    osg::State* state = m_window->getState();
    state->setUseModelViewAndProjectionUniforms(true);
    state->setUseVertexAttributeAliasing(true);
    m_window->getEventQueue()->getCurrentEventState()->setMouseYOrientation(
        osgGA::GUIEventAdapter::Y_INCREASING_DOWNWARDS);

    osg::Camera* camera = m_viewer->getCamera();
    camera->setGraphicsContext(m_window);
    camera->setViewport(0, 0, m_window->getTraits()->width, m_window->getTraits()->height);
    camera->setProjectionMatrixAsPerspective(
        kFieldOfViewY, double(m_window->getTraits()->width) / m_window->getTraits()->height, kNear, kFar);
    camera->setClearColor(osg::Vec4(0.16f, 0.17f, 0.20f, 1.0f));

    m_root->addChild(m_textGroup);
    m_root->addChild(m_coordinationGroup);
    m_scene->addChild(m_root);
    setAxisIndicatorShown(showAxisIndicator);

    m_viewer->setThreadingModel(osgViewer::ViewerBase::SingleThreaded);
    m_viewer->setKeyEventSetsDone(0);
    m_viewer->setQuitEventSetsDone(false);
    m_viewer->setSceneData(m_scene);
    m_viewer->setCameraManipulator(m_manipulator);
}

OsgQWidget::~OsgQWidget()
{
    // The viewer and its window release their per-context GL state as they
    // go, asking GL about it: give them a current context while the last
    // references are dropped. A view never shown has no context of its own;
    // without one OSG would cache a broken GL state for its context id,
    // which the next view reuses and crashes on.
    QOffscreenSurface surface;
    QOpenGLContext spare;
    if (context()) {
        makeCurrent();
    } else {
        surface.create();
        if (spare.create()) spare.makeCurrent(&surface);
    }
    m_axisIndicator = nullptr;
    m_scene = nullptr;
    m_viewer = nullptr;
    m_window = nullptr;
    if (context())
        doneCurrent();
    else if (spare.isValid())
        spare.doneCurrent();
}

osg::Group* OsgQWidget::getRoot() const { return m_root.get(); }

osgViewer::Viewer* OsgQWidget::getViewer() const { return m_viewer.get(); }

OsgTackballManipulate* OsgQWidget::getManipulate() const { return m_manipulator.get(); }

double OsgQWidget::getPixelScale() const { return devicePixelRatioF(); }

void OsgQWidget::EnterFaceViewManipulate(const osg::Quat& rotation) { fitView(rotation, QRect()); }

void OsgQWidget::fitView(const osg::Quat& rotation, const QRect& area)
{
    const QRect part = area.isEmpty() ? rect() : area.intersected(rect());
    const double w = std::max(1, width()), h = std::max(1, height());
    // Normalized device coordinates run up the screen; widget rows run down.
    const osg::Vec4d ndc(2.0 * part.left() / w - 1.0, 1.0 - 2.0 * (part.bottom() + 1) / h,
                         2.0 * (part.right() + 1) / w - 1.0, 1.0 - 2.0 * part.top() / h);
    m_viewer->requestContinuousUpdate(false);
    m_manipulator->enterView(rotation, std::tan(osg::DegreesToRadians(kFieldOfViewY) * 0.5), w / h, ndc);
    requestRedraw();
}

void OsgQWidget::setOrthographic(bool orthographic)
{
    m_orthographic = orthographic;
    applyProjection();
    requestRedraw();
}

bool OsgQWidget::isOrthographic() const { return m_orthographic; }

double OsgQWidget::pixelSizeAtCentre() const
{
    return 2.0 * m_manipulator->getDistance() * std::tan(osg::DegreesToRadians(kFieldOfViewY) * 0.5) /
           std::max(1, height());
}

void OsgQWidget::setAxisIndicatorShown(bool shown)
{
    if (shown == bool(m_axisIndicator)) return;
    if (shown) {
        m_axisIndicator = new OsgAxisIndicator(m_manipulator.get());
        const osg::Viewport* viewport = m_viewer->getCamera()->getViewport();
        m_axisIndicator->placeInView(int(viewport->width()), int(viewport->height()), getPixelScale());
        m_scene->addChild(m_axisIndicator);
    } else {
        m_scene->removeChild(m_axisIndicator);
        m_axisIndicator = nullptr;
    }
    requestRedraw();
}

void OsgQWidget::EnterTopViewManipulate() { EnterFaceViewManipulate(osg::Quat()); }

void OsgQWidget::viewHome()
{
    m_manipulator->stopMotion();
    m_viewer->home();
    m_manipulator->notifyIfCameraChanged();
    requestRedraw();
}

void OsgQWidget::setHomeBound(const osg::BoundingSphere& bound) { m_manipulator->setHomeBound(bound); }

void OsgQWidget::addTextItem(osg::Node* item)
{
    m_textGroup->addChild(item);
    requestRedraw();
}

void OsgQWidget::addCoordinationItem(osg::Node* item)
{
    m_coordinationGroup->addChild(item);
    requestRedraw();
}

void OsgQWidget::clearTextItem() { clearGroup(m_textGroup.get()); }

void OsgQWidget::clearCoordinationItem() { clearGroup(m_coordinationGroup.get()); }

void OsgQWidget::requestRedraw() { update(); }

void OsgQWidget::onInitialized() {}

void OsgQWidget::onPainted() {}

void OsgQWidget::onResized(int, int) {}

void OsgQWidget::initializeGL()
{
    // OSG picks up the current context when the viewer draws its first
    // frame; there is nothing to set up before that.
    onInitialized();
}

void OsgQWidget::resizeGL(int width, int height)
{
    const double scale = getPixelScale();
    const int w = std::max(1, int(std::lround(width * scale)));
    const int h = std::max(1, int(std::lround(height * scale)));
    m_window->resized(0, 0, w, h);
    eventQueue()->windowResize(0, 0, w, h);
    osg::Camera* camera = m_viewer->getCamera();
    camera->setViewport(0, 0, w, h);
    applyProjection();
    if (m_axisIndicator) m_axisIndicator->placeInView(w, h, scale);
    onResized(width, height);
}

void OsgQWidget::paintGL()
{
    m_window->setDefaultFboId(defaultFramebufferObject());
    // frame() in its steps: an orthographic projection follows the zoom
    // that this frame's events make.
    m_viewer->advance();
    m_viewer->eventTraversal();
    m_viewer->updateTraversal();
    if (m_orthographic) applyProjection();
    m_viewer->renderingTraversals();
    // Changes made outside the trackball's event handling (owners moving the
    // camera directly) show up here.
    m_manipulator->notifyIfCameraChanged();
    onPainted();
    if (m_viewer->getRequestContinousUpdate()) update();
}

void OsgQWidget::mousePressEvent(QMouseEvent* event) { forwardButton(event, osgGA::GUIEventAdapter::PUSH); }

void OsgQWidget::mouseReleaseEvent(QMouseEvent* event) { forwardButton(event, osgGA::GUIEventAdapter::RELEASE); }

void OsgQWidget::mouseDoubleClickEvent(QMouseEvent* event)
{
    forwardButton(event, osgGA::GUIEventAdapter::DOUBLECLICK);
}

void OsgQWidget::mouseMoveEvent(QMouseEvent* event)
{
    setModifiers(event->modifiers());
    const QPointF at = event->localPos() * getPixelScale();
    eventQueue()->mouseMotion(float(at.x()), float(at.y()));
    // A host tracking the mouse for read-outs must not cost a frame for
    // every move; the trackball only acts on drags.
    if (event->buttons() != Qt::NoButton) requestRedraw();
}

void OsgQWidget::wheelEvent(QWheelEvent* event)
{
    const QPoint delta = event->angleDelta();
    if (delta.y() == 0) return;
    setModifiers(event->modifiers());
    eventQueue()->mouseScroll(delta.y() > 0 ? osgGA::GUIEventAdapter::SCROLL_UP
                                            : osgGA::GUIEventAdapter::SCROLL_DOWN);
    requestRedraw();
}

void OsgQWidget::keyPressEvent(QKeyEvent* event) { forwardKey(event, true); }

void OsgQWidget::keyReleaseEvent(QKeyEvent* event) { forwardKey(event, false); }

void OsgQWidget::closeEvent(QCloseEvent* event)
{
    m_manipulator->stopMotion();
    m_viewer->requestContinuousUpdate(false);
    QOpenGLWidget::closeEvent(event);
}

void OsgQWidget::forwardButton(QMouseEvent* event, osgGA::GUIEventAdapter::EventType type)
{
    const unsigned int button = osgButton(event->button());
    if (button == 0) return;
    setModifiers(event->modifiers());
    const QPointF at = event->localPos() * getPixelScale();
    osgGA::EventQueue* queue = eventQueue();
    if (type == osgGA::GUIEventAdapter::PUSH)
        queue->mouseButtonPress(float(at.x()), float(at.y()), button);
    else if (type == osgGA::GUIEventAdapter::RELEASE)
        queue->mouseButtonRelease(float(at.x()), float(at.y()), button);
    else
        queue->mouseDoubleButtonPress(float(at.x()), float(at.y()), button);
    requestRedraw();
}

void OsgQWidget::forwardKey(QKeyEvent* event, bool pressed)
{
    const int key = osgKey(event);
    if (key == 0) return;
    setModifiers(event->modifiers());
    if (pressed)
        eventQueue()->keyPress(key);
    else
        eventQueue()->keyRelease(key);
    requestRedraw();
}

osgGA::EventQueue* OsgQWidget::eventQueue() const { return m_window->getEventQueue(); }

void OsgQWidget::setModifiers(Qt::KeyboardModifiers modifiers)
{
    unsigned int mask = 0;
    if (modifiers & Qt::ShiftModifier) mask |= osgGA::GUIEventAdapter::MODKEY_SHIFT;
    if (modifiers & Qt::ControlModifier) mask |= osgGA::GUIEventAdapter::MODKEY_CTRL;
    if (modifiers & Qt::AltModifier) mask |= osgGA::GUIEventAdapter::MODKEY_ALT;
    eventQueue()->getCurrentEventState()->setModKeyMask(mask);
}

void OsgQWidget::applyProjection()
{
    osg::Camera* camera = m_viewer->getCamera();
    const osg::Viewport* viewport = camera->getViewport();
    const double aspect = viewport->width() / std::max(1.0, viewport->height());
    if (!m_orthographic) {
        camera->setProjectionMatrixAsPerspective(kFieldOfViewY, aspect, kNear, kFar);
        return;
    }
    const double halfHeight = m_manipulator->getDistance() * std::tan(osg::DegreesToRadians(kFieldOfViewY) * 0.5);
    // Near and far are recomputed from the scene each frame; these only
    // give the shape.
    camera->setProjectionMatrixAsOrtho(-halfHeight * aspect, halfHeight * aspect, -halfHeight, halfHeight, kNear,
                                       kFar);
}

void OsgQWidget::clearGroup(osg::Group* group)
{
    group->removeChildren(0, group->getNumChildren());
    requestRedraw();
}

}  // namespace osgHelper
