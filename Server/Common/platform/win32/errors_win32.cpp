#include <windows.h>

#include "platform/errors.h"

namespace plat {

uint32_t LastError() { return ::GetLastError(); }
void SetLastError(uint32_t code) { ::SetLastError(code); }

}  // namespace plat
