#pragma once

#include <QIcon>

namespace AppIcon {

// The program's icon at every size it is drawn in, so that the window, the task bar and the tray
// each take a sharp image instead of a scaled one.
QIcon icon();

} // namespace AppIcon
