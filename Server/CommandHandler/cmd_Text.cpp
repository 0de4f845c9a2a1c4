#include "cmd_Text.h"

#include <vector>

#include "platform/codepage.h"
#include "platform/text.h"

namespace cmd {

std::string AnsiToUtf8(const std::string& text) {
  if (text.empty()) return text;
  // A single-byte code page makes one unit of each byte, a multi-byte one fewer.
  std::vector<char16_t> wide(text.size() + 1);
  const int n = plat::MultiByteToWide(plat::kCpAcp, 0, text.c_str(), -1, wide.data(), static_cast<int>(wide.size()));
  return n > 0 ? plat::ToUtf8(wide.data()) : std::string();
}

}  // namespace cmd
