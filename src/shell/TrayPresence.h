#pragma once

#include <QObject>

class QTimer;
class QWidget;

// Whether the desktop has a system tray. A panel may bring its tray after the program (at logon) or
// take it away, so the answer is looked at again every second and on demand.
class TrayPresence : public QObject
{
    Q_OBJECT

public:
    // explained: the widget whose tooltip says, while there is no tray, why minimising stays in the task bar.
    TrayPresence(QWidget* explained, QObject* parent);

    bool present() const { return m_present; }
    // Sets the tooltip again in the current language.
    void retranslate();

signals:
    void lost();

public slots:
    void check();

private:
    QWidget* m_explained;
    bool m_present;
    QTimer* m_watchTimer;
};
