#include "TrayIcon.h"

#include "AppIcon.h"

#include <QAction>
#include <QCoreApplication>
#include <QMenu>
#include <QTimer>
#include <QWidget>

TrayIcon::TrayIcon(QWidget* window)
    : QObject(window)
    , m_window(window)
    , m_icon(nullptr)
    , m_minimizeAction(nullptr)
    , m_minimizeEnabled(false)
{
}

void TrayIcon::startSoon()
{
    QTimer::singleShot(500, this, &TrayIcon::start);
}

void TrayIcon::show()
{
    if (m_icon) {
        m_icon->show();
    }
}

void TrayIcon::hide()
{
    if (m_icon) {
        m_icon->hide();
    }
}

void TrayIcon::setMinimizeEnabled(bool enabled)
{
    m_minimizeEnabled = enabled;
    if (m_minimizeAction) {
        m_minimizeAction->setEnabled(enabled);
    }
}

void TrayIcon::start()
{
    // The window's translations carry the texts; like the window's, they are taken once, here.
    m_icon = new QSystemTrayIcon(this);
    connect(m_icon, &QSystemTrayIcon::activated, this, &TrayIcon::activated);
    m_icon->setIcon(AppIcon::icon());
    m_icon->setToolTip(QCoreApplication::translate("MainWindow", "Serial port Tapwright"));
    m_icon->show();

    auto* menu = new QMenu(m_window);
    connect(menu->addAction(QCoreApplication::translate("MainWindow", "Maximize (&B)")),
            &QAction::triggered,
            this,
            &TrayIcon::maximizeRequested);
    m_minimizeAction = menu->addAction(QCoreApplication::translate("MainWindow", "Minimize (&I)"));
    m_minimizeAction->setEnabled(m_minimizeEnabled);
    connect(m_minimizeAction, &QAction::triggered, this, &TrayIcon::minimizeRequested);
    connect(menu->addAction(QCoreApplication::translate("MainWindow", "Reduction (&R)")),
            &QAction::triggered,
            this,
            &TrayIcon::restoreRequested);
    menu->addSeparator();
    connect(menu->addAction(QCoreApplication::translate("MainWindow", "Quit (&Q)")),
            &QAction::triggered,
            this,
            &TrayIcon::quitRequested);
    m_icon->setContextMenu(menu);
    emit started();
}
