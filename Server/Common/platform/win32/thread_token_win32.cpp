#include <windows.h>

#include "platform/thread_token.h"

namespace plat {

bool SetThreadToken(void* token) { return ::SetThreadToken(nullptr, token) != FALSE; }
bool RevertToSelf() { return ::RevertToSelf() != FALSE; }

}  // namespace plat
