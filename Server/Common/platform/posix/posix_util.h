// Helpers shared by the POSIX implementation files.
#pragma once

#include <cstddef>
#include <string>

namespace plat::posix {

// printf into a stack buffer and hand the text to the diagnostic sink.
void Diagnose(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A UTF-16 path or name as UTF-8 for a system call.
std::string NativePath(const std::u16string& path);

}  // namespace plat::posix
