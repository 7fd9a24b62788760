#include "MainWindowBase.h"

#include <QMouseEvent>
#include <QRect>
#include <QWindow>

namespace {

Qt::Edges edgesOf(MainWindowBase::ResizeZone zone)
{
    switch (zone) {
    case MainWindowBase::ZONE_TOP:
        return Qt::TopEdge;
    case MainWindowBase::ZONE_BOTTOM:
        return Qt::BottomEdge;
    case MainWindowBase::ZONE_LEFT:
        return Qt::LeftEdge;
    case MainWindowBase::ZONE_RIGHT:
        return Qt::RightEdge;
    case MainWindowBase::ZONE_TOP_LEFT:
        return Qt::TopEdge | Qt::LeftEdge;
    case MainWindowBase::ZONE_BOTTOM_LEFT:
        return Qt::BottomEdge | Qt::LeftEdge;
    case MainWindowBase::ZONE_BOTTOM_RIGHT:
        return Qt::BottomEdge | Qt::RightEdge;
    case MainWindowBase::ZONE_TOP_RIGHT:
        return Qt::TopEdge | Qt::RightEdge;
    case MainWindowBase::ZONE_NONE:
        break;
    }
    return {};
}

} // namespace

MainWindowBase::MainWindowBase(QWidget* parent)
    : QMainWindow(parent)
    , m_leftPressed(false)
    , m_resizeZone(ZONE_NONE)
{
    setAutoFillBackground(true);
    setMouseTracking(true);
    // Replaces every other flag: the window draws no system frame at all.
    setWindowFlags(Qt::FramelessWindowHint);
}

void MainWindowBase::updateResizeZone(const QPoint& globalPos)
{
    const QPoint topLeft = mapToGlobal(rect().topLeft());
    const QPoint bottomRight = mapToGlobal(rect().bottomRight());
    const int x = globalPos.x();
    const int y = globalPos.y();

    const bool nearLeft = topLeft.x() <= x && x <= topLeft.x() + EDGE_WIDTH;
    const bool nearRight = bottomRight.x() - EDGE_WIDTH <= x && x <= bottomRight.x();
    const bool nearTop = topLeft.y() <= y && y <= topLeft.y() + EDGE_WIDTH;
    const bool nearBottom = bottomRight.y() - EDGE_WIDTH <= y && y <= bottomRight.y();

    Qt::CursorShape shape = Qt::ArrowCursor;
    if (nearLeft && nearTop) {
        m_resizeZone = ZONE_TOP_LEFT;
        shape = Qt::SizeFDiagCursor;
    } else if (nearRight && nearBottom) {
        m_resizeZone = ZONE_BOTTOM_RIGHT;
        shape = Qt::SizeFDiagCursor;
    } else if (nearLeft && nearBottom) {
        m_resizeZone = ZONE_BOTTOM_LEFT;
        shape = Qt::SizeBDiagCursor;
    } else if (nearRight && nearTop) {
        m_resizeZone = ZONE_TOP_RIGHT;
        shape = Qt::SizeBDiagCursor;
    } else if (nearLeft) {
        m_resizeZone = ZONE_LEFT;
        shape = Qt::SizeHorCursor;
    } else if (nearRight) {
        m_resizeZone = ZONE_RIGHT;
        shape = Qt::SizeHorCursor;
    } else if (nearTop) {
        m_resizeZone = ZONE_TOP;
        shape = Qt::SizeVerCursor;
    } else if (nearBottom) {
        m_resizeZone = ZONE_BOTTOM;
        shape = Qt::SizeVerCursor;
    } else {
        m_resizeZone = ZONE_NONE;
    }
    setCursor(shape);
}

void MainWindowBase::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_leftPressed = true;
        updateResizeZone(event->globalPos());
        if (m_resizeZone != ZONE_NONE) {
            if (windowHandle() && windowHandle()->startSystemResize(edgesOf(m_resizeZone))) {
                // The window manager (or the Wayland compositor) resizes, and keeps the release.
                m_leftPressed = false;
                m_resizeZone = ZONE_NONE;
            } else {
                // Keeps the moves coming while the pointer runs ahead of the edge it drags.
                grabMouse();
            }
        }
    }
    QWidget::mousePressEvent(event);
}

void MainWindowBase::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_leftPressed = false;
        if (m_resizeZone != ZONE_NONE) {
            releaseMouse();
            setCursor(Qt::ArrowCursor);
            m_resizeZone = ZONE_NONE;
        }
    }
    QWidget::mouseReleaseEvent(event);
}

void MainWindowBase::mouseMoveEvent(QMouseEvent* event)
{
    const QPoint global = event->globalPos();
    const QPoint topLeft = mapToGlobal(rect().topLeft());
    const QPoint bottomRight = mapToGlobal(rect().bottomRight());

    // Only the left button alone drags; any other pattern is a hover and follows the pointer.
    if (event->buttons() != Qt::LeftButton) {
        updateResizeZone(global);
    } else if (m_resizeZone != ZONE_NONE) {
        QRect geometry(topLeft, bottomRight);

        // An edge that would leave less than the minimum stays where it is rather than jumping.
        const auto moveLeftEdge
            = [&] { geometry.setX(bottomRight.x() - global.x() > minimumWidth() ? global.x() : topLeft.x()); };
        const auto moveTopEdge
            = [&] { geometry.setY(bottomRight.y() - global.y() > minimumHeight() ? global.y() : topLeft.y()); };
        const auto moveRightEdge = [&] { geometry.setWidth(global.x() - topLeft.x()); };
        const auto moveBottomEdge = [&] { geometry.setHeight(global.y() - topLeft.y()); };

        switch (m_resizeZone) {
        case ZONE_TOP:
            moveTopEdge();
            break;
        case ZONE_BOTTOM:
            moveBottomEdge();
            break;
        case ZONE_LEFT:
            moveLeftEdge();
            break;
        case ZONE_RIGHT:
            moveRightEdge();
            break;
        case ZONE_TOP_LEFT:
            moveLeftEdge();
            moveTopEdge();
            break;
        case ZONE_BOTTOM_LEFT:
            moveLeftEdge();
            moveBottomEdge();
            break;
        case ZONE_BOTTOM_RIGHT:
            moveRightEdge();
            moveBottomEdge();
            break;
        case ZONE_TOP_RIGHT:
            moveRightEdge();
            moveTopEdge();
            break;
        case ZONE_NONE:
            break;
        }

        setGeometry(geometry);
        if (parentWidget() != nullptr) {
            parentWidget()->update();
        }
    }
    QWidget::mouseMoveEvent(event);
}
