#include <windows.h>

#include <cstdio>
#include <cwchar>

#include "platform/errors.h"
#include "platform/pipe.h"
#include "platform/text.h"
#include "wide.h"

namespace plat {
namespace {

using win32::W;

constexpr std::size_t kPathCapacity = 256;

// "\\.\pipe\<name>"; false (kErrorFilenameExcedRange) when it does not fit.
bool PipePath(const char16_t* name, wchar_t (&path)[kPathCapacity]) {
  if (!name || !*name) {
    ::SetLastError(ERROR_INVALID_NAME);
    return false;
  }
  int n = std::swprintf(path, kPathCapacity, L"\\\\.\\pipe\\%ls", W(name));
  if (n < 0 || static_cast<std::size_t>(n) >= kPathCapacity) {
    ::SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return false;
  }
  return true;
}

}  // namespace

uint32_t MaxPipeNameLength() { return kPathCapacity - 1 - 9; }

// ---------------------------------------------------------------- client

PipeClient::~PipeClient() { Close(); }

bool PipeClient::Open(const char16_t* name) {
  Close();
  wchar_t path[kPathCapacity];
  if (!PipePath(name, path)) return false;
  HANDLE h = ::CreateFileW(path, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (h == INVALID_HANDLE_VALUE) return false;
  handle_ = h;
  return true;
}

bool PipeClient::SetMessageReadMode() {
  DWORD mode = PIPE_READMODE_MESSAGE;
  return ::SetNamedPipeHandleState(handle_, &mode, nullptr, nullptr) != FALSE;
}

bool PipeClient::Write(const void* data, uint32_t size, uint32_t* written) {
  // An overlapped handle must be written with an OVERLAPPED of its own.
  if (overlapped_) return WriteWithin(data, size, written, INFINITE);
  DWORD n = 0;
  BOOL ok = ::WriteFile(handle_, data, size, &n, nullptr);
  if (written) *written = n;
  return ok != FALSE;
}

void PipeClient::Close() {
  if (handle_) ::CloseHandle(handle_);
  handle_ = nullptr;
  overlapped_ = false;
}

bool PipeClient::OpenForBoundedWrites(const char16_t* name) {
  Close();
  wchar_t path[kPathCapacity];
  if (!PipePath(name, path)) return false;
  HANDLE h = ::CreateFileW(path, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
  if (h == INVALID_HANDLE_VALUE) return false;
  handle_ = h;
  overlapped_ = true;
  return true;
}

bool PipeClient::WriteWithin(const void* data, uint32_t size, uint32_t* written, uint32_t timeoutMs) {
  if (written) *written = 0;
  if (!overlapped_) {
    // A synchronous handle's write cannot be abandoned from its own thread.
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  HANDLE done = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (!done) return false;
  OVERLAPPED overlapped{};
  overlapped.hEvent = done;
  DWORD n = 0;
  BOOL ok = ::WriteFile(handle_, data, size, nullptr, &overlapped);
  DWORD err = ok ? ERROR_SUCCESS : ::GetLastError();
  if (ok || err == ERROR_IO_PENDING) {
    bool abandoned = false;
    if (!ok && ::WaitForSingleObject(done, timeoutMs) == WAIT_TIMEOUT) {
      ::CancelIo(handle_);
      abandoned = true;
    }
    // Waits for the cancellation too: the system may not touch data after
    // this returns. A write that completed just before it still counts.
    ok = ::GetOverlappedResult(handle_, &overlapped, &n, TRUE);
    err = ok ? ERROR_SUCCESS : ::GetLastError();
    if (!ok && abandoned && err == ERROR_OPERATION_ABORTED) err = ERROR_SEM_TIMEOUT;
  }
  ::CloseHandle(done);
  if (written) *written = n;
  ::SetLastError(err);
  return ok != FALSE;
}

bool PipeClient::WaitAvailable(const char16_t* name, uint32_t timeoutMs) {
  wchar_t path[kPathCapacity];
  if (!PipePath(name, path)) return false;
  return ::WaitNamedPipeW(path, timeoutMs) != FALSE;
}

// ---------------------------------------------------------------- server

struct PipeServerEnd::State {
  HANDLE pipe = INVALID_HANDLE_VALUE;
  HANDLE event = nullptr;
  OVERLAPPED overlapped{};
};

PipeServerEnd::PipeServerEnd() : state_(std::make_unique<State>()) {}
PipeServerEnd::~PipeServerEnd() { Close(); }

bool PipeServerEnd::Create(const char16_t* name, uint32_t maxInstances, uint32_t outBuffer,
                           uint32_t inBuffer, uint32_t defaultTimeoutMs, Step* failedAt) {
  Close();
  auto fail = [this, failedAt](Step at) {
    DWORD err = ::GetLastError();
    Close();
    ::SetLastError(err);
    if (failedAt) *failedAt = at;
    return false;
  };
  wchar_t path[kPathCapacity];
  if (!PipePath(name, path)) return fail(Step::kPipe);
  State& s = *state_;
  s.event = ::CreateEventW(nullptr, TRUE, TRUE, nullptr);
  if (!s.event) return fail(Step::kEvent);
  // A null DACL: any local caller may connect.
  SECURITY_DESCRIPTOR sd;
  SECURITY_ATTRIBUTES sa{sizeof sa, &sd, FALSE};
  if (!::InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION)) return fail(Step::kSecurityDescriptor);
  if (!::SetSecurityDescriptorDacl(&sd, TRUE, nullptr, FALSE)) return fail(Step::kDacl);
  s.pipe = ::CreateNamedPipeW(path, PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED,
                              PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, maxInstances,
                              outBuffer, inBuffer, defaultTimeoutMs, &sa);
  if (s.pipe == INVALID_HANDLE_VALUE) return fail(Step::kPipe);
  s.overlapped.hEvent = s.event;
  return true;
}

bool PipeServerEnd::Connect() {
  State& s = *state_;
  s.overlapped = OVERLAPPED{};
  s.overlapped.hEvent = s.event;
  if (::ConnectNamedPipe(s.pipe, &s.overlapped)) return true;
  if (::GetLastError() == ERROR_PIPE_CONNECTED) {
    // The client came before the call; nothing will signal the event.
    ::SetEvent(s.event);
    return true;
  }
  return false;
}

bool PipeServerEnd::Read(void* buffer, uint32_t capacity, uint32_t* read) {
  State& s = *state_;
  s.overlapped = OVERLAPPED{};
  s.overlapped.hEvent = s.event;
  DWORD n = 0;
  BOOL ok = ::ReadFile(s.pipe, buffer, capacity, &n, &s.overlapped);
  if (!ok && ::GetLastError() == ERROR_MORE_DATA) {
    // The part that fitted is already in the buffer; its length is only
    // reported through the overlapped result.
    ::GetOverlappedResult(s.pipe, &s.overlapped, &n, FALSE);
    ::SetLastError(ERROR_MORE_DATA);
  }
  if (read) *read = n;
  return ok != FALSE;
}

bool PipeServerEnd::Result(uint32_t* transferred, bool wait) {
  State& s = *state_;
  DWORD n = 0;
  BOOL ok = ::GetOverlappedResult(s.pipe, &s.overlapped, &n, wait ? TRUE : FALSE);
  if (transferred) *transferred = n;
  return ok != FALSE;
}

WaitHandle PipeServerEnd::Ready() const { return WaitHandle{state_->event}; }

void PipeServerEnd::Cancel() {
  State& s = *state_;
  if (::CancelIo(s.pipe)) {
    DWORD n = 0;
    ::GetOverlappedResult(s.pipe, &s.overlapped, &n, TRUE);
  }
}

namespace {
using ClientPidFn = BOOL(WINAPI*)(HANDLE, PULONG);
struct ClientPidEntryPoint {
  HMODULE kernel32 = nullptr;
  ClientPidFn fn = nullptr;
};
const ClientPidEntryPoint& ClientPidEntry() {
  static const ClientPidEntryPoint entry = [] {
    ClientPidEntryPoint e;
    e.kernel32 = ::GetModuleHandleW(L"Kernel32.dll");
    if (e.kernel32) {
      e.fn = reinterpret_cast<ClientPidFn>(
          reinterpret_cast<void*>(::GetProcAddress(e.kernel32, "GetNamedPipeClientProcessId")));
    }
    return e;
  }();
  return entry;
}
}  // namespace

PipeServerEnd::ClientPidSupport PipeServerEnd::ClientProcessIdSupport() {
  const ClientPidEntryPoint& entry = ClientPidEntry();
  if (!entry.kernel32) return ClientPidSupport::kNoLibrary;
  return entry.fn ? ClientPidSupport::kSupported : ClientPidSupport::kMissing;
}

bool PipeServerEnd::Disconnect() { return ::DisconnectNamedPipe(state_->pipe) != FALSE; }

bool PipeServerEnd::ClientProcessId(uint32_t* pid) const {
  ClientPidFn fn = ClientPidEntry().fn;
  if (!fn) {
    ::SetLastError(ERROR_NOT_SUPPORTED);
    return false;
  }
  ULONG value = 0;
  if (!fn(state_->pipe, &value)) return false;
  *pid = value;
  return true;
}

void PipeServerEnd::Close() {
  State& s = *state_;
  if (s.pipe != INVALID_HANDLE_VALUE) {
    ::CancelIo(s.pipe);
    ::CloseHandle(s.pipe);
  }
  if (s.event) ::CloseHandle(s.event);
  s = State{};
}

bool PipeServerEnd::IsOpen() const { return state_->pipe != INVALID_HANDLE_VALUE; }

}  // namespace plat
