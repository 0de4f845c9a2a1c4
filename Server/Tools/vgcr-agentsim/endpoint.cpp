#include "endpoint.h"

#include <netdb.h>

#include <cstring>

namespace agentsim {

bool ParseUrl(const std::string& url, Endpoint* endpoint, std::string* error) {
  const std::string scheme = "http://";
  if (url.compare(0, scheme.size(), scheme) != 0) {
    *error = "the URL must start with http:// (" + url + ")";
    return false;
  }
  const std::size_t slash = url.find('/', scheme.size());
  const std::string authority = url.substr(scheme.size(), slash - scheme.size());
  endpoint->authority = authority;
  endpoint->path = slash == std::string::npos ? "/" : url.substr(slash);
  if (endpoint->path.find_first_of("?# \r\n") != std::string::npos) {
    *error = "the URL's path must have no query, fragment or spaces";
    return false;
  }
  std::size_t colon = authority.rfind(':');
  if (!authority.empty() && authority.front() == '[') {  // [IPv6]:port
    const std::size_t close = authority.find(']');
    if (close == std::string::npos) colon = std::string::npos;
    else colon = authority.find(':', close);
    endpoint->host = authority.substr(1, (close == std::string::npos ? authority.size() : close) - 1);
  } else {
    endpoint->host = authority.substr(0, colon);
  }
  endpoint->port = colon == std::string::npos ? "80" : authority.substr(colon + 1);
  if (endpoint->host.empty() || endpoint->port.empty() ||
      endpoint->port.find_first_not_of("0123456789") != std::string::npos || endpoint->port.size() > 5) {
    *error = "the URL needs a host and a numeric port (" + url + ")";
    return false;
  }
  return true;
}

bool Resolve(Endpoint* endpoint, std::string* error) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int rc = ::getaddrinfo(endpoint->host.c_str(), endpoint->port.c_str(), &hints, &found);
  if (rc != 0 || found == nullptr) {
    *error = "cannot resolve " + endpoint->host + ": " + ::gai_strerror(rc);
    return false;
  }
  std::memcpy(&endpoint->address, found->ai_addr, found->ai_addrlen);
  endpoint->addressLength = found->ai_addrlen;
  ::freeaddrinfo(found);
  return true;
}

}  // namespace agentsim
