#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/errors.h"
#include "platform/machine_config.h"
#include "platform/text.h"

namespace plat {
namespace {

std::string Env(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::u16string WithSeparator(std::string folder) {
  if (folder.empty() || folder.back() != '/') folder.push_back('/');
  return FromUtf8(folder);
}

}  // namespace

bool ReadServerLocalPath(std::u16string* path) {
  std::string value = Env("VGCR_LOCAL_PATH");
  if (value.empty()) {
    SetLastError(kErrorFileNotFound);
    return false;
  }
  // The registry value holds at most 1042 bytes, 520 characters and a NUL.
  std::u16string wide = FromUtf8(value);
  if (wide.size() > 520) wide.resize(520);
  *path = wide;
  return true;
}

bool ReadServerUploadLimit(uint32_t* bytes) {
  const std::string value = Env("VGCR_UPLOAD_LIMIT");
  if (value.empty() || value.size() > 10 || value.find_first_not_of("0123456789") != std::string::npos) return false;
  const unsigned long long number = std::strtoull(value.c_str(), nullptr, 10);
  if (number < 1 || number > 2147483647ull) return false;
  *bytes = static_cast<uint32_t>(number);
  return true;
}

bool UserCacheFolder(std::u16string* path) {
  std::string folder = Env("XDG_CACHE_HOME");
  if (folder.empty()) {
    std::string home = Env("HOME");
    if (home.empty()) {
      if (const passwd* pw = ::getpwuid(::geteuid())) home = pw->pw_dir;
    }
    if (home.empty()) {
      SetLastError(kErrorPathNotFound);
      return false;
    }
    folder = home + "/.cache";
  }
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    SetLastError(ErrorFromErrno(errno));
    return false;
  }
  *path = WithSeparator(folder);
  return true;
}

bool TempFolder(std::u16string* path) {
  std::string folder = Env("TMPDIR");
  if (folder.empty()) folder = "/tmp";
  *path = WithSeparator(folder);
  return true;
}

}  // namespace plat
