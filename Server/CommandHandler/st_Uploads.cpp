#include "st_Uploads.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

#include "md5_MessageDigest5.h"
#include "platform/errors.h"
#include "platform/machine_config.h"
#include "platform/temp_file.h"
#include "platform/text.h"

namespace st {
namespace {

constexpr std::size_t kUidChars = 36;
constexpr std::size_t kReleaseChars = 7;
constexpr char kStagingPrefix[] = "staging-";
constexpr std::size_t kStagingDigits = 16;
constexpr char kStoredPrefix[] = "upload-";
constexpr uint32_t kCopyPiece = 64 * 1024;

// A text a client chose, as a log line shows it: cut, so that a path of
// megabytes does not make a line of megabytes (the log escapes the rest).
std::string Shown(std::u16string_view text, std::size_t max = 120) {
  if (text.size() <= max) return plat::ToUtf8(text);
  return plat::ToUtf8(text.substr(0, max)) + "...";
}

std::string Why(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

std::u16string_view WithoutTrailingSeparators(std::u16string_view path) {
  while (!path.empty() && path.back() == plat::kPathSeparator) path.remove_suffix(1);
  return path;
}

bool IsHexDigits(std::u16string_view text, std::size_t count) {
  if (text.size() != count) return false;
  for (char16_t c : text) {
    if (!((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F'))) return false;
  }
  return true;
}

std::string UpperCase(std::u16string_view hex) {
  std::string text = plat::ToUtf8(hex);
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return text;
}

std::string MiB(int64_t bytes) { return std::to_string(bytes >> 20) + " MiB"; }

bool WriteAll(int fd, const uint8_t* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// Renames within `folder` without ever replacing a file of the new name.
bool MoveNoReplace(int folder, const std::string& from, const std::string& to) {
  if (::renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // A file system without the flag: a second link, which fails on an
  // existing name as well, then the staging name goes.
  if (::linkat(folder, from.c_str(), folder, to.c_str(), 0) != 0) return false;
  ::unlinkat(folder, from.c_str(), 0);
  return true;
}

bool Known(db::Database& database, const std::string& uid) {
  db::Statement s = database.Prepare("SELECT 1 FROM clients WHERE uid = ?");
  return s.Bind(1, uid).Step();
}

// Regular files of `folder` for which `doomed` says so, deleted without
// following a link; returns their names.
std::vector<std::string> DeleteEntries(int folder,
                                       const std::function<bool(const std::string&, const struct stat&)>& doomed) {
  std::vector<std::string> deleted;
  const int fd = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return deleted;
  DIR* entries = ::fdopendir(fd);
  if (entries == nullptr) {
    ::close(fd);
    return deleted;
  }
  while (const dirent* entry = ::readdir(entries)) {
    const std::string name = entry->d_name;
    struct stat st {};
    if (::fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)) continue;
    if (doomed(name, st) && ::unlinkat(fd, name.c_str(), 0) == 0) deleted.push_back(name);
  }
  ::closedir(entries);
  return deleted;
}

std::string NameList(const std::vector<std::string>& names) {
  std::string list;
  for (std::size_t i = 0; i < names.size() && i < 5; ++i) list += (i ? ", " : "") + names[i];
  if (names.size() > 5) list += ", ...";
  return list;
}

}  // namespace

std::string WhyNotTempUploadPath(std::u16string_view path, std::u16string_view serverFolder) {
  // Only this platform's separator: elsewhere a backslash is part of a
  // name, and the name check below refuses it.
  const std::size_t cut = path.rfind(plat::kPathSeparator);
  if (cut == std::u16string_view::npos) return "the temporary file " + Shown(path) + " is named without its folder";
  if (WithoutTrailingSeparators(path.substr(0, cut)) != WithoutTrailingSeparators(serverFolder))
    return "the temporary file " + Shown(path) + " is not in the server folder";
  if (!upload::IsTempUploadName(path.substr(cut + 1)))
    return "the temporary file " + Shown(path) + " is not named as temporary uploads are";
  return "";
}

bool IsStagingName(std::string_view name) {
  const std::string_view prefix = kStagingPrefix;
  if (name.size() != prefix.size() + kStagingDigits || name.substr(0, prefix.size()) != prefix) return false;
  for (char c : name.substr(prefix.size())) {
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
  }
  return true;
}

std::string StoredName(int64_t id) { return kStoredPrefix + std::to_string(id); }

bool IsStoredName(std::string_view name) {
  const std::string_view prefix = kStoredPrefix;
  if (name.size() <= prefix.size() || name.size() > prefix.size() + 19 || name.substr(0, prefix.size()) != prefix)
    return false;
  const std::string_view digits = name.substr(prefix.size());
  if (digits.front() == '0') return false;
  for (char c : digits) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

std::string Uploads::DoorOf(const std::string& folderPath) {
  char host[256] = {};
  if (::gethostname(host, sizeof host - 1) != 0) host[0] = 0;
  char* real = ::realpath(folderPath.c_str(), nullptr);
  std::string door = std::string(host) + ":" + (real ? real : folderPath);
  std::free(real);
  return door;
}

std::unique_ptr<Uploads> Uploads::Open(db::Database& database, const std::string& dataFolder, UploadQuotas quotas,
                                       std::string* error) {
  const std::string path = dataFolder + "/uploads";
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    *error = Why(("cannot make the folder " + path).c_str());
    return nullptr;
  }
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    *error = Why(("cannot open the uploads folder " + path + " (a link is refused)").c_str());
    return nullptr;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || st.st_uid != ::geteuid()) {
    *error = "the uploads folder " + path + " does not belong to this user";
    ::close(fd);
    return nullptr;
  }
  // What clients upload (their logs, forensic copies of their files) is the
  // service's alone.
  if ((st.st_mode & 07777) != 0700 && ::fchmod(fd, 0700) != 0) {
    *error = Why(("cannot restrict the uploads folder " + path).c_str());
    ::close(fd);
    return nullptr;
  }
  return std::unique_ptr<Uploads>(new Uploads(database, fd, path, quotas));
}

Uploads::~Uploads() {
  if (folder_ >= 0) ::close(folder_);
}

// A copy in `uploads` under a staging name, registered so that the sweep
// leaves it alone; deleted when it goes unless it was committed.
class StagingFile {
 public:
  explicit StagingFile(Uploads& uploads) : uploads_(uploads) {}
  ~StagingFile() {
    if (fd_ >= 0) ::close(fd_);
    if (name_.empty()) return;
    std::lock_guard files(uploads_.files_);
    if (!committed_) ::unlinkat(uploads_.folder_, name_.c_str(), 0);
    uploads_.staging_.erase(name_);
  }
  StagingFile(const StagingFile&) = delete;
  StagingFile& operator=(const StagingFile&) = delete;

  // A new file of a name nobody has, mode 0600, never through a link.
  bool Create() {
    std::random_device random;
    for (int attempt = 0; attempt < 8; ++attempt) {
      char digits[kStagingDigits + 1];
      std::snprintf(digits, sizeof digits, "%08x%08x", random(), random());
      std::string name = kStagingPrefix + std::string(digits);
      {
        std::lock_guard files(uploads_.files_);
        if (!uploads_.staging_.insert(name).second) continue;
        fd_ = ::openat(uploads_.folder_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd_ >= 0) {
          name_ = std::move(name);
          return ::fchmod(fd_, 0600) == 0;
        }
        uploads_.staging_.erase(name);
      }
      if (errno != EEXIST) return false;
    }
    return false;
  }
  int fd() const { return fd_; }
  const std::string& name() const { return name_; }
  // Its bytes on the disk, then closed.
  bool Finish() {
    const bool ok = ::fsync(fd_) == 0;
    ::close(fd_);
    fd_ = -1;
    return ok;
  }
  // The caller holds files_: the file has its final name now.
  void Committed() { committed_ = true; }

 private:
  Uploads& uploads_;
  int fd_ = -1;
  std::string name_;
  bool committed_ = false;
};

std::string Uploads::QuotaRefusal(const std::string& uid, int64_t size) {
  db::Statement s = database_.Prepare(
      "SELECT COALESCE(SUM(size), 0), COALESCE(SUM(CASE WHEN uid = ? THEN size END), 0) FROM uploads");
  if (!s.Bind(1, uid).Step()) return "the database failed";
  const int64_t total = s.Int(0);
  const int64_t client = s.Int(1);
  if (quotas_.clientBytes > 0 && client + size > quotas_.clientBytes)
    return "over the client's quota (" + MiB(client) + " of " + MiB(quotas_.clientBytes) + " taken)";
  if (quotas_.totalBytes > 0 && total + size > quotas_.totalBytes)
    return "over the total quota (" + MiB(total) + " of " + MiB(quotas_.totalBytes) + " taken)";
  return "";
}

std::string Uploads::Admit(const std::string& uid, int64_t size) {
  const auto lock = database_.Lock();
  if (!Known(database_, uid)) return "unknown client";
  return QuotaRefusal(uid, size);
}

std::string Uploads::Store(const tagCln_UploadFile& record, std::string_view kind, const std::string& uid,
                           const std::string& md5, std::string* storedName) {
  plat::TempFileReader reader;
  if (!reader.Open(record.tempPath))
    return "the temporary file cannot be opened (error " + std::to_string(plat::LastError()) + ")";
  if (reader.Remaining() != record.size)
    return "the temporary file holds " + std::to_string(reader.Remaining()) + " bytes, not the " +
           std::to_string(record.size) + " announced";

  StagingFile staging(*this);
  if (!staging.Create()) return Why("cannot make a file in uploads");
  CMessageDigest5 digest;
  std::vector<uint8_t> piece(kCopyPiece);
  uint64_t copied = 0;
  while (reader.Remaining() > 0) {
    const uint32_t want = static_cast<uint32_t>(std::min<uint64_t>(reader.Remaining(), piece.size()));
    const uint32_t got = reader.Read(piece.data(), want);
    if (got == 0) break;
    digest.Update(piece.data(), got);
    if (!WriteAll(staging.fd(), piece.data(), got)) return Why("cannot write the copy");
    copied += got;
  }
  if (copied != record.size)
    return "the temporary file ended after " + std::to_string(copied) + " of " + std::to_string(record.size) +
           " bytes";
  uint8_t sum[CMessageDigest5::kDigestSize];
  digest.Final(sum);
  std::string hex;
  for (uint8_t byte : sum) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  if (hex != md5) return "its MD5 digest is " + hex + ", not the " + md5 + " announced";
  if (!staging.Finish()) return Why("cannot write the copy");

  // The row and the file's final name land together: the rename happens
  // inside the transaction, and a commit that fails takes the file away
  // again. A service that dies between the two leaves a file no row names,
  // which the sweep removes.
  // files_ is held across the commit (which may wait for the rest of its
  // group): nothing may take files_ while holding the database, or the two
  // would wait for each other. The sweep takes files_ first, as here.
  std::lock_guard files(files_);
  db::Transaction transaction(database_);
  if (!transaction.ok()) return "the database failed";
  // Other uploads may have been stored while this one was copied, by this
  // service or another one on the same server.
  if (!database_.connection().LockForTransaction("vgcr uploads " + uid)) return "the database failed";
  if (!Known(database_, uid)) return "unknown client";
  if (std::string refusal = QuotaRefusal(uid, record.size); !refusal.empty()) return refusal;
  db::Statement insert = database_.Prepare(
      std::string("INSERT INTO uploads (received, uid, release, kind, file_name, size, md5, disk_status, "
                  "stored_name, door) VALUES (") +
      db::kNowSql + ", ?, ?, ?, ?, ?, ?, ?, ?, ?) RETURNING id");
  insert.Bind(1, uid).Bind(2, plat::ToUtf8(record.release.substr(0, kReleaseChars))).Bind(3, std::string(kind));
  insert.Bind(4, plat::ToUtf8(record.fileName)).Bind(5, record.size).Bind(6, md5).Bind(7, record.diskStatus);
  if (!insert.Bind(8, staging.name()).Bind(9, door_).Step()) return "the database failed";
  const int64_t id = insert.Int(0);
  while (insert.Step()) {
  }
  if (insert.failed()) return "the database failed";
  const std::string name = StoredName(id);
  db::Statement rename = database_.Prepare("UPDATE uploads SET stored_name = ? WHERE id = ?");
  if (!rename.Bind(1, name).Bind(2, id).Run()) return "the database failed";
  if (!MoveNoReplace(folder_, staging.name(), name)) return Why(("cannot name the copy " + name).c_str());
  staging.Committed();
  ::fsync(folder_);  // the new name on the disk before the row that names it
  if (!transaction.Commit()) {
    ::unlinkat(folder_, name.c_str(), 0);
    return "the database failed";
  }
  *storedName = name;
  return "";
}

std::string Uploads::TakeOver(const tagCln_UploadFile& record, std::string_view kind) {
  std::u16string server;
  if (!plat::ReadServerLocalPath(&server))
    return "dropped: no server folder is configured; " + Shown(record.tempPath) + " neither opened nor deleted";
  if (const std::string why = WhyNotTempUploadPath(record.tempPath, server); !why.empty())
    return "dropped: " + why + "; neither opened nor deleted";

  // The file is ours from here on: stored or refused, the temporary file
  // goes.
  const std::string uid = plat::ToUtf8(record.uid);
  std::string what = "uid=" + Shown(record.uid, kUidChars) + " " + std::string(kind) + " \"" +
                     Shown(record.fileName) + "\" " + std::to_string(record.size) + " bytes";
  std::string refusal, storedName;
  if (record.uid.empty() || record.uid.size() > kUidChars) {
    refusal = "no uid of at most 36 characters";  // never a known client's
  } else if (!upload::IsUploadFileName(record.fileName)) {
    refusal = "not a file name a client may give";
  } else if (!IsHexDigits(record.md5, 32)) {
    refusal = "the digest announced is not 32 hexadecimal digits";
  } else {
    refusal = Admit(uid, record.size);
    if (refusal.empty()) refusal = Store(record, kind, uid, UpperCase(record.md5), &storedName);
  }
  what = refusal.empty() ? what + " stored as uploads/" + storedName : "refused: " + what + ": " + refusal;
  if (!plat::DeleteFileAt(record.tempPath) && plat::LastError() != plat::kErrorFileNotFound)
    what += "; the temporary file not deleted (error " + std::to_string(plat::LastError()) + ")";
  return what;
}

void Uploads::Sweep(std::chrono::seconds tempAge, const std::function<void(const std::string&)>& report) {
  SweepServerFolder(tempAge, report);
  SweepUploadsFolder(report);
}

void Uploads::SweepServerFolder(std::chrono::seconds tempAge, const std::function<void(const std::string&)>& report) {
  std::u16string server;
  if (!plat::ReadServerLocalPath(&server)) return;
  const std::string path = plat::ToUtf8(server);
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) {
    report(Why(("cannot read the server folder " + path).c_str()));
    return;
  }
  const std::time_t now = std::time(nullptr);
  const auto deleted = DeleteEntries(folder, [&](const std::string& name, const struct stat& st) {
    return upload::IsTempUploadName(plat::FromUtf8(name)) && now - st.st_mtime >= tempAge.count();
  });
  ::close(folder);
  if (!deleted.empty())
    report("deleted " + std::to_string(deleted.size()) + " temporary upload file(s) unmodified for " +
           std::to_string(tempAge.count() / 60) + " minutes from " + path + ": " + NameList(deleted));
}

void Uploads::SweepUploadsFolder(const std::function<void(const std::string&)>& report) {
  std::lock_guard files(files_);
  std::set<std::string> named;
  {
    const auto lock = database_.Lock();
    db::Statement s = database_.Prepare("SELECT stored_name FROM uploads");
    while (s.Step()) named.insert(s.Text(0));
    // Without the names, any file could be one a row names: none goes.
    if (s.failed()) {
      report("the database failed; " + folderPath_ + " not swept");
      return;
    }
  }
  const auto deleted = DeleteEntries(folder_, [&](const std::string& name, const struct stat&) {
    return (IsStagingName(name) && staging_.count(name) == 0) || (IsStoredName(name) && named.count(name) == 0);
  });
  if (!deleted.empty())
    report("deleted " + std::to_string(deleted.size()) + " file(s) no row names from " + folderPath_ + ": " +
           NameList(deleted));
}

}  // namespace st
