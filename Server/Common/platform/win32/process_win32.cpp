#include <windows.h>

#include <ctime>

#include "platform/diagnostics.h"
#include "platform/process.h"
#include "wide.h"

namespace plat {

uint32_t TickCount() { return ::GetTickCount(); }
uint32_t CurrentThreadId() { return ::GetCurrentThreadId(); }
uint32_t CurrentProcessId() { return ::GetCurrentProcessId(); }
int64_t UnixTime() { return static_cast<int64_t>(std::time(nullptr)); }
void SleepMs(uint32_t ms) { ::Sleep(ms); }

LocalTime NowLocal() {
  SYSTEMTIME t;
  ::GetLocalTime(&t);
  return LocalTime{t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds};
}

std::u16string ProcessFileName() {
  wchar_t path[MAX_PATH + 1] = {};
  DWORD n = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::u16string(win32::U(path), n);
}

void OutputDebugText(const char16_t* text) {
  if (text) ::OutputDebugStringW(win32::W(text));
}

}  // namespace plat
