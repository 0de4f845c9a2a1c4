#include "support/dbg_Trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <new>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/errors.h"
#include "platform/machine_config.h"
#include "platform/pipe.h"
#include "platform/process.h"
#include "platform/temp_file.h"
#include "platform/text.h"
#include "support/logcl_Command.h"
#include "service_peer.h"
#include "trace_sink.h"

// Counts heap allocations made by the thread that asks, to prove that a
// trace call makes none.
namespace {
thread_local bool t_counting = false;
thread_local int t_allocations = 0;
}  // namespace

// The replacements pair malloc with free on purpose.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
  if (t_counting) ++t_allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (t_counting) ++t_allocations;
  return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

constexpr char16_t kTraceSource[] = u".\\dbg_Trace_test";

// The server's log server, played by the service stand-in.
std::unique_ptr<peer::ServicePeer> StartLogServer() {
  auto server = std::make_unique<peer::ServicePeer>(std::vector<std::u16string>{kLogServerPipeName}, 1);
  return server->Start() ? std::move(server) : nullptr;
}

class Trace : public ::testing::Test {
 protected:
  void SetUp() override {
    dbg::Initialize("", "", "isapiClient", 1);
    dbg::SetLogServerRetryInterval(5000);
    logcl_ResetNotice();
    // A log server that is merely not scheduled for a few milliseconds on a
    // loaded machine would lose lines these tests expect; the bounds
    // themselves have a test of their own.
    logcl_SetBounds(5000, 5000);
  }
  void TearDown() override {
    logcl_SetBounds(kLogServerBusyWaitMs, kLogServerSendMs);
    dbg::Shutdown();
  }
};

TEST_F(Trace, LongMessageIsCutToTheBufferNotRejected) {
  TraceCapture capture;
  std::u16string huge(100000, u'x');
  dbg::TraceW(5, kTraceSource, __LINE__, u"%s", huge);
  auto lines = capture.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].decorated.size(), dbg::kTraceBufferChars - 1);
  EXPECT_EQ(lines[0].decorated.back(), u'x');
}

TEST_F(Trace, LocalLineHasTheExactFormat) {
  std::u16string folder;
  ASSERT_TRUE(plat::TempFolder(&folder));
  std::string path = plat::ToUtf8(folder) + "vgcr-trace-" + std::to_string(plat::CurrentProcessId()) + ".log";
  std::remove(path.c_str());
#if defined(_WIN32)
  _putenv_s("VGCR_TRACE_LOG", path.c_str());
#else
  ::setenv("VGCR_TRACE_LOG", path.c_str(), 1);
#endif
  dbg::Shutdown();
  dbg::Initialize("", "", "isapiClient", 1);
  dbg::TraceW(8, u".\\isapi_Client", 77, u"[isapiClient] GetExtensionVersion();");
  dbg::Shutdown();
#if defined(_WIN32)
  _putenv_s("VGCR_TRACE_LOG", "");
#else
  ::unsetenv("VGCR_TRACE_LOG");
#endif
  std::ifstream file(path, std::ios::binary);
  std::stringstream content;
  content << file.rdbuf();
  file.close();
  std::remove(path.c_str());
  const std::regex expected(
      R"(\d{4} \d{2}/\d{2} \d{2}:\d{2}:\d{2} \[[0-9a-f]{4,} : [0-9a-f]{4,}\] )"
      R"(\[isapiClient\]\[[^\]]+\]\[isapiClient\] GetExtensionVersion\(\); - \[\.\\isapi_Client\(77\)\]\r\n)");
  EXPECT_TRUE(std::regex_match(content.str(), expected)) << content.str();
}

TEST_F(Trace, WithoutALogServerTheNoticeIsGivenOnce) {
  TraceCapture capture;
  dbg::SetLogServerRetryInterval(0);  // try the log server on every call
  const uint64_t dropped = dbg::DroppedLines();
  for (int i = 0; i < 20; ++i) dbg::TraceW(73, kTraceSource, __LINE__, u"burst %d", i);
  int notices = 0;
  for (const auto& line : capture.AllLines()) {
    if (line.message == u"Need to Start LogServer for turn on debug log.") {
      ++notices;
      EXPECT_TRUE(line.quiet);
      EXPECT_EQ(line.level, 5);
      EXPECT_EQ(line.source, u".\\logcl_Command");
      EXPECT_EQ(line.line, 114);
    }
  }
  EXPECT_EQ(notices, 1);
  EXPECT_EQ(capture.Count("burst"), 20);
  EXPECT_EQ(dbg::DroppedLines(), dropped) << "no log server is not a busy one";
}

TEST_F(Trace, LinesAreHandedToTheLogServerAsLogWrite) {
  auto server = StartLogServer();
  ASSERT_TRUE(server);
  const uint64_t dropped = dbg::DroppedLines();
  std::u16string long_text(3000, u'y');  // travels as several 1024-byte pieces
  dbg::TraceW(69, u".\\isapi_OnStart", 412, u"first %d", 1);
  server->WaitFor(1);
  dbg::TraceW(5, u".\\isapi_OnStart", 413, u"%s", long_text);
  auto requests = server->WaitFor(2);
  ASSERT_EQ(requests.size(), 2u);
  std::string first(requests[0].bytes.size() / 2, '\0');
  for (std::size_t i = 0; i < first.size(); ++i) first[i] = static_cast<char>(requests[0].bytes[2 * i]);
  const std::regex layout(R"(LOG_WRITE\t\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3}\t(\d+)\t(\d+)\t69\t)"
                          R"(\.\\isapi_OnStart\t412\t\[isapiClient\]\[[^\]]+\]first 1)");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(first, m, layout)) << first;
  EXPECT_EQ(std::stoul(m[1]), plat::CurrentProcessId());
  EXPECT_EQ(std::stoul(m[2]), plat::CurrentThreadId());
  EXPECT_EQ(requests[1].text.back().substr(requests[1].text.back().size() - 3000), std::u16string(3000, u'y'));
  EXPECT_EQ(dbg::DroppedLines(), dropped);
}

// A log server that cannot take a line must not hold the thread that
// traces: the call gives up after a few milliseconds and counts the line.
// Busy: clients that say nothing hold every instance (on POSIX, every place
// in the queue of connections). Silent: the line's connection is taken but
// never read, so on Windows its writes stall once the pipe's buffer is full.
TEST_F(Trace, ABusyOrSilentLogServerHoldsATraceCallOnlyBriefly) {
  enum class Server { kBusy, kSilent };
  const std::u16string text(4000, u'z');  // about 8 KB: several pipe messages
  logcl_SetBounds(kLogServerBusyWaitMs, kLogServerSendMs);
  for (const Server kind : {Server::kBusy, Server::kSilent}) {
    SCOPED_TRACE(kind == Server::kBusy ? "busy" : "silent");
    dbg::SetLogServerRetryInterval(0);  // every call tries the log server
    plat::PipeServerEnd server;
    ASSERT_TRUE(server.Create(kLogServerPipeName, 1, 1024, 1024, 1000)) << plat::LastError();
    std::vector<std::unique_ptr<plat::PipeClient>> holders;
    if (kind == Server::kBusy) {
      for (;;) {
        auto holder = std::make_unique<plat::PipeClient>();
        if (!holder->Open(kLogServerPipeName)) break;
        holders.push_back(std::move(holder));
        ASSERT_LT(holders.size(), 1000u) << "the pipe never became busy";
      }
      ASSERT_EQ(plat::LastError(), plat::kErrorPipeBusy);
    }
    const uint64_t dropped = dbg::DroppedLines();
    for (int i = 0; i < 3; ++i) {
      const auto start = std::chrono::steady_clock::now();
      dbg::TraceW(73, kTraceSource, __LINE__, u"%s", text);
      EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200)) << i;
    }
    if (kind == Server::kBusy) {
      EXPECT_EQ(dbg::DroppedLines(), dropped + 3);
      // Lines passed over while the busy log server is rested count too.
      dbg::SetLogServerRetryInterval(60000);
      dbg::TraceW(73, kTraceSource, __LINE__, u"gives up");
      dbg::TraceW(73, kTraceSource, __LINE__, u"passed over");
      EXPECT_EQ(dbg::DroppedLines(), dropped + 5);
    }
  }
}

TEST_F(Trace, ATraceCallAllocatesNothing) {
  dbg::TraceW(5, kTraceSource, __LINE__, u"warm up");  // process name, converters
  dbg::SetLogServerRetryInterval(0);
  {
    auto server = StartLogServer();
    ASSERT_TRUE(server);
    dbg::TraceW(5, kTraceSource, __LINE__, u"warm up %d", 2);
    server->WaitFor(1);
    t_allocations = 0;
    for (int i = 0; i < 10; ++i) {
      t_counting = true;
      dbg::TraceW(73, kTraceSource, __LINE__, u"to the log server %d %s", i, u"text");
      t_counting = false;
      server->WaitFor(static_cast<std::size_t>(i) + 2);
    }
    t_counting = true;
    dbg::TraceA(73, kTraceSource, __LINE__, "narrow %s", "text");
    t_counting = false;
    EXPECT_EQ(t_allocations, 0) << "with a log server";
    EXPECT_EQ(server->WaitFor(12).size(), 12u);
  }
  t_allocations = 0;
  t_counting = true;
  for (int i = 0; i < 10; ++i) dbg::TraceW(73, kTraceSource, __LINE__, u"no log server %d", i);
  t_counting = false;
  EXPECT_EQ(t_allocations, 0) << "without a log server";
}

}  // namespace
