// Process and thread facts, clocks.
#pragma once

#include <cstdint>
#include <string>

namespace plat {

// Milliseconds since an arbitrary start, wrapping at 2^32 (GetTickCount).
uint32_t TickCount();
uint32_t CurrentThreadId();
uint32_t CurrentProcessId();
// Seconds since 1970 (UTC).
int64_t UnixTime();
void SleepMs(uint32_t ms);

struct LocalTime {
  int year, month, day, hour, minute, second, millisecond;
};
LocalTime NowLocal();

// The full file name of the running program (GetModuleFileNameW(NULL)).
std::u16string ProcessFileName();

// An environment variable's value; empty when it is not set. Windows: read
// as UTF-16 (_wgetenv), so a path in any script survives; POSIX: UTF-8.
std::u16string EnvironmentValue(const char* name);

}  // namespace plat
