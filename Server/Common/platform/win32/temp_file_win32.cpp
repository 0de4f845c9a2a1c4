#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include "platform/temp_file.h"
#include "wide.h"

namespace plat {

using win32::U;
using win32::W;

bool CreateTempFile(const std::u16string& folder, const char16_t* prefix,
                    std::u16string* fullName) {
  wchar_t name[MAX_PATH + 1] = {};
  if (!::GetTempFileNameW(W(folder.c_str()), W(prefix), 0, name)) return false;
  *fullName = U(name);
  return true;
}

void GrantServiceAccess(const std::u16string& fullName) {
  struct Entry {
    const wchar_t* sid;
    DWORD mask;
  };
  // IIS_IUSRS, IUSR, Local System, Everyone.
  static const Entry kEntries[] = {{L"S-1-5-32-568", GENERIC_ALL},
                                   {L"S-1-5-17", GENERIC_ALL},
                                   {L"S-1-5-18", GENERIC_ALL},
                                   {L"S-1-1-0", GENERIC_ALL}};
  alignas(DWORD) BYTE aclBytes[1024];
  auto* acl = reinterpret_cast<PACL>(aclBytes);
  SECURITY_DESCRIPTOR sd;
  if (!::InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION) ||
      !::InitializeAcl(acl, sizeof aclBytes, ACL_REVISION)) {
    return;
  }
  for (const Entry& entry : kEntries) {
    PSID sid = nullptr;
    if (::ConvertStringSidToSidW(entry.sid, &sid)) {
      ::AddAccessAllowedAce(acl, ACL_REVISION, entry.mask, sid);
      ::LocalFree(sid);
    }
  }
  if (::SetSecurityDescriptorDacl(&sd, TRUE, acl, FALSE)) {
    ::SetFileSecurityW(W(fullName.c_str()), DACL_SECURITY_INFORMATION, &sd);
  }
}

void GrantServiceReadAccess(const std::u16string&) {}

bool DeleteFileAt(const std::u16string& fullName) {
  return ::DeleteFileW(W(fullName.c_str())) != FALSE;
}

bool ReplaceFileWith(const std::u16string& from, const std::u16string& to) {
  return ::MoveFileExW(W(from.c_str()), W(to.c_str()), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
}

TempFileReader::~TempFileReader() { Close(); }

bool TempFileReader::Open(const std::u16string& fullName) {
  Close();
  // The sharing the C runtime's fopen gives, as before.
  HANDLE file = ::CreateFileW(W(fullName.c_str()), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION info{};
  if (::GetFileType(file) != FILE_TYPE_DISK || !::GetFileInformationByHandle(file, &info) ||
      (info.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) != 0 ||
      info.nNumberOfLinks != 1) {
    ::CloseHandle(file);
    ::SetLastError(ERROR_ACCESS_DENIED);
    return false;
  }
  handle_ = file;
  size_ = (uint64_t{info.nFileSizeHigh} << 32) | info.nFileSizeLow;
  position_ = 0;
  return true;
}

uint32_t TempFileReader::Read(void* into, uint32_t size) {
  if (handle_ == kNoHandle) return 0;
  if (size > Remaining()) size = static_cast<uint32_t>(Remaining());
  uint32_t done = 0;
  while (done < size) {
    DWORD n = 0;
    if (!::ReadFile(handle_, static_cast<char*>(into) + done, size - done, &n, nullptr) || n == 0) break;
    done += n;
  }
  position_ += done;
  if (done < size) size_ = position_;
  return done;
}

void TempFileReader::Close() {
  if (handle_ != kNoHandle) ::CloseHandle(handle_);
  handle_ = kNoHandle;
  size_ = position_ = 0;
}

}  // namespace plat
