// Impersonation of a request's caller on a worker thread. POSIX hosts run
// every request under the process identity, so both calls succeed there.
#pragma once

namespace plat {

// SetThreadToken(NULL, token).
bool SetThreadToken(void* token);
// RevertToSelf().
bool RevertToSelf();

}  // namespace plat
