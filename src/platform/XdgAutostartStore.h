#pragma once

#include "AutostartStore.h"

#include <QString>

// Programs started at logon as XDG autostart entries: one desktop entry per name in
// $XDG_CONFIG_HOME/autostart (default ~/.config/autostart), whose Exec holds the program's path.
// An entry that the desktop has switched off (Hidden, X-GNOME-Autostart-enabled=false) counts as
// absent, so a tick in the window turns it on again.
class XdgAutostartStore : public AutostartStore
{
public:
    XdgAutostartStore();

    bool contains(const QString& name) const override;
    QString value(const QString& name) const override;
    void setValue(const QString& name, const QString& path) override;
    void remove(const QString& name) override;

    // Where the entry for this name lives; empty for a name that cannot be a file name.
    QString entryPath(const QString& name) const;

    // The Exec value that starts this program with no arguments.
    static QString execValue(const QString& path);
    // The program of an Exec value: its first argument, unquoted; empty when it does not parse.
    static QString programOfExec(const QString& exec);

private:
    QString m_directory;
};
