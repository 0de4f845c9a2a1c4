// Points the server folder (where spill files go) at a fresh folder for the
// life of the object, and counts the spill files in it.
#pragma once

#include <string>

class ScopedServerFolder {
 public:
  ScopedServerFolder();
  ~ScopedServerFolder();
  ScopedServerFolder(const ScopedServerFolder&) = delete;
  ScopedServerFolder& operator=(const ScopedServerFolder&) = delete;

  const std::u16string& path() const { return path_; }
  // "mst*.tmp" files in the folder.
  int SpillFiles() const;

 private:
  std::u16string path_;
};
