// The simulator's parts on their own: reading replies, the schedule, the
// rate cap, the signature check and the kept-alive connection. The whole against the real server is
// in Server/CommandHandler/tests/system_agentsim_test.cpp.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <thread>

#include "certificate.h"
#include "endpoint.h"
#include "http_connection.h"
#include "http_reply.h"
#include "rate_limit.h"
#include "replies.h"
#include "schedule.h"

namespace {

using namespace agentsim;
using namespace std::chrono_literals;

TEST(HttpReply, HeadAndChunkedBody) {
  ReplyHead head;
  ASSERT_TRUE(ParseHead("HTTP/1.1 200 OK\r\nContent-Length: 12\r\nsa_sg: QUJD\r\nSA_NEW: 0", &head));
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.contentLength, 12);
  EXPECT_EQ(head.signature, "QUJD") << "names match without regard to case";
  EXPECT_FALSE(head.close);

  ReplyHead closing;
  ASSERT_TRUE(ParseHead("HTTP/1.1 503 Busy\r\nConnection: keep-alive, Close\r\nRetry-After: 5", &closing));
  EXPECT_EQ(closing.status, 503);
  EXPECT_TRUE(closing.close);
  ReplyHead old;
  ASSERT_TRUE(ParseHead("HTTP/1.0 200 OK", &old));
  EXPECT_TRUE(old.close) << "HTTP/1.0 closes unless told otherwise";
  ASSERT_TRUE(ParseHead("HTTP/1.0 200 OK\r\nConnection: Keep-Alive", &old));
  EXPECT_FALSE(old.close);
  for (const char* bad : {"HTTP/2 200 OK", "HTTP/1.1 2x0 OK", "HTTP/1.1 200 OK\r\nno colon",
                          "HTTP/1.1 200 OK\r\nContent-Length: -1", "HTTP/1.1 200 OK\r\nContent-Length: 1e3"}) {
    ReplyHead h;
    EXPECT_FALSE(ParseHead(bad, &h)) << bad;
  }

  std::string body;
  std::size_t used = 0;
  const std::string chunked = "5;ext=1\r\n[Poll\r\nb\r\ning_Respons\r\n0\r\nX-Trailer: 1\r\n\r\nNEXT";
  ASSERT_EQ(DecodeChunked(chunked, &body, &used), Chunks::kDone);
  EXPECT_EQ(body, "[Polling_Respons");
  EXPECT_EQ(chunked.substr(used), "NEXT");
  EXPECT_EQ(DecodeChunked(chunked.substr(0, 20), &body, &used), Chunks::kNeedMore);
  EXPECT_EQ(DecodeChunked("0\r\n", &body, &used), Chunks::kNeedMore) << "the last empty line is still to come";
  EXPECT_EQ(DecodeChunked("zz\r\n", &body, &used), Chunks::kBad);
  EXPECT_EQ(DecodeChunked("3\r\nabcd\r\n", &body, &used), Chunks::kBad) << "a chunk longer than it said";
  EXPECT_EQ(DecodeChunked("FFFFFFF\r\n", &body, &used), Chunks::kBad) << "past the body's bound";
}

TEST(Replies, CodesAndThePollingBlock) {
  EXPECT_EQ(NegativeCode("-5"), -5);
  EXPECT_EQ(NegativeCode("-39\r\n"), -39);
  for (const char* notACode : {"1", "1\n09:30:00", "", "-", "-5x", "--5", "[Polling_Response]", "-99999999999"}) {
    EXPECT_FALSE(NegativeCode(notACode).has_value()) << notACode;
  }
  PollingState state;
  ASSERT_TRUE(ParsePolling(
      "[Polling_Response]\r\nRECEIVING_STATUS=1\r\nINDIVIDUAL_SETTING=1\r\nMESSAGE_ID=12\r\nSETTING_SEQUENCE=-3", &state));
  EXPECT_EQ(state.individualSetting, 1);
  EXPECT_EQ(state.messageId, 12);
  EXPECT_EQ(state.settingSequence, -3);
  EXPECT_FALSE(ParsePolling("[Polling_Response]\r\nMESSAGE_ID=1\r\n", &state)) << "no sequence";
  EXPECT_FALSE(ParsePolling("[Polling_Response]\r\nMESSAGE_ID=1\r\nSETTING_SEQUENCE=x", &state));
  EXPECT_FALSE(ParsePolling("-5", &state));
}

TEST(Schedule, TakesInOrderWhenDueAndEndsWhenDrained) {
  Schedule schedule(10);
  schedule.PushMany({{60'000, 2, Action::kLog}, {0, 1, Action::kRegister}, {30'000, 3, Action::kHeartbeat}});
  Due due{};
  const auto start = std::chrono::steady_clock::now();
  for (uint32_t expected : {1u, 3u, 2u}) {
    ASSERT_TRUE(schedule.Take(&due));
    EXPECT_EQ(due.client, expected);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::microseconds(due.atUs)) << "not before due";
    schedule.Done();
  }
  EXPECT_FALSE(schedule.Take(&due)) << "nothing left, nothing in flight";

  // Followers pushed while an action is in flight keep the run going, and
  // a thread waiting for them is woken.
  Schedule chained(10);
  chained.Push({0, 0, Action::kRegister});
  ASSERT_TRUE(chained.Take(&due));
  std::atomic<int> taken{0};
  std::thread waiter([&] {
    Due next{};
    while (chained.Take(&next)) {
      ++taken;
      chained.Done();
    }
  });
  std::this_thread::sleep_for(20ms);
  chained.Push({chained.NowUs(), 0, Action::kHeartbeat});
  chained.Done();
  waiter.join();
  EXPECT_EQ(taken, 1);

  Schedule bounded(0.05);
  bounded.Push({bounded.NowUs() + 10'000'000, 0, Action::kLog});
  EXPECT_FALSE(bounded.Take(&due)) << "due after the run's end";
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

TEST(RateLimit, CapsTheRateAndNeverWaitsPastTheEnd) {
  RateLimit limit(200);  // holds 20 tokens
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(limit.Acquire(start + 10s));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 350ms) << "80 tokens beyond the first 20 take 0.4 s";
  RateLimit slow(0.5);
  EXPECT_TRUE(slow.Acquire(start + 10s));
  EXPECT_FALSE(slow.Acquire(std::chrono::steady_clock::now() + 100ms)) << "the next token comes in 2 s";
  EXPECT_TRUE(RateLimit(0).Acquire(start)) << "no cap";
}

// A key and a self-signed certificate of the test's own, and a signature as
// the server makes it: SHA-256 over the body and the number, little-endian.
class Signing : public ::testing::Test {
 protected:
  void SetUp() override {
    key_ = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 0x1F2E);
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Test Org"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Signer"), -1, -1, 0);
    X509_set_issuer_name(cert, name);
    X509_gmtime_adj(X509_getm_notBefore(cert), 0);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3600);
    X509_set_pubkey(cert, key_);
    X509_sign(cert, key_, EVP_sha256());
    char path[] = "/tmp/agentsim-cert-XXXXXX";
    const int fd = ::mkstemp(path);
    path_ = path;
    std::FILE* file = ::fdopen(fd, "w");
    PEM_write_X509(file, cert);
    std::fclose(file);
    X509_free(cert);
  }
  void TearDown() override {
    EVP_PKEY_free(key_);
    std::remove(path_.c_str());
  }
  std::string Sign(const std::string& body, int32_t number) {
    std::string bytes = body;
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(static_cast<uint32_t>(number) >> (8 * i)));
    unsigned char raw[256];
    std::size_t length = sizeof raw;
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, key_);
    EVP_DigestSign(context, raw, &length, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    EVP_MD_CTX_free(context);
    unsigned char text[400];
    const int n = EVP_EncodeBlock(text, raw, static_cast<int>(length));
    return std::string(reinterpret_cast<char*>(text), static_cast<std::size_t>(n));
  }
  EVP_PKEY* key_ = nullptr;
  std::string path_;
};

TEST_F(Signing, TheCertificateNamesItsIssuerAndVerifiesReplies) {
  Certificate certificate;
  std::string error;
  ASSERT_TRUE(certificate.Load(path_, &error)) << error;
  EXPECT_EQ(certificate.issuer(), "CN=Signer,O=Test Org") << "RFC 2253: the last name first";
  EXPECT_EQ(certificate.serial(), "1F2E");
  const std::string body = "[Polling_Response]\r\nRECEIVING_STATUS=1";
  const std::string signature = Sign(body, 42);
  EXPECT_TRUE(certificate.Verifies(body, 42, signature));
  EXPECT_FALSE(certificate.Verifies(body, 43, signature)) << "the number is bound in";
  EXPECT_FALSE(certificate.Verifies(body + " ", 42, signature));
  EXPECT_FALSE(certificate.Verifies(body, 42, ""));
  EXPECT_FALSE(certificate.Verifies(body, 42, "not base64!"));
  EXPECT_FALSE(Certificate().Load("/nonexistent.pem", &error));
}

// A server of the test's own on loopback: answers each request with the
// next scripted reply and counts its connections; after a reply marked
// "close" it closes the connection.
class ScriptedServer {
 public:
  explicit ScriptedServer(std::vector<std::pair<std::string, bool>> replies) : replies_(std::move(replies)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(listener_, 4);
    socklen_t length = sizeof address;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Serve(); });
  }
  ~ScriptedServer() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }
  uint16_t port() const { return port_; }
  int connections() const { return connections_; }

 private:
  void Serve() {
    std::size_t next = 0;
    while (next < replies_.size()) {
      const int fd = ::accept(listener_, nullptr, nullptr);
      if (fd < 0) return;
      ++connections_;
      std::string in;
      char chunk[4096];
      bool open = true;
      while (open && next < replies_.size()) {
        const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n <= 0) break;
        in.append(chunk, static_cast<std::size_t>(n));
        for (std::size_t end; open && (end = in.find("\r\n\r\n")) != std::string::npos; in.erase(0, end + 4)) {
          ::send(fd, replies_[next].first.data(), replies_[next].first.size(), MSG_NOSIGNAL);
          open = !replies_[next++].second;
        }
      }
      ::close(fd);
    }
  }
  std::vector<std::pair<std::string, bool>> replies_;
  int listener_ = -1;
  uint16_t port_ = 0;
  std::atomic<int> connections_{0};
  std::thread thread_;
};

TEST(HttpConnection, KeepsAliveAndComesBackAfterTheServerCloses) {
  const std::string one = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n1";
  ScriptedServer server({{one, false},
                         {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n-5\r\n0\r\n\r\n", true},
                         {"HTTP/1.1 503 Busy\r\nContent-Length: 4\r\nConnection: close\r\n\r\nbusy", false},
                         {one, true}});
  Endpoint endpoint;
  std::string error;
  ASSERT_TRUE(ParseUrl("http://127.0.0.1:" + std::to_string(server.port()) + "/x", &endpoint, &error));
  ASSERT_TRUE(Resolve(&endpoint, &error)) << error;
  HttpConnection connection(endpoint);
  HttpReply reply;
  ASSERT_TRUE(connection.Get("/x?a=1", &reply, &error)) << error;
  EXPECT_EQ(reply.body, "1");
  ASSERT_TRUE(connection.Get("/x?a=2", &reply, &error)) << error;
  EXPECT_EQ(reply.body, "-5") << "the same connection, a chunked body";
  EXPECT_EQ(server.connections(), 1);
  // The server closed without saying so: the next request finds the
  // connection gone and goes again on a new one.
  ASSERT_TRUE(connection.Get("/x?a=3", &reply, &error)) << error;
  EXPECT_EQ(reply.status, 503);
  EXPECT_EQ(reply.body, "busy");
  ASSERT_TRUE(connection.Get("/x?a=4", &reply, &error)) << error;
  EXPECT_EQ(reply.body, "1") << "after Connection: close, a new connection";
  EXPECT_EQ(server.connections(), 3);
}

}  // namespace
