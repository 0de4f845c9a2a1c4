#include "replies.h"

#include <charconv>

namespace agentsim {

namespace {

bool ReadInt(std::string_view text, int32_t* out) {
  while (!text.empty() && (text.back() == '\r' || text.back() == ' ')) text.remove_suffix(1);
  const char* end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, *out);
  return failure == std::errc() && stop == end && !text.empty();
}

}  // namespace

std::optional<int> NegativeCode(std::string_view body) {
  while (!body.empty() && (body.back() == '\n' || body.back() == '\r')) body.remove_suffix(1);
  int32_t code = 0;
  if (body.size() < 2 || body.size() > 11 || body.front() != '-' || !ReadInt(body, &code)) return std::nullopt;
  return code;
}

bool ParsePolling(std::string_view body, PollingState* state) {
  constexpr std::string_view kBlock = "[Polling_Response]";
  if (body.substr(0, kBlock.size()) != kBlock) return false;
  bool message = false, sequence = false;
  std::size_t at = 0;
  while (at < body.size()) {
    std::size_t end = body.find('\n', at);
    if (end == std::string_view::npos) end = body.size();
    const std::string_view line = body.substr(at, end - at);
    at = end + 1;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = line.substr(0, equals), value = line.substr(equals + 1);
    if (key == "MESSAGE_ID") message = ReadInt(value, &state->messageId);
    else if (key == "SETTING_SEQUENCE") sequence = ReadInt(value, &state->settingSequence);
    else if (key == "INDIVIDUAL_SETTING") ReadInt(value, &state->individualSetting);
  }
  return message && sequence;
}

}  // namespace agentsim
