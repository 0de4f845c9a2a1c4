// Shared memory, the machine's folders, temporary files, clocks and ids.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "platform/errors.h"
#include "platform/machine_config.h"
#include "platform/process.h"
#include "platform/shared_memory.h"
#include "platform/temp_file.h"
#include "platform/text.h"
#include "test_support.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#endif

namespace plat {
namespace {

TEST(SharedMemory, PublishedRecordIsReadByName) {
  std::u16string name = u"Global\\" + testing::UniqueName("VGCR_TEST_RECORD");
  SharedMemory publisher;
  ASSERT_TRUE(publisher.Create(name.c_str(), 12)) << LastError();
  auto* words = static_cast<uint32_t*>(publisher.Map(12, MapAccess::kReadWrite));
  ASSERT_NE(words, nullptr);
  words[0] = 1;
  words[1] = 200;
  words[2] = 2;

  SharedMemory reader;
  ASSERT_TRUE(reader.Open(name.c_str(), MapAccess::kAll)) << LastError();
  uint32_t seen[3] = {};
  ASSERT_TRUE(reader.Read(seen, sizeof seen)) << LastError();
  EXPECT_EQ(seen[0], 1u);
  EXPECT_EQ(seen[1], 200u);
  EXPECT_EQ(seen[2], 2u);
  reader.Close();
  publisher.Close();
  SharedMemory::Remove(name.c_str());
}

#if !defined(_WIN32)
// A record the server obeys must come from someone it trusts: one that its
// group or others may write is refused, and so is one shrunk under a reader
// (read, it fails instead of faulting). As root, one that another user owns
// is refused too.
TEST(SharedMemory, ARecordAnyoneCouldWriteIsNotTrusted) {
  const std::u16string name = u"Global\\" + testing::UniqueName("VGCR_TEST_TRUST");
  const std::string path = "/dev/shm/" + ToUtf8(name.substr(7));
  SharedMemory publisher;
  ASSERT_TRUE(publisher.Create(name.c_str(), 12)) << LastError();
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u) << "the mode readers accept";

  SharedMemory reader;
  uint32_t words[3];
  for (const mode_t mode : {0664, 0646, 0666}) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    EXPECT_FALSE(reader.Open(name.c_str(), MapAccess::kAll)) << std::oct << mode;
    EXPECT_EQ(LastError(), kErrorAccessDenied);
  }
  ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
  ASSERT_TRUE(reader.Open(name.c_str(), MapAccess::kAll));
  ASSERT_EQ(::truncate(path.c_str(), 4), 0);
  EXPECT_FALSE(reader.Read(words, sizeof words)) << "shrunk: no fault, a failure";
  reader.Close();
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(path.c_str(), 4321, 4321), 0);
    EXPECT_FALSE(reader.Open(name.c_str(), MapAccess::kAll)) << "another user's record";
    EXPECT_FALSE(publisher.Create(name.c_str(), 12)) << "nor published over";
  }
  publisher.Close();
  SharedMemory::Remove(name.c_str());
}
#endif

TEST(TempFile, NameKeepsThreeLettersOfThePrefixAndEndsInTmp) {
  std::u16string folder;
  ASSERT_TRUE(TempFolder(&folder));
  ASSERT_EQ(folder.back(), kPathSeparator);
  std::set<std::u16string> names;
  for (int i = 0; i < 3; ++i) {
    std::u16string full;
    // The fourth character of the prefix is one no unique part holds, so
    // finding it in the name would mean more than three were kept.
    ASSERT_TRUE(CreateTempFile(folder, u"mst-x", &full)) << LastError();
    std::u16string name = FileNamePart(full);
    EXPECT_EQ(name.substr(0, 3), u"mst") << ToUtf8(name);
    EXPECT_EQ(name.find(u'-'), std::u16string::npos) << ToUtf8(name);
    EXPECT_EQ(name.substr(name.size() - 4), u".tmp") << ToUtf8(name);
    names.insert(full);
    GrantServiceAccess(full);
    EXPECT_TRUE(DeleteFileAt(full)) << LastError();
  }
  EXPECT_EQ(names.size(), 3u);
}

// The reader never reads past the end the file had when opened, and a file
// that shrinks under it ends the reading instead of faulting or spinning.
TEST(TempFile, ReaderReadsInPiecesUpToTheEndItFound) {
  std::u16string folder, full;
  ASSERT_TRUE(TempFolder(&folder));
  ASSERT_TRUE(CreateTempFile(folder, u"mstmp", &full)) << LastError();
  {
    std::ofstream out(std::filesystem::path(full), std::ios::binary);
    out << "0123456789";
  }
  TempFileReader reader;
  ASSERT_TRUE(reader.Open(full)) << LastError();
  EXPECT_EQ(reader.Remaining(), 10u);
  char piece[16] = {};
  EXPECT_EQ(reader.Read(piece, 4), 4u);
  EXPECT_EQ(std::string(piece, 4), "0123");
  EXPECT_EQ(reader.Remaining(), 6u);
  {
    std::ofstream out(std::filesystem::path(full), std::ios::binary | std::ios::app);
    out << "grown";
  }
  EXPECT_EQ(reader.Read(piece, sizeof piece), 6u) << "only what the file held when opened";
  EXPECT_EQ(std::string(piece, 6), "456789");
  EXPECT_EQ(reader.Remaining(), 0u);

  ASSERT_TRUE(reader.Open(full));
  std::filesystem::resize_file(std::filesystem::path(full), 3);
  EXPECT_EQ(reader.Read(piece, sizeof piece), 3u) << "shrunk: what there is";
  EXPECT_EQ(reader.Remaining(), 0u);
  reader.Close();
  EXPECT_TRUE(DeleteFileAt(full));
  EXPECT_FALSE(reader.Open(full));
  EXPECT_EQ(LastError(), kErrorFileNotFound);
#if !defined(_WIN32)
  // A link is refused whatever it leads to, not followed.
  const std::string link = ToUtf8(folder) + "mstlink.tmp";
  ASSERT_EQ(::symlink("/etc/hostname", link.c_str()), 0);
  EXPECT_FALSE(reader.Open(FromUtf8(link)));
  EXPECT_EQ(LastError(), kErrorAccessDenied);
  ::unlink(link.c_str());
#endif
}

TEST(MachineConfig, ServerLocalPathIsReadFromTheMachineSetting) {
#if defined(_WIN32)
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VantaLabs\\Vigilcrest\\service\\Information", 0,
                            nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
            ERROR_SUCCESS);
  const wchar_t value[] = L"C:\\Vigilcrest\\Server";
  ASSERT_EQ(RegSetValueExW(key, L"Local_Path", 0, REG_SZ, reinterpret_cast<const BYTE*>(value), sizeof value),
            ERROR_SUCCESS);
  std::u16string path;
  EXPECT_TRUE(ReadServerLocalPath(&path));
  EXPECT_EQ(path, u"C:\\Vigilcrest\\Server");
  RegDeleteValueW(key, L"Local_Path");
  RegCloseKey(key);
  EXPECT_FALSE(ReadServerLocalPath(&path));
#else
  ::setenv("VGCR_LOCAL_PATH", "/srv/vigilcrest", 1);
  std::u16string path;
  EXPECT_TRUE(ReadServerLocalPath(&path));
  EXPECT_EQ(path, u"/srv/vigilcrest");
  ::unsetenv("VGCR_LOCAL_PATH");
  EXPECT_FALSE(ReadServerLocalPath(&path));
#endif
}

TEST(Process, IdsAndClocks) {
  uint32_t main = CurrentThreadId();
  uint32_t other = 0;
  std::thread([&] { other = CurrentThreadId(); }).join();
  EXPECT_NE(main, other);
  EXPECT_NE(CurrentProcessId(), 0u);

  uint32_t before = TickCount();
  SleepMs(60);
  // Tick granularity is coarse on some systems (10 to 16 ms).
  EXPECT_GE(static_cast<uint32_t>(TickCount() - before), 40u);

  LocalTime now = NowLocal();
  EXPECT_GE(now.year, 2024);
  EXPECT_GT(UnixTime(), 1700000000);

  std::u16string self = ProcessFileName();
  EXPECT_NE(ToUtf8(FileNamePart(self)).find("platform_tests"), std::string::npos) << ToUtf8(self);
}

}  // namespace
}  // namespace plat

TEST(Numbers, StrToLongIsThirtyTwoBitsWide) {
  const std::pair<const char*, int32_t> cases[] = {
      {"101", 101},         {"  -42x", -42},         {"+7", 7},
      {"abc", 0},           {"", 0},                 {"2147483647", 2147483647},
      {"2147483648", 2147483647},                    {"4294967397", 2147483647},
      {"-2147483648", INT32_MIN},                    {"-2147483649", INT32_MIN},
      {"99999999999999999999999", 2147483647},
  };
  for (const auto& [text, value] : cases) EXPECT_EQ(plat::StrToLong(text), value) << text;
}
