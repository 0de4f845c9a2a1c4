// Named and unnamed manual-reset events (CreateEventW / OpenEventW).
//
// On POSIX the names live in an in-process registry: both ends of every
// named event this program uses are in one process (the adapter hand-shake,
// the pipe server's local event).
#pragma once

#include <memory>

#include "platform/handle.h"

namespace plat {

class Event {
 public:
  Event();
  ~Event();
  Event(Event&&) noexcept;
  Event& operator=(Event&&) noexcept;
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  // Creates a manual-reset event; a null or empty name makes it unnamed.
  // An existing name opens that event and sets the last error to
  // kErrorAlreadyExists, as CreateEventW does.
  bool Create(const char16_t* name, bool initiallySignalled);
  // Opens an existing named event; kErrorFileNotFound when there is none.
  bool Open(const char16_t* name);

  bool Set();
  bool Reset();
  // WaitForSingleObject on the event: kWaitObject0, kWaitTimeout, kWaitFailed.
  uint32_t Wait(uint32_t timeoutMs) const;
  void Close();

  bool IsOpen() const;
  WaitHandle Handle() const;

  struct Core;

 private:
  std::shared_ptr<Core> core_;
#if defined(_WIN32)
  void* handle_ = nullptr;
#endif
};

}  // namespace plat
