// Windows error codes, used as the error vocabulary on every platform.
//
// The OS layer reports failures the way Win32 does: a false (or null) result
// and a thread-local "last error". On POSIX the implementation maps errno to
// the Windows code that the same situation produces on Windows, so that the
// logic above never branches on the platform and trace lines read the same.
#pragma once

#include <cstdint>

namespace plat {

enum : uint32_t {
  kErrorSuccess = 0,
  kErrorFileNotFound = 2,
  kErrorPathNotFound = 3,
  kErrorAccessDenied = 5,
  kErrorInvalidHandle = 6,
  kErrorNotEnoughMemory = 8,
  kErrorInvalidData = 13,
  kErrorHandleEof = 38,
  kErrorNotSupported = 50,
  kErrorFileExists = 80,
  kErrorInvalidParameter = 87,
  kErrorBrokenPipe = 109,
  kErrorDiskFull = 112,
  kErrorInsufficientBuffer = 122,
  kErrorInvalidName = 123,
  kErrorModNotFound = 126,
  kErrorProcNotFound = 127,
  kErrorAlreadyExists = 183,
  kErrorFilenameExcedRange = 206,
  kErrorPipeBusy = 231,
  kErrorNoData = 232,
  kErrorPipeNotConnected = 233,
  kErrorMoreData = 234,
  kErrorWaitTimeout = 258,
  kErrorPipeConnected = 535,
  kErrorOperationAborted = 995,
  kErrorPipeListening = 536,
  kErrorIoIncomplete = 996,
  kErrorIoPending = 997,
  kErrorInvalidFlags = 1004,
  kErrorNoUnicodeTranslation = 1113,
  kErrorNoSystemResources = 1450,
  kErrorSemTimeout = 121,
  kErrorTimeout = 1460,
};

// COM status codes (HRESULT), kept as signed 32-bit values.
using HResult = int32_t;
inline constexpr HResult kSOk = 0;
inline constexpr HResult kSFalse = 1;
inline constexpr HResult kEFail = static_cast<HResult>(0x80004005u);
inline constexpr HResult kEInvalidArg = static_cast<HResult>(0x80070057u);
inline constexpr HResult kEOutOfMemory = static_cast<HResult>(0x8007000Eu);
inline constexpr HResult kRpcEChangedMode = static_cast<HResult>(0x80010106u);
inline constexpr HResult kCoEClassString = static_cast<HResult>(0x800401F3u);

// The calling thread's last error (GetLastError / SetLastError on Windows).
uint32_t LastError();
void SetLastError(uint32_t code);

#if !defined(_WIN32)
// The Windows code for an errno value. Context matters for a few values
// (a peer gone is ERROR_BROKEN_PIPE on a read but ERROR_NO_DATA on a write),
// so callers with a better answer set the code themselves.
uint32_t ErrorFromErrno(int err);
#endif

}  // namespace plat
