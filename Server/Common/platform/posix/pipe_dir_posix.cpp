// The folder that holds the pipe sockets, and its safety checks: a pipe
// folder that another user controls would let that user impersonate the
// command-handler service.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/errors.h"
#include "platform/pipe.h"
#include "posix_util.h"

namespace plat {
namespace {

constexpr const char* kSystemPipeDir = "/run/vigilcrest/pipe";

bool IsSafeFolder(const char* path, const struct stat& st) {
  if (!S_ISDIR(st.st_mode)) {
    posix::Diagnose("pipe folder %s refused: not a directory", path);
    return false;
  }
  // Another user's folder is trusted only when it belongs to the pipe group,
  // whose members are trusted with the pipes anyway.
  gid_t group = 0;
  const bool groupFolder = posix::PipeGroup(&group) && st.st_gid == group;
  if (st.st_uid != ::geteuid() && st.st_uid != 0 && !groupFolder) {
    posix::Diagnose("pipe folder %s refused: owned by uid %u, not by this user (uid %u) or root; set VGCR_PIPE_DIR",
                    path, static_cast<unsigned>(st.st_uid), static_cast<unsigned>(::geteuid()));
    return false;
  }
  // A group that may write the folder could replace its sockets: only the
  // pipe group, this process's own group or root's.
  if ((st.st_mode & S_IWGRP) && !groupFolder && st.st_gid != ::getegid() && st.st_gid != 0) {
    posix::Diagnose("pipe folder %s refused: writable by group %u (mode %04o)", path, static_cast<unsigned>(st.st_gid),
                    static_cast<unsigned>(st.st_mode & 07777));
    return false;
  }
  if (st.st_mode & S_IWOTH) {
    posix::Diagnose("pipe folder %s refused: writable by others (mode %04o)", path,
                    static_cast<unsigned>(st.st_mode & 07777));
    return false;
  }
  return true;
}

// Makes the folder: mkdir, then everything else through a descriptor opened
// without following a link, so that nothing planted at the path between the
// calls is changed or trusted.
bool MakeFolder(const char* path, bool quiet) {
  if (::mkdir(path, 0770) != 0) {
    if (errno == EEXIST) return true;  // someone else's: checked like any other
    SetLastError(ErrorFromErrno(errno));
    if (!quiet) posix::Diagnose("pipe folder %s: cannot create it (errno %d)", path, errno);
    return false;
  }
  const int fd = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  struct stat st {};
  bool ok = ::fstat(fd, &st) == 0 && st.st_uid == ::geteuid();
  gid_t group = 0;
  if (ok && posix::PipeGroup(&group)) ok = ::fchown(fd, static_cast<uid_t>(-1), group) == 0;
  if (ok) ok = ::fchmod(fd, 0770) == 0;  // the umask may have taken bits away
  if (!ok) SetLastError(kErrorAccessDenied);
  ::close(fd);
  return ok;
}

// Creates the folder (and its parent) when missing, then checks it. With
// `quiet` a folder that cannot be created is not reported, for the system
// default that may fall back. Runs on every pipe open, so it allocates
// nothing while the folder exists.
bool EnsureFolder(const char* path, bool quiet) {
  struct stat st {};
  if (::lstat(path, &st) != 0) {
    if (errno != ENOENT) {
      SetLastError(ErrorFromErrno(errno));
      return false;
    }
    std::string parent(path);
    std::string::size_type cut = parent.find_last_of('/');
    if (cut != std::string::npos && cut > 0) {
      parent.resize(cut);
      if (::mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST) {
        SetLastError(ErrorFromErrno(errno));
        if (!quiet) posix::Diagnose("pipe folder %s: cannot create %s", path, parent.c_str());
        return false;
      }
    }
    if (!MakeFolder(path, quiet)) return false;
    if (::lstat(path, &st) != 0) {
      SetLastError(ErrorFromErrno(errno));
      return false;
    }
  }
  if (!IsSafeFolder(path, st)) {
    SetLastError(kErrorAccessDenied);
    return false;
  }
  return true;
}

bool Copy(const char* text, char* out, std::size_t capacity) {
  std::size_t n = std::strlen(text);
  if (n + 1 > capacity) {
    SetLastError(kErrorFilenameExcedRange);
    return false;
  }
  std::memcpy(out, text, n + 1);
  return true;
}

}  // namespace

bool PipeDirectory(char* out, std::size_t capacity) {
  if (const char* configured = std::getenv("VGCR_PIPE_DIR"); configured && *configured) {
    if (!Copy(configured, out, capacity)) return false;
    for (std::size_t n = std::strlen(out); n > 1 && out[n - 1] == '/'; --n) out[n - 1] = '\0';
    return EnsureFolder(out, false);
  }
  // The system folder only when this process may use it: a non-root
  // process finds it made by root for another deployment.
  if (EnsureFolder(kSystemPipeDir, true) && ::faccessat(AT_FDCWD, kSystemPipeDir, W_OK | X_OK, AT_EACCESS) == 0) {
    return Copy(kSystemPipeDir, out, capacity);
  }
  // A folder of this user's own, which nobody else can have made first.
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime == '/') {
    char folder[512];
    if (std::snprintf(folder, sizeof folder, "%s/vigilcrest-pipe", runtime) < static_cast<int>(sizeof folder)) {
      return EnsureFolder(folder, false) && Copy(folder, out, capacity);
    }
  }
  char fallback[64];
  std::snprintf(fallback, sizeof fallback, "/tmp/vigilcrest-pipe-%u", static_cast<unsigned>(::geteuid()));
  return EnsureFolder(fallback, false) && Copy(fallback, out, capacity);
}

bool PipeDirectory(std::string* path) {
  char folder[4096];
  if (!PipeDirectory(folder, sizeof folder)) return false;
  *path = folder;
  return true;
}

}  // namespace plat
