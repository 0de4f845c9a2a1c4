#include "st_Components.h"

#include <algorithm>

namespace st {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// The parts of a version without their leading zeros ("0" becomes ""), or
// nothing when the text is not one.
std::optional<std::vector<std::string_view>> Parts(std::string_view text) {
  text = Trimmed(text);
  if (text.empty()) return std::nullopt;
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t dot = text.find('.');
    std::string_view part = text.substr(0, dot);
    if (part.empty()) return std::nullopt;
    for (char c : part) {
      if (c < '0' || c > '9') return std::nullopt;
    }
    while (!part.empty() && part.front() == '0') part.remove_prefix(1);
    parts.push_back(part);
    if (dot == std::string_view::npos) return parts;
    text.remove_prefix(dot + 1);
  }
}

// Two numbers as digit strings without leading zeros.
int CompareNumbers(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  const int c = a.compare(b);
  return c < 0 ? -1 : c > 0 ? 1 : 0;
}

bool IsZero(const std::vector<std::string_view>& parts) {
  for (std::string_view part : parts) {
    if (!part.empty()) return false;
  }
  return true;
}

// The server's value is newer than the client's, by the rules above. A
// client that reports nothing for a component may not run it: asking it to
// update would have it fetch, update and report again, for ever.
bool Newer(std::string_view server, std::string_view client) {
  const auto ours = Parts(server);
  if (!ours || IsZero(*ours) || Trimmed(client).empty()) return false;
  const std::optional<int> order = CompareVersions(server, client);
  return order.has_value() && *order > 0;
}

}  // namespace

std::optional<int> CompareVersions(std::string_view a, std::string_view b) {
  const auto left = Parts(a);
  const auto right = Parts(b);
  if (!left || !right) return std::nullopt;
  const std::size_t n = std::max(left->size(), right->size());
  for (std::size_t i = 0; i < n; ++i) {
    const std::string_view x = i < left->size() ? (*left)[i] : std::string_view();
    const std::string_view y = i < right->size() ? (*right)[i] : std::string_view();
    if (const int c = CompareNumbers(x, y); c != 0) return c;
  }
  return 0;
}

ServerComponents ParseComponentSection(std::string_view text) {
  ServerComponents server;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = Trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == '[' || line.front() == ';' || line.front() == '#') continue;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = Trimmed(line.substr(0, equals));
    const std::string_view value = Trimmed(line.substr(equals + 1));
    const auto is = [key](std::string_view name) {
      if (key.size() != name.size()) return false;
      for (std::size_t i = 0; i < key.size(); ++i) {
        const char c = key[i] >= 'A' && key[i] <= 'Z' ? static_cast<char>(key[i] + 32) : key[i];
        if (c != name[i]) return false;
      }
      return true;
    };
    if (is("pattern")) {
      server.pattern = value;
    } else if (is("engine")) {
      server.engine = value;
    } else if (is("program")) {
      server.program = value;
    }
  }
  return server;
}

std::vector<std::string> ComponentsBehind(const ServerComponents& server, const ClientComponents& client) {
  std::vector<std::string> behind;
  // The pattern is one number: a dotted value on the server's side is not
  // one, and is not compared.
  if (server.pattern.find('.') == std::string::npos && client.pattern != 0 &&
      Newer(server.pattern, std::to_string(client.pattern)))
    behind.emplace_back("Pattern");
  if (Newer(server.engine, client.engine)) behind.emplace_back("Engine");
  if (Newer(server.program, client.program)) behind.emplace_back("Program");
  return behind;
}

}  // namespace st
