// Files clients upload. The extension streams an upload into a temporary
// file "upl*.tmp" in the server folder and announces it; from then on the
// file is the service's, which copies it into the data folder's `uploads`
// folder (checked against its size and MD5 digest) and records it in the
// `uploads` table, or refuses it, and deletes the temporary file either way.
//
// The announcement names the temporary file, so it names a file another
// process chose: nothing is opened or deleted unless the path is a
// temporary upload file's directly in the server folder, and the file is
// opened as spill files are (no link followed, a plain file with one link
// that this machine's server wrote).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "channel/rec_Upload.h"
#include "db_Database.h"

namespace st {

struct UploadQuotas {
  int64_t clientBytes = 256ll << 20;  // what one client's uploads may take; 0: no limit
  int64_t totalBytes = 4096ll << 20;  // what all of them may take; 0: no limit
};

// Why the path is not a temporary upload file directly in the server
// folder; empty when it is. Compared as text: the folder part (up to the
// last separator) must be the server folder, trailing separators aside, and
// the name must be of the temporary files' form.
std::string WhyNotTempUploadPath(std::u16string_view path, std::u16string_view serverFolder);

// The names the service gives files in `uploads`: a copy in progress, and
// an upload recorded under its id.
bool IsStagingName(std::string_view name);
std::string StoredName(int64_t id);
bool IsStoredName(std::string_view name);

// How long a temporary upload file in the server folder may go unmodified
// before the sweep takes it for a leftover: an upload in progress keeps
// writing it, and a finished one is announced at once.
inline constexpr std::chrono::minutes kTempUploadAge{15};
// Between two sweeps.
inline constexpr std::chrono::minutes kUploadSweepInterval{10};

class Uploads {
 public:
  // Opens `uploads` in the data folder, making it (mode 0700) when missing;
  // a link or another user's folder is refused.
  static std::unique_ptr<Uploads> Open(db::Database& database, const std::string& dataFolder, UploadQuotas quotas,
                                       std::string* error);
  ~Uploads();
  Uploads(const Uploads&) = delete;
  Uploads& operator=(const Uploads&) = delete;

  // Takes the announced file over, or refuses it; `kind` is what the table
  // calls it ("log", "dlp-forensic"). Returns what the log line says.
  std::string TakeOver(const tagCln_UploadFile& record, std::string_view kind);

  // Deletes what nothing will ever take: temporary upload files directly
  // in the server folder not modified for `tempAge`, and files of the
  // service's own forms in `uploads` that no row names (a copy that a
  // stopped service left, a file whose row an operator deleted). Only
  // regular files, never through a link. `report` gets a line per folder
  // that lost files.
  void Sweep(std::chrono::seconds tempAge, const std::function<void(const std::string&)>& report);

  const std::string& Folder() const { return folderPath_; }
  // Where this service keeps its files, as the rows say it: "HOST:FOLDER".
  // Services sharing a database each keep the files they took.
  const std::string& Door() const { return door_; }

 private:
  friend class StagingFile;
  Uploads(db::Database& database, int folder, std::string folderPath, UploadQuotas quotas)
      : database_(database), folder_(folder), folderPath_(std::move(folderPath)), door_(DoorOf(folderPath_)),
        quotas_(quotas) {}
  static std::string DoorOf(const std::string& folderPath);
  // "" when a known client may store `size` more bytes, else why not.
  std::string Admit(const std::string& uid, int64_t size);
  // The same, with the database's lock held.
  std::string QuotaRefusal(const std::string& uid, int64_t size);
  // Copies the temporary file into `uploads`, checks it, and records it;
  // "" with its stored name, else why it was refused.
  std::string Store(const tagCln_UploadFile& record, std::string_view kind, const std::string& uid,
                    const std::string& md5, std::string* storedName);
  void SweepServerFolder(std::chrono::seconds tempAge, const std::function<void(const std::string&)>& report);
  void SweepUploadsFolder(const std::function<void(const std::string&)>& report);

  db::Database& database_;
  int folder_;  // `uploads`, opened without following a link
  std::string folderPath_;
  std::string door_;
  UploadQuotas quotas_;
  // A copy's commit (its row and its file's final name) and the sweep of
  // `uploads` take turns, so that the sweep never sees a file named before
  // its row is; the staging files of the copies in progress are left alone.
  std::mutex files_;
  std::set<std::string> staging_;
};

}  // namespace st
