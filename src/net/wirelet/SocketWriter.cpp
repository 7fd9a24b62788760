#include "SocketWriter.h"

#include "IoRuntime.h"

#include <utility>

namespace Velko {
namespace Wirelet {

SocketWriter::SocketWriter(Strand strand, asio::ip::tcp::socket& socket)
    : m_strand(std::move(strand))
    , m_socket(socket)
{
}

int SocketWriter::send(const std::shared_ptr<void>& owner,
                       const IoRuntime& runtime,
                       const void* data,
                       std::uint32_t size)
{
    auto job = std::make_shared<Job>();
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    job->bytes.assign(bytes, bytes + size);
    std::future<void> done = job->done.get_future();

    if (m_strand.running_in_this_thread()) {
        enqueue(owner, job);
        return m_stopped ? -1 : 0;
    }
    // Posted while finalize() takes the runtime down, a handler may never run. So it holds the owner
    // weakly, or it would keep the socket and the runtime alive for good (the caller holds it
    // meanwhile), and the wait ends once the runtime has stopped.
    const std::weak_ptr<void> weakOwner = owner;
    asio::post(m_strand, [this, weakOwner, job] {
        if (const std::shared_ptr<void> alive = weakOwner.lock()) {
            enqueue(alive, job);
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + kWriteLimit;
    while (done.wait_for(kStopCheck) != std::future_status::ready) {
        if (runtime.isStopped()) {
            return -1;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            asio::post(m_strand, [this, weakOwner] {
                if (weakOwner.lock()) {
                    asio::error_code ignored;
                    m_socket.close(ignored);
                }
            });
            return -1;
        }
    }
    return job->written.load() ? 0 : -1;
}

void SocketWriter::stop()
{
    m_stopped = true;
    ++m_connection;
    for (const auto& job : m_queue) {
        finish(job, false);
    }
    m_queue.clear();
}

void SocketWriter::restart()
{
    m_stopped = false;
}

void SocketWriter::enqueue(const std::shared_ptr<void>& owner, const std::shared_ptr<Job>& job)
{
    if (m_stopped) {
        finish(job, false);
        return;
    }
    m_queue.push_back(job);
    if (m_queue.size() == 1) {
        writeFront(owner);
    }
}

void SocketWriter::writeFront(const std::shared_ptr<void>& owner)
{
    const unsigned connection = m_connection;
    asio::async_write(
        m_socket,
        asio::buffer(m_queue.front()->bytes),
        asio::bind_executor(m_strand, [this, owner, connection](const asio::error_code& error, std::size_t) {
            if (connection != m_connection) {
                return;
            }
            if (error) {
                stop();
                return;
            }
            finish(m_queue.front(), true);
            m_queue.pop_front();
            if (!m_queue.empty()) {
                writeFront(owner);
            }
        }));
}

void SocketWriter::finish(const std::shared_ptr<Job>& job, bool written)
{
    job->written.store(written);
    job->done.set_value();
}

} // namespace Wirelet
} // namespace Velko
