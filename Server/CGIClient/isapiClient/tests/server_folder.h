// Points the server folder (where spill files go) at a fresh folder for the
// life of the object, and counts the spill files in it.
#pragma once

#include <cstdint>
#include <string>

class ScopedServerFolder {
 public:
  ScopedServerFolder();
  ~ScopedServerFolder();
  ScopedServerFolder(const ScopedServerFolder&) = delete;
  ScopedServerFolder& operator=(const ScopedServerFolder&) = delete;

  const std::u16string& path() const { return path_; }
  // "mst*.tmp" files in the folder.
  int SpillFiles() const { return FilesNamed(u"mst"); }
  // "upl*.tmp" files: uploads' temporary files.
  int UploadFiles() const { return FilesNamed(u"upl"); }
  int FilesNamed(const char16_t* prefix) const;

 private:
  std::u16string path_;
};

// Sets the machine's upload limit (0: none, the default applies).
void SetUploadLimit(uint32_t bytes);
