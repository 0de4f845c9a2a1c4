#include <windows.h>

#include "platform/thread_token.h"

#include <cstdlib>

namespace plat {

bool SetThreadToken(void* token) { return ::SetThreadToken(nullptr, token) != FALSE; }
bool RevertToSelf() { return ::RevertToSelf() != FALSE; }

bool IsImpersonating() {
  HANDLE token = nullptr;
  if (!::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) return false;
  ::CloseHandle(token);
  return true;
}

void RaiseAccessViolation() {
  ::RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  std::abort();
}

void* CreateImpersonationToken() {
  HANDLE process = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_IMPERSONATE, &process)) {
    return nullptr;
  }
  HANDLE impersonation = nullptr;
  BOOL ok = ::DuplicateToken(process, SecurityImpersonation, &impersonation);
  ::CloseHandle(process);
  return ok ? impersonation : nullptr;
}

void CloseImpersonationToken(void* token) {
  if (token) ::CloseHandle(token);
}

}  // namespace plat
