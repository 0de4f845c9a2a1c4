// Impersonation of a request's caller on a worker thread. POSIX hosts run
// every request under the process identity, so both calls succeed there;
// they only keep track of whether the thread would be impersonating.
#pragma once

namespace plat {

// SetThreadToken(NULL, token).
bool SetThreadToken(void* token);
// RevertToSelf().
bool RevertToSelf();
// Whether the calling thread runs under a token of its own (set and not
// reverted).
bool IsImpersonating();

// A request must never run on under its caller's token: when reverting
// fails, the process raises an access violation (0xC0000005) on purpose.
[[noreturn]] void RaiseAccessViolation();

// A real impersonation token of the current user, as a web server hands to
// an extension (DuplicateToken at SecurityImpersonation); a dummy value on
// POSIX. Close it with CloseImpersonationToken.
void* CreateImpersonationToken();
void CloseImpersonationToken(void* token);

}  // namespace plat
