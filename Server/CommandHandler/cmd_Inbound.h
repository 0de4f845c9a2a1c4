// What arrives on a service pipe, before any command looks at it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cmd {

enum class Form { kVersion2, kVersion1, kGarbled };

// Version 2 starts with its version item (04 00 00 00 01 00 00 00); a
// version-1 text is UTF-16LE and starts with "CMDHL_".
Form Classify(const std::vector<uint8_t>& bytes);

// A version-1 text split at tabs into at most maxFields fields: the last
// field keeps any further tabs (configuration texts are always last).
std::vector<std::u16string> SplitText(const std::vector<uint8_t>& bytes, std::size_t maxFields);

// The pipe's short name for the log: "Manager", "Handler2", ...
std::string ShortPipeName(const std::u16string& pipe);

}  // namespace cmd
