// Hostile requests against isapi-host and the extension, in both modes: each
// is answered as it should be (or its connection closed), promptly, and the
// host goes on serving.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "http_support.h"

namespace {

using httptest::Body;
using httptest::Get;
using httptest::Host;
using httptest::Status;

constexpr char kPath[] = "/vigilcrest/cgi/isapiClient.dll";
constexpr std::size_t kMaxTarget = 65536;  // isapi-host's default --max-request-line

std::string GetRequest(const std::string& target, const std::string& headers = "") {
  return "GET " + target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + headers + "\r\n";
}

std::string PostRequest(const std::string& type, const std::string& body) {
  return std::string("POST ") + kPath + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Type: " + type +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// A target of exactly `length` characters that routes to requestid 206.
std::string TargetOf(std::size_t length) {
  std::string target = std::string(kPath) + "?requestid=206&pad=";
  target.resize(length, 'p');
  return target;
}

std::string FormOf(std::size_t length) {
  std::string body = "requestid=206&pad=";
  body.resize(length, 'p');
  return body;
}

// Names that share a bucket under a fixed hash * 33 + byte: "0Q" and "10"
// hash alike, and so does every string of such pairs.
std::string CollidingNames(int pairs) {
  std::string query = "requestid=206";
  for (int n = 0; n < (1 << pairs); ++n) {
    query += '&';
    for (int bit = 0; bit < pairs; ++bit) query += (n >> bit) & 1 ? "10" : "0Q";
    query += "=v";
  }
  return query;
}

std::string ManyParameters(int count) {
  std::string query = "requestid=206";
  for (int i = 0; i < count; ++i) query += "&a" + std::to_string(i);
  return query;
}

// Sends the bytes and reads the answer until the host closes (or 5 s pass
// without a byte); a client that gives up closes at once and reads nothing.
std::string Send(uint16_t port, const std::string& bytes, bool givesUp) {
  if (!givesUp) return httptest::Exchange(port, bytes, 5);
  const int fd = httptest::Connect(port);
  if (fd >= 0) {
    ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    ::close(fd);
  }
  return "";
}

struct Hostile {
  const char* label;
  std::string request;
  int status;        // 0: the connection closes without an answer
  const char* body;  // null: not looked at
  bool givesUp = false;  // the client closes after sending
};

std::vector<Hostile> Cases() {
  const std::string form = "application/x-www-form-urlencoded";
  return {
      {"target at the limit", GetRequest(TargetOf(kMaxTarget)), 200, "-2"},
      {"target one over", GetRequest(TargetOf(kMaxTarget + 1)), 414, nullptr},
      {"64 KiB of headers", GetRequest(TargetOf(100), "X-Pad: " + std::string(65536, 'h') + "\r\n"), 200, "-2"},
      {"form at the limit", PostRequest(form, FormOf(49152)), 200, "-2"},
      {"form one over", PostRequest(form, FormOf(49153)), 500, nullptr},
      {"text/plain one over", PostRequest("text/plain", FormOf(49153)), 500, nullptr},
      {"10,000 parameters", GetRequest(std::string(kPath) + "?" + ManyParameters(10000)), 200, "-2"},
      {"2,048 names of one fixed-hash bucket", GetRequest(std::string(kPath) + "?" + CollidingNames(11)), 200, "-2"},
      {"overlong UTF-8 in the query", GetRequest(std::string(kPath) + "?requestid=206&x=\xC0\xAF\xE0\x80\xAF"), 200,
       nullptr},
      {"a body shorter than announced, then the client gone", std::string("POST ") + kPath + " HTTP/1.1\r\nHost: x\r\nContent-Length: 100\r\n\r\nrequestid=206",
       0, nullptr, true},
      {"a chunked body past the limit",
       std::string("POST ") + kPath + " HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n8000\r\n" +
           std::string(32768, 'c') + "\r\n8000\r\n" + std::string(32768, 'c') + "\r\n",
       500, nullptr},
  };
}

TEST(Hostile, EachRequestIsAnsweredPromptlyAndTheHostGoesOn) {
  for (const bool adapter : {false, true}) {
    Host host(adapter ? std::vector<std::string>{"--adapter", "--max-body", "60000"}
                      : std::vector<std::string>{"--max-body", "60000"});
    ASSERT_TRUE(host.ready());
    for (const Hostile& c : Cases()) {
      SCOPED_TRACE(std::string(c.label) + (adapter ? ", adapter" : ", IIS"));
      const auto start = std::chrono::steady_clock::now();
      const std::string answer = Send(host.port(), c.request, c.givesUp);
      EXPECT_LT(std::chrono::steady_clock::now() - start, httptest::kPromptly);
      EXPECT_EQ(Status(answer), c.status) << answer.substr(0, 200);
      if (c.body) {
        EXPECT_EQ(Body(answer), c.body);
      }
      EXPECT_EQ(Body(Get(host.port(), "requestid=206")), "-2") << "still serving";
    }
    EXPECT_EQ(host.Stop(), 0);
  }
}

}  // namespace
