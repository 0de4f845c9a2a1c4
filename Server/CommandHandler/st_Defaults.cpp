#include "st_Defaults.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace st {

std::string WithCrLf(const std::string& text) {
  std::string crlf;
  for (char c : text) {
    if (c == '\n' && (crlf.empty() || crlf.back() != '\r')) crlf += '\r';
    crlf += c;
  }
  return crlf;
}

bool ReadDefaultSections(const std::string& folder, std::map<std::string, std::string>* sections,
                         std::string* error) {
  namespace fs = std::filesystem;
  std::error_code code;
  fs::directory_iterator entries(folder, code);
  if (code) {
    *error = "cannot read the defaults folder " + folder + ": " + code.message();
    return false;
  }
  for (const fs::directory_entry& entry : entries) {
    if (entry.path().extension() != ".ini") continue;
    std::ifstream file(entry.path(), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file) {
      *error = "cannot read " + entry.path().string();
      return false;
    }
    (*sections)[entry.path().stem().string()] = WithCrLf(text.str());
  }
  if (sections->empty()) {
    *error = "no section files (*.ini) in " + folder;
    return false;
  }
  return true;
}

}  // namespace st
