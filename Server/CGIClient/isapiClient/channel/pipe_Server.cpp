#include "pipe_Server.h"

#include "platform/errors.h"
#include "platform/process.h"
#include "support/dbg_Trace.h"
#include "support/str_Format.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\pipe_Server";
constexpr char16_t kConstructor[] = u"CPipeServer::CPipeServer";
constexpr char16_t kRecv[] = u"CPipeServer::Recv";
}  // namespace

CPipeServer::CPipeServer(uint32_t replyTimeoutMs, plat::WaitableTimer* timer)
    : givenTimer_(timer), replyTimeoutMs_(replyTimeoutMs) {
  switch (plat::PipeServerEnd::ClientProcessIdSupport()) {
    case plat::PipeServerEnd::ClientPidSupport::kSupported:
      VGCR_TRACE(5, u"%s - Windows API GetNamedPipeClientProcessId is supported on this platform", kConstructor);
      break;
    case plat::PipeServerEnd::ClientPidSupport::kMissing:
      VGCR_TRACE(5,
                 u"%s - Windows API GetNamedPipeClientProcessId is NOT supported on this platform "
                 u"(Windows XP / Windows 2003)",
                 kConstructor);
      break;
    case plat::PipeServerEnd::ClientPidSupport::kNoLibrary:
      VGCR_TRACE(5, u"%s - Failed to load Kernel32.dll, Windows API GetNamedPipeClientProcessId is NOT available",
                 kConstructor);
      break;
  }
}

CPipeServer::~CPipeServer() { Close(); }

void CPipeServer::Close() {
  instances_.clear();
  timer_ = nullptr;  // a given timer stays open; each Recv arms it afresh
  timerArmed_ = false;
  ownTimer_.Close();
  ownEvent_.Close();
  localEvent_ = nullptr;
}

bool CPipeServer::Initial(const char16_t* name, uint32_t instances, plat::Event* localEvent) {
  Close();
  if (instances == 0 || instances > kMaxInstances) {
    plat::SetLastError(plat::kErrorInvalidParameter);
    return false;
  }
  localEvent_ = localEvent;
  if (localEvent_ == nullptr) {
    char16_t eventName[64];
    fmt16::Format(eventName, 64, u"PIPE_OBJ_LOCAL_EVENT_%u", plat::CurrentThreadId());
    if (!ownEvent_.Create(eventName, false)) {
      VGCR_TRACE(5, u"[CPipeServer::Initial] CreateEvent PIPE_OBJ_LOCAL_EVENT Failed! err=%d", plat::LastError());
      return false;
    }
    localEvent_ = &ownEvent_;
  }
  if (replyTimeoutMs_ > 0) {
    if (givenTimer_ && (givenTimer_->IsOpen() || givenTimer_->Create())) {
      timer_ = givenTimer_;
    } else if (ownTimer_.Create()) {
      timer_ = &ownTimer_;
    } else {
      VGCR_TRACE(5, u"[CPipeServer::Initial] CreateWaitableTimer failed! err=%d", plat::LastError());
    }
  }
  for (uint32_t i = 0; i < instances; ++i) {
    auto instance = std::make_unique<Instance>();
    if (!CreateInstance(*instance, name, instances)) return false;
    if (!StartConnect(*instance)) return false;
    instances_.push_back(std::move(instance));
  }
  return true;
}

bool CPipeServer::CreateInstance(Instance& instance, const char16_t* name, uint32_t count) {
  using Step = plat::PipeServerEnd::Step;
  for (int attempt = 0;; ++attempt) {
    Step failed = Step::kPipe;
    if (instance.end.Create(name, count, kPipeBufferSize, kPipeBufferSize, kDefaultTimeoutMs, &failed)) return true;
    const uint32_t err = plat::LastError();
    switch (failed) {
      case Step::kEvent:
        VGCR_TRACE(5, u"[CPipeServer::Initial] CreateEvent failed! err=%d", err);
        return false;
      case Step::kSecurityDescriptor:
        VGCR_TRACE(5, u"[CPipeServer::Initial] InitializeSecurityDescriptor failed! err=%d", err);
        return false;
      case Step::kDacl:
        VGCR_TRACE(5, u"[CPipeServer::Initial] SetSecurityDescriptorDacl failed! err=%d", err);
        return false;
      case Step::kPipe:
        break;
    }
    if (err != plat::kErrorPipeBusy) {
      VGCR_TRACE(5, u"[CPipeServer::Initial] CreateNamedPipe failed! err=%d", err);
      return false;
    }
    if (attempt == kBusyRetries) {
      VGCR_TRACE(5, u"[CPipeServer::Initial] Retry %d times. Still Failed!", kBusyRetries);
      return false;
    }
    plat::SleepMs(kBusyRetryDelayMs);
  }
}

bool CPipeServer::StartConnect(Instance& instance) {
  instance.connected = false;
  instance.pending = false;
  if (instance.end.Connect()) {
    instance.connected = true;
    return true;
  }
  if (plat::LastError() == plat::kErrorIoPending) {
    instance.pending = true;
    return true;
  }
  VGCR_TRACE(5, u"[CPipeServer::Initial] ConnectToNewClient failed! err=%d", plat::LastError());
  return false;
}

void CPipeServer::Reconnect(Instance& instance) {
  instance.end.Disconnect();
  StartConnect(instance);
}

plat::WaitHandle CPipeServer::ExtraHandle() const {
  if (timerArmed_) return timer_->Handle();
  return localEvent_ ? localEvent_->Handle() : plat::WaitHandle{};
}

int CPipeServer::Recv(void* buffer, uint32_t* length, uint32_t* clientPid) {
  extraSignalled_ = false;
  if (instances_.empty() || length == nullptr) return 0;
  timerArmed_ = timer_ && timer_->Arm(replyTimeoutMs_);
  if (timer_ && !timerArmed_) {
    // The wait goes on without it: a kept timer may still hold the last
    // round trip's expiry, which must not end this one. The local event
    // takes its place; a kept one is cleared of anything an earlier round
    // trip left.
    VGCR_TRACE(5, u"SetWaitableTimer failed (%d)\n", plat::LastError());
    if (localEvent_) localEvent_->Reset();
  }
  const auto count = static_cast<uint32_t>(instances_.size());
  plat::WaitHandle handles[kMaxInstances + 1];
  for (;;) {
    for (uint32_t i = 0; i < count; ++i) handles[i] = instances_[i]->end.Ready();
    handles[count] = ExtraHandle();
    const uint32_t signalled = plat::WaitForAny(handles, count + 1, plat::kInfinite);
    if (signalled > count) return 0;
    if (signalled == count) {
      extraSignalled_ = true;
      return 1;
    }
    Instance& instance = *instances_[signalled];
    if (instance.pending) {
      uint32_t ignored = 0;
      if (instance.end.Result(&ignored, false)) {
        instance.pending = false;
        instance.connected = true;
      } else if (plat::LastError() == plat::kErrorIoIncomplete) {
        continue;  // another instance took the client that woke us
      } else {
        Reconnect(instance);
        return 0;
      }
    }
    return ReadFrom(instance, buffer, length, clientPid);
  }
}

int CPipeServer::ReadFrom(Instance& instance, void* buffer, uint32_t* length, uint32_t* clientPid) {
  if (!instance.connected) {
    Reconnect(instance);
    return 0;
  }
  uint32_t got = 0;
  bool ok = instance.end.Read(buffer, *length, &got);
  uint32_t err = ok ? plat::kErrorSuccess : plat::LastError();
  if (!ok && err == plat::kErrorIoPending) {
    // The read waits as long as the wait itself may: the extra handle (the
    // reply timer) still ends it, so a stalled writer cannot hold us.
    for (;;) {
      plat::WaitHandle both[2] = {instance.end.Ready(), ExtraHandle()};
      uint32_t signalled = plat::WaitForAny(both, 2, plat::kInfinite);
      if (signalled == 1) {
        instance.end.Cancel();
        extraSignalled_ = true;
        return 1;
      }
      if (signalled != 0) {
        instance.end.Cancel();
        Reconnect(instance);
        return 0;
      }
      ok = instance.end.Result(&got, false);
      err = ok ? plat::kErrorSuccess : plat::LastError();
      if (ok || err != plat::kErrorIoIncomplete) break;
    }
  }
  if (ok || err == plat::kErrorMoreData || err == plat::kErrorHandleEof) {
    *length = got;
    if (clientPid) {
      uint32_t pid = 0;
      if (!instance.end.ClientProcessId(&pid)) pid = 0;
      *clientPid = pid;
      VGCR_TRACE(68, u"%s - The connected pipe client PID [%d]", kRecv, pid);
    }
    return 1;
  }
  Reconnect(instance);
  return 0;
}
