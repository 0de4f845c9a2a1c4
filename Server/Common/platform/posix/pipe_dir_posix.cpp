// The folder that holds the pipe sockets, and its safety checks: a pipe
// folder that another user controls would let that user impersonate the
// command-handler service.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/errors.h"
#include "platform/pipe.h"
#include "posix_util.h"

namespace plat {
namespace {

constexpr const char* kSystemPipeDir = "/run/vigilcrest/pipe";

bool IsSafeFolder(const std::string& path, const struct stat& st) {
  if (!S_ISDIR(st.st_mode)) {
    posix::Diagnose("pipe folder %s refused: not a directory", path.c_str());
    return false;
  }
  if (st.st_uid != ::geteuid() && st.st_uid != 0) {
    posix::Diagnose("pipe folder %s refused: owned by uid %u, not by this user (uid %u)",
                    path.c_str(), static_cast<unsigned>(st.st_uid),
                    static_cast<unsigned>(::geteuid()));
    return false;
  }
  if (st.st_mode & S_IWOTH) {
    posix::Diagnose("pipe folder %s refused: writable by others (mode %04o)", path.c_str(),
                    static_cast<unsigned>(st.st_mode & 07777));
    return false;
  }
  return true;
}

// Creates the folder (and its parent) when missing, then checks it.
// `quiet` skips the diagnostic when the folder cannot be created, for the
// system default that is allowed to fall back.
bool EnsureFolder(const std::string& path, bool quiet) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) {
    if (errno != ENOENT) {
      SetLastError(ErrorFromErrno(errno));
      return false;
    }
    std::string::size_type cut = path.find_last_of('/');
    if (cut != std::string::npos && cut > 0) {
      std::string parent = path.substr(0, cut);
      if (::mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST) {
        SetLastError(ErrorFromErrno(errno));
        if (!quiet) posix::Diagnose("pipe folder %s: cannot create %s", path.c_str(), parent.c_str());
        return false;
      }
    }
    if (::mkdir(path.c_str(), 0770) != 0 && errno != EEXIST) {
      SetLastError(ErrorFromErrno(errno));
      if (!quiet) posix::Diagnose("pipe folder %s: cannot create it (errno %d)", path.c_str(), errno);
      return false;
    }
    ::chmod(path.c_str(), 0770);  // the umask may have taken bits away
    if (::lstat(path.c_str(), &st) != 0) {
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

}  // namespace

bool PipeDirectory(std::string* path) {
  if (const char* configured = std::getenv("VGCR_PIPE_DIR"); configured && *configured) {
    std::string dir = configured;
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    if (!EnsureFolder(dir, false)) return false;
    *path = dir;
    return true;
  }
  if (EnsureFolder(kSystemPipeDir, true)) {
    *path = kSystemPipeDir;
    return true;
  }
  std::string fallback = "/tmp/vigilcrest-pipe-" + std::to_string(::geteuid());
  if (!EnsureFolder(fallback, false)) return false;
  *path = fallback;
  return true;
}

}  // namespace plat
