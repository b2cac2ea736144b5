#include "host/app/Endpoint.h"

#include "host/app/Server.h"

bool ServerEndpoint(const std::string& text, asio::ip::tcp::endpoint& endpoint, std::string& error) {
    std::string address = "127.0.0.1", portText = text;
    if (!text.empty() && text.front() == '[') {
        const size_t close = text.find("]:");
        if (close == std::string::npos) portText.clear();
        else address = text.substr(1, close - 1), portText = text.substr(close + 2);
    } else if (const size_t colon = text.rfind(':'); colon != std::string::npos) {
        address = text.substr(0, colon);
        portText = text.substr(colon + 1);
    }
    if (address.empty() || portText.empty() || portText.size() > 5 ||
        portText.find_first_not_of("0123456789") != std::string::npos || std::stoul(portText) > 65535)
        return error = text + ": not [ADDRESS:]PORT", false;
    asio::error_code problem;
    const asio::ip::address ip = asio::ip::make_address(address, problem);
    if (problem)
        return error = text + ": '" + address + "' is not an IP address (names are not looked up)", false;
    endpoint = asio::ip::tcp::endpoint(ip, static_cast<uint16_t>(std::stoul(portText)));
    return true;
}

void ServerWarnIfOpen(const char* option, const std::string& text, const asio::ip::address& address, bool guarded) {
    if (!address.is_loopback() && !guarded)
        ServerLog(LogLevel::kWarn, "%s %s is reachable from other machines and no --auth-file is set: anyone who can "
                  "connect can drive the workspace", option, text.c_str());
}
