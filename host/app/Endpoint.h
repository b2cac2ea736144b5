// The addresses wks-host serves on, as --listen and --http name them.
#pragma once

#include <asio.hpp>
#include <string>

// `text` as an endpoint to bind: [ADDRESS:]PORT or [V6ADDRESS]:PORT, a bare port meaning
// 127.0.0.1. Names are not looked up. False with `error` ("TEXT: why") when it is none.
bool ServerEndpoint(const std::string& text, asio::ip::tcp::endpoint& endpoint, std::string& error);

// Warns, once the endpoint is bound, when other machines can reach it and no token guards it.
void ServerWarnIfOpen(const char* option, const std::string& text, const asio::ip::address& address, bool guarded);
