// A round trip's first half: listen on the reply pipe, then deliver the
// request on the service pipe. The caller reads the reply from the server.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "pipe_Server.h"

// What a thread's round trips reuse instead of making and closing them each
// time: the local event "PIPE_OBJ_LOCAL_EVENT_<thread id>" (null when it
// cannot be made: Initial then makes one itself, or traces why not) and
// the reply timer. A thread makes one round trip at a time, so they are
// never in use twice; they are closed when the thread ends.
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
