// The operator's view of a running system: isapi-host's and the service's
// metrics move by what a scripted mix of requests did, both read as
// Prometheus text, and the host's health follows the service.
#include <unistd.h>

#include <cstdlib>

#include "exposition_check.h"
#include "system_fixture.h"

namespace systest {
namespace {

using metricstest::Sample;

// GET path on a metrics listener, once it listens; the whole answer.
std::string Scrape(uint16_t port, const std::string& path) {
  for (int i = 0; i < 250; ++i) {
    const int fd = httptest::Connect(port);
    if (fd >= 0) {
      ::close(fd);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return httptest::Exchange(port, "GET " + path + " HTTP/1.1\r\nHost: metrics\r\nConnection: close\r\n\r\n");
}

// promtool's own verdict, where Debian's prometheus package is installed.
void ExpectPromtoolAccepts(const std::string& text, const std::string& file) {
  if (std::system("command -v promtool >/dev/null 2>&1") != 0) return;
  std::ofstream(file) << text;
  EXPECT_EQ(std::system(("promtool check metrics < " + file + " >/dev/null").c_str()), 0) << text;
}

std::string Series(const char* name, const std::string& labels) { return name + labels; }

TEST_F(System, MetricsCountWhatTheRequestsDidAndHealthFollowsTheService) {
  const uint16_t serviceMetrics = httptest::FreePort();
  service_.Stop();
  ASSERT_TRUE(StartService("4", {"--metrics", "127.0.0.1:" + std::to_string(serviceMetrics)}));
  const uint16_t hostMetrics = httptest::FreePort();
  host_ = std::make_unique<Host>(std::vector<std::string>{"--metrics", "127.0.0.1:" + std::to_string(hostMetrics)});
  ASSERT_TRUE(host_->ready());

  RegisterClient();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Ask(Poll(kUid)).rfind("[Polling_Response]", 0), 0u);
  EXPECT_EQ(Ask("requestid=207&functiontype=1&uid=xyz"), "-6");
  EXPECT_EQ(Ask("requestid=206"), "-2");
  EXPECT_EQ(Ask("requestid=206"), "-2");

  const std::string health = Scrape(hostMetrics, "/healthz");
  EXPECT_EQ(httptest::Status(health), 200) << health;
  EXPECT_EQ(Body(health), "the command-handler service answered\n");

  const std::string host = Body(Scrape(hostMetrics, "/metrics"));
  EXPECT_EQ(metricstest::FirstBadLine(host), "");
  const auto requests = [&](const char* id, const char* result) {
    return Sample(host, Series("vgcr_isapi_requests_total", "{requestid=\"" + std::string(id) + "\",result=\"" + result + "\"}"));
  };
  EXPECT_EQ(requests("101", "ok"), 1);
  EXPECT_EQ(requests("207", "ok"), 3);
  EXPECT_EQ(requests("207", "-6"), 1);
  EXPECT_EQ(requests("other", "-2"), 2);
  EXPECT_EQ(Sample(host, "vgcr_isapi_request_duration_seconds_count{requestid=\"207\"}"), 4);
  EXPECT_EQ(Sample(host, "isapi_host_connections_refused_total"), 0);
  ExpectPromtoolAccepts(host, folder_ + "/host.prom");

  const std::string service = Body(Scrape(serviceMetrics, "/metrics"));
  EXPECT_EQ(metricstest::FirstBadLine(service), "");
  const auto commands = [&](const char* name, const char* outcome) {
    return Sample(service, Series("vgcr_cmdhandler_commands_total",
                                  "{command=\"" + std::string(name) + "\",outcome=\"" + outcome + "\"}"));
  };
  EXPECT_EQ(commands("CMDHLV2_CLN_ON_START", "done"), 1);
  EXPECT_EQ(commands("CMDHLV2_HEARTBEAT_NOTIFY", "done"), 3);
  EXPECT_EQ(commands("CMDHL_GET_PRODUCT_INFO", "done"), 1) << "the health check's round trip";
  EXPECT_EQ(Sample(service, "vgcr_cmdhandler_table_rows{table=\"clients\"}"), 1);
  EXPECT_GE(Sample(service, "vgcr_cmdhandler_transaction_seconds_count"), 4);
  EXPECT_EQ(Sample(service, "vgcr_cmdhandler_signing_seconds_count"), 0) << "nothing asked for a signature";
  EXPECT_EQ(httptest::Status(Scrape(serviceMetrics, "/healthz")), 200);
  ExpectPromtoolAccepts(service, folder_ + "/service.prom");

  EXPECT_EQ(service_.Stop(), 0);
  const std::string down = Scrape(hostMetrics, "/healthz");
  EXPECT_EQ(httptest::Status(down), 503);
  EXPECT_EQ(Body(down), "the command-handler service did not answer (error 2)\n");
  EXPECT_EQ(Sample(Body(Scrape(hostMetrics, "/metrics")),
                   "vgcr_isapi_pipe_failures_total{pipe=\"command_handler\",error=\"2\"}"),
            1);
}

}  // namespace
}  // namespace systest
