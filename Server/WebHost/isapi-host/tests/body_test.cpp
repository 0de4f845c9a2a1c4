// isapi-host's own guards, against a test extension that reads every body
// byte: large bodies stream to the extension without being held, a request
// that trickles in is cut at its deadline, and connections over a limit are
// answered 503 with a Retry-After.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "http_support.h"

namespace {

using httptest::Body;
using httptest::Host;
using httptest::Status;

constexpr char kPath[] = "/vigilcrest/cgi/isapiClient.dll";

std::vector<std::string> EchoHost(bool adapter, std::vector<std::string> extra = {}) {
  extra.insert(extra.begin(), {"--extension", VGCR_ECHO_MODULE});
  if (adapter) extra.push_back("--adapter");
  return extra;
}

std::string Expected(const std::string& body, uint64_t total) {
  uint64_t hash = 1469598103934665603ull;
  for (unsigned char c : body) hash = (hash ^ c) * 1099511628211ull;
  char text[96];
  std::snprintf(text, sizeof text, "%zu %016llx %llu", body.size(), static_cast<unsigned long long>(hash),
                static_cast<unsigned long long>(total));
  return text;
}

std::string Pattern(std::size_t size) {
  std::string body(size, '\0');
  for (std::size_t i = 0; i < size; ++i) body[i] = static_cast<char>((i * 131 + i / 977) & 0xFF);
  return body;
}

std::string Chunked(const std::string& body, std::size_t piece) {
  std::string out;
  char size[32];
  for (std::size_t at = 0; at < body.size(); at += piece) {
    const std::size_t n = std::min(piece, body.size() - at);
    std::snprintf(size, sizeof size, "%zx\r\n", n);
    out += size + body.substr(at, n) + "\r\n";
  }
  return out + "0\r\n\r\n";
}

[[maybe_unused]] long PeakKilobytes(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

TEST(Bodies, ReachTheExtensionWholeWithoutBeingHeld) {
  const std::string big = Pattern(20'000'000);
  for (const bool adapter : {false, true}) {
    Host host(EchoHost(adapter));
    ASSERT_TRUE(host.ready());
    const struct {
      const char* label;
      std::size_t size;
      bool chunked;
    } cases[] = {{"read ahead whole", 1000, false},
                 {"at the read-ahead", 49152, false},
                 {"one past it", 49153, false},
                 {"20 MB", big.size(), false},
                 {"3 MB chunked", 3'000'000, true}};
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.label) + (adapter ? ", adapter" : ", IIS"));
      const std::string body = big.substr(0, c.size);
      std::string request = std::string("POST ") + kPath + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n";
      request += c.chunked ? "Transfer-Encoding: chunked\r\n\r\n" + Chunked(body, 40000)
                           : "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
      EXPECT_EQ(Body(httptest::Exchange(host.port(), request, 20)), Expected(body, c.chunked ? 0xFFFFFFFFu : c.size));
    }
#if !defined(VGCR_SANITIZED)  // a sanitizer's own bookkeeping outweighs the body
    // The host held a window of the body at a time, never all of it.
    EXPECT_LT(PeakKilobytes(host.pid()), 16 * 1024) << "kB";
#endif
    EXPECT_EQ(host.Stop(), 0);
  }
}

// An IIS-mode extension that reads a streamed body inside HttpExtensionProc
// (the connection's own thread, which alone could deliver it) is told at
// once that it cannot, instead of hanging the connection and its thread.
TEST(Bodies, AReadOnTheConnectionsOwnThreadFailsInsteadOfHanging) {
  Host host(EchoHost(false));
  ASSERT_TRUE(host.ready());
  const std::string body = Pattern(60000);
  const std::string request = std::string("POST ") + kPath + "?inline HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" +
                              "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  EXPECT_EQ(Body(httptest::Exchange(host.port(), request, 5)), Expected("", 60000) + " gone");
  EXPECT_EQ(Status(httptest::Get(host.port(), "a=1")), 200) << "still serving";
}

std::string ReadAll(int fd, int waitSeconds) {
  timeval wait{waitSeconds, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  std::string answer;
  char buffer[4096];
  ssize_t n;
  while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0) answer.append(buffer, static_cast<std::size_t>(n));
  return answer;
}

std::string GetFrom(const std::string& source, uint16_t port) {
  const int fd = httptest::ConnectFrom(source, port);
  if (fd < 0) return "";
  const std::string request = std::string("GET ") + kPath + "?a=1 HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";
  ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
  std::string answer = ReadAll(fd, 5);
  ::close(fd);
  return answer;
}

// Sends the first bytes, then one more every 100 ms: the host must close
// the connection at its deadline however steadily the bytes come.
TEST(Deadlines, TricklingDoesNotExtendARequest) {
  const struct {
    const char* label;
    std::string start;
    std::string drip;
  } cases[] = {
      {"headers", std::string("GET ") + kPath + "?a=1 HTTP/1.1\r\nHost: x\r\n", "X"},
      {"a body", std::string("POST ") + kPath + " HTTP/1.1\r\nHost: x\r\nContent-Length: 100000\r\n\r\n", "b"},
      {"a small body", std::string("POST ") + kPath + " HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\n", "b"},
  };
  for (const bool adapter : {false, true}) {
    Host host(EchoHost(adapter, {"--request-deadline", "1"}));
    ASSERT_TRUE(host.ready());
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.label) + (adapter ? ", adapter" : ", IIS"));
      const int fd = httptest::Connect(host.port());
      ASSERT_GE(fd, 0);
      const auto start = std::chrono::steady_clock::now();
      bool open = ::send(fd, c.start.data(), c.start.size(), MSG_NOSIGNAL) > 0;
      while (open && std::chrono::steady_clock::now() - start < std::chrono::seconds(8)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        char byte;
        open = ::send(fd, c.drip.data(), 1, MSG_NOSIGNAL) > 0 && ::recv(fd, &byte, 1, MSG_DONTWAIT) != 0;
      }
      const auto took = std::chrono::steady_clock::now() - start;
      EXPECT_FALSE(open);
      EXPECT_GE(took, std::chrono::milliseconds(900));
      EXPECT_LT(took, std::chrono::seconds(4));
      ::close(fd);
    }
    EXPECT_EQ(Status(httptest::Get(host.port(), "a=1")), 200) << "still serving";
    EXPECT_EQ(host.Stop(), 0);
  }
}

// Connections over the per-address or the total limit get 503 and a
// Retry-After of 5 to 15 s; others are served, and a freed slot serves again.
TEST(Limits, ConnectionsOverALimitAreToldToComeBackLater) {
  for (const bool adapter : {false, true}) {
    SCOPED_TRACE(adapter ? "adapter" : "IIS");
    Host host(EchoHost(adapter, {"--max-per-address", "2", "--max-connections", "4"}));
    ASSERT_TRUE(host.ready());
    std::vector<int> idle = {httptest::ConnectFrom("127.0.0.3", host.port()), httptest::ConnectFrom("127.0.0.3", host.port())};
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // taken before the next ones come
    const std::string refused = GetFrom("127.0.0.3", host.port());
    EXPECT_EQ(Status(refused), 503) << refused;
    const int retry = std::atoi(httptest::Header(refused, "Retry-After").c_str());
    EXPECT_GE(retry, 5);
    EXPECT_LE(retry, 15);
    EXPECT_EQ(Status(GetFrom("127.0.0.4", host.port())), 200) << "another address";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // its slot given back

    idle.push_back(httptest::ConnectFrom("127.0.0.5", host.port()));
    idle.push_back(httptest::ConnectFrom("127.0.0.6", host.port()));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(Status(GetFrom("127.0.0.7", host.port())), 503) << "the total reached";
    for (int fd : idle) ::close(fd);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(Status(GetFrom("127.0.0.3", host.port())), 200) << "slots freed";
    EXPECT_EQ(host.Stop(), 0);
  }
}

// Refused connections go after a second, so that one address cannot fill
// the host past its ceiling with connections it was refused.
TEST(Limits, RefusedConnectionsDoNotPileUp) {
  Host host(EchoHost(false, {"--max-per-address", "2", "--max-connections", "10"}));
  ASSERT_TRUE(host.ready());
  std::vector<int> flood;
  for (int i = 0; i < 90; ++i) flood.push_back(httptest::ConnectFrom("127.0.0.3", host.port()));  // past 10 + 64
  std::this_thread::sleep_for(std::chrono::milliseconds(1800));
  EXPECT_EQ(Status(GetFrom("127.0.0.4", host.port())), 200);
  for (int fd : flood) ::close(fd);
}

#if !defined(VGCR_SANITIZED)
// Kept-alive connections cost the host little memory each: the library
// clears a connection's memory for every request, so it must be small.
TEST(Limits, KeptAliveConnectionsAreCheap) {
  Host host(EchoHost(false));
  ASSERT_TRUE(host.ready());
  const std::string request = std::string("GET ") + kPath + "?a=1 HTTP/1.1\r\nHost: x\r\n\r\n";
  std::vector<int> kept;
  for (int i = 0; i < 100; ++i) {
    const int fd = httptest::Connect(host.port());
    for (int round = 0; round < 2; ++round) {  // the second request reuses the connection
      ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
      char buffer[4096];
      ::recv(fd, buffer, sizeof buffer, 0);
    }
    kept.push_back(fd);
  }
  EXPECT_LT(PeakKilobytes(host.pid()), 48 * 1024) << "kB for 100 kept-alive connections";
  for (int fd : kept) ::close(fd);
}
#endif

}  // namespace
