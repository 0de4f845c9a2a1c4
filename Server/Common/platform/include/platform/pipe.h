// Local message-mode named pipes.
//
// Windows: "\\.\pipe\<name>" through the Win32 pipe calls.
// POSIX:   an AF_UNIX SOCK_SEQPACKET socket at "<pipe directory>/<name>", the
//          name used verbatim; one write is one message and one read returns
//          one message. All server instances of one name live in one process.
//
// The operations mirror the Win32 calls they stand for, including their
// overlapped behaviour on the server side, so that the transport logic above
// (busy waits, chunking, the reply wait) is written once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/handle.h"

namespace plat {

#if !defined(_WIN32)
inline constexpr uint32_t kPipeSendTimeoutMs = 10000;
#endif

// Longest pipe name accepted on this platform, in UTF-16 units. Windows
// allows 256 characters for the whole path; POSIX is bound by sun_path.
uint32_t MaxPipeNameLength();

#if !defined(_WIN32)
// The folder that holds the pipe sockets: $VGCR_PIPE_DIR, else
// /run/vigilcrest/pipe when this process may create it, else
// $XDG_RUNTIME_DIR/vigilcrest-pipe, else /tmp/vigilcrest-pipe-<uid>. The
// folder is created mode 0770 (with the pipe group, VGCR_PIPE_GROUP, when
// one is configured) and refused (kErrorAccessDenied, with a diagnostic)
// when it is not a real directory, is owned by another user (root, or any
// owner when the folder has the pipe group, excepted), or is writable by
// others. Socket files are 0660; a peer that is not this user, root or a
// member of the pipe group is dropped as it connects.
bool PipeDirectory(std::string* path);
// The same into a caller's buffer, without the heap.
bool PipeDirectory(char* path, std::size_t capacity);
#endif

// The client end: write-only, opened, written and closed per message.
class PipeClient {
 public:
  PipeClient() = default;
  ~PipeClient();
  PipeClient(const PipeClient&) = delete;
  PipeClient& operator=(const PipeClient&) = delete;

  // CreateFileW(GENERIC_WRITE, OPEN_EXISTING) on the pipe. Fails with
  // kErrorFileNotFound when no server has the name, kErrorPipeBusy when every
  // instance is taken.
  bool Open(const char16_t* name);
  // SetNamedPipeHandleState(PIPE_READMODE_MESSAGE).
  bool SetMessageReadMode();
  // WriteFile: one call is one message. On POSIX a write the reader does
  // not take within kPipeSendTimeoutMs fails with kErrorSemTimeout.
  bool Write(const void* data, uint32_t size, uint32_t* written);
  void Close();
  bool IsOpen() const { return handle_ != kNoHandle; }

  // For a writer that would rather lose a message than wait on a slow
  // reader: Open, but with FILE_FLAG_OVERLAPPED on Windows, so that a write
  // can be given up. Write on such an end behaves as on any other.
  bool OpenForBoundedWrites(const char16_t* name);
  // WriteFile that waits at most timeoutMs for the reader to take the
  // message; past that it is abandoned and fails with kErrorSemTimeout.
  // On Windows only an end opened with OpenForBoundedWrites can give up:
  // on another the call fails with kErrorInvalidParameter.
  bool WriteWithin(const void* data, uint32_t size, uint32_t* written, uint32_t timeoutMs);

  // WaitNamedPipeW: waits until an instance of the pipe can take a
  // connection. Fails with kErrorSemTimeout when the time runs out and with
  // kErrorFileNotFound when the pipe does not exist.
  static bool WaitAvailable(const char16_t* name, uint32_t timeoutMs);

 private:
  NativeHandle handle_ = kNoHandle;
#if defined(_WIN32)
  bool overlapped_ = false;  // opened by OpenForBoundedWrites
#endif
};

// One server instance of a pipe, inbound, message mode, overlapped.
//
// Connect and Read start an operation: true means it completed at once;
// false with kErrorIoPending means it completes later, when Ready() becomes
// signalled, and its outcome is fetched with Result(). Read may also fail
// with kErrorMoreData (the message is longer than the buffer: the buffer is
// full and the rest of the message waits for the next read).
class PipeServerEnd {
 public:
  PipeServerEnd();
  ~PipeServerEnd();
  PipeServerEnd(const PipeServerEnd&) = delete;
  PipeServerEnd& operator=(const PipeServerEnd&) = delete;

  // CreateNamedPipeW(PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED,
  // PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, maxInstances,
  // outBuffer, inBuffer, defaultTimeoutMs) with a null DACL, so that any
  // local caller may connect. kErrorPipeBusy when maxInstances are taken.
  // On failure *failedAt (when given) tells which step failed: the
  // instance's event, the security descriptor, its DACL, or the pipe.
  enum class Step : uint8_t { kEvent, kSecurityDescriptor, kDacl, kPipe };
  bool Create(const char16_t* name, uint32_t maxInstances, uint32_t outBuffer,
              uint32_t inBuffer, uint32_t defaultTimeoutMs, Step* failedAt = nullptr);
  // ConnectNamedPipe (overlapped). A client that connected before the call
  // counts as completed at once.
  bool Connect();
  // ReadFile (overlapped) into buffer. On immediate success *read holds the
  // message length; on kErrorMoreData it holds capacity.
  bool Read(void* buffer, uint32_t capacity, uint32_t* read);
  // GetOverlappedResult for the operation in progress. With wait false it
  // fails with kErrorIoIncomplete while the operation is still running.
  bool Result(uint32_t* transferred, bool wait);
  // Signalled when the operation in progress has completed.
  WaitHandle Ready() const;
  // CancelIo: abandons the operation in progress and waits until the system
  // no longer touches its buffer.
  void Cancel();
  // DisconnectNamedPipe: drops the client; Connect again to take the next.
  bool Disconnect();
  // GetNamedPipeClientProcessId (SO_PEERCRED on Linux).
  bool ClientProcessId(uint32_t* pid) const;
  // Whether this system can tell the client's process id at all: the call
  // exists, is missing (older Windows), or its library could not be loaded.
  enum class ClientPidSupport : uint8_t { kSupported, kMissing, kNoLibrary };
  static ClientPidSupport ClientProcessIdSupport();
  void Close();
  bool IsOpen() const;

  struct State;

 private:
  std::unique_ptr<State> state_;
};

}  // namespace plat
