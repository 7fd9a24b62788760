#include "ProgramDirectory.h"

#include <limits.h>
#include <unistd.h>

QByteArray executableDirectory()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    if (length <= 0) {
        return QByteArray();
    }
    const QByteArray file(path, static_cast<int>(length));
    const int separator = file.lastIndexOf('/');
    if (separator < 0) {
        return QByteArray();
    }
    // A program in the root directory keeps the root itself.
    return separator == 0 ? QByteArray("/") : file.left(separator);
}
