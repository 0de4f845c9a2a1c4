// What the tests that speak HTTP to isapi-host share: raw HTTP exchanges,
// child processes, and isapi-host itself started with the extension.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace httptest {

// How soon "at once" is: a sanitizer build runs every thread and request
// several times slower.
#if defined(VGCR_SANITIZED)
inline constexpr std::chrono::seconds kPromptly{10};
#else
inline constexpr std::chrono::seconds kPromptly{2};
#endif

uint16_t FreePort();
// Connects to 127.0.0.1:port; -1 when nobody listens.
int Connect(uint16_t port);
// The same from a loopback address of the caller's choice (127.0.0.N), so
// that a test can stand for many clients; -1 on failure.
int ConnectFrom(const std::string& source, uint16_t port);
// Sends raw bytes and reads until the server closes, or until nothing has
// come for waitSeconds.
std::string Exchange(uint16_t port, const std::string& request, int waitSeconds = 30);
// One request to the extension's path, "Connection: close".
std::string Get(uint16_t port, const std::string& query, const std::string& method = "GET");
std::string Body(const std::string& answer);
int Status(const std::string& answer);
// A response header's value; empty when absent.
std::string Header(const std::string& answer, const std::string& name);
// Escapes a query value (RFC 3986 unreserved characters kept).
std::string UrlEncode(const std::string& text);

// A child process, killed when this goes.
class Child {
 public:
  Child() = default;
  explicit Child(const std::vector<std::string>& args, const std::string& output = "") { Start(args, output); }
  ~Child() { Kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  // Kills a child still running, then starts args[0] with its standard
  // output and error appended to `output` (when given).
  bool Start(const std::vector<std::string>& args, const std::string& output = "");
  bool running() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  // SIGTERM, then the exit status (-1 when it did not exit normally).
  int Stop();
  // The exit status of a child that ends on its own.
  int Wait();
  void Kill();
  void Signal(int signal) const;

 private:
  pid_t pid_ = -1;
};

// isapi-host with the extension on a free port, ready to take connections.
class Host {
 public:
  explicit Host(std::vector<std::string> extra = {});
  bool ready() const { return ready_; }
  uint16_t port() const { return port_; }
  pid_t pid() const { return child_.pid(); }
  int Stop() { return child_.Stop(); }

 private:
  Child child_;
  uint16_t port_ = 0;
  bool ready_ = false;
};

}  // namespace httptest
