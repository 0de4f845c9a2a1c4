#include "platform/thread_token.h"

#include <cstdlib>

namespace plat {

namespace {
thread_local bool impersonating = false;
}  // namespace

// Requests on POSIX hosts run under the host's own identity; what a thread
// would be running under is tracked so that the logic reads the same.
bool SetThreadToken(void* token) {
  impersonating = token != nullptr;
  return true;
}
bool RevertToSelf() {
  impersonating = false;
  return true;
}
bool IsImpersonating() { return impersonating; }

void RaiseAccessViolation() { std::abort(); }

void* CreateImpersonationToken() {
  static int token;
  return &token;
}
void CloseImpersonationToken(void*) {}

}  // namespace plat
