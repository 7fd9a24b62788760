#include "SinkGate.h"

namespace Velko {
namespace Wirelet {

void SinkGate::close()
{
    if (heldByThisThread == this) {
        m_closed.store(true);
        return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_closed.store(true);
}

} // namespace Wirelet
} // namespace Velko
