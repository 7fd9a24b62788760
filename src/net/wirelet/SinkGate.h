#pragma once

#include <atomic>
#include <mutex>

namespace Velko {
namespace Wirelet {

// Lets sink operations through one at a time until closed. Closing waits for the one in flight,
// so none is running or starts once close() has returned.
class SinkGate
{
public:
    template <typename Call>
    void pass(Call&& call)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_closed.load()) {
            return;
        }
        const SinkGate* outer = heldByThisThread;
        heldByThisThread = this;
        call();
        heldByThisThread = outer;
    }

    // From inside a sink operation that came through this gate it does not wait for itself.
    void close();
    bool isClosed() const { return m_closed.load(); }

private:
    static inline thread_local const SinkGate* heldByThisThread = nullptr;

    std::mutex m_mutex;
    std::atomic<bool> m_closed { false };
};

} // namespace Wirelet
} // namespace Velko
