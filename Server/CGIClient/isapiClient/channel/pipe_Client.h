// The client end of a command pipe: opened, written and closed per message.
// Every failure to open or write counts in the extension's metrics.
#pragma once

#include <cstdint>

#include "platform/pipe.h"

// Largest piece written to a pipe at once; a longer send is several pipe
// messages in a row.
inline constexpr uint32_t kPipeChunkSize = 1024;
// How long an open waits for a busy pipe, per attempt.
inline constexpr uint32_t kPipeBusyWaitMs = 20000;

// For a sender that would rather lose its message than keep its caller
// waiting: how long an open may wait, in all, for a busy pipe, and how long
// a send may take, in all, for the reader to take every piece.
struct PipeBounds {
  uint32_t busyWaitMs;
  uint32_t sendMs;
};

class CPipeClient {
 public:
  // Opens the pipe for writing in message read mode. A busy pipe is waited
  // for (20 s per attempt) and tried again for as long as the wait succeeds;
  // any other failure, a missing pipe among them, fails at once. The last
  // error says why.
  bool Open(const char16_t* name);
  // The same within bounds: the busy wait ends after bounds.busyWaitMs in
  // all, and each Send on this opening after bounds.sendMs. Past either the
  // call fails with kErrorSemTimeout; a send given up may have delivered its
  // first pieces.
  bool Open(const char16_t* name, const PipeBounds& bounds);
  // Writes *length bytes in pieces of at most 1024. A piece refused for lack
  // of system resources (1450) is written again at once. On success
  // *length holds the bytes written.
  bool Send(const void* data, uint32_t* length);
  void Close();

 private:
  // Counts the failure (by pipe and the last error) and returns false.
  bool Failed() const;

  plat::PipeClient pipe_;
  const char16_t* name_ = nullptr;
  uint32_t sendBoundMs_ = plat::kInfinite;  // kInfinite: the writes block
};
