#include <cerrno>

#include "platform/errors.h"

namespace plat {
namespace {
thread_local uint32_t t_lastError = 0;
}

uint32_t LastError() { return t_lastError; }
void SetLastError(uint32_t code) { t_lastError = code; }

uint32_t ErrorFromErrno(int err) {
  switch (err) {
    case 0: return kErrorSuccess;
    case ENOENT: return kErrorFileNotFound;
    case ENOTDIR: return kErrorPathNotFound;
    case ECONNREFUSED: return kErrorFileNotFound;  // a socket file nobody listens on
    case EACCES:
    case EPERM:
    case EROFS: return kErrorAccessDenied;
    case EBADF: return kErrorInvalidHandle;
    case ENOMEM: return kErrorNotEnoughMemory;
    case EEXIST: return kErrorFileExists;
    case EINVAL: return kErrorInvalidParameter;
    case EPIPE:
    case ECONNRESET: return kErrorNoData;
    case ENOTCONN: return kErrorPipeNotConnected;
    case ENOSPC:
    case EDQUOT: return kErrorDiskFull;
    case ENAMETOOLONG: return kErrorFilenameExcedRange;
    case EAGAIN: return kErrorPipeBusy;
    case ENOBUFS: return kErrorNoSystemResources;
    case EMSGSIZE: return kErrorInvalidParameter;
    case ETIMEDOUT: return kErrorSemTimeout;
    case EMFILE:
    case ENFILE: return 4;  // ERROR_TOO_MANY_OPEN_FILES
    case ENOSYS:
    case EOPNOTSUPP: return kErrorNotSupported;
    default: return 31;  // ERROR_GEN_FAILURE
  }
}

}  // namespace plat
