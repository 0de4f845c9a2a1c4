#include "http_connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace agentsim {

namespace {

// The web server drops a kept-alive connection that has been idle for its
// request deadline (isapi-host: 20 s). A connection idle for this long is
// replaced before it is used rather than risk a request on a socket the
// server is closing.
constexpr std::chrono::seconds kIdleReuse{15};

int RemainingMs(HttpConnection::Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - HttpConnection::Clock::now());
  return left.count() <= 0 ? 0 : static_cast<int>(left.count());
}

// Waits for `events` on fd until the deadline; false on time-out or failure.
bool WaitFor(int fd, short events, HttpConnection::Clock::time_point deadline, std::string* error) {
  for (;;) {
    pollfd p{fd, events, 0};
    const int rc = ::poll(&p, 1, RemainingMs(deadline));
    if (rc > 0) return true;
    if (rc == 0) {
      *error = "timed out";
      return false;
    }
    if (errno != EINTR) {
      *error = std::string("poll: ") + std::strerror(errno);
      return false;
    }
  }
}

std::string RequestText(const std::string& target, const std::string& authority) {
  return "GET " + target + " HTTP/1.1\r\nHost: " + authority +
         "\r\nUser-Agent: vgcr-agentsim\r\nAccept: */*\r\n\r\n";
}

}  // namespace

bool HttpConnection::Get(const std::string& target, HttpReply* reply, std::string* error) {
  const Clock::time_point deadline = Clock::now() + kTimeout;
  const std::string request = RequestText(target, endpoint_.authority);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (fd_ >= 0 && Clock::now() - lastUsed_ > kIdleReuse) Close();
    const bool fresh = fd_ < 0;
    if (fresh && !Connect(deadline, error)) return false;
    bool close = false;
    if (Exchange(request, deadline, reply, &close, error)) {
      lastUsed_ = Clock::now();
      if (close) Close();
      return true;
    }
    const bool nothingCame = !gotBytes_;
    Close();
    // A kept-alive connection the server closed just as the request went
    // out: nothing was done with it, so it goes again on a new connection.
    if (fresh || !nothingCame || RemainingMs(deadline) == 0) return false;
  }
  return false;
}

bool HttpConnection::Reachable(const Endpoint& endpoint, std::chrono::milliseconds wait, std::string* error) {
  HttpConnection probe(endpoint);
  return probe.Connect(Clock::now() + wait, error);
}

bool HttpConnection::Connect(Clock::time_point deadline, std::string* error) {
  fd_ = ::socket(endpoint_.address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd_ < 0) {
    *error = std::string("socket: ") + std::strerror(errno);
    return false;
  }
  const int one = 1;
  ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  buffer_.clear();
  if (::connect(fd_, reinterpret_cast<const sockaddr*>(&endpoint_.address), endpoint_.addressLength) != 0) {
    if (errno != EINPROGRESS) {
      *error = std::string("connect: ") + std::strerror(errno);
      Close();
      return false;
    }
    int failure = 0;
    socklen_t length = sizeof failure;
    if (!WaitFor(fd_, POLLOUT, deadline, error) || ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &failure, &length) != 0 ||
        failure != 0) {
      if (failure != 0) *error = std::string("connect: ") + std::strerror(failure);
      Close();
      return false;
    }
  }
  lastUsed_ = Clock::now();
  return true;
}

bool HttpConnection::Exchange(const std::string& request, Clock::time_point deadline, HttpReply* reply, bool* close,
                              std::string* error) {
  gotBytes_ = false;
  buffer_.clear();
  ReplyHead head;
  if (!SendAll(request, deadline, error) || !ReadHead(deadline, &head, error)) return false;
  reply->status = head.status;
  reply->signature = head.signature;
  if (!ReadBody(head, deadline, &reply->body, error)) return false;
  *close = head.close || (head.contentLength < 0 && !head.chunked);
  return true;
}

bool HttpConnection::SendAll(const std::string& bytes, Clock::time_point deadline, std::string* error) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n > 0) {
      sent += static_cast<std::size_t>(n);
    } else if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
      if (!WaitFor(fd_, POLLOUT, deadline, error)) return false;
    } else {
      *error = std::string("send: ") + std::strerror(errno);
      return false;
    }
  }
  return true;
}

long HttpConnection::Fill(Clock::time_point deadline, std::string* error) {
  char chunk[16384];
  for (;;) {
    const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
    if (n > 0) {
      buffer_.append(chunk, static_cast<std::size_t>(n));
      gotBytes_ = true;
      return n;
    }
    if (n == 0) {
      *error = "the server closed the connection";
      return 0;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) {
      *error = std::string("recv: ") + std::strerror(errno);
      return -1;
    }
    if (!WaitFor(fd_, POLLIN, deadline, error)) return -1;
  }
}

bool HttpConnection::ReadHead(Clock::time_point deadline, ReplyHead* head, std::string* error) {
  std::size_t end;
  while ((end = buffer_.find("\r\n\r\n")) == std::string::npos) {
    if (buffer_.size() > kMaxHead) {
      *error = "reply headers too long";
      return false;
    }
    if (Fill(deadline, error) <= 0) return false;
  }
  if (!ParseHead(std::string_view(buffer_).substr(0, end), head)) {
    *error = "malformed reply head";
    return false;
  }
  buffer_.erase(0, end + 4);
  return true;
}

bool HttpConnection::ReadBody(const ReplyHead& head, Clock::time_point deadline, std::string* body,
                              std::string* error) {
  body->clear();
  if (head.status / 100 == 1 || head.status == 204 || head.status == 304) return true;
  if (head.chunked) {
    for (;;) {
      std::size_t consumed = 0;
      const Chunks state = DecodeChunked(buffer_, body, &consumed);
      if (state == Chunks::kDone) return true;
      if (state == Chunks::kBad) {
        *error = "malformed chunked body";
        return false;
      }
      if (Fill(deadline, error) <= 0) return false;
    }
  }
  if (head.contentLength > static_cast<long long>(kMaxBody)) {
    *error = "reply body too long";
    return false;
  }
  if (head.contentLength >= 0) {
    const std::size_t length = static_cast<std::size_t>(head.contentLength);
    while (buffer_.size() < length) {
      if (Fill(deadline, error) <= 0) return false;
    }
    body->assign(buffer_, 0, length);
    return true;
  }
  for (;;) {  // no length: the body ends where the server closes
    const long n = Fill(deadline, error);
    if (n == 0) break;
    if (n < 0 || buffer_.size() > kMaxBody) return false;
  }
  body->swap(buffer_);
  return true;
}

void HttpConnection::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  buffer_.clear();
}

}  // namespace agentsim
