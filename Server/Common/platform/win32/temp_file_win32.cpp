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

bool DeleteFileAt(const std::u16string& fullName) {
  return ::DeleteFileW(W(fullName.c_str())) != FALSE;
}

}  // namespace plat
