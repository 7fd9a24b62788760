#include "IoRuntime.h"

#include <algorithm>

namespace Velko {
namespace Wirelet {

namespace {

std::mutex runningMutex;
std::shared_ptr<IoRuntime> running;
thread_local bool onLibraryThread = false;

} // namespace

IoRuntime::IoRuntime()
    : m_workGuard(asio::make_work_guard(m_context))
{
    for (int i = 0; i < kThreadCount; ++i) {
        m_threads.emplace_back([this] {
            onLibraryThread = true;
            m_context.run();
        });
    }
}

IoRuntime::~IoRuntime()
{
    shutDown();
}

std::shared_ptr<IoRuntime> IoRuntime::start()
{
    std::lock_guard<std::mutex> lock(runningMutex);
    if (!running) {
        // The last holder can let go in a handler, on a library thread that cannot wait for
        // itself to end; another thread then takes the runtime down.
        running.reset(new IoRuntime, [](IoRuntime* runtime) {
            if (onLibraryThread) {
                std::thread([runtime] { delete runtime; }).detach();
            } else {
                delete runtime;
            }
        });
    }
    return running;
}

std::shared_ptr<IoRuntime> IoRuntime::current()
{
    std::lock_guard<std::mutex> lock(runningMutex);
    return running;
}

void IoRuntime::stop()
{
    // A library thread cannot join itself; finalize() belongs to the program's own threads.
    if (onLibraryThread) {
        return;
    }
    std::shared_ptr<IoRuntime> runtime;
    {
        std::lock_guard<std::mutex> lock(runningMutex);
        runtime.swap(running);
    }
    if (!runtime) {
        return;
    }
    runtime->shutDown();

    std::vector<std::shared_ptr<IoObject>> alive;
    {
        std::lock_guard<std::mutex> lock(runtime->m_objectsMutex);
        for (const auto& weak : runtime->m_objects) {
            if (auto object = weak.lock()) {
                alive.push_back(std::move(object));
            }
        }
        runtime->m_objects.clear();
    }
    for (const auto& object : alive) {
        object->abandon();
    }
    alive.clear();

    // The handlers of the closed sockets still hold their objects: run them out here, where every
    // one of them finds its object ended, so that nothing is left holding the runtime.
    runtime->m_context.restart();
    runtime->m_context.poll();
}

bool IoRuntime::isLibraryThread()
{
    return onLibraryThread;
}

void IoRuntime::track(const std::shared_ptr<IoObject>& object)
{
    std::lock_guard<std::mutex> lock(m_objectsMutex);
    m_objects.erase(std::remove_if(m_objects.begin(),
                                   m_objects.end(),
                                   [](const std::weak_ptr<IoObject>& weak) { return weak.expired(); }),
                    m_objects.end());
    m_objects.push_back(object);
}

void IoRuntime::shutDown()
{
    if (m_stopped.exchange(true)) {
        return;
    }
    m_workGuard.reset();
    m_context.stop();
    for (auto& thread : m_threads) {
        thread.join();
    }
    m_threads.clear();
}

} // namespace Wirelet
} // namespace Velko
