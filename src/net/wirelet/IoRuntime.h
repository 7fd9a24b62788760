#pragma once

#include "IoObject.h"

#include <asio.hpp>
#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Velko {
namespace Wirelet {

// The io_context and the threads that run it. Every socket holds its runtime, so the context
// outlives all I/O objects made on it, also when they are released after finalize().
class IoRuntime
{
public:
    static constexpr int kThreadCount = 2;

    // The running runtime, started if none is; never null.
    static std::shared_ptr<IoRuntime> start();
    // The running runtime, or null before initialize() and after finalize().
    static std::shared_ptr<IoRuntime> current();
    static void stop();

    ~IoRuntime();

    asio::io_context& context() { return m_context; }
    bool isStopped() const { return m_stopped.load(); }
    // Waiting on the library's work from one of its own threads could wait for itself.
    static bool isLibraryThread();

    void track(const std::shared_ptr<IoObject>& object);

private:
    IoRuntime();
    void shutDown();

    asio::io_context m_context;
    asio::executor_work_guard<asio::io_context::executor_type> m_workGuard;
    std::vector<std::thread> m_threads;
    std::atomic<bool> m_stopped { false };
    std::mutex m_objectsMutex;
    std::vector<std::weak_ptr<IoObject>> m_objects;
};

} // namespace Wirelet
} // namespace Velko
