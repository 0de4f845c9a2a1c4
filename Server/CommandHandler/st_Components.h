// Whether a client is behind: the component versions the server offers (the
// INI_COMPONENT_VER section the client itself reads) against those the
// client reports after an update.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace st {

// -1, 0 or 1 as a is older than, the same as or newer than b, part by part
// as numbers ("12.0.1003" < "12.0.1010", "9" < "10"); missing trailing parts
// count as 0, so "12.0" is "12.0.0". Nothing when either is not a version:
// decimal numbers joined by single dots, blanks around it allowed. Numbers
// of any length compare correctly: nothing is converted to an integer.
std::optional<int> CompareVersions(std::string_view a, std::string_view b);

// The server's side, as the section's text holds it.
struct ServerComponents {
  std::string pattern;  // a number, compared with the client's ptnfile
  std::string engine;   // dotted versions
  std::string program;
};

// The values of the keys Pattern, Engine and Program ("Key=Value" lines,
// key names without regard to case, blanks around either side ignored;
// section headers and comments skipped). A key absent is empty.
ServerComponents ParseComponentSection(std::string_view text);

// The client's side, from its update report.
struct ClientComponents {
  uint32_t pattern = 0;  // ptnfile
  std::string engine;
  std::string program;
};

// The components the server has newer than the client: "Pattern",
// "Engine", "Program", in that order; empty when no update is due. A server
// value that is empty, 0 (every part zero) or not a version never makes an
// update due, so that a section left at its shipped zeros asks nothing of
// anyone. A client value that is empty counts as 0 (it has none); one that
// is not a version is not compared, rather than sending the client round an
// update it cannot finish.
std::vector<std::string> ComponentsBehind(const ServerComponents& server, const ClientComponents& client);

}  // namespace st
