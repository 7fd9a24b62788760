#pragma once

#include <QString>

// The marker that tells whether another instance of the program runs for this user: an exclusive
// lock on a file, held from construction until the object goes. The kernel drops the lock when the
// process ends, so a crash leaves no stale marker.
class InstanceLock
{
public:
    // Takes the lock on the file named after name (see markerPath).
    explicit InstanceLock(const QString& name);
    ~InstanceLock();

    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    // True when another holder had the lock already. A marker file that cannot be made counts as
    // no other instance.
    bool alreadyExists() const { return m_alreadyExists; }
    // True while this object holds the lock.
    bool isHeld() const { return m_fd >= 0; }

    // "<name>.lock" in $XDG_RUNTIME_DIR, else "<name>-<uid>.lock" in the temp directory.
    static QString markerPath(const QString& name);

private:
    int m_fd = -1;
    bool m_alreadyExists = false;
};
