#include "http_support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

extern char** environ;

namespace httptest {

uint16_t FreePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  socklen_t length = sizeof addr;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
  ::close(fd);
  return ntohs(addr.sin_port);
}

int Connect(uint16_t port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

int ConnectFrom(const std::string& source, uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in from{};
  from.sin_family = AF_INET;
  inet_pton(AF_INET, source.c_str(), &from.sin_addr);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof from) != 0 ||
      ::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

std::string Exchange(uint16_t port, const std::string& request, int waitSeconds) {
  int fd = Connect(port);
  if (fd < 0) return "";
  timeval wait{waitSeconds, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
  std::string answer;
  char buffer[4096];
  ssize_t n;
  while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0) answer.append(buffer, static_cast<std::size_t>(n));
  ::close(fd);
  return answer;
}

std::string Get(uint16_t port, const std::string& query, const std::string& method) {
  return Exchange(port, method + " /vigilcrest/cgi/isapiClient.dll?" + query +
                            " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
}

std::string Body(const std::string& answer) {
  std::size_t at = answer.find("\r\n\r\n");
  return at == std::string::npos ? "" : answer.substr(at + 4);
}

int Status(const std::string& answer) { return answer.size() > 12 ? std::atoi(answer.c_str() + 9) : 0; }

std::string Header(const std::string& answer, const std::string& name) {
  const std::string head = answer.substr(0, answer.find("\r\n\r\n"));
  const std::string key = "\r\n" + name + ": ";
  const std::size_t at = head.find(key);
  if (at == std::string::npos) return "";
  const std::size_t start = at + key.size();
  return head.substr(start, head.find("\r\n", start) - start);
}

std::string UrlEncode(const std::string& text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

bool Child::Start(const std::vector<std::string>& args, const std::string& output) {
  Kill();
  std::vector<std::string> copy = args;
  std::vector<char*> argv;
  for (auto& a : copy) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!output.empty()) {
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
  }
  if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid_ > 0;
}

int Child::Stop() {
  if (pid_ <= 0) return -1;
  ::kill(pid_, SIGTERM);
  return Wait();
}

int Child::Wait() {
  if (pid_ <= 0) return -1;
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Child::Kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

void Child::Signal(int signal) const {
  if (pid_ > 0) ::kill(pid_, signal);
}

Host::Host(std::vector<std::string> extra) {
  port_ = FreePort();
  std::vector<std::string> args = {VGCR_ISAPI_HOST, "--extension", VGCR_EXTENSION_MODULE, "--listen",
                                   "127.0.0.1:" + std::to_string(port_)};
  args.insert(args.end(), extra.begin(), extra.end());
  child_.Start(args);
  for (int i = 0; i < 250 && child_.running(); ++i) {
    int fd = Connect(port_);
    if (fd >= 0) {
      ::close(fd);
      ready_ = true;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace httptest
