#pragma once

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <future>
#include <memory>
#include <vector>

namespace Velko {
namespace Wirelet {

using Strand = asio::strand<asio::io_context::executor_type>;

class IoRuntime;

// The writes of one socket, one async_write at a time in the order they were asked for.
// Everything but send() runs on the socket's strand.
class SocketWriter
{
public:
    // A peer that takes no bytes for this long is treated as gone.
    static constexpr std::chrono::seconds kWriteLimit { 5 };
    // How often a waiting send() looks whether finalize() has stopped the runtime.
    static constexpr std::chrono::milliseconds kStopCheck { 20 };

    SocketWriter(Strand strand, asio::ip::tcp::socket& socket);

    // Waits until every byte is written or the runtime has stopped; owner keeps the socket alive for
    // the handlers. From the socket's own strand the bytes are queued only, since waiting there
    // would wait for itself.
    int send(const std::shared_ptr<void>& owner, const IoRuntime& runtime, const void* data, std::uint32_t size);

    // The connection ended: fail what is queued and take nothing more until restart().
    void stop();
    void restart();

private:
    struct Job
    {
        std::vector<std::uint8_t> bytes;
        std::atomic<bool> written { false };
        std::promise<void> done;
    };

    void enqueue(const std::shared_ptr<void>& owner, const std::shared_ptr<Job>& job);
    void writeFront(const std::shared_ptr<void>& owner);
    void finish(const std::shared_ptr<Job>& job, bool written);

    Strand m_strand;
    asio::ip::tcp::socket& m_socket;
    std::deque<std::shared_ptr<Job>> m_queue;
    bool m_stopped = true;
    // Handlers of a connection that has ended must not touch the queue of the next one.
    unsigned m_connection = 0;
};

} // namespace Wirelet
} // namespace Velko
