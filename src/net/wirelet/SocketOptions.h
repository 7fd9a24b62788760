#pragma once

#include <asio.hpp>

namespace Velko {
namespace Wirelet {

// A camera that loses power or network never closes its connection: probe idle connections so
// such a peer is noticed within about 25 s.
constexpr int kKeepAliveIdleSeconds = 10;
constexpr int kKeepAliveIntervalSeconds = 5;
constexpr int kKeepAliveProbes = 3;

void enableKeepAlive(asio::ip::tcp::socket& socket);

} // namespace Wirelet
} // namespace Velko
