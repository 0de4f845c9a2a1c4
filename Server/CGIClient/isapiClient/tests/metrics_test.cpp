// The extension's counters and its service check, read through the entry
// points a host calls (VgcrGetMetrics, VgcrCheckHealth).
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>

#include "exposition_check.h"
#include "handler_fixture.h"
#include "host/mon_MetricsFile.h"
#include "platform/errors.h"
#include "server_folder.h"

extern "C" {
BOOL WINAPI VgcrGetMetrics(char* buffer, DWORD* size);
BOOL WINAPI VgcrCheckHealth(char* reason, DWORD size);
}

namespace {

std::string Scrape() {
  DWORD size = 0;
  EXPECT_FALSE(VgcrGetMetrics(nullptr, &size));
  EXPECT_EQ(plat::LastError(), plat::kErrorInsufficientBuffer);
  std::string text(size + 4096, '\0');
  DWORD capacity = static_cast<DWORD>(text.size());
  EXPECT_TRUE(VgcrGetMetrics(text.data(), &capacity));
  text.resize(capacity);
  return text;
}

using metricstest::Sample;

std::string Requests(const char* requestId, const char* result) {
  return std::string("vgcr_isapi_requests_total{requestid=\"") + requestId + "\",result=\"" + result + "\"}";
}

peer::Reply Heartbeat() {
  peer::Reply reply;
  reply.make = [](const peer::Received& r) {
    return peer::Builder().Prologue(r.message.command, r.message.identifier).U32(77).Block(r.message.fields.at(0)).bytes();
  };
  return reply;
}

TEST_F(Handlers, CountersMoveByWhatTheRequestsDid) {
  const std::string before = Scrape();
  const std::string heartbeat = std::string("requestid=207&functiontype=1&uid=") + kUid;
  peer_.Script(u"CMDHLV2_HEARTBEAT_NOTIFY", Heartbeat());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Get(heartbeat).body.rfind("[Polling_Response]", 0), 0u);
  EXPECT_EQ(Get("requestid=207&functiontype=1&uid=xyz").body, "-6");
  EXPECT_EQ(Get("requestid=206").body, "-2");
  EXPECT_EQ(Get("uid=1").body, "-1");
  peer_.Stop();
  EXPECT_EQ(Get(heartbeat).body, "-5");

  const std::string after = Scrape();
  EXPECT_EQ(metricstest::FirstBadLine(after), "");
  auto moved = [&](const std::string& series) { return Sample(after, series) - Sample(before, series); };
  EXPECT_EQ(moved(Requests("207", "ok")), 3);
  EXPECT_EQ(moved(Requests("207", "-6")), 1);
  EXPECT_EQ(moved(Requests("207", "-5")), 1);
  EXPECT_EQ(moved(Requests("other", "-2")), 1) << "an unrouted requestid is not a label of its own";
  EXPECT_EQ(moved(Requests("other", "-1")), 1);
  EXPECT_EQ(moved("vgcr_isapi_request_duration_seconds_count{requestid=\"207\"}"), 5);
  EXPECT_EQ(moved("vgcr_isapi_request_duration_seconds_bucket{requestid=\"207\",le=\"+Inf\"}"), 5);
  EXPECT_GT(moved("vgcr_isapi_request_duration_seconds_sum{requestid=\"207\"}"), 0);
  EXPECT_EQ(moved("vgcr_isapi_pipe_failures_total{pipe=\"command_handler\",error=\"2\"}"), 1)
      << "the service's pipe was gone";
  EXPECT_GT(Sample(after, "vgcr_isapi_pool_workers"), 0);
  // A worker counts a request before it tells the host it is done, so the
  // counts above are exact; it leaves the busy ones just after, so that
  // gauge may still hold the last request.
  EXPECT_LE(Sample(after, "vgcr_isapi_pool_busy_workers"), 1);
  EXPECT_EQ(Sample(after, "vgcr_isapi_disk_threshold_status"), 1700);
  // The buckets only grow with their bound.
  double previous = 0;
  std::istringstream lines(after);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("vgcr_isapi_request_duration_seconds_bucket{requestid=\"207\"", 0) != 0) continue;
    const double value = std::stod(line.substr(line.rfind(' ') + 1));
    EXPECT_GE(value, previous) << line;
    previous = value;
  }
}

TEST_F(Handlers, TheServiceCheckIsOneRoundTrip) {
  peer_.Script(u"CMDHL_GET_PRODUCT_INFO", TextAnswer(u""));
  char reason[64];
  EXPECT_TRUE(VgcrCheckHealth(reason, sizeof reason)) << reason;
  EXPECT_EQ(peer_.WaitFor(1).size(), 1u);
  peer_.Stop();
  EXPECT_FALSE(VgcrCheckHealth(reason, sizeof reason));
  EXPECT_STREQ(reason, "the command-handler service did not answer (error 2)");
  char tiny[8];
  EXPECT_FALSE(VgcrCheckHealth(tiny, sizeof tiny));
  EXPECT_STREQ(tiny, "the com") << "cut to fit, and terminated";
}

}  // namespace

namespace {

std::string ReadAll(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The file a collector reads is always one whole rendering: written beside
// it and put in its place, again and again, and once more at the stop.
TEST(MetricsFile, HoldsTheLatestWholeRenderingAndTheLastOneAtStop) {
  ScopedServerFolder folder;
  const std::u16string path = (std::filesystem::path(folder.path()) / "metrics.prom").u16string();
  std::atomic<int> renders{0};
  {
    mon::MetricsFile file;
    file.Start(path, [&] { return "x_total " + std::to_string(++renders) + "\n"; }, 1);
    for (int i = 0; i < 300 && renders.load() < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_GE(renders.load(), 2) << "written at once and again after its period";
    EXPECT_EQ(ReadAll(std::filesystem::path(path)).rfind("x_total ", 0), 0u);
  }
  EXPECT_EQ(ReadAll(std::filesystem::path(path)), "x_total " + std::to_string(renders.load()) + "\n");
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(path + u".tmp")));
  EXPECT_FALSE(mon::MetricsFile::Write((std::filesystem::path(folder.path()) / "none" / "m.prom").u16string(), "x 1\n"));
}

}  // namespace
