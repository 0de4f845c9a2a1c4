#include "channel/ser_MsgSerializer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/machine_config.h"
#include "platform/temp_file.h"
#include "platform/text.h"
#include "server_folder.h"
#include "wire_format.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

Bytes WireOf(CMsgSerializer& message) {
  message.Finish();
  return Bytes(message.Buffer().Data(), message.Buffer().Data() + message.GetSize());
}

void PutU32(Bytes& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void PutWide(Bytes& out, const std::string& ascii) {
  PutU32(out, static_cast<uint32_t>(2 * (ascii.size() + 1)));
  for (char c : ascii) {
    out.push_back(static_cast<uint8_t>(c));
    out.push_back(0);
  }
  out.push_back(0);
  out.push_back(0);
}

// A file-backed message naming `path` as its file.
peer::Bytes FileBackedWire(const std::u16string& path) {
  peer::Bytes header(16, 0);
  header[1] = 0xAC;
  header[4] = 0x02;
  return peer::Builder().U32(1).Block(header).WString(u"CMD").WString(u"0105CMD1_2_3").WString(path).bytes();
}

void WriteFileBytes(const std::u16string& path, const peer::Bytes& bytes) {
  std::ofstream out(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

TEST(MsgSerializer, PrologueIsExactToTheByte) {
  CMsgSerializer message(u"CMDHLV2_CLN_ON_START", 1, MessageStamp{123456, 4321, 987});
  EXPECT_EQ(message.Identifier(), u"0105CMDHLV2_CLN_ON_START123456_4321_987");
  Bytes expected = {0x04, 0, 0, 0, 0x01, 0, 0, 0,                                    // version item
                    0x10, 0, 0, 0, 0x00, 0xAC, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};  // header item
  PutWide(expected, "CMDHLV2_CLN_ON_START");
  PutWide(expected, "0105CMDHLV2_CLN_ON_START123456_4321_987");
  EXPECT_EQ(WireOf(message), expected);
  EXPECT_EQ(message.Version(), 1u);
  EXPECT_EQ(message.Header()[1], 0xAC);
}

TEST(Serializer, FieldKindsHaveTheirLengthWords) {
  CMsgSerializer message(u"X");
  const uint32_t start = message.GetSize();
  ser::WriteWString(message, u"");
  ser::WriteWString(message, u"ab");
  ser::WriteString(message, "abc");
  ser::WriteI32(message, -480);
  Bytes wire = WireOf(message);
  Bytes fields(wire.begin() + start, wire.end());
  Bytes expected = {2, 0, 0, 0, 0, 0,                          // empty wide string: the NUL alone
                    6, 0, 0, 0, 'a', 0, 'b', 0, 0, 0,          // wide string
                    4, 0, 0, 0, 'a', 'b', 'c', 0,              // narrow string
                    4, 0, 0, 0, 0x20, 0xFE, 0xFF, 0xFF};       // -480, two's complement
  EXPECT_EQ(fields, expected);
}

TEST(Serializer, ReadAnswersSizeQueriesAndZeroFills) {
  CMsgSerializer message(u"X");
  ser::WriteBlock(message, "abcdef", 6);
  uint32_t size = 0;
  EXPECT_FALSE(message.Read(nullptr, &size));
  EXPECT_EQ(size, 6u);
  char small[4];
  size = 4;
  EXPECT_FALSE(message.Read(small, &size)) << "too small is a size query";
  EXPECT_EQ(size, 6u);
  char large[10];
  std::memset(large, '#', sizeof large);
  size = 10;
  EXPECT_TRUE(message.Read(large, &size));
  EXPECT_EQ(std::string(large, 10), std::string("abcdef\0\0\0\0", 10));
  EXPECT_FALSE(message.Read(large, nullptr));
}

TEST(Serializer, HeaderItemLongerThan16BytesIsNotTakenAsTheHeader) {
  peer::Builder builder;
  builder.U32(1).Block(peer::Bytes(20, 0x7F)).WString(u"CMD").WString(u"0105CMD1_2_3").U32(9);
  CMsgSerializer receiver;
  ASSERT_TRUE(receiver.Load(builder.bytes().data(), static_cast<uint32_t>(builder.bytes().size())));
  for (int i = 0; i < 16; ++i) EXPECT_NE(receiver.Header()[i], 0x7F) << i;
  EXPECT_EQ(receiver.CommandName(), u"CMD");
  uint32_t value = 0;
  EXPECT_TRUE(ser::ReadU32(receiver, &value));
  EXPECT_EQ(value, 9u);
}

TEST(Serializer, MessagesTooShortForTheirPrologueRaise) {
  const peer::Bytes cases[] = {
      {},
      {4, 0, 0, 0, 1, 0},
      peer::Builder().U32(1).Block(peer::Bytes(16, 0)).bytes(),
      peer::Builder().U32(1).Block(peer::Bytes(16, 0)).WString(u"CMD").Raw({200, 0, 0, 0, 'x'}).bytes(),
  };
  for (const auto& bytes : cases) {
    CMsgSerializer receiver;
    EXPECT_THROW(receiver.Load(bytes.data(), static_cast<uint32_t>(bytes.size())), CIPCMsgBufferException)
        << bytes.size();
  }
}

TEST(Serializer, AFileBackedMessageNamingAnyOtherFileIsRefused) {
  ScopedServerFolder folder;
  // A message that claims its body is in a file outside the spill folder
  // (or not a spill file) must not make the receiver read or delete it. That
  // holds for a spill file of the temporary or cache folder too: with a
  // server folder configured, this side's spill files never go there.
  std::u16string temp, cache;
  ASSERT_TRUE(plat::TempFolder(&temp));
  ASSERT_TRUE(plat::UserCacheFolder(&cache));
  std::vector<std::u16string> planted;
  for (std::u16string other : {temp, cache}) {
    if (other.back() != u'\\' && other.back() != u'/') other.push_back(plat::kPathSeparator);
    std::u16string full;
    ASSERT_TRUE(plat::CreateTempFile(other, u"mstmp", &full)) << plat::ToUtf8(other);
    planted.push_back(full);
    WriteFileBytes(full, peer::Builder().Prologue(u"CMD", u"0105CMD1_2_3").U32(7).bytes());
  }
  const std::u16string spillName = plat::FileNamePart(planted[0]);
  const std::u16string paths[] = {
      folder.path() + u"/../precious.txt",      folder.path() + u"/notmine.tmp", u"relative.tmp", spillName,
      folder.path() + u"/../" + spillName,      folder.path() + u"/sub/" + spillName,
      planted[0],                               planted[1],
  };
  for (const std::u16string& path : paths) {
    const peer::Bytes wire = FileBackedWire(path);
    CMsgSerializer receiver;
    EXPECT_FALSE(receiver.Load(wire.data(), static_cast<uint32_t>(wire.size()))) << plat::ToUtf8(path);
  }
  for (const std::u16string& path : planted) {
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(path))) << "left alone: " << plat::ToUtf8(path);
    plat::DeleteFileAt(path);
  }
}

// The receiver is the last reader of a spill file it was sent, so one it
// refuses to read, or cannot open, is removed as well: nobody else would.
TEST(Serializer, ASpillFileTheReceiverCannotOpenIsRemovedAllTheSame) {
  ScopedServerFolder folder;
  std::u16string full;
  ASSERT_TRUE(plat::CreateTempFile(folder.path() + plat::kPathSeparator, u"mstmp", &full));
  WriteFileBytes(full, peer::Builder().Prologue(u"CMD", u"0105CMD1_2_3").U32(7).bytes());
  const peer::Bytes wire = FileBackedWire(full);
  {
    CMsgSerializer receiver;
    bool loaded = true;
#if defined(_WIN32)
    // Held without sharing, the file cannot be opened meanwhile.
    HANDLE held = ::CreateFileW(reinterpret_cast<const wchar_t*>(full.c_str()), GENERIC_READ, 0, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    loaded = receiver.Load(wire.data(), static_cast<uint32_t>(wire.size()));
    ::CloseHandle(held);
#else
    // No descriptor left for this process: the open fails with EMFILE.
    const int lowestFree = ::dup(0);
    ::close(lowestFree);
    rlimit saved{};
    ::getrlimit(RLIMIT_NOFILE, &saved);
    rlimit limited = saved;
    limited.rlim_cur = static_cast<rlim_t>(lowestFree);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limited), 0);
    loaded = receiver.Load(wire.data(), static_cast<uint32_t>(wire.size()));
    ::setrlimit(RLIMIT_NOFILE, &saved);
#endif
    EXPECT_FALSE(loaded);
  }
  EXPECT_EQ(folder.SpillFiles(), 0);
}

#if !defined(_WIN32)
// Only a plain file of this user (or root) is read: a sender able to write
// to the spill folder must not make the receiver read through a link, hang
// on a pipe, or take another user's file. Each such entry is removed, and
// what it pointed at is left as it was.
TEST(Serializer, ASpillFileThatIsNotAPlainFileOfOursIsRefusedAndRemoved) {
  ScopedServerFolder folder;
  const std::string outside = plat::ToUtf8(folder.path()) + "-outside.msg";
  const peer::Bytes body = peer::Builder().Prologue(u"CMD", u"0105CMD1_2_3").U32(7).bytes();
  WriteFileBytes(plat::FromUtf8(outside), body);
  struct Case {
    const char* what;
    bool asRootOnly;
    int (*plant)(const char* outside, const char* at);
  };
  const Case cases[] = {
      {"a symbolic link to a message", false, [](const char* o, const char* at) { return ::symlink(o, at); }},
      {"a second link to a message", false, [](const char* o, const char* at) { return ::link(o, at); }},
      {"a named pipe", false, [](const char*, const char* at) { return ::mkfifo(at, 0600); }},
      {"another user's file", true,
       [](const char* o, const char* at) {
         std::filesystem::copy_file(o, at);
         return ::chown(at, 4321, 4321);
       }},
  };
  for (const Case& c : cases) {
    if (c.asRootOnly && ::geteuid() != 0) continue;
    const std::string at = plat::ToUtf8(folder.path()) + "/mstcase.tmp";
    ASSERT_EQ(c.plant(outside.c_str(), at.c_str()), 0) << c.what;
    const peer::Bytes wire = FileBackedWire(plat::FromUtf8(at));
    {
      CMsgSerializer receiver;
      EXPECT_FALSE(receiver.Load(wire.data(), static_cast<uint32_t>(wire.size()))) << c.what;
    }
    struct stat st {};
    EXPECT_NE(::lstat(at.c_str(), &st), 0) << c.what << " is removed";
    ASSERT_EQ(::stat(outside.c_str(), &st), 0) << c.what;
    EXPECT_EQ(static_cast<std::size_t>(st.st_size), body.size()) << c.what;
  }
  ::unlink(outside.c_str());
}
#endif

}  // namespace
