#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/errors.h"
#include "platform/temp_file.h"
#include "platform/text.h"

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

bool DeleteFileAt(const std::u16string& fullName) {
  if (::unlink(ToUtf8(fullName).c_str()) != 0) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  return true;
}

}  // namespace plat
