#include "PointerDriver.h"

#include <QEvent>
#include <QTest>
#include <QWidget>
#include <QWindow>

PointerDriver::PointerDriver(QWidget* window)
    : m_window(window)
    , m_buttons(Qt::NoButton)
{
}

void PointerDriver::moveTo(const QPoint& global)
{
    send(QEvent::MouseMove, global, Qt::NoButton);
}

void PointerDriver::press(const QPoint& global, Qt::MouseButton button)
{
    m_buttons |= button;
    send(QEvent::MouseButtonPress, global, button);
}

void PointerDriver::release(const QPoint& global, Qt::MouseButton button)
{
    m_buttons &= ~Qt::MouseButtons(button);
    send(QEvent::MouseButtonRelease, global, button);
    // The next press must not pair with this click by accident.
    QTest::lastMouseTimestamp += QTest::mouseDoubleClickInterval;
}

void PointerDriver::click(const QPoint& global, Qt::MouseButton button)
{
    press(global, button);
    release(global, button);
}

void PointerDriver::doubleClickPress(const QPoint& global, Qt::MouseButton button)
{
    press(global, button);
    m_buttons &= ~Qt::MouseButtons(button);
    send(QEvent::MouseButtonRelease, global, button);
    press(global, button);
}

void PointerDriver::doubleClick(const QPoint& global, Qt::MouseButton button)
{
    doubleClickPress(global, button);
    release(global, button);
}

void PointerDriver::send(int type, const QPoint& global, Qt::MouseButton button)
{
    QWindow* handle = m_window->windowHandle();
    qt_handleMouseEvent(handle,
                        handle->mapFromGlobal(global),
                        global,
                        m_buttons,
                        button,
                        static_cast<QEvent::Type>(type),
                        Qt::NoModifier,
                        ++QTest::lastMouseTimestamp);
}
