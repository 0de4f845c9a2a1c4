#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/errors.h"
#include "platform/temp_file.h"
#include "platform/text.h"
#include "posix_util.h"

namespace plat {

bool CreateTempFile(const std::u16string& folder, const char16_t* prefix,
                    std::u16string* fullName) {
  // Like GetTempFileNameW: only the first three characters of the prefix.
  std::u16string shortPrefix(prefix ? prefix : u"");
  if (shortPrefix.size() > 3) shortPrefix.resize(3);
  std::string pattern = ToUtf8(folder) + ToUtf8(shortPrefix) + "XXXXXX.tmp";
  int fd = ::mkstemps(pattern.data(), 4);
  if (fd < 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  ::close(fd);
  *fullName = FromUtf8(pattern);
  return true;
}

void GrantServiceAccess(const std::u16string& fullName) {
  ::chmod(ToUtf8(fullName).c_str(), 0640);
}

void GrantServiceReadAccess(const std::u16string& fullName) { GrantServiceAccess(fullName); }

bool DeleteFileAt(const std::u16string& fullName) {
  if (::unlink(ToUtf8(fullName).c_str()) != 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  return true;
}

bool ReplaceFileWith(const std::u16string& from, const std::u16string& to) {
  if (::rename(ToUtf8(from).c_str(), ToUtf8(to).c_str()) != 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  return true;
}

namespace {

// Where the web server and the service run as two users of the pipe group,
// the other one's spill files carry that group (a setgid server folder) and
// only their owner may write them: a member of the group made them, and the
// group is trusted with the pipes anyway.
bool FromPipeGroup(const struct stat& st) {
  gid_t group = 0;
  return posix::PipeGroup(&group) && st.st_gid == group && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

TempFileReader::~TempFileReader() { Close(); }

bool TempFileReader::Open(const std::u16string& fullName) {
  Close();
  const std::string path = posix::NativePath(fullName);
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    const int error = errno;
    if (error == ELOOP) {  // what O_NOFOLLOW answers for a symbolic link
      posix::Diagnose("spill file %s refused: a symbolic link", path.c_str());
      SetLastError(kErrorAccessDenied);
    } else {
      SetLastError(ErrorFromErrno(error));
    }
    return false;
  }
  struct stat st {};
  const char* why = nullptr;
  if (::fstat(fd, &st) != 0) {
    why = "cannot be examined";
  } else if (!S_ISREG(st.st_mode)) {
    why = "not a regular file";
  } else if (st.st_nlink != 1) {
    why = "more than one link";  // a second name for a file kept elsewhere
  } else if (st.st_uid != ::geteuid() && st.st_uid != 0 && !FromPipeGroup(st)) {
    why = "owned by another user";
  }
  if (why) {
    posix::Diagnose("spill file %s refused: %s", path.c_str(), why);
    ::close(fd);
    SetLastError(kErrorAccessDenied);
    return false;
  }
  handle_ = fd;
  size_ = static_cast<uint64_t>(st.st_size);
  position_ = 0;
  return true;
}

uint32_t TempFileReader::Read(void* into, uint32_t size) {
  if (handle_ == kNoHandle) return 0;
  if (size > Remaining()) size = static_cast<uint32_t>(Remaining());
  uint32_t done = 0;
  while (done < size) {
    const ssize_t n = ::read(handle_, static_cast<char*>(into) + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      SetLastError(n < 0 ? ErrorFromErrno(errno) : kErrorHandleEof);
      break;
    }
    done += static_cast<uint32_t>(n);
  }
  position_ += done;
  if (done < size) size_ = position_;
  return done;
}

void TempFileReader::Close() {
  if (handle_ != kNoHandle) ::close(handle_);
  handle_ = kNoHandle;
  size_ = position_ = 0;
}

}  // namespace plat
