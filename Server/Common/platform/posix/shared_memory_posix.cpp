#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/errors.h"
#include "platform/shared_memory.h"
#include "platform/text.h"

namespace plat {
namespace {

// "Global\MAP_FILE_X" -> "/MAP_FILE_X". Any other backslash or a slash is
// refused: POSIX shared-memory names are one path component.
bool ShmName(const char16_t* name, std::string* out) {
  std::u16string_view view(name ? name : u"");
  for (std::u16string_view prefix : {std::u16string_view(u"Global\\"), std::u16string_view(u"Local\\")}) {
    if (view.substr(0, prefix.size()) == prefix) {
      view.remove_prefix(prefix.size());
      break;
    }
  }
  if (view.empty() || view.find_first_of(u"\\/") != view.npos) {
    SetLastError(kErrorInvalidName);
    return false;
  }
  *out = "/" + ToUtf8(view);
  return true;
}

// Who may have written a record: root, this process's user, or the
// monitor's user named by $VGCR_GUARD_OWNER; nobody else may be able to.
bool Trusted(const struct stat& st) {
  if (st.st_mode & (S_IWGRP | S_IWOTH)) return false;
  if (st.st_uid == 0 || st.st_uid == ::geteuid()) return true;
  const char* owner = std::getenv("VGCR_GUARD_OWNER");
  char* end = nullptr;
  const unsigned long uid = owner ? std::strtoul(owner, &end, 10) : 0;
  return owner && *owner && end && *end == '\0' && uid == st.st_uid;
}

}  // namespace

SharedMemory::~SharedMemory() { Close(); }

bool SharedMemory::Open(const char16_t* name, MapAccess access) {
  Close();
  std::string shm;
  if (!ShmName(name, &shm)) return false;
  (void)access;  // read-only whatever is asked: readers never write
  int fd = ::shm_open(shm.c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !Trusted(st)) {
    ::close(fd);
    SetLastError(kErrorAccessDenied);
    return false;
  }
  handle_ = fd;
  access_ = MapAccess::kRead;
  return true;
}

bool SharedMemory::Create(const char16_t* name, uint32_t size) {
  Close();
  std::string shm;
  if (!ShmName(name, &shm)) return false;
  int fd = ::shm_open(shm.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    SetLastError(ErrorFromErrno(errno));
    ::close(fd);
    return false;
  }
  // Somebody else's record would not be trusted by the readers; ours gets
  // the mode they accept whatever the umask or an earlier mode was.
  if (st.st_uid != ::geteuid() || ::fchmod(fd, 0644) != 0) {
    SetLastError(kErrorAccessDenied);
    ::close(fd);
    return false;
  }
  if (st.st_size < static_cast<off_t>(size) && ::ftruncate(fd, size) != 0) {
    SetLastError(ErrorFromErrno(errno));
    ::close(fd);
    return false;
  }
  handle_ = fd;
  access_ = MapAccess::kReadWrite;
  return true;
}

void* SharedMemory::Map(uint32_t size, MapAccess access) {
  Unmap();
  if (handle_ == kNoHandle) {
    SetLastError(kErrorInvalidHandle);
    return nullptr;
  }
  if (access != MapAccess::kRead && access_ == MapAccess::kRead) {
    SetLastError(kErrorAccessDenied);
    return nullptr;
  }
  // Mapping past the end of the object would fault on first touch.
  struct stat st {};
  if (::fstat(handle_, &st) != 0 || st.st_size < static_cast<off_t>(size) || size == 0) {
    SetLastError(kErrorAccessDenied);
    return nullptr;
  }
  int prot = access == MapAccess::kRead ? PROT_READ : PROT_READ | PROT_WRITE;
  void* view = ::mmap(nullptr, size, prot, MAP_SHARED, handle_, 0);
  if (view == MAP_FAILED) {
    SetLastError(ErrorFromErrno(errno));
    return nullptr;
  }
  view_ = view;
  viewSize_ = size;
  return view;
}

bool SharedMemory::Read(void* out, uint32_t size) {
  if (handle_ == kNoHandle) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  uint32_t done = 0;
  while (done < size) {
    const ssize_t n = ::pread(handle_, static_cast<char*>(out) + done, size - done, done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      SetLastError(kErrorAccessDenied);  // shorter than asked, or unreadable
      return false;
    }
    done += static_cast<uint32_t>(n);
  }
  return size != 0;
}

void SharedMemory::Unmap() {
  if (view_) ::munmap(view_, viewSize_);
  view_ = nullptr;
  viewSize_ = 0;
}

void SharedMemory::Close() {
  Unmap();
  if (handle_ != kNoHandle) ::close(handle_);
  handle_ = kNoHandle;
}

bool SharedMemory::Remove(const char16_t* name) {
  std::string shm;
  if (!ShmName(name, &shm)) return false;
  if (::shm_unlink(shm.c_str()) != 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  return true;
}

}  // namespace plat
