// Message-mode pipes over AF_UNIX SOCK_SEQPACKET sockets.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/errors.h"
#include "platform/pipe.h"
#include "platform/text.h"
#include "posix_util.h"

namespace plat {
namespace {

constexpr std::size_t kSunPathSize = sizeof(sockaddr_un::sun_path);

// Fills addr with "<pipe folder>/<name>". Names are used verbatim, but a
// name that would leave the folder is refused.
bool PipeAddress(const char16_t* name, sockaddr_un* addr) {
  std::size_t length = U16Length(name);
  if (length == 0) {
    SetLastError(kErrorInvalidName);
    return false;
  }
  std::u16string_view view(name, length);
  if (view.find(u'/') != view.npos || view == u"." || view == u"..") {
    SetLastError(kErrorInvalidName);
    return false;
  }
  char folder[kSunPathSize];
  if (!PipeDirectory(folder, sizeof folder)) return false;
  char utf8[kSunPathSize * 4];
  std::size_t folderLength = std::strlen(folder);
  if (!ToUtf8(view, utf8, sizeof utf8) || folderLength + 1 + std::strlen(utf8) + 1 > kSunPathSize) {
    SetLastError(kErrorFilenameExcedRange);
    return false;
  }
  std::memset(addr, 0, sizeof *addr);
  addr->sun_family = AF_UNIX;
  std::memcpy(addr->sun_path, folder, folderLength);
  addr->sun_path[folderLength] = '/';
  std::memcpy(addr->sun_path + folderLength + 1, utf8, std::strlen(utf8) + 1);
  return true;
}

int NewSocket() {
  return ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// connect() without blocking: 0 connected, else the Windows error.
uint32_t TryConnect(const sockaddr_un& addr, int* fdOut) {
  int fd = NewSocket();
  if (fd < 0) return ErrorFromErrno(errno);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0) {
    *fdOut = fd;
    return kErrorSuccess;
  }
  int err = errno;
  ::close(fd);
  if (err == EAGAIN) return kErrorPipeBusy;  // the listener's backlog is full
  if (err == ENOENT || err == ECONNREFUSED) return kErrorFileNotFound;
  return ErrorFromErrno(err);
}

// A connection made by WaitAvailable, handed to the next Open of the same
// name on this thread, so that waiting for a free instance does not leave
// an empty connection behind on the server.
struct Stash {
  char path[kSunPathSize];
  int fd;
};
thread_local Stash t_stash{{}, -1};

}  // namespace

uint32_t MaxPipeNameLength() {
  char folder[kSunPathSize];
  if (!PipeDirectory(folder, sizeof folder)) return 0;
  std::size_t n = std::strlen(folder);
  return n + 2 >= kSunPathSize ? 0 : static_cast<uint32_t>(kSunPathSize - n - 2);
}

// ---------------------------------------------------------------- client

PipeClient::~PipeClient() { Close(); }

bool PipeClient::Open(const char16_t* name) {
  Close();
  sockaddr_un addr;
  if (!PipeAddress(name, &addr)) return false;
  if (t_stash.fd >= 0) {
    int fd = t_stash.fd;
    t_stash.fd = -1;
    if (std::strcmp(t_stash.path, addr.sun_path) == 0) {
      handle_ = fd;
    } else {
      ::close(fd);
    }
  }
  if (handle_ == kNoHandle) {
    uint32_t err = TryConnect(addr, &handle_);
    if (err != kErrorSuccess) {
      handle_ = kNoHandle;
      SetLastError(err);
      return false;
    }
  }
  // Writes block like a pipe's WriteFile does, but not for ever: a reader
  // that stops reading (a wedged or hostile peer) fails the write after
  // kPipeSendTimeoutMs with kErrorSemTimeout instead of holding the writer.
  int flags = ::fcntl(handle_, F_GETFL);
  ::fcntl(handle_, F_SETFL, flags & ~O_NONBLOCK);
  timeval limit{kPipeSendTimeoutMs / 1000, (kPipeSendTimeoutMs % 1000) * 1000};
  ::setsockopt(handle_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  return true;
}

// WaitNamedPipe: a connect that blocks while the listener's queue is full
// is woken by the accept that makes room, as WaitNamedPipe is by an
// instance coming free, so a busy pipe costs its waiters no polling and no
// lag. The connection made is kept for this thread's next Open.
bool PipeClient::WaitAvailable(const char16_t* name, uint32_t timeoutMs) {
  sockaddr_un addr;
  if (!PipeAddress(name, &addr)) return false;
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      SetLastError(kErrorSemTimeout);
      return false;
    }
    const int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) {
      SetLastError(ErrorFromErrno(errno));
      return false;
    }
    timeval limit{static_cast<time_t>(left / 1000), static_cast<suseconds_t>(left % 1000 * 1000)};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0) {
      if (t_stash.fd >= 0) ::close(t_stash.fd);
      std::memcpy(t_stash.path, addr.sun_path, kSunPathSize);
      t_stash.fd = fd;
      return true;
    }
    const int err = errno;
    ::close(fd);
    if (err == EINTR || err == EAGAIN) continue;  // EAGAIN: the time is out, said above
    SetLastError(err == ENOENT || err == ECONNREFUSED ? kErrorFileNotFound : ErrorFromErrno(err));
    return false;
  }
}

bool PipeClient::SetMessageReadMode() {
  // A SOCK_SEQPACKET connection is always message mode.
  if (handle_ == kNoHandle) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  return true;
}

bool PipeClient::Write(const void* data, uint32_t size, uint32_t* written) {
  if (written) *written = 0;
  if (handle_ == kNoHandle) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  for (;;) {
    ssize_t n = ::send(handle_, data, size, MSG_NOSIGNAL);
    if (n >= 0) {
      if (written) *written = static_cast<uint32_t>(n);
      return true;
    }
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      SetLastError(kErrorSemTimeout);
      return false;
    }
    SetLastError(errno == ENOBUFS ? kErrorNoSystemResources : ErrorFromErrno(errno));
    return false;
  }
}

void PipeClient::Close() {
  if (handle_ != kNoHandle) ::close(handle_);
  handle_ = kNoHandle;
}

// ---------------------------------------------------------------- server

namespace {

// The listening socket of one pipe name, shared by that name's instances.
struct Listener {
  int fd = -1;
  std::string path;
  dev_t dev = 0;
  ino_t ino = 0;
  uint32_t instances = 0;
  uint32_t maxInstances = 0;
};

std::mutex& ListenerMutex() {
  static std::mutex m;
  return m;
}
std::map<std::string, Listener>& Listeners() {
  static auto* listeners = new std::map<std::string, Listener>();
  return *listeners;
}

// Whether some process listens on the socket file at path, read from the
// kernel's socket table so that asking does not itself connect.
bool SomeoneListensAt(const std::string& path) {
  std::ifstream table("/proc/net/unix");
  if (!table) {
    int fd = -1;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= kSunPathSize) return false;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    uint32_t err = TryConnect(addr, &fd);
    if (fd >= 0) ::close(fd);
    return err == kErrorSuccess || err == kErrorPipeBusy;
  }
  std::string line;
  std::getline(table, line);  // header
  while (std::getline(table, line)) {
    // Num RefCount Protocol Flags Type St Inode Path: the path is the rest
    // of the line after the seventh field, and pipe names hold spaces.
    unsigned long flags = 0;
    int pathAt = 0;
    if (std::sscanf(line.c_str(), "%*s %*s %*s %lx %*s %*s %*s %n", &flags, &pathAt) != 1 || pathAt <= 0) continue;
    if (line.compare(static_cast<std::size_t>(pathAt), std::string::npos, path) == 0 && (flags & 0x10000)) return true;
  }
  return false;
}

uint32_t OpenListener(const sockaddr_un& addr, Listener* out) {
  int fd = NewSocket();
  if (fd < 0) return ErrorFromErrno(errno);
  for (int attempt = 0;; ++attempt) {
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0) break;
    int err = errno;
    if (err == EADDRINUSE && attempt == 0) {
      if (SomeoneListensAt(addr.sun_path)) {
        ::close(fd);
        return kErrorPipeBusy;
      }
      ::unlink(addr.sun_path);  // left behind by a process that died
      continue;
    }
    ::close(fd);
    return ErrorFromErrno(err);
  }
  // Only this user and the pipe group may connect (connecting needs write
  // access to the socket file); the peer check on accept is the second lock.
  gid_t group = 0;
  if (posix::PipeGroup(&group)) ::chown(addr.sun_path, static_cast<uid_t>(-1), group);
  ::chmod(addr.sun_path, 0660);
  if (::listen(fd, 64) != 0) {
    int err = errno;
    ::unlink(addr.sun_path);
    ::close(fd);
    return ErrorFromErrno(err);
  }
  struct stat st {};
  ::stat(addr.sun_path, &st);
  out->fd = fd;
  out->path = addr.sun_path;
  out->dev = st.st_dev;
  out->ino = st.st_ino;
  return kErrorSuccess;
}

void ReleaseListener(const std::string& path) {
  std::lock_guard lock(ListenerMutex());
  auto it = Listeners().find(path);
  if (it == Listeners().end() || --it->second.instances > 0) return;
  struct stat st {};
  // Remove the socket file only while it is still ours.
  if (::stat(path.c_str(), &st) == 0 && st.st_dev == it->second.dev && st.st_ino == it->second.ino) {
    ::unlink(path.c_str());
  }
  ::close(it->second.fd);
  Listeners().erase(it);
}

enum class Op { kNone, kConnect, kRead };

}  // namespace

struct PipeServerEnd::State {
  std::string path;  // key of the listener, empty when not created
  int listenFd = -1;
  bool sharedListener = false;  // more than one instance may wait on listenFd
  int connFd = -1;
  Op op = Op::kNone;
  // The read in progress.
  void* buffer = nullptr;
  uint32_t capacity = 0;
  // The part of a message that did not fit the last read.
  std::vector<unsigned char> rest;
  std::size_t restOffset = 0;
  // Outcome of the last completed operation, as GetOverlappedResult repeats it.
  uint32_t lastTransferred = 0;
  uint32_t lastError = kErrorSuccess;
};

namespace {

enum class Io { kDone, kMore, kWouldBlock, kFailed };

// Hands out bytes of a message that did not fit an earlier read.
Io TakeRest(PipeServerEnd::State& s, void* buffer, uint32_t capacity, uint32_t* got) {
  std::size_t left = s.rest.size() - s.restOffset;
  std::size_t n = left < capacity ? left : capacity;
  std::memcpy(buffer, s.rest.data() + s.restOffset, n);
  s.restOffset += n;
  *got = static_cast<uint32_t>(n);
  if (s.restOffset < s.rest.size()) return Io::kMore;
  s.rest.clear();
  s.restOffset = 0;
  return Io::kDone;
}

Io TryRead(PipeServerEnd::State& s, void* buffer, uint32_t capacity, uint32_t* got) {
  *got = 0;
  if (!s.rest.empty()) return TakeRest(s, buffer, capacity, got);
  for (;;) {
    ssize_t size = ::recv(s.connFd, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    if (size < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN) return Io::kWouldBlock;
      SetLastError(errno == ECONNRESET ? kErrorBrokenPipe : ErrorFromErrno(errno));
      return Io::kFailed;
    }
    if (size == 0) {  // the client closed its end
      SetLastError(kErrorBrokenPipe);
      return Io::kFailed;
    }
    if (static_cast<std::size_t>(size) <= capacity) {
      ssize_t n = ::recv(s.connFd, buffer, capacity, MSG_DONTWAIT);
      if (n < 0) {
        SetLastError(ErrorFromErrno(errno));
        return Io::kFailed;
      }
      *got = static_cast<uint32_t>(n);
      return Io::kDone;
    }
    s.rest.resize(static_cast<std::size_t>(size));
    ssize_t n = ::recv(s.connFd, s.rest.data(), s.rest.size(), MSG_DONTWAIT);
    if (n < 0) {
      s.rest.clear();
      SetLastError(ErrorFromErrno(errno));
      return Io::kFailed;
    }
    s.rest.resize(static_cast<std::size_t>(n));
    s.restOffset = 0;
    return TakeRest(s, buffer, capacity, got);
  }
}

// A peer that may not use this pipe is dropped as it connects, and said so
// in the diagnostics (the first few times: a stranger must not flood them).
bool Admit(int fd) {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && posix::PeerMayConnect(peer.uid, peer.gid)) {
    return true;
  }
  static std::atomic<int> told{0};
  if (told.fetch_add(1) < 20) {
    posix::Diagnose("pipe: a connection from uid %u gid %u (pid %d) refused: not this user, root or the pipe group",
                    static_cast<unsigned>(peer.uid), static_cast<unsigned>(peer.gid), static_cast<int>(peer.pid));
  }
  return false;
}

Io TryAccept(PipeServerEnd::State& s) {
  for (;;) {
    int fd = ::accept4(s.listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0 && !Admit(fd)) {
      ::close(fd);
      continue;
    }
    if (fd >= 0) {
      s.connFd = fd;
      return Io::kDone;
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    if (errno == EAGAIN) return Io::kWouldBlock;
    SetLastError(ErrorFromErrno(errno));
    return Io::kFailed;
  }
}

// Records a completed operation's outcome and turns it into the result of
// the Win32 call it stands for.
bool Complete(PipeServerEnd::State& s, Io io, uint32_t transferred, uint32_t* out) {
  s.op = Op::kNone;
  s.lastTransferred = transferred;
  s.lastError = io == Io::kDone ? kErrorSuccess : io == Io::kMore ? kErrorMoreData : LastError();
  if (out) *out = transferred;
  if (io == Io::kDone) return true;
  SetLastError(s.lastError);
  return false;
}

}  // namespace

PipeServerEnd::PipeServerEnd() : state_(std::make_unique<State>()) {}
PipeServerEnd::~PipeServerEnd() { Close(); }

bool PipeServerEnd::Create(const char16_t* name, uint32_t maxInstances, uint32_t, uint32_t,
                           uint32_t, Step* failedAt) {
  Close();
  // The instance's "event" is its descriptor and there is no security
  // descriptor to build: only the socket itself can fail.
  if (failedAt) *failedAt = Step::kPipe;
  if (maxInstances == 0 || maxInstances > 255) {
    SetLastError(kErrorInvalidParameter);
    return false;
  }
  sockaddr_un addr;
  if (!PipeAddress(name, &addr)) return false;
  std::lock_guard lock(ListenerMutex());
  auto it = Listeners().find(addr.sun_path);
  if (it == Listeners().end()) {
    Listener listener;
    uint32_t err = OpenListener(addr, &listener);
    if (err != kErrorSuccess) {
      SetLastError(err);
      return false;
    }
    listener.maxInstances = maxInstances;
    it = Listeners().emplace(addr.sun_path, listener).first;
  } else if (it->second.instances >= it->second.maxInstances) {
    SetLastError(kErrorPipeBusy);
    return false;
  }
  ++it->second.instances;
  state_->path = addr.sun_path;
  state_->listenFd = it->second.fd;
  state_->sharedListener = it->second.maxInstances > 1;
  return true;
}

bool PipeServerEnd::Connect() {
  State& s = *state_;
  if (s.listenFd < 0) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  if (s.connFd >= 0) {
    SetLastError(kErrorPipeConnected);
    return false;
  }
  Io io = TryAccept(s);
  if (io == Io::kWouldBlock) {
    s.op = Op::kConnect;
    SetLastError(kErrorIoPending);
    return false;
  }
  return Complete(s, io, 0, nullptr);
}

bool PipeServerEnd::Read(void* buffer, uint32_t capacity, uint32_t* read) {
  State& s = *state_;
  if (read) *read = 0;
  if (s.connFd < 0) {
    SetLastError(s.listenFd < 0 ? kErrorInvalidHandle : kErrorPipeListening);
    return false;
  }
  uint32_t got = 0;
  Io io = TryRead(s, buffer, capacity, &got);
  if (io == Io::kWouldBlock) {
    s.op = Op::kRead;
    s.buffer = buffer;
    s.capacity = capacity;
    SetLastError(kErrorIoPending);
    return false;
  }
  return Complete(s, io, got, read);
}

bool PipeServerEnd::Result(uint32_t* transferred, bool wait) {
  State& s = *state_;
  if (transferred) *transferred = 0;
  if (s.op == Op::kNone) {
    if (transferred) *transferred = s.lastTransferred;
    SetLastError(s.lastError);
    return s.lastError == kErrorSuccess;
  }
  for (;;) {
    uint32_t got = 0;
    Io io = s.op == Op::kConnect ? TryAccept(s) : TryRead(s, s.buffer, s.capacity, &got);
    if (io != Io::kWouldBlock) return Complete(s, io, got, transferred);
    if (!wait) {
      SetLastError(kErrorIoIncomplete);
      return false;
    }
    pollfd pfd{s.op == Op::kConnect ? s.listenFd : s.connFd, POLLIN, 0};
    while (::poll(&pfd, 1, -1) < 0 && errno == EINTR) {
    }
  }
}

WaitHandle PipeServerEnd::Ready() const {
  const State& s = *state_;
  // The descriptor that becomes readable when the operation can complete.
  // With nothing in progress the instance counts as signalled, as the
  // overlapped event stays set after a completion.
  if (s.op == Op::kConnect || s.connFd < 0) return WaitHandle{s.listenFd, s.sharedListener};
  return WaitHandle{s.connFd};
}

void PipeServerEnd::Cancel() {
  State& s = *state_;
  s.op = Op::kNone;
  s.buffer = nullptr;
  s.lastTransferred = 0;
  s.lastError = kErrorOperationAborted;
}

PipeServerEnd::ClientPidSupport PipeServerEnd::ClientProcessIdSupport() {
  return ClientPidSupport::kSupported;  // SO_PEERCRED
}

bool PipeServerEnd::Disconnect() {
  State& s = *state_;
  if (s.listenFd < 0) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  if (s.connFd >= 0) ::close(s.connFd);
  s.connFd = -1;
  s.op = Op::kNone;
  s.rest.clear();
  s.restOffset = 0;
  s.lastTransferred = 0;
  s.lastError = kErrorSuccess;
  return true;
}

bool PipeServerEnd::ClientProcessId(uint32_t* pid) const {
  const State& s = *state_;
  if (s.connFd < 0) {
    SetLastError(kErrorPipeNotConnected);
    return false;
  }
  ucred cred{};
  socklen_t length = sizeof cred;
  if (::getsockopt(s.connFd, SOL_SOCKET, SO_PEERCRED, &cred, &length) != 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  *pid = static_cast<uint32_t>(cred.pid);
  return true;
}

void PipeServerEnd::Close() {
  State& s = *state_;
  if (s.listenFd < 0) return;
  Disconnect();
  std::string path = s.path;
  s.listenFd = -1;
  s.path.clear();
  ReleaseListener(path);
}

bool PipeServerEnd::IsOpen() const { return state_->listenFd >= 0; }

}  // namespace plat
