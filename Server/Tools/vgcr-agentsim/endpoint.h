// Where the simulator sends its requests: an http:// URL, resolved once.
#pragma once

#include <sys/socket.h>

#include <string>

namespace agentsim {

struct Endpoint {
  std::string authority;  // HOST:PORT as written in the URL, for the Host header
  std::string host;
  std::string port;
  std::string path;  // the extension's path, without a query
  sockaddr_storage address{};
  socklen_t addressLength = 0;
};

// Splits "http://HOST[:PORT]/PATH" and resolves HOST; false with `error`.
bool ParseUrl(const std::string& url, Endpoint* endpoint, std::string* error);
bool Resolve(Endpoint* endpoint, std::string* error);

}  // namespace agentsim
