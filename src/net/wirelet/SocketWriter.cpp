#include "SocketWriter.h"

#include <utility>

namespace Velko {
namespace Wirelet {

SocketWriter::SocketWriter(Strand strand, asio::ip::tcp::socket& socket)
    : m_strand(std::move(strand))
    , m_socket(socket)
{
}

int SocketWriter::send(const std::shared_ptr<void>& owner, const void* data, std::uint32_t size)
{
    auto job = std::make_shared<Job>();
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    job->bytes.assign(bytes, bytes + size);
    std::future<void> done = job->done.get_future();

    if (m_strand.running_in_this_thread()) {
        enqueue(owner, job);
        return m_stopped ? -1 : 0;
    }
    asio::post(m_strand, [this, owner, job] { enqueue(owner, job); });
    if (done.wait_for(kWriteLimit) != std::future_status::ready) {
        asio::post(m_strand, [this, owner] {
            asio::error_code ignored;
            m_socket.close(ignored);
        });
        return -1;
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
