// Fuzz target: raw bytes from a client, through isapi-host's request path
// (libmicrohttpd, the connection table, the body handoff) into the real
// extension, in both modes. The first byte picks the mode; the rest is sent
// as it is on a fresh connection, whose sending side is then closed. Every
// input must be answered or its connection closed, promptly: a wait past
// the host's own request deadline is a hang and stops the run.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "host_Options.h"
#include "host_Server.h"
#include "isapi/exchange.h"

namespace {

struct Front {
  HostOptions options;
  std::unique_ptr<HostServer> server;
};

isapi::Module& Extension() {
  static isapi::Module* module = [] {
    auto* m = new isapi::Module();
    std::string error;
    HSE_VERSION_INFO version{};
    if (!m->Load(VGCR_EXTENSION_MODULE, &error) || !m->GetExtensionVersion(&version)) {
      std::fprintf(stderr, "cannot load the extension: %s\n", error.c_str());
      std::abort();
    }
    return m;
  }();
  return *module;
}

Front* Start(bool adapter) {
  auto* front = new Front();
  front->options.extension = VGCR_EXTENSION_MODULE;
  front->options.adapter = adapter;
  front->options.port = 0;  // any free port
  front->options.threads = 2;
  front->options.adapterWorkers = 4;
  front->options.maxBody = 200000;
  front->options.deadlineSeconds = 2;
  front->options.poll = true;
  front->options.libraryLog = false;
  front->server = std::make_unique<HostServer>(front->options, Extension());
  std::string message;
  if (!front->server->Start(&message)) {
    std::fprintf(stderr, "cannot start the host: %s\n", message.c_str());
    std::abort();
  }
  return front;
}

int Connect(uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) std::abort();
  timeval wait{6, 0};  // the deadline (2 s) and the extension's answer bound, with room
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
  return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 160000) return 0;
  static Front* iis = Start(false);
  static Front* adapter = Start(true);
  Front& front = (data[0] & 1) ? *adapter : *iis;
  const int fd = Connect(front.server->port());
  std::size_t sent = 1;
  while (sent < size) {
    const ssize_t n = ::send(fd, data + sent, size - sent, MSG_NOSIGNAL);
    if (n <= 0) break;  // the host answered and closed early
    sent += static_cast<std::size_t>(n);
  }
  ::shutdown(fd, SHUT_WR);
  std::string answer;
  char buffer[8192];
  ssize_t n;
  while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0) {
    if (answer.size() < 64) answer.append(buffer, static_cast<std::size_t>(n));
  }
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
    std::fprintf(stderr, "the host neither answered nor closed\n");
    std::abort();
  }
  if (!answer.empty() && answer.compare(0, 9, "HTTP/1.1 ") != 0 && answer.compare(0, 9, "HTTP/1.0 ") != 0) {
    std::fprintf(stderr, "not an HTTP answer: %.64s\n", answer.c_str());
    std::abort();
  }
  ::close(fd);
  return 0;
}
