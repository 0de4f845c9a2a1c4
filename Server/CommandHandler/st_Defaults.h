// The default settings sections shipped with the service: one file per
// section, "<SECTION>.ini", UTF-8, in the defaults folder.
#pragma once

#include <map>
#include <string>

namespace st {

bool ReadDefaultSections(const std::string& folder, std::map<std::string, std::string>* sections, std::string* error);

}  // namespace st
