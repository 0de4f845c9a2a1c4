// A round trip's first half: listen on the reply pipe, then deliver the
// request on the service pipe. The caller reads the reply from the server.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "pipe_Server.h"

// What a thread's round trips may reuse instead of making and closing them
// each time: the local event "PIPE_OBJ_LOCAL_EVENT_<thread id>" and the
// reply timer. A thread that makes many round trips (a pool worker) keeps
// them for its lifetime by holding one of these on its stack; they are made
// on its first round trip and closed when it goes. A thread makes one round
// trip at a time, so they are never in use twice. (An object the thread
// owns, not a thread_local with a destructor: those are not run reliably by
// every toolchain this builds with.)
class ThreadRoundTripObjects {
 public:
  ThreadRoundTripObjects();
  ~ThreadRoundTripObjects();
  ThreadRoundTripObjects(const ThreadRoundTripObjects&) = delete;
  ThreadRoundTripObjects& operator=(const ThreadRoundTripObjects&) = delete;

  plat::Event* LocalEvent();  // null when it cannot be made
  plat::WaitableTimer* ReplyTimer() { return &replyTimer_; }

 private:
  plat::Event localEvent_;
  plat::WaitableTimer replyTimer_;
  ThreadRoundTripObjects* previous_;
};

// This thread's, or null when it keeps none: the round trip then makes its
// own (CPipeServer::Initial makes the event, or traces why it cannot).
plat::Event* ThreadLocalEvent();
plat::WaitableTimer* ThreadReplyTimer();

bool PipeSendAndRecvW(const void* bytes, uint32_t length, const char16_t* replyPipeName,
                      const char16_t* servicePipeName, CPipeServer& server, plat::Event* localEvent);

// Reads a reply from the server, piece by piece, into out. With
// stopOnShortRead, a piece shorter than asked ends the reply (the version-2
// convention); otherwise only the service's close or a failure does. A
// reply that has not ended within totalTimeoutMs is a failure. Returns
// false when the time ran out (the reply is then incomplete); an empty reply
// that ended is the caller's to judge.
bool ReadReply(CPipeServer& server, uint32_t pieceSize, bool stopOnShortRead, uint32_t totalTimeoutMs,
               const std::function<void(const char* piece, uint32_t length)>& take);
