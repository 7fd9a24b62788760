#include "Wirelet.h"

#include "IoRuntime.h"

namespace Velko {
namespace Wirelet {

bool initialize()
{
    return IoRuntime::start() != nullptr;
}

void finalize()
{
    IoRuntime::stop();
}

} // namespace Wirelet
} // namespace Velko
