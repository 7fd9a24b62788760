#pragma once

#include <QObject>
#include <QPoint>
#include <QRect>
#include <QSize>

class QWidget;

// Follows the geometry that the window system has reported for a top-level window. Reports
// arrive late: one still queued after the next change would briefly put the widget back where it
// was. Once the report of the latest request has come in, every earlier one has been applied.
class PlatformGeometryProbe final : public QObject
{
    Q_OBJECT

public:
    // Call once the window is shown; it has reported nothing until its next change.
    explicit PlatformGeometryProbe(QWidget* window);

    QRect reported() const { return QRect(m_pos, m_size); }

    // Waits, bounded, until the window system has reported this geometry for the window.
    bool waitFor(const QRect& geometry);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QPoint m_pos;
    QSize m_size;
};
