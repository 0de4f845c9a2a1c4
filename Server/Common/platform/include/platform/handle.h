// The thing a wait can be made on: a HANDLE on Windows, a file descriptor
// that polls readable while "signalled" on POSIX.
#pragma once

#include <cstdint>

namespace plat {

#if defined(_WIN32)
using NativeHandle = void*;
inline constexpr NativeHandle kNoHandle = nullptr;
#else
using NativeHandle = int;
inline constexpr NativeHandle kNoHandle = -1;
#endif

struct WaitHandle {
  NativeHandle native = kNoHandle;
  // POSIX: one waiter woken is enough, as for a pipe's pending connect,
  // which completes for one instance only. The handle is a listening socket
  // that several instances' threads wait on; without this every one of
  // them would wake for each client and all but one would find nothing.
  // Windows gives each instance its own handle and ignores it.
  bool wakeOne = false;
  bool valid() const { return native != kNoHandle; }
};

inline constexpr uint32_t kInfinite = 0xFFFFFFFFu;
inline constexpr uint32_t kWaitObject0 = 0;
inline constexpr uint32_t kWaitTimeout = 258;
inline constexpr uint32_t kWaitFailed = 0xFFFFFFFFu;

// WaitForMultipleObjects(count, handles, FALSE, timeout): the index of a
// signalled handle (kWaitObject0 + i), kWaitTimeout, or kWaitFailed with the
// last error set. At most 64 handles, as on Windows.
uint32_t WaitForAny(const WaitHandle* handles, uint32_t count, uint32_t timeoutMs);

// WaitForSingleObject.
uint32_t WaitForOne(WaitHandle handle, uint32_t timeoutMs);

}  // namespace plat
