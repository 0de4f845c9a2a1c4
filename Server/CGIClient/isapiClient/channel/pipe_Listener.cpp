#include "pipe_Listener.h"

#include "platform/errors.h"
#include "platform/process.h"

namespace {

constexpr uint32_t kPieceBuffer = 4096;

// Drops the last client and starts listening for the next one.
void Relisten(plat::PipeServerEnd& end, bool* connected) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    end.Disconnect();
    *connected = end.Connect();
    if (*connected || plat::LastError() == plat::kErrorIoPending) return;
    plat::SleepMs(1);  // a client that came and went before the connect
  }
}

// Waits for the instance's operation or the stop event: true when the
// operation can be completed.
bool WaitReady(plat::PipeServerEnd& end, const plat::Event& stop) {
  plat::WaitHandle handles[2] = {end.Ready(), stop.Handle()};
  return plat::WaitForAny(handles, 2, plat::kInfinite) == plat::kWaitObject0;
}

// A request the listener has begun to read when it is told to stop is
// finished if its sender finishes it soon: the sender counts a request as
// delivered once its writes succeed, and only its close may still be
// missing. A sender that dawdles past the grace loses its request.
constexpr uint32_t kStopGraceMs = 2000;

struct StopGrace {
  bool started = false;
  uint32_t start = 0;
};

// How long a connected client may take: a sender writes as soon as it has
// connected and closes right after, so its whole request is in within 5 s.
// A client that connects and says nothing would hold an instance all that
// time, and a few of them every instance: when half the instances or more
// wait for a first piece, a client that has sent nothing for 500 ms goes.
constexpr uint32_t kFirstPieceMs = 500;
constexpr uint32_t kWholeRequestMs = 5000;
constexpr uint32_t kLookAgainMs = 100;

// Waits for the instance's operation, the stop event or the deadline (a
// tick count): 1 ready, 0 stopped, -1 out of time.
int WaitReadyUntil(plat::PipeServerEnd& end, const plat::Event& stop, uint32_t deadline) {
  const int32_t left = static_cast<int32_t>(deadline - plat::TickCount());
  if (left <= 0) return -1;
  plat::WaitHandle handles[2] = {end.Ready(), stop.Handle()};
  const uint32_t woke = plat::WaitForAny(handles, 2, static_cast<uint32_t>(left));
  if (woke == plat::kWaitObject0) return 1;
  return woke == plat::kWaitObject0 + 1 ? 0 : -1;
}

// After the stop: the operation may still complete within the grace.
bool ReadyWithinGrace(plat::PipeServerEnd& end, StopGrace* grace) {
  if (!grace->started) *grace = {true, plat::TickCount()};
  const uint32_t spent = plat::TickCount() - grace->start;
  if (spent >= kStopGraceMs) return false;
  plat::WaitHandle ready = end.Ready();
  return plat::WaitForAny(&ready, 1, kStopGraceMs - spent) == plat::kWaitObject0;
}

// Waits for the read in progress: true when it can be completed; false at
// the stop (past its grace) or when the client is out of time (*late).
bool WaitForPiece(plat::PipeServerEnd& end, const plat::Event& stop, uint32_t start, bool first,
                  std::atomic<uint32_t>& waitingFirst, uint32_t instances, StopGrace* grace, bool* late) {
  if (first) waitingFirst.fetch_add(1);
  bool ready = false;
  for (;;) {
    const bool crowded = first && 2 * waitingFirst.load() >= instances;
    const uint32_t deadline = start + (crowded ? kFirstPieceMs : kWholeRequestMs);
    const uint32_t now = plat::TickCount();
    // While not crowded, look at the crowd again now and then.
    const bool watch = first && !crowded && static_cast<int32_t>(deadline - now) > static_cast<int32_t>(kLookAgainMs);
    const int woke = WaitReadyUntil(end, stop, watch ? now + kLookAgainMs : deadline);
    if (woke == 1) {
      ready = true;
    } else if (woke == 0) {
      ready = ReadyWithinGrace(end, grace);
    } else if (watch) {
      continue;
    } else {
      *late = true;
    }
    break;
  }
  if (first) waitingFirst.fetch_sub(1);
  return ready;
}

}  // namespace

CPipeListener::CPipeListener(std::u16string name, uint32_t instances, Handler handler, std::size_t maxRequest)
    : name_(std::move(name)), count_(instances ? instances : 1), handler_(std::move(handler)), maxRequest_(maxRequest) {}

CPipeListener::~CPipeListener() { Join(); }

bool CPipeListener::Start(const plat::Event& stop) {
  for (uint32_t i = 0; i < count_; ++i) {
    auto instance = std::make_unique<Instance>();
    if (!instance->end.Create(name_.c_str(), count_, 1024, 1024, 1000)) return false;
    instance->connected = instance->end.Connect();
    if (!instance->connected && plat::LastError() != plat::kErrorIoPending) return false;
    instances_.push_back(std::move(instance));
  }
  for (auto& instance : instances_) {
    Instance* it = instance.get();
    it->thread = std::thread([this, it, &stop] { Serve(*it, stop); });
  }
  return true;
}

void CPipeListener::Join() {
  for (auto& instance : instances_) {
    if (instance->thread.joinable()) instance->thread.join();
  }
  instances_.clear();
}

bool CPipeListener::AwaitClient(Instance& instance, const plat::Event& stop) {
  while (!instance.connected) {
    if (!WaitReady(instance.end, stop)) return false;
    uint32_t ignored = 0;
    if (instance.end.Result(&ignored, false)) {
      instance.connected = true;
    } else if (plat::LastError() != plat::kErrorIoIncomplete) {
      Relisten(instance.end, &instance.connected);  // a client that came and went
    }
  }
  return true;
}

// Reads until the client closes. False when the listener stops before the
// client has finished, or the client runs out of time (*late): either way
// the request is dropped.
bool CPipeListener::ReadRequest(Instance& instance, const plat::Event& stop, PipeRequest* request, bool* late) {
  uint8_t piece[kPieceBuffer];
  StopGrace grace;
  const uint32_t start = plat::TickCount();
  for (;;) {
    uint32_t n = 0;
    bool ok = instance.end.Read(piece, sizeof piece, &n);
    if (!ok && plat::LastError() == plat::kErrorIoPending) {
      if (!WaitForPiece(instance.end, stop, start, request->pieceSizes.empty(), waitingFirst_, count_, &grace,
                        late)) {
        instance.end.Cancel();
        return false;
      }
      ok = instance.end.Result(&n, false);
    }
    if (!ok && plat::LastError() != plat::kErrorMoreData) {
      if (request->bytes.empty()) request->endError = plat::LastError();
      return true;
    }
    if (request->clientPid == 0) instance.end.ClientProcessId(&request->clientPid);
    if (request->bytes.size() + n > maxRequest_) {
      request->tooLong = true;  // the rest is read and thrown away
      continue;
    }
    request->pieceSizes.push_back(n);
    request->bytes.insert(request->bytes.end(), piece, piece + n);
  }
}

void CPipeListener::Serve(Instance& instance, const plat::Event& stop) {
  for (;;) {
    if (!AwaitClient(instance, stop)) return;
    PipeRequest request;
    bool late = false;
    if (!ReadRequest(instance, stop, &request, &late)) {
      if (!late) return;
      lateClients_.fetch_add(1, std::memory_order_relaxed);
      Relisten(instance.end, &instance.connected);
      continue;
    }
    Relisten(instance.end, &instance.connected);
    if (!request.bytes.empty() || request.tooLong) {
      handler_(std::move(request));
    } else {
      emptyClients_.fetch_add(1, std::memory_order_relaxed);
      lastEmptyError_.store(request.endError, std::memory_order_relaxed);
    }
  }
}
