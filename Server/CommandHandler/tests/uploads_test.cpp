// Uploaded files: the take-over of an announced temporary file (what is
// refused, what is never touched), the sweep of leftovers, and the service
// taking an announcement off its pipe.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "channel/rec_Lifecycle.h"
#include "channel/rec_Upload.h"
#include "db_Schema.h"
#include "handlers/hdl_Common.h"
#include "md5_MessageDigest5.h"
#include "platform/text.h"
#include "service_fixture.h"
#include "st_Uploads.h"

namespace {

namespace fs = std::filesystem;

constexpr char kUid[] = "6B29FC40-CA47-1067-B31D-00DD010662DA";
constexpr char kOtherUid[] = "0F8FAD5B-D9CB-469F-A165-70867728950E";
const std::string kContent = "PK\x03\x04 a log archive, or near enough";

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

bool Exists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

// Sets a file's (or a link's own) modification time `age` ago.
void Age(const std::string& path, std::chrono::seconds age) {
  const timespec times[2] = {{std::time(nullptr) - age.count(), 0}, {std::time(nullptr) - age.count(), 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

std::vector<std::string> Names(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// The server folder the extension writes temporary files to, named by
// VGCR_LOCAL_PATH while the test runs.
class ServerFolder {
 public:
  explicit ServerFolder(const std::string& path) : path_(path) {
    fs::create_directories(path_);
    ::setenv("VGCR_LOCAL_PATH", path_.c_str(), 1);
  }
  ~ServerFolder() { ::unsetenv("VGCR_LOCAL_PATH"); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

tagCln_UploadFile Announcement(const std::string& tempPath, const std::string& content = kContent) {
  tagCln_UploadFile record;
  record.uid = plat::FromUtf8(kUid);
  record.release = u"14.0.1";
  record.fileName = u"logs-20261123.zip";
  record.tempPath = plat::FromUtf8(tempPath);
  record.size = static_cast<uint32_t>(content.size());
  record.md5 = plat::FromUtf8(CMessageDigest5::HexDigest(content.data(), content.size()));
  record.diskStatus = 1701;
  return record;
}

class TakeOver : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = MakeTempFolder();
    server_ = std::make_unique<ServerFolder>(folder_ + "/server");
    data_ = folder_ + "/data";
    fs::create_directory(data_);
    std::string error;
    testDb_ = std::make_unique<TestDatabase>(data_);
    ASSERT_EQ(testDb_->error(), "");
    database_ = db::Database::Open(testDb_->location(), &error);
    ASSERT_TRUE(database_ && db::CreateSchema(*database_, &error)) << error;
    ASSERT_TRUE(database_->Exec(std::string("INSERT INTO clients (uid, first_seen, last_seen) VALUES ('") + kUid +
                                "', 'x', 'x'), ('" + kOtherUid + "', 'x', 'x')"));
    uploads_ = Open({});
    db_ = std::make_unique<DbProbe>(testDb_->location());
  }
  void TearDown() override {
    uploads_.reset();
    db_.reset();
    database_.reset();
    testDb_.reset();
    server_.reset();
    RemoveFolder(folder_);
  }
  std::unique_ptr<st::Uploads> Open(st::UploadQuotas quotas) {
    std::string error;
    auto uploads = st::Uploads::Open(*database_, data_, quotas, &error);
    EXPECT_TRUE(uploads) << error;
    return uploads;
  }
  std::string Temp(const std::string& name, const std::string& content = kContent) {
    const std::string path = server_->path() + "/" + name;
    WriteFile(path, content);
    return path;
  }

  std::string folder_, data_;
  std::unique_ptr<ServerFolder> server_;
  std::unique_ptr<TestDatabase> testDb_;
  std::unique_ptr<db::Database> database_;
  std::unique_ptr<st::Uploads> uploads_;
  std::unique_ptr<DbProbe> db_;
};

TEST_F(TakeOver, AVerifiedFileIsStoredUnderItsRowsNameAndTheTemporaryFileGoes) {
  const std::string temp = Temp("uplA1b2C3.tmp");
  tagCln_UploadFile record = Announcement(temp);
  for (char16_t& c : record.md5) c = static_cast<char16_t>(std::tolower(c));  // compared without case
  const std::string line = uploads_->TakeOver(record, "log");
  EXPECT_EQ(line.rfind(std::string("uid=") + kUid + " log \"logs-20261123.zip\"", 0), 0u) << line;
  EXPECT_FALSE(Exists(temp));
  const std::string id = db_->Value("SELECT id FROM uploads");
  EXPECT_EQ(db_->Value("SELECT uid || '|' || release || '|' || kind || '|' || file_name || '|' || size || '|' || "
                       "md5 || '|' || disk_status || '|' || stored_name FROM uploads"),
            std::string(kUid) + "|14.0.1|log|logs-20261123.zip|" + std::to_string(kContent.size()) + "|" +
                CMessageDigest5::HexDigest(kContent.data(), kContent.size()) + "|1701|upload-" + id);
  const std::string stored = data_ + "/uploads/upload-" + id;
  EXPECT_NE(line.find("uploads/upload-" + id), std::string::npos) << line;
  EXPECT_EQ(ReadAll(stored), kContent);
  struct stat st {};
  ASSERT_EQ(::stat(stored.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(Names(data_ + "/uploads"), std::vector<std::string>{"upload-" + id}) << "no staging file left";
}

// Every way an announcement is turned down. A path that is not a temporary
// upload file's in the server folder is neither opened nor deleted; any
// other refusal deletes the temporary file, and stores nothing.
TEST_F(TakeOver, RefusalsLeaveNothingStored) {
  const std::string outside = folder_ + "/outside";
  fs::create_directory(outside);
  struct Case {
    const char* what;
    // Makes the files and the announcement.
    std::function<void(tagCln_UploadFile&)> arrange;
    const char* says;
    bool kept;  // the temporary file is still there
    st::UploadQuotas quotas = {};
  };
  const std::string server = server_->path();
  const Case cases[] = {
      {"another folder",
       [&](tagCln_UploadFile& r) {
         WriteFile(outside + "/upl1.tmp", kContent);
         r = Announcement(outside + "/upl1.tmp");
       },
       "dropped: the temporary file", true},
      {"the server folder by way of ..",
       [&](tagCln_UploadFile& r) {
         WriteFile(server + "/upl2.tmp", kContent);
         r = Announcement(server + "/../server/upl2.tmp");
       },
       "is not in the server folder", true},
      {"a spill file's name",
       [&](tagCln_UploadFile& r) { r = Announcement(Temp("mst12.tmp")); }, "not named as temporary uploads are", true},
      {"a link to a file elsewhere",
       [&](tagCln_UploadFile& r) {
         WriteFile(outside + "/secret", kContent);
         ASSERT_EQ(::symlink((outside + "/secret").c_str(), (server + "/upl3.tmp").c_str()), 0);
         r = Announcement(server + "/upl3.tmp");
       },
       "cannot be opened", false},
      {"a second name for a file elsewhere",
       [&](tagCln_UploadFile& r) {
         WriteFile(outside + "/linked", kContent);
         ASSERT_EQ(::link((outside + "/linked").c_str(), (server + "/upl4.tmp").c_str()), 0);
         r = Announcement(server + "/upl4.tmp");
       },
       "cannot be opened", false},
      {"the size announced is not the file's",
       [&](tagCln_UploadFile& r) {
         r = Announcement(Temp("upl5.tmp"));
         r.size += 1;
       },
       "holds", false},
      {"the digest is not the file's",
       [&](tagCln_UploadFile& r) {
         r = Announcement(Temp("upl6.tmp"));
         r.md5[0] = r.md5[0] == u'0' ? u'1' : u'0';
       },
       "MD5 digest is", false},
      {"a file name with a path in it",
       [&](tagCln_UploadFile& r) {
         r = Announcement(Temp("upl8.tmp"));
         r.fileName = u"../../uploads/upload-1";
       },
       "not a file name a client may give", false},
      {"an unknown client",
       [&](tagCln_UploadFile& r) {
         r = Announcement(Temp("upl9.tmp"));
         r.uid = u"00000000-0000-0000-0000-0000000000AA";
       },
       "unknown client", false},
      {"over the client's quota",
       [&](tagCln_UploadFile& r) { r = Announcement(Temp("uplA.tmp")); }, "over the client's quota", false,
       {static_cast<int64_t>(kContent.size()) + 9, 0}},
      {"over the total quota",
       [&](tagCln_UploadFile& r) { r = Announcement(Temp("uplB.tmp")); }, "over the total quota", false,
       {0, static_cast<int64_t>(kContent.size()) + 9}},
  };
  // Ten bytes already stored for this client, and as many for another.
  ASSERT_TRUE(database_->Exec(std::string("INSERT INTO uploads (received, uid, release, kind, file_name, size, md5, "
                                          "disk_status, stored_name) VALUES ('x', '") +
                              kUid + "', '', 'log', 'a', 10, '', 1700, 'upload-1000'), ('x', '" + kOtherUid +
                              "', '', 'log', 'b', 10, '', 1700, 'upload-1001')"));
  for (const Case& c : cases) {
    tagCln_UploadFile record;
    c.arrange(record);
    if (HasFatalFailure()) return;
    const std::string temp = plat::ToUtf8(record.tempPath);
    auto uploads = Open(c.quotas);
    const std::string line = uploads->TakeOver(record, "dlp-forensic");
    EXPECT_NE(line.find(c.says), std::string::npos) << c.what << ": " << line;
    EXPECT_EQ(line.rfind(c.kept ? "dropped: " : "refused: ", 0), 0u) << c.what << ": " << line;
    EXPECT_EQ(Exists(temp), c.kept) << c.what;
    EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM uploads"), "2") << c.what;
    EXPECT_TRUE(Names(data_ + "/uploads").empty()) << c.what << ": no copy left";
  }
  EXPECT_EQ(ReadAll(outside + "/secret"), kContent) << "a link's target is never touched";
  EXPECT_EQ(ReadAll(outside + "/linked"), kContent);
}

TEST_F(TakeOver, TheSweepDeletesOnlyLeftovers) {
  const std::string server = server_->path();
  const std::string uploads = data_ + "/uploads";
  const auto old = std::chrono::minutes(20);
  const std::string outside = folder_ + "/target";
  WriteFile(outside, "keep me");
  // In the server folder.
  Age(Temp("uplOld1.tmp"), old);
  Temp("uplFresh.tmp");
  Age(Temp("mstOld.tmp"), old);  // a spill file is not the sweep's
  ASSERT_EQ(::symlink(outside.c_str(), (server + "/uplLink.tmp").c_str()), 0);
  Age(server + "/uplLink.tmp", old);
  fs::create_directory(server + "/uplDir.tmp");
  Age(server + "/uplDir.tmp", old);
  // In uploads: one file a row names, the rest not.
  ASSERT_TRUE(database_->Exec(std::string("INSERT INTO uploads (received, uid, release, kind, file_name, size, md5, "
                                          "disk_status, stored_name) VALUES ('x', '") +
                              kUid + "', '', 'log', 'a', 1, '', 1700, 'upload-1')"));
  WriteFile(uploads + "/upload-1", "named");
  WriteFile(uploads + "/upload-2", "its row was deleted");
  WriteFile(uploads + "/staging-0123456789abcdef", "a copy a stopped service left");
  WriteFile(uploads + "/README", "not of the service's forms");
  ASSERT_EQ(::symlink(outside.c_str(), (uploads + "/upload-3").c_str()), 0);

  std::vector<std::string> lines;
  uploads_->Sweep(st::kTempUploadAge, [&](const std::string& line) { lines.push_back(line); });
  EXPECT_EQ(Names(server), (std::vector<std::string>{"mstOld.tmp", "uplDir.tmp", "uplFresh.tmp", "uplLink.tmp"}));
  EXPECT_EQ(Names(uploads), (std::vector<std::string>{"README", "upload-1", "upload-3"}));
  EXPECT_EQ(ReadAll(outside), "keep me");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "deleted 1 temporary upload file(s) unmodified for 15 minutes from " + server + ": uplOld1.tmp");
  EXPECT_NE(lines[1].find("deleted 2 file(s) no row names from " + uploads), std::string::npos) << lines[1];

  lines.clear();
  uploads_->Sweep(st::kTempUploadAge, [&](const std::string& line) { lines.push_back(line); });
  EXPECT_TRUE(lines.empty()) << "nothing left to delete";
}

// Which paths name a temporary upload file in the server folder, as text.
TEST(UploadPaths, OnlyATemporaryUploadNameDirectlyInTheServerFolder) {
  const struct {
    const char16_t *path, *server;
    bool taken;
  } paths[] = {
      {u"/srv/vgcr/upl1.tmp", u"/srv/vgcr", true},
      {u"/srv/vgcr/upl1.tmp", u"/srv/vgcr//", true},
      {u"/srv/vgcr//upl1.tmp", u"/srv/vgcr", true},
      {u"/srv/vgcr/upl1.tmp", u"/srv", false},
      {u"/srv/vgcrx/upl1.tmp", u"/srv/vgcr", false},
      {u"/srv/vgcr/x\\upl1.tmp", u"/srv/vgcr", false},  // a backslash is part of the name here
      {u"upl1.tmp", u"", false},
      {u"/srv/vgcr/upl.tmp", u"/srv/vgcr", false},
      {u"/srv/vgcr/upl1.tmp.gz", u"/srv/vgcr", false},
  };
  for (const auto& c : paths)
    EXPECT_EQ(st::WhyNotTempUploadPath(c.path, c.server).empty(), c.taken) << plat::ToUtf8(c.path);
}

// The service itself: an announcement off its pipe, and the sweep it runs
// as it starts.
class UploadService : public InProcessService {
 protected:
  void SetUp() override {
    server_ = std::make_unique<ServerFolder>(MakeTempFolder());
    InProcessService::SetUp();
  }
  void TearDown() override {
    InProcessService::TearDown();
    RemoveFolder(server_->path());
    server_.reset();
  }
  std::unique_ptr<ServerFolder> server_;
};

TEST_F(UploadService, AnAnnouncementIsTakenOffThePipeAndLeftoversGoAtStart) {
  tagCln_CgiOnStart registration;
  registration.Put(*onstart::Find("uid"), plat::FromUtf8(kUid).c_str());
  ASSERT_TRUE(SendRecord(u"CMDHLV2_CLN_ON_START", registration));
  ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "1"), "1");

  const std::string temp = server_->path() + "/upl42.tmp";
  WriteFile(temp, kContent);
  tagCln_UploadFile record = Announcement(temp);
  ASSERT_TRUE(SendRecord(u"CMDHLV2_DLP_FORENSIC_DATA_UPLOAD", record));
  EXPECT_EQ(db_->WaitFor("SELECT kind || ' ' || size FROM uploads", "dlp-forensic " + std::to_string(kContent.size())),
            "dlp-forensic " + std::to_string(kContent.size()));
  EXPECT_EQ(ReadAll(folder_ + "/uploads/" + db_->Value("SELECT stored_name FROM uploads")), kContent);
  EXPECT_FALSE(Exists(temp));

  const std::string left = server_->path() + "/upl43.tmp";
  WriteFile(left, "an announcement that never came");
  Age(left, std::chrono::minutes(16));
  ASSERT_TRUE(db_->Exec("DELETE FROM uploads"));  // an operator done with it
  Restart([](svc::Options&) {});
  for (int i = 0; i < 250 && (Exists(left) || !Names(folder_ + "/uploads").empty()); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(Exists(left));
  EXPECT_TRUE(Names(folder_ + "/uploads").empty());
}

}  // namespace
