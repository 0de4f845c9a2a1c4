#include <windows.h>

#include "platform/errors.h"
#include "platform/handle.h"

namespace plat {

uint32_t WaitForAny(const WaitHandle* handles, uint32_t count, uint32_t timeoutMs) {
  if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || handles == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return kWaitFailed;
  }
  HANDLE native[MAXIMUM_WAIT_OBJECTS];
  for (uint32_t i = 0; i < count; ++i) native[i] = handles[i].native;
  return ::WaitForMultipleObjects(count, native, FALSE, timeoutMs);
}

uint32_t WaitForOne(WaitHandle handle, uint32_t timeoutMs) {
  return ::WaitForSingleObject(handle.native, timeoutMs);
}

}  // namespace plat
