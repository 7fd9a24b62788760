#include "InetAddressText.h"

#include <string>

namespace Velko {
namespace Wirelet {

bool parseInetAddress(const char* text, asio::ip::tcp::endpoint& endpoint)
{
    if (!text) {
        return false;
    }
    const std::string address(text);
    const std::size_t colon = address.rfind(':');
    if (colon == std::string::npos) {
        return false;
    }
    const std::string portText = address.substr(colon + 1);
    if (portText.empty() || portText.size() > 5) {
        return false;
    }
    unsigned long port = 0;
    for (const char c : portText) {
        if (c < '0' || c > '9') {
            return false;
        }
        port = port * 10 + static_cast<unsigned long>(c - '0');
    }
    if (port > 65535) {
        return false;
    }
    asio::error_code error;
    const asio::ip::address_v4 ip = asio::ip::make_address_v4(address.substr(0, colon), error);
    if (error) {
        return false;
    }
    endpoint = asio::ip::tcp::endpoint(ip, static_cast<unsigned short>(port));
    return true;
}

} // namespace Wirelet
} // namespace Velko
