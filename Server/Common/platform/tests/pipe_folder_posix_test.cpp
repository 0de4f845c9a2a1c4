// The pipe folder's safety checks: only on POSIX, where the folder exists.
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/diagnostics.h"
#include "platform/errors.h"
#include "platform/pipe.h"
#include "platform/text.h"

namespace plat {
namespace {

std::u16string g_lastDiagnostic;
void Capture(const char16_t* text) { g_lastDiagnostic = text; }

class PipeFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = std::getenv("VGCR_PIPE_DIR");
    char dir[] = "/tmp/vgcr-folder-XXXXXX";
    ASSERT_NE(::mkdtemp(dir), nullptr);
    root_ = dir;
    SetDiagnosticSink(&Capture);
    g_lastDiagnostic.clear();
  }
  void TearDown() override {
    SetDiagnosticSink(nullptr);
    if (saved_.empty()) {
      ::unsetenv("VGCR_PIPE_DIR");
    } else {
      ::setenv("VGCR_PIPE_DIR", saved_.c_str(), 1);
    }
    std::string cmd = "rm -rf '" + root_ + "'";
    EXPECT_EQ(std::system(cmd.c_str()), 0);
  }
  void UseFolder(const std::string& dir) { ::setenv("VGCR_PIPE_DIR", dir.c_str(), 1); }

  std::string saved_;
  std::string root_;
};

TEST_F(PipeFolder, WritableByOthersIsRefusedWithAReason) {
  std::string dir = root_ + "/open";
  ASSERT_EQ(::mkdir(dir.c_str(), 0777), 0);
  ASSERT_EQ(::chmod(dir.c_str(), 0777), 0);
  UseFolder(dir);
  PipeClient client;
  EXPECT_FALSE(client.Open(u"anything"));
  EXPECT_EQ(LastError(), kErrorAccessDenied);
  EXPECT_NE(ToUtf8(g_lastDiagnostic).find("writable by others"), std::string::npos);
}

TEST_F(PipeFolder, ASymlinkIsRefused) {
  std::string target = root_ + "/real";
  std::string link = root_ + "/link";
  ASSERT_EQ(::mkdir(target.c_str(), 0770), 0);
  ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
  UseFolder(link);
  PipeServerEnd server;
  EXPECT_FALSE(server.Create(u"anything", 1, 1024, 1024, 1000));
  EXPECT_EQ(LastError(), kErrorAccessDenied);
  EXPECT_NE(ToUtf8(g_lastDiagnostic).find("not a directory"), std::string::npos);
}

TEST_F(PipeFolder, OwnedByAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give a folder away";
  const passwd* nobody = ::getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  std::string dir = root_ + "/theirs";
  ASSERT_EQ(::mkdir(dir.c_str(), 0770), 0);
  ASSERT_EQ(::chown(dir.c_str(), nobody->pw_uid, nobody->pw_gid), 0);
  UseFolder(dir);
  PipeClient client;
  EXPECT_FALSE(client.Open(u"anything"));
  EXPECT_EQ(LastError(), kErrorAccessDenied);
  EXPECT_NE(ToUtf8(g_lastDiagnostic).find("owned by uid"), std::string::npos);
}

TEST_F(PipeFolder, NamesThatWouldLeaveTheFolderAreInvalid) {
  UseFolder(root_ + "/pipes");
  for (const char16_t* name : {u"../escape", u"a/b", u"..", u""}) {
    PipeServerEnd server;
    EXPECT_FALSE(server.Create(name, 1, 1024, 1024, 1000)) << ToUtf8(name);
    EXPECT_EQ(LastError(), kErrorInvalidName) << ToUtf8(name);
  }
}

TEST_F(PipeFolder, NamesAreUsedVerbatimWithSpaces) {
  std::string dir = root_ + "/pipes";
  UseFolder(dir);
  PipeServerEnd server;
  ASSERT_TRUE(server.Create(u"Vanta Labs VGCR Command Handler Manager", 1, 1024, 1024, 1000));
  struct stat st {};
  EXPECT_EQ(::stat((dir + "/Vanta Labs VGCR Command Handler Manager").c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  server.Close();
  EXPECT_NE(::stat((dir + "/Vanta Labs VGCR Command Handler Manager").c_str(), &st), 0)
      << "the socket file goes with the last instance";
}

TEST_F(PipeFolder, AStaleSocketFileIsReplaced) {
  std::string dir = root_ + "/pipes";
  UseFolder(dir);
  {
    PipeServerEnd first;
    ASSERT_TRUE(first.Create(u"stale", 1, 1024, 1024, 1000));
    // Simulate a crash: the file stays behind after the listener is gone.
    ASSERT_EQ(::link((dir + "/stale").c_str(), (dir + "/kept").c_str()), 0);
  }
  ASSERT_EQ(::rename((dir + "/kept").c_str(), (dir + "/stale").c_str()), 0);
  PipeServerEnd second;
  EXPECT_TRUE(second.Create(u"stale", 1, 1024, 1024, 1000)) << LastError();
}


// A peer of another user is dropped as it connects, even where the socket
// file lets it in (the file system is the first lock, this the second); the
// same user's client then connects.
TEST_F(PipeFolder, APeerOfAnotherUserIsDropped) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to connect as another user";
  const passwd* nobody = ::getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  std::string dir = root_ + "/pipes";
  UseFolder(dir);
  PipeServerEnd server;
  ASSERT_TRUE(server.Create(u"guarded", 1, 1024, 1024, 1000));
  EXPECT_FALSE(server.Connect());
  ASSERT_EQ(LastError(), kErrorIoPending);
  struct stat st {};
  ASSERT_EQ(::stat((dir + "/guarded").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0660u) << "not for others";
  ASSERT_EQ(::chmod(root_.c_str(), 0755), 0);
  ASSERT_EQ(::chmod(dir.c_str(), 0775), 0);
  ASSERT_EQ(::chmod((dir + "/guarded").c_str(), 0666), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setgid(nobody->pw_gid) != 0 || ::setuid(nobody->pw_uid) != 0) ::_exit(2);
    PipeClient stranger;
    if (!stranger.Open(u"guarded")) ::_exit(3);
    uint32_t written = 0;
    stranger.Write("x", 1, &written);
    ::sleep(1);
    ::_exit(0);
  }
  int status = 0;
  WaitHandle ready = server.Ready();
  WaitForAny(&ready, 1, 500);
  uint32_t n = 0;
  EXPECT_FALSE(server.Result(&n, false)) << "the stranger was taken";
  EXPECT_NE(ToUtf8(g_lastDiagnostic).find("refused"), std::string::npos);
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the stranger could connect at the socket level";
  PipeClient friendly;
  ASSERT_TRUE(friendly.Open(u"guarded"));
  EXPECT_TRUE(server.Result(&n, true));
}

}  // namespace
}  // namespace plat
