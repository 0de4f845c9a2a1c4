// The default settings sections shipped with the service: one file per
// section, "<SECTION>.ini", UTF-8, in the defaults folder.
#pragma once

#include <map>
#include <string>

namespace st {

// Settings texts travel with CR LF line ends; a text written with LF alone
// gets its CR.
std::string WithCrLf(const std::string& text);

bool ReadDefaultSections(const std::string& folder, std::map<std::string, std::string>* sections, std::string* error);

}  // namespace st
