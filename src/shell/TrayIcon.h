#pragma once

#include <QObject>
#include <QSystemTrayIcon>

class QAction;
class QWidget;

// The program's icon in the system tray and its menu. Both come half a second after the window, so
// that the window is up before the tray is asked for anything.
class TrayIcon : public QObject
{
    Q_OBJECT

public:
    // The menu is the window's child, as the style sheet and the window tests find it.
    explicit TrayIcon(QWidget* window);

    // Puts the icon up half a second from now; the window calls it once it is built.
    void startSoon();
    bool isVisible() const { return m_icon && m_icon->isVisible(); }
    void show();
    void hide();
    // The menu's minimise entry only works while minimising goes to the tray.
    void setMinimizeEnabled(bool enabled);

signals:
    // The icon and its menu are up.
    void started();
    void activated(QSystemTrayIcon::ActivationReason reason);
    void maximizeRequested();
    void minimizeRequested();
    void restoreRequested();
    void quitRequested();

private:
    void start();

    QWidget* m_window;
    // Made when it comes up, not before: until then the tray is not asked for anything.
    QSystemTrayIcon* m_icon;
    QAction* m_minimizeAction;
    bool m_minimizeEnabled;
};
