#include "InstanceLock.h"

#include <QDir>
#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

InstanceLock::InstanceLock(const QString& name)
{
    const QByteArray path = QFile::encodeName(markerPath(name));
    const int fd = open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        return;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
        m_fd = fd;
        return;
    }
    m_alreadyExists = (errno == EWOULDBLOCK);
    close(fd);
}

InstanceLock::~InstanceLock()
{
    if (m_fd >= 0) {
        close(m_fd);
    }
}

QString InstanceLock::markerPath(const QString& name)
{
    const QString runtimeDir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtimeDir.isEmpty()) {
        return runtimeDir + QLatin1Char('/') + name + QStringLiteral(".lock");
    }
    return QDir::tempPath() + QLatin1Char('/') + name + QLatin1Char('-') + QString::number(getuid())
        + QStringLiteral(".lock");
}
