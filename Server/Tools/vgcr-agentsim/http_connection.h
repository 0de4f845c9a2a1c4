// One kept-alive HTTP/1.1 connection to the server, used by one thread: a
// GET and its reply at a time, every wait bounded.
#pragma once

#include <chrono>
#include <string>

#include "endpoint.h"
#include "http_reply.h"

namespace agentsim {

struct HttpReply {
  int status = 0;
  std::string body;
  std::string signature;  // "SA_SG", empty when absent
};

class HttpConnection {
 public:
  using Clock = std::chrono::steady_clock;
  // How long one request may take, connecting included.
  static constexpr std::chrono::seconds kTimeout{30};

  explicit HttpConnection(const Endpoint& endpoint) : endpoint_(endpoint) {}
  ~HttpConnection() { Close(); }
  HttpConnection(const HttpConnection&) = delete;
  HttpConnection& operator=(const HttpConnection&) = delete;

  // GET target (path and query); false on a transport failure, with `error`.
  bool Get(const std::string& target, HttpReply* reply, std::string* error);
  // Whether a connection can be opened at all, within `wait`.
  static bool Reachable(const Endpoint& endpoint, std::chrono::milliseconds wait, std::string* error);

 private:
  bool Connect(Clock::time_point deadline, std::string* error);
  bool Exchange(const std::string& request, Clock::time_point deadline, HttpReply* reply, bool* close,
                std::string* error);
  bool SendAll(const std::string& bytes, Clock::time_point deadline, std::string* error);
  // Reads what has arrived into buffer_: > 0 bytes, 0 the server closed, < 0 failure (error set).
  long Fill(Clock::time_point deadline, std::string* error);
  bool ReadHead(Clock::time_point deadline, ReplyHead* head, std::string* error);
  bool ReadBody(const ReplyHead& head, Clock::time_point deadline, std::string* body, std::string* error);
  void Close();

  const Endpoint& endpoint_;
  int fd_ = -1;
  std::string buffer_;
  bool gotBytes_ = false;  // some of this reply has arrived
  Clock::time_point lastUsed_{};
};

}  // namespace agentsim
