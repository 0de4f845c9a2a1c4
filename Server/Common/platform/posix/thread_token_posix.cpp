#include "platform/thread_token.h"

#include <cstdlib>

namespace plat {

// Requests on POSIX hosts run under the host's own identity.
bool SetThreadToken(void*) { return true; }
bool RevertToSelf() { return true; }

void RaiseAccessViolation() { std::abort(); }

void* CreateImpersonationToken() {
  static int token;
  return &token;
}
void CloseImpersonationToken(void*) {}

}  // namespace plat
