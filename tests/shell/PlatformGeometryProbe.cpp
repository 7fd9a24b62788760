#include "PlatformGeometryProbe.h"

#include <QEvent>
#include <QMoveEvent>
#include <QResizeEvent>
#include <QTest>
#include <QWidget>
#include <QWindow>

PlatformGeometryProbe::PlatformGeometryProbe(QWidget* window)
    : QObject(window)
{
    window->windowHandle()->installEventFilter(this);
}

bool PlatformGeometryProbe::waitFor(const QRect& geometry)
{
    return QTest::qWaitFor([&] { return reported() == geometry; }, 5000);
}

bool PlatformGeometryProbe::eventFilter(QObject* watched, QEvent* event)
{
    // Only the window system's own reports are spontaneous.
    if (event->spontaneous()) {
        if (event->type() == QEvent::Move) {
            m_pos = static_cast<QMoveEvent*>(event)->pos();
        } else if (event->type() == QEvent::Resize) {
            m_size = static_cast<QResizeEvent*>(event)->size();
        }
    }
    return QObject::eventFilter(watched, event);
}
