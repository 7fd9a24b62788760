#pragma once

#include <QString>
#include <string>

// Where the program keeps what it writes: its settings (TCPconfig.json, Conf/language.ini) and its
// Log directory. A program directory the user can write to holds them, as a copy unpacked anywhere
// expects; an installed one (under /usr) cannot, so they go to $XDG_CONFIG_HOME/tapwright and
// $XDG_STATE_HOME/tapwright, seeded from the files beside the program.
class DataLocations final
{
public:
    // For the program in programDir. Without a writable programDir the XDG places are made, and the
    // settings files they lack are copied there from programDir; the user's own are kept.
    DataLocations(const QString& programDir, bool programDirWritable);

    // Decided once per process, for the running program's directory.
    static const DataLocations& ofThisProgram();
    // Whether a file can be created in dir. Tried rather than read from the permission bits, which
    // tell root nothing about a read-only mount.
    static bool canWriteIn(const QString& dir);

    bool besideProgram() const { return m_settingsDir == m_programDir; }
    QString configFile() const { return m_settingsDir + QStringLiteral("/TCPconfig.json"); }
    QString languageFile() const { return m_settingsDir + QStringLiteral("/Conf/language.ini"); }
    QString logDirectory() const { return m_logDir; }
    // The log line that names the places and says why, for a program that keeps them elsewhere.
    std::string notice() const;

private:
    QString m_programDir;
    QString m_settingsDir;
    QString m_logDir;
};
