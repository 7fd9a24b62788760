#pragma once

#include <QByteArray>

// The directory of the running program file, in native form and without a trailing separator;
// empty when the kernel does not tell.
QByteArray executableDirectory();
