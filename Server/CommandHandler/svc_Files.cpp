#include "svc_Files.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "platform/pipe.h"

namespace svc {
namespace {

std::string Why(const std::string& what) { return what + ": " + std::strerror(errno); }

// The pipe group as a number, when VGCR_PIPE_GROUP names one.
bool ConfiguredGroup(gid_t* group) {
  const char* text = std::getenv("VGCR_PIPE_GROUP");
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  const unsigned long number = std::strtoul(text, &end, 10);
  if (end != text && *end == '\0') {
    *group = static_cast<gid_t>(number);
    return true;
  }
  const ::group* entry = ::getgrnam(text);
  if (entry == nullptr) return false;
  *group = entry->gr_gid;
  return true;
}

}  // namespace

bool PrepareDataFolder(const std::string& folder, std::string* error) {
  std::error_code code;
  const std::filesystem::path path(folder);
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), code);
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    *error = Why("cannot make the folder " + folder);
    return false;
  }
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    *error = Why("cannot open the data folder " + folder + " (a link is refused)");
    return false;
  }
  struct stat st {};
  bool ok = ::fstat(fd, &st) == 0;
  if (ok && st.st_uid != ::geteuid()) {
    *error = "the data folder " + folder + " belongs to uid " + std::to_string(st.st_uid) + ", not to this user";
    ok = false;
  }
  gid_t group = 0;
  const bool grouped = ConfiguredGroup(&group);
  if (ok && grouped && ::fchown(fd, static_cast<uid_t>(-1), group) != 0) {
    *error = Why("cannot give the data folder " + folder + " the pipe group");
    ok = false;
  }
  if (ok && ::fchmod(fd, grouped ? 0750 : 0700) != 0) {
    *error = Why("cannot restrict the data folder " + folder);
    ok = false;
  }
  ::close(fd);
  return ok;
}

bool KeepPrivate(const std::string& path, unsigned mode, std::string* error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    if (errno == ENOENT) return true;
    *error = Why("cannot open " + path + " (a link is refused)");
    return false;
  }
  struct stat st {};
  bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::geteuid();
  if (!ok) *error = path + " is not a file of this user";
  if (ok && (st.st_mode & 07777) != mode && ::fchmod(fd, mode) != 0) {
    *error = Why("cannot restrict " + path);
    ok = false;
  }
  ::close(fd);
  return ok;
}

InstanceLock::~InstanceLock() { Release(); }

bool InstanceLock::Acquire(std::string* error) {
  std::string folder;
  if (!plat::PipeDirectory(&folder)) {
    *error = "no usable pipe folder (see the diagnostics above)";
    return false;
  }
  const std::string path = folder + "/vgcr-cmdhandler.lock";
  fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd_ < 0) {
    *error = Why("cannot open " + path);
    return false;
  }
  if (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
    char holder[32] = {};
    const ssize_t n = ::pread(fd_, holder, sizeof holder - 1, 0);
    holder[n > 0 ? n : 0] = '\0';
    *error = "another vgcr-cmdhandler (pid " + std::string(n > 0 ? holder : "?") + ") serves the pipe folder " +
             folder + "; this one stops without touching it";
    ::close(fd_);
    fd_ = -1;
    return false;
  }
  const std::string pid = std::to_string(::getpid());
  if (::ftruncate(fd_, 0) != 0 || ::pwrite(fd_, pid.data(), pid.size(), 0) < 0) {
    // The lock holds without the note of who holds it.
  }
  return true;
}

void InstanceLock::Release() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

}  // namespace svc
