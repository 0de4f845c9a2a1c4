#include "server_folder.h"

#include <filesystem>
#include <string>

#include "platform/machine_config.h"
#include "platform/process.h"
#include "platform/text.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <cstdlib>
#endif

namespace {

void SetServerFolder(const std::u16string& path) {
#if defined(_WIN32)
  HKEY key = nullptr;
  if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VantaLabs\\Vigilcrest\\service\\Information", 0, nullptr, 0,
                      KEY_ALL_ACCESS, nullptr, &key, nullptr) != ERROR_SUCCESS) {
    return;
  }
  if (path.empty()) {
    RegDeleteValueW(key, L"Local_Path");
  } else {
    RegSetValueExW(key, L"Local_Path", 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                   static_cast<DWORD>((path.size() + 1) * sizeof(char16_t)));
  }
  RegCloseKey(key);
#else
  if (path.empty()) {
    ::unsetenv("VGCR_LOCAL_PATH");
  } else {
    ::setenv("VGCR_LOCAL_PATH", plat::ToUtf8(path).c_str(), 1);
  }
#endif
}

}  // namespace

ScopedServerFolder::ScopedServerFolder() {
  std::u16string temp;
  plat::TempFolder(&temp);
  static int counter = 0;
  std::filesystem::path folder = std::filesystem::path(temp) /
                                 ("vgcr-server-" + std::to_string(plat::CurrentProcessId()) + "-" +
                                  std::to_string(++counter));
  std::filesystem::create_directories(folder);
  path_ = folder.u16string();
  SetServerFolder(path_);
}

ScopedServerFolder::~ScopedServerFolder() {
  SetServerFolder(u"");
  std::error_code ignored;
  std::filesystem::remove_all(std::filesystem::path(path_), ignored);
}

int ScopedServerFolder::FilesNamed(const char16_t* prefix) const {
  int n = 0;
  const std::u16string start(prefix);
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(path_))) {
    std::u16string name = entry.path().filename().u16string();
    if (name.rfind(start, 0) == 0 && name.size() > 4 && name.substr(name.size() - 4) == u".tmp") ++n;
  }
  return n;
}

void SetUploadLimit(uint32_t bytes) {
#if defined(_WIN32)
  HKEY key = nullptr;
  if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VantaLabs\\Vigilcrest\\service\\Information", 0, nullptr, 0,
                      KEY_ALL_ACCESS, nullptr, &key, nullptr) != ERROR_SUCCESS) {
    return;
  }
  if (bytes == 0) {
    RegDeleteValueW(key, L"UploadLimit");
  } else {
    const DWORD value = bytes;
    RegSetValueExW(key, L"UploadLimit", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
  }
  RegCloseKey(key);
#else
  if (bytes == 0) {
    ::unsetenv("VGCR_UPLOAD_LIMIT");
  } else {
    ::setenv("VGCR_UPLOAD_LIMIT", std::to_string(bytes).c_str(), 1);
  }
#endif
}
