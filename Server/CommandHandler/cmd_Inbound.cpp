#include "cmd_Inbound.h"

#include <cstring>

#include "channel/channel_Settings.h"
#include "platform/text.h"

namespace cmd {

Form Classify(const std::vector<uint8_t>& bytes) {
  static constexpr uint8_t kVersionItem[8] = {4, 0, 0, 0, 1, 0, 0, 0};
  if (bytes.size() >= 8 && std::memcmp(bytes.data(), kVersionItem, 8) == 0) return Form::kVersion2;
  static constexpr char kPrefix[] = "CMDHL_";
  if (bytes.size() % 2 != 0 || bytes.size() < 2 * (sizeof kPrefix - 1)) return Form::kGarbled;
  for (std::size_t i = 0; i + 1 < sizeof kPrefix; ++i) {
    if (bytes[2 * i] != static_cast<uint8_t>(kPrefix[i]) || bytes[2 * i + 1] != 0) return Form::kGarbled;
  }
  return Form::kVersion1;
}

std::vector<std::u16string> SplitText(const std::vector<uint8_t>& bytes, std::size_t maxFields) {
  std::vector<std::u16string> fields(1);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const char16_t c = static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8));
    if (c == u'\t' && fields.size() < maxFields) {
      fields.emplace_back();
    } else {
      fields.back().push_back(c);
    }
  }
  return fields;
}

std::string ShortPipeName(const std::u16string& pipe) {
  if (pipe == kCommandHandlerPipe) return "Manager";
  if (pipe == kCommandHandler2Pipe) return "Handler2";
  return plat::ToUtf8(pipe);
}

}  // namespace cmd
