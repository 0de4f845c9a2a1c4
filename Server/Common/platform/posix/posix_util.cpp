#include "posix_util.h"

#include <cstdarg>
#include <cstdio>

#include "platform/diagnostics.h"
#include "platform/text.h"

namespace plat::posix {

void Diagnose(const char* format, ...) {
  char narrow[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(narrow, sizeof narrow, format, args);
  va_end(args);
  char16_t wide[512];
  std::size_t i = 0;
  for (; narrow[i] && i + 1 < sizeof wide / sizeof wide[0]; ++i) {
    wide[i] = static_cast<unsigned char>(narrow[i]);
  }
  wide[i] = u'\0';
  ReportDiagnostic(wide);
}

std::string NativePath(const std::u16string& path) { return ToUtf8(path); }

}  // namespace plat::posix
