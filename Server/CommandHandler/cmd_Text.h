// Texts as the extension sends them, turned into the UTF-8 the database keeps.
#pragma once

#include <string>

namespace cmd {

// A narrow text of the extension's, in the ANSI code page, as UTF-8; empty
// when it cannot be converted.
std::string AnsiToUtf8(const std::string& text);

}  // namespace cmd
