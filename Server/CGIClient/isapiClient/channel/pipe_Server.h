// The server end of a pipe: one or more instances of one name, waited on
// together with one extra handle (a local event, or a timer that bounds the
// wait for a reply).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/event.h"
#include "platform/pipe.h"
#include "platform/timer.h"

class CPipeServer {
 public:
  static constexpr uint32_t kMaxInstances = 63;  // plus the extra handle: 64 waitables
  static constexpr uint32_t kPipeBufferSize = 1024;
  static constexpr uint32_t kDefaultTimeoutMs = 1000;
  static constexpr int kBusyRetries = 5;
  static constexpr uint32_t kBusyRetryDelayMs = 100;

  // With a reply timeout, each Recv waits at most that long (the waitable
  // timer takes the place of the local event in the wait). The timer is
  // the one given, when one is (a thread's own, reused by its round trips),
  // else one of the server's own.
  explicit CPipeServer(uint32_t replyTimeoutMs = 0, plat::WaitableTimer* timer = nullptr);
  ~CPipeServer();
  CPipeServer(const CPipeServer&) = delete;
  CPipeServer& operator=(const CPipeServer&) = delete;

  // Creates the local event "PIPE_OBJ_LOCAL_EVENT_<thread id>" when none is
  // given, then the instances, each with a connect started. A busy name is
  // tried again every 100 ms, 5 more times.
  bool Initial(const char16_t* name, uint32_t instances = 1, plat::Event* localEvent = nullptr);

  // Waits for the next message on any instance and reads it into buffer
  // (*length in: capacity, out: bytes read). Returns 1 with data, 0 on a
  // failure (the instance is then reconnected for the next client). Returns
  // 1 WITHOUT data, *length untouched, when the extra handle fired first:
  // check ExtraSignalled() before trusting the bytes.
  int Recv(void* buffer, uint32_t* length, uint32_t* clientPid);
  bool ExtraSignalled() const { return extraSignalled_; }

  void Close();

 private:
  struct Instance {
    plat::PipeServerEnd end;
    bool pending = false;    // a connect is in progress
    bool connected = false;
  };

  bool CreateInstance(Instance& instance, const char16_t* name, uint32_t count);
  void Reconnect(Instance& instance);
  bool StartConnect(Instance& instance);
  int ReadFrom(Instance& instance, void* buffer, uint32_t* length, uint32_t* clientPid);
  plat::WaitHandle ExtraHandle() const;

  std::vector<std::unique_ptr<Instance>> instances_;
  plat::Event ownEvent_;
  plat::Event* localEvent_ = nullptr;
  plat::WaitableTimer ownTimer_;
  plat::WaitableTimer* givenTimer_;
  plat::WaitableTimer* timer_ = nullptr;  // the one in use; null without a reply timeout
  bool timerArmed_ = false;               // by the last Recv: only then is it waited on
  uint32_t replyTimeoutMs_;
  bool extraSignalled_ = false;
};
