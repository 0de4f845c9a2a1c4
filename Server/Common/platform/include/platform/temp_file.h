// Temporary files and the access the command-handler service needs to them.
#pragma once

#include <string>

namespace plat {

// GetTempFileNameW(folder, prefix, 0): creates a new empty file in folder
// whose name is the first three characters of prefix, a unique part and
// ".tmp", and stores its full name. The folder must end with a separator.
bool CreateTempFile(const std::u16string& folder, const char16_t* prefix,
                    std::u16string* fullName);

// Lets the service's account open a spill file. Windows: a DACL of four
// entries granting GENERIC_ALL to IIS_IUSRS, IUSR, Local System and
// Everyone. POSIX: mode 0640, so the owner and the file's group (inherited
// from a setgid server folder shared with the service) can read it.
// Failures are silent, as the caller cannot do anything about them.
void GrantServiceAccess(const std::u16string& fullName);

bool DeleteFileAt(const std::u16string& fullName);

// The file name part of a path (after the last '\' or '/').
std::u16string FileNamePart(const std::u16string& path);

}  // namespace plat
