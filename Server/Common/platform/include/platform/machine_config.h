// Where this machine keeps things.
#pragma once

#include <cstdint>
#include <string>

namespace plat {

// The server folder: the registry value Local_Path under
// HKLM\SOFTWARE\VantaLabs\Vigilcrest\service\Information (at most 1042
// bytes) on Windows; $VGCR_LOCAL_PATH on POSIX. False when not configured.
bool ReadServerLocalPath(std::u16string* path);

// The largest file upload the server takes, in bytes: the REG_DWORD
// UploadLimit beside Local_Path on Windows; $VGCR_UPLOAD_LIMIT (decimal) on
// POSIX. False when not set or not 1 to 2147483647.
bool ReadServerUploadLimit(uint32_t* bytes);

// The per-user cache folder, created when missing: the shell's Internet
// cache folder (CSIDL_INTERNET_CACHE | CSIDL_FLAG_CREATE) on Windows;
// $XDG_CACHE_HOME or ~/.cache on POSIX.
bool UserCacheFolder(std::u16string* path);

// The temporary folder, with a trailing separator: GetTempPathW on Windows;
// $TMPDIR or /tmp on POSIX.
bool TempFolder(std::u16string* path);

// The separator between folder and file names on this platform.
inline constexpr char16_t kPathSeparator =
#if defined(_WIN32)
    u'\\';
#else
    u'/';
#endif

}  // namespace plat
