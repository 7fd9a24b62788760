#include "TrayPresence.h"

#include <QCoreApplication>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QWidget>

TrayPresence::TrayPresence(QWidget* explained, QObject* parent)
    : QObject(parent)
    , m_explained(explained)
    , m_present(QSystemTrayIcon::isSystemTrayAvailable())
    , m_watchTimer(new QTimer(this))
{
    // Qt docks a shown icon in a new tray itself; only the tooltip and a window left in a gone tray follow.
    m_watchTimer->setInterval(1000);
    connect(m_watchTimer, &QTimer::timeout, this, &TrayPresence::check);
    m_watchTimer->start();
}

void TrayPresence::check()
{
    const bool present = QSystemTrayIcon::isSystemTrayAvailable();
    if (present == m_present) {
        return;
    }
    m_present = present;
    if (!present) {
        emit lost();
    }
    retranslate();
}

void TrayPresence::retranslate()
{
    // The window's translations carry the text.
    m_explained->setToolTip(m_present ? QString()
                                      : QCoreApplication::translate("MainWindow",
                                                                    "There is no system tray on this desktop, so "
                                                                    "minimising keeps the window in the task bar."));
}
