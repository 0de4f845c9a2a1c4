#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <string>

#include <cstdio>
#include <cstdlib>

#include "platform/diagnostics.h"
#include "platform/process.h"
#include "platform/text.h"

namespace plat {

uint32_t TickCount() {
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
  return static_cast<uint32_t>(ms);
}

uint32_t CurrentThreadId() { return static_cast<uint32_t>(::syscall(SYS_gettid)); }
uint32_t CurrentProcessId() { return static_cast<uint32_t>(::getpid()); }

int64_t UnixTime() { return static_cast<int64_t>(::time(nullptr)); }

void SleepMs(uint32_t ms) {
  timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  while (::nanosleep(&ts, &ts) != 0) {
  }
}

LocalTime NowLocal() {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  tm parts{};
  ::localtime_r(&ts.tv_sec, &parts);
  return LocalTime{parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
                   parts.tm_min, parts.tm_sec, static_cast<int>(ts.tv_nsec / 1000000)};
}

std::u16string ProcessFileName() {
  char path[PATH_MAX];
  ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return std::u16string();
  return FromUtf8(std::string_view(path, static_cast<std::size_t>(n)));
}

void OutputDebugText(const char16_t* text) {
  if (std::getenv("VGCR_DEBUG_OUTPUT") == nullptr || text == nullptr) return;
  std::fputs(ToUtf8(text).c_str(), stderr);
}

std::u16string EnvironmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value ? FromUtf8(value) : u"";
}

}  // namespace plat
