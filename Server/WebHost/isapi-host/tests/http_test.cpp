// isapi-host over real HTTP, with the real extension module.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "http_support.h"

namespace {

using httptest::Body;
using httptest::Exchange;
using httptest::Get;
using httptest::Host;
using httptest::Status;

TEST(IsapiHost, AnswersInIisModeAndStopsCleanly) {
  Host host;
  ASSERT_TRUE(host.ready());
  const std::string answer = Get(host.port(), "requestid=206");
  EXPECT_EQ(Status(answer), 200);
  EXPECT_NE(answer.find("Content-Type: application/octet-stream"), std::string::npos);
  EXPECT_EQ(Body(answer), "-2");
  EXPECT_EQ(Body(Get(host.port(), "uid=1")), "-1");
  EXPECT_EQ(Body(Get(host.port(), "requestid=206", "HEAD")), "") << "HEAD carries no body";
  EXPECT_EQ(Status(Get(host.port(), "requestid=206", "HEAD")), 200);
  const std::string post = Exchange(host.port(),
                                    "POST /vigilcrest/cgi/isapiClient.dll HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                                    "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 13\r\n\r\n"
                                    "requestid=206");
  EXPECT_EQ(Body(post), "-2");
  EXPECT_EQ(Status(Exchange(host.port(), "GET /elsewhere HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")), 404);
  EXPECT_EQ(host.Stop(), 0);
}

TEST(IsapiHost, TheQueryStringReachesTheExtensionUndecoded) {
  Host host;
  ASSERT_TRUE(host.ready());
  // Decoded once (by the extension) the name is "requestid=206" with no value,
  // so there is no requestid; decoded twice it would route to 206.
  EXPECT_EQ(Body(Get(host.port(), "requestid%3D206")), "-1");
  EXPECT_EQ(Body(Get(host.port(), "request%69d=206")), "-2");
}

TEST(IsapiHost, AdapterModeAndKeepAlive) {
  Host host({"--adapter"});
  ASSERT_TRUE(host.ready());
  EXPECT_EQ(Body(Get(host.port(), "requestid=206")), "-2");
  const std::string two = Exchange(host.port(),
                                   "GET /vigilcrest/cgi/isapiClient.dll?requestid=206 HTTP/1.1\r\nHost: x\r\n\r\n"
                                   "GET /vigilcrest/cgi/isapiClient.dll?x=1 HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  EXPECT_NE(two.find("\r\n\r\n-2HTTP/1.1 200"), std::string::npos) << two;
  EXPECT_EQ(two.substr(two.size() - 2), "-1");
  EXPECT_EQ(host.Stop(), 0);
}

// A body refused for its size is not read: announced past the host's limit,
// it is answered 413 before the client has sent it; of unknown length
// (chunked), it goes to the extension at once, which refuses a form that
// large (500) without reading it. Either way the connection is closed after
// the answer.
TEST(IsapiHost, ARefusedBodyIsAnsweredAtOnceAndNotRead) {
  Host host({"--max-body", "100"});
  ASSERT_TRUE(host.ready());
  for (const char* framing : {"Content-Length: 40000000\r\n", "Transfer-Encoding: chunked\r\n"}) {
    const int fd = httptest::Connect(host.port());
    ASSERT_GE(fd, 0);
    std::string head = std::string("POST /vigilcrest/cgi/isapiClient.dll HTTP/1.1\r\nHost: x\r\n") + framing + "\r\n";
    // Chunked: 300 bytes, past the host's limit; the announced length: nothing of it.
    if (std::string(framing).find("chunked") != std::string::npos) head += "12c\r\n" + std::string(300, 'b') + "\r\n";
    ASSERT_EQ(::send(fd, head.data(), head.size(), MSG_NOSIGNAL), static_cast<ssize_t>(head.size()));
    timeval wait{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    std::string answer;
    char buffer[4096];
    ssize_t n;
    while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0) answer.append(buffer, static_cast<std::size_t>(n));
    const bool chunked = std::string(framing).find("chunked") != std::string::npos;
    EXPECT_TRUE(n == 0 || (n < 0 && errno == ECONNRESET)) << "closed by the host, not by the time-out: " << framing;
    EXPECT_EQ(Status(answer), chunked ? 500 : 413) << framing;
    ::close(fd);
  }
  EXPECT_EQ(Body(Get(host.port(), "requestid=206")), "-2") << "and it goes on serving";
}

// A connection from a loopback address of its own that sends the start of
// a request and then nothing more.
int OpenHalfSent(uint16_t port, const std::string& source) {
  const int fd = httptest::ConnectFrom(source, port);
  if (fd < 0) return -1;
  const std::string start = "GET /vigilcrest/cgi/isapiClient.dll?requestid=206 HTTP/1.1\r\nHost: x\r\n";
  ::send(fd, start.data(), start.size(), MSG_NOSIGNAL);
  return fd;
}

// Thousands of idle, half-sent requests, from many addresses or from one,
// do not keep a normal client waiting: the total capacity holds the first,
// the per-address limit turns the second away.
TEST(IsapiHost, IdleHalfSentRequestsDoNotKeepANormalClientWaiting) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  ASSERT_GT(files.rlim_cur, 2200u) << "the test needs descriptors";
  for (const bool adapter : {false, true}) {
    Host host(adapter ? std::vector<std::string>{"--adapter"} : std::vector<std::string>{});
    ASSERT_TRUE(host.ready());
    const struct {
      const char* label;
      int count;
      bool manyAddresses;
    } loads[] = {{"2,000 from 2,000 addresses", 2000, true}, {"1,500 from one address", 1500, false}};
    for (const auto& load : loads) {
      std::vector<int> idle;
      for (int i = 0; i < load.count; ++i) {
        const std::string source = load.manyAddresses
                                       ? "127.0." + std::to_string(1 + i / 250) + "." + std::to_string(1 + i % 250)
                                       : std::string("127.0.0.2");
        const int fd = OpenHalfSent(host.port(), source);
        if (fd >= 0) idle.push_back(fd);
      }
      const auto start = std::chrono::steady_clock::now();
      EXPECT_EQ(Body(Get(host.port(), "requestid=206")), "-2") << load.label << (adapter ? ", adapter" : ", IIS");
      EXPECT_LT(std::chrono::steady_clock::now() - start, httptest::kPromptly) << load.label;
      for (int fd : idle) ::close(fd);
    }
    EXPECT_EQ(host.Stop(), 0);
  }
}

TEST(IsapiHost, TheDefaultsAdmitTheLongestRegistration) {
  Host host;
  ASSERT_TRUE(host.ready());
  // Every text of a start registration at its limit, each character a
  // three-byte UTF-8 sequence written as nine bytes: about 57 KiB.
  std::string query = "requestid=206";
  const std::string euro = "%E2%82%AC";
  for (int field = 0; field < 62; ++field) {
    query += "&f" + std::to_string(field) + "=";
    const int limit = field == 0 ? 2500 : field < 3 ? 1024 : 40;
    for (int i = 0; i < limit; ++i) query += euro;
  }
  ASSERT_GT(query.size(), 55000u);
  EXPECT_EQ(Body(Get(host.port(), query)), "-2");
}

}  // namespace
