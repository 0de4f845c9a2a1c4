// The command channel's costs: a small one-way command, a round trip against
// the test peer, a 10 MiB message through its spill file, and two floors
// measured in the same run: a bare AF_UNIX SOCK_SEQPACKET ping-pong on an
// open connection, and a bare round trip that connects for each message as
// the channel does.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/ser_MsgSerializer.h"
#include "service_peer.h"

namespace {

struct Environment {
  Environment() {
    char dir[] = "/tmp/vgcr-bench-XXXXXX";
    if (::mkdtemp(dir)) {
      root = dir;
      ::setenv("VGCR_PIPE_DIR", (root + "/pipe").c_str(), 1);
      ::setenv("VGCR_LOCAL_PATH", root.c_str(), 1);
    }
  }
  ~Environment() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
  std::string root;
} g_environment;

void FillHeartbeat(CMsgSerializer& message) {
  ser::WriteWString(message, u"3F2504E0-4F89-11D3-9A0C-0305E82C3301");
  ser::WriteU32(message, 1);
  ser::WriteU32(message, 2);
}

void BM_SmallOneWaySend(benchmark::State& state) {
  peer::ServicePeer service({u"Vanta Labs VGCR Command Handler Manager"}, 4);
  service.SetKeepRecords(false);
  if (!service.Start()) state.SkipWithError("peer did not start");
  for (auto _ : state) {
    CMsgSerializer message(u"CMDHLV2_CLN_ON_LOGON_USER");
    FillHeartbeat(message);
    if (!cmdal2_Send(message)) state.SkipWithError("send failed");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SmallOneWaySend)->UseRealTime();

void BM_RoundTrip(benchmark::State& state) {
  peer::ServicePeer service({u"Vanta Labs VGCR Command Handler Manager"}, 4);
  service.SetKeepRecords(false);
  peer::Reply reply;
  reply.make = [](const peer::Received& r) {
    return peer::Builder().Prologue(r.message.command, r.message.identifier).I32(1).bytes();
  };
  service.Script(u"CMDHLV2_HEARTBEAT_NOTIFY", reply);
  if (!service.Start()) state.SkipWithError("peer did not start");
  for (auto _ : state) {
    CMsgSerializer message(u"CMDHLV2_HEARTBEAT_NOTIFY");
    FillHeartbeat(message);
    if (!cmdal2_SendAndRecv(message, message.Identifier().c_str())) state.SkipWithError("round trip failed");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RoundTrip)->UseRealTime();

void BM_SpillAppendAndRead10MiB(benchmark::State& state) {
  std::vector<uint8_t> block(64 * 1024, 0x33);
  std::vector<uint8_t> back(block.size());
  for (auto _ : state) {
    CMsgSerializer sender(u"CMDHLV2_SET_LOG_COMMON");
    for (int i = 0; i < 160; ++i) ser::WriteBlock(sender, block.data(), static_cast<uint32_t>(block.size()));
    sender.Finish();
    std::vector<uint8_t> wire(sender.Buffer().Data(), sender.Buffer().Data() + sender.GetSize());
    sender.HandOverSpillFile();
    CMsgSerializer receiver;
    receiver.Load(wire.data(), static_cast<uint32_t>(wire.size()));
    for (int i = 0; i < 160; ++i) ser::ReadBlock(receiver, back.data(), static_cast<uint32_t>(back.size()));
  }
  state.SetBytesProcessed(state.iterations() * 160 * static_cast<int64_t>(block.size()));
}
BENCHMARK(BM_SpillAppendAndRead10MiB)->Unit(benchmark::kMillisecond)->UseRealTime();

// Floor 1: request and reply on one open SOCK_SEQPACKET connection.
void BM_FloorSocketPingPong(benchmark::State& state) {
  int pair[2];
  ::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair);
  std::thread echo([fd = pair[1]] {
    char buffer[2048];
    for (;;) {
      ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0 || ::send(fd, buffer, static_cast<size_t>(n), MSG_NOSIGNAL) != n) return;
    }
  });
  char request[200] = {1};
  char reply[2048];
  for (auto _ : state) {
    ::send(pair[0], request, sizeof request, MSG_NOSIGNAL);
    ::recv(pair[0], reply, sizeof reply, 0);
  }
  ::shutdown(pair[0], SHUT_RDWR);
  echo.join();
  ::close(pair[0]);
  ::close(pair[1]);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FloorSocketPingPong)->UseRealTime();

// Floor 2: a connection per request, as a pipe client makes one per message.
void BM_FloorSocketConnectRoundTrip(benchmark::State& state) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::string path = g_environment.root + "/floor.sock";
  std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
  int listener = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
  ::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  ::listen(listener, 64);
  std::thread server([listener] {
    char buffer[2048];
    for (;;) {
      int fd = ::accept(listener, nullptr, nullptr);
      if (fd < 0) return;
      ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n > 0) ::send(fd, buffer, static_cast<size_t>(n), MSG_NOSIGNAL);
      ::close(fd);
    }
  });
  char request[200] = {1};
  char reply[2048];
  for (auto _ : state) {
    int fd = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
    ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    ::send(fd, request, sizeof request, MSG_NOSIGNAL);
    ::recv(fd, reply, sizeof reply, 0);
    ::close(fd);
  }
  ::shutdown(listener, SHUT_RDWR);
  ::close(listener);
  server.join();
  ::unlink(path.c_str());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FloorSocketConnectRoundTrip)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
