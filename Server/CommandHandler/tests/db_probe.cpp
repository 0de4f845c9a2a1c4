#include "db_probe.h"

#include <stdlib.h>

#include <filesystem>

std::string MakeTempFolder() {
  char folder[] = "/tmp/vgcr-cmdhandler-test-XXXXXX";
  return ::mkdtemp(folder) ? folder : "";
}

void RemoveFolder(const std::string& folder) {
  std::error_code ignored;
  if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
}
