#pragma once

#include <QPoint>
#include <Qt>

class QWidget;

// Plays a mouse on a real top-level window: every event enters through Qt's window-system input
// path, so child lookup, grabs, propagation to the parent and double clicks work as they do for
// the operator's mouse. Positions are global screen coordinates.
class PointerDriver
{
public:
    explicit PointerDriver(QWidget* window);

    void moveTo(const QPoint& global);
    void press(const QPoint& global, Qt::MouseButton button = Qt::LeftButton);
    void release(const QPoint& global, Qt::MouseButton button = Qt::LeftButton);
    void click(const QPoint& global, Qt::MouseButton button = Qt::LeftButton);

    // Press, release and press again within the double-click interval; the button stays down.
    void doubleClickPress(const QPoint& global, Qt::MouseButton button = Qt::LeftButton);
    void doubleClick(const QPoint& global, Qt::MouseButton button = Qt::LeftButton);

    Qt::MouseButtons buttons() const { return m_buttons; }

private:
    void send(int type, const QPoint& global, Qt::MouseButton button);

    QWidget* m_window;
    Qt::MouseButtons m_buttons;
};
