#include "AppIcon.h"

namespace AppIcon {

QIcon icon()
{
    QIcon icon;
    for (const int size : { 16, 22, 24, 32, 48, 64, 128, 256 }) {
        icon.addFile(QStringLiteral(":/icons/hicolor/%1x%1/apps/tapwright.png").arg(size), QSize(size, size));
    }
    return icon;
}

} // namespace AppIcon
