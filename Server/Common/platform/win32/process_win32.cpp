#include <windows.h>

#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <string>

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

std::u16string EnvironmentValue(const char* name) {
  std::wstring wide(name, name + std::char_traits<char>::length(name));
  const wchar_t* value = ::_wgetenv(wide.c_str());
  if (value == nullptr) return u"";
  return std::u16string(reinterpret_cast<const char16_t*>(value), std::wcslen(value));
}

}  // namespace plat
