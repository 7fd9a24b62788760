#pragma once

#include <QMainWindow>
#include <QPoint>

class QMouseEvent;

// A main window without the system frame that the mouse resizes by its edges and corners.
class MainWindowBase : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindowBase(QWidget* parent = nullptr);

    enum ResizeZone
    {
        ZONE_TOP,
        ZONE_BOTTOM,
        ZONE_LEFT,
        ZONE_RIGHT,
        ZONE_TOP_LEFT,
        ZONE_BOTTOM_LEFT,
        ZONE_BOTTOM_RIGHT,
        ZONE_TOP_RIGHT,
        ZONE_NONE
    };

    // Each band reaches this far inside the edge, both ends included, so it is three pixels wide.
    static constexpr int EDGE_WIDTH = 2;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    void updateResizeZone(const QPoint& globalPos);

    bool m_leftPressed;
    ResizeZone m_resizeZone;
};
