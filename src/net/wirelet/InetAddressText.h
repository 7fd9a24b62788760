#pragma once

#include <asio.hpp>

namespace Velko {
namespace Wirelet {

// "ip:port" with a dotted IPv4 address and a decimal port 0-65535; false for anything else,
// a null text included.
bool parseInetAddress(const char* text, asio::ip::tcp::endpoint& endpoint);

} // namespace Wirelet
} // namespace Velko
