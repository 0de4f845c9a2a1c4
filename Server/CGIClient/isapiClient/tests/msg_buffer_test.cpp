#include "channel/util_ipc_msg_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "channel/ser_MsgSerializer.h"
#include "platform/text.h"
#include "server_folder.h"
#include "trace_sink.h"

#if !defined(_WIN32)
#include <sys/resource.h>

#include <csignal>
#endif

namespace {

struct GrowthCase {
  std::vector<uint32_t> appends;
  uint32_t capacity;
};

TEST(MsgBuffer, CapacityGrowsToTheNextStepStrictlyAboveTheNeed) {
  const GrowthCase cases[] = {
      {{1}, 1024}, {{1023}, 1024}, {{1024}, 2048}, {{1000, 24}, 1024}, {{1000, 25}, 2048}, {{3000}, 3072},
      {{2048}, 3072},
  };
  for (const auto& c : cases) {
    CIPCMsgBuffer buffer(1024);
    std::vector<uint8_t> bytes(4096, 7);
    for (uint32_t n : c.appends) buffer.Append(bytes.data(), n);
    EXPECT_EQ(buffer.Capacity(), c.capacity) << ::testing::PrintToString(c.appends);
    EXPECT_EQ(buffer.BytesUsed(), std::accumulate(c.appends.begin(), c.appends.end(), 0u));
  }
}

TEST(MsgBuffer, ReadingFromABufferNeverAllocatedIsAnInvalidBuffer) {
  CIPCMsgBuffer empty;
  try {
    empty.ReadU32();
    FAIL() << "no exception";
  } catch (const CIPCMsgBufferException& e) {
    EXPECT_EQ(e.Code(), CIPCMsgBufferException::kInvalidBuffer);
    EXPECT_EQ(std::u16string(CIPCMsgBufferException::MessageFor(e.Code())), u"Invalid buffer");
  }
}

TEST(MsgBuffer, LengthThatClaimsTooMuchIsTracedThenRaisedPastTheLengthWord) {
  TraceCapture capture;
  CIPCMsgBuffer buffer;
  const uint32_t length = 100;
  buffer.Append(&length, 4);
  buffer.Append("0123456789", 10);
  uint32_t n = 0;
  try {
    buffer.ReadItem(&n);
    FAIL() << "no exception";
  } catch (const CIPCMsgBufferException& e) {
    EXPECT_EQ(e.Code(), CIPCMsgBufferException::kOutOfRange);
  }
  EXPECT_EQ(buffer.CurPos(), 4u);
  ASSERT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(capture.Lines()[0].level, 2);
  EXPECT_EQ(capture.Lines()[0].message,
            u"CIPCMsgBuffer::operator >>() ==> size error  (m_dwCurPos[4]+iTotalBytes[100]) > m_dwBytesUsed[14]");

  CIPCMsgBuffer quiet;
  quiet.Append(&length, 4);
  capture.Clear();
  EXPECT_THROW(quiet.ReadItemSilent(&n), CIPCMsgBufferException);
  EXPECT_TRUE(capture.Lines().empty());
}

TEST(MsgBuffer, AtTwoMebibytesAppendsGoToTheSpillFile) {
  ScopedServerFolder folder;
  std::u16string path;
  {
    CIPCMsgBuffer buffer;
    std::vector<uint8_t> chunk(64 * 1024, 0x5A);
    while (buffer.Capacity() < CIPCMsgBuffer::kSpillThreshold) buffer.Append(chunk.data(), 64 * 1024);
    EXPECT_FALSE(buffer.HasSpillStream());
    const uint32_t used = buffer.BytesUsed();
    buffer.Append(chunk.data(), 64 * 1024);
    EXPECT_TRUE(buffer.HasSpillStream());
    EXPECT_EQ(buffer.BytesUsed(), used) << "later appends no longer change the in-memory count";
    path = buffer.SpillPath();
    EXPECT_EQ(path.substr(0, folder.path().size()), folder.path());
    EXPECT_TRUE(CIPCMsgBuffer::IsSpillFilePath(path)) << plat::ToUtf8(path);
    EXPECT_EQ(folder.SpillFiles(), 1);
  }
  EXPECT_EQ(folder.SpillFiles(), 0) << "a spill file that was never handed over is deleted";
}

TEST(MsgBuffer, SpilledMessageIsReadBackWhole) {
  ScopedServerFolder folder;
  std::vector<std::vector<uint8_t>> fields;
  for (int i = 0; i < 40; ++i) {
    std::vector<uint8_t> field(100 * 1024 + static_cast<std::size_t>(i));
    for (std::size_t k = 0; k < field.size(); ++k) field[k] = static_cast<uint8_t>(k * 31 + static_cast<std::size_t>(i));
    fields.push_back(std::move(field));
  }
  std::unique_ptr<uint8_t[]> wire;
  uint32_t size = 0;
  {
    CMsgSerializer sender(u"CMDHLV2_SET_LOG_COMMON", 1);
    for (const auto& field : fields) ser::WriteBlock(sender, field.data(), static_cast<uint32_t>(field.size()));
    sender.Finish();
    EXPECT_TRUE(sender.IsFileBacked());
    wire.reset(sender.DetachBytes(&size));
    sender.HandOverSpillFile();
  }
  EXPECT_LT(size, 1024u) << "only the prologue and the path travel";
  EXPECT_EQ(folder.SpillFiles(), 1);
  {
    CMsgSerializer receiver;
    ASSERT_TRUE(receiver.Load(wire.get(), size));
    EXPECT_EQ(receiver.CommandName(), u"CMDHLV2_SET_LOG_COMMON");
    for (const auto& field : fields) {
      std::vector<uint8_t> back(field.size());
      ASSERT_TRUE(ser::ReadBlock(receiver, back.data(), static_cast<uint32_t>(back.size())));
      ASSERT_EQ(back, field);
    }
    uint32_t length = 0;
    EXPECT_THROW(receiver.Buffer().ReadItem(&length), CIPCMsgBufferException) << "nothing after the last field";
  }
  EXPECT_EQ(folder.SpillFiles(), 0) << "the receiver deletes the file it has read";
}

// Load leaves in memory a window the size of the message that came over the
// pipe (some 250 bytes: the prologue and the file's path), and reads refill
// it from the file. Items longer than that window, by a little or by many
// times, are read whole, one after another; a length the file cannot back
// is still refused.
TEST(MsgBuffer, SpilledItemsLongerThanTheWindowAreReadWhole) {
  ScopedServerFolder folder;
  uint32_t window = 0;
  {
    CMsgSerializer probe(u"CMDHLV2_SET_LOG_COMMON", 2);
    probe.Finish();
    window = probe.GetSize();
  }
  const uint32_t lengths[] = {window + 1,     window + 40,   window * 3 / 2, window * 2 - 40,
                              window * 2 + 40, window * 5,   70 * 1024,      150 * 1024,
                              3 * 1024 * 1024};
  for (const uint32_t length : lengths) {
    std::vector<uint8_t> item(length);
    for (uint32_t k = 0; k < length; ++k) item[k] = static_cast<uint8_t>(k * 7 + length);
    std::unique_ptr<uint8_t[]> wire;
    uint32_t size = 0;
    {
      CMsgSerializer sender(u"CMDHLV2_SET_LOG_COMMON", 2);
      for (uint32_t i = 0; i < 3; ++i) {
        ser::WriteU32(sender, i);
        ser::WriteBlock(sender, item.data(), length);
      }
      const uint32_t claimed = 0xFFFFFFF0u;
      sender.Buffer().Append(&claimed, 4);
      sender.Finish();
      wire.reset(sender.DetachBytes(&size));
      sender.HandOverSpillFile();
    }
    CMsgSerializer receiver;
    ASSERT_TRUE(receiver.Load(wire.get(), size)) << length;
    try {
      for (uint32_t i = 0; i < 3; ++i) {
        uint32_t marker = 99;
        std::vector<uint8_t> back;
        EXPECT_TRUE(ser::ReadU32(receiver, &marker));
        EXPECT_EQ(marker, i);
        EXPECT_TRUE(ser::ReadBytes(receiver, &back));
        EXPECT_TRUE(back == item) << "item " << i << " of " << length << " bytes";
      }
      uint32_t n = 0;
      EXPECT_THROW(receiver.Buffer().ReadItemSilent(&n), CIPCMsgBufferException) << length;
    } catch (const CIPCMsgBufferException& e) {
      ADD_FAILURE() << "items of " << length << " bytes, window " << window << ": "
                    << plat::ToUtf8(CIPCMsgBufferException::MessageFor(e.Code()));
    }
  }
  EXPECT_EQ(folder.SpillFiles(), 0);
}

#if !defined(_WIN32)
TEST(MsgBuffer, AFullDiskDuringASpillRaisesInsteadOfLosingBytes) {
  ScopedServerFolder folder;
  // A file-size limit makes the disk "full" at 2.5 MiB for this process.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit saved{};
  ::getrlimit(RLIMIT_FSIZE, &saved);
  rlimit limited = saved;
  limited.rlim_cur = 2560 * 1024;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
  bool raised = false;
  {
    CIPCMsgBuffer buffer;
    std::vector<uint8_t> chunk(256 * 1024, 1);
    try {
      for (int i = 0; i < 16; ++i) buffer.Append(chunk.data(), static_cast<uint32_t>(chunk.size()));
    } catch (const CIPCMsgBufferException& e) {
      raised = e.Code() == CIPCMsgBufferException::kInvalidBuffer;
    }
  }
  ::setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, SIG_DFL);
  EXPECT_TRUE(raised);
  EXPECT_EQ(folder.SpillFiles(), 0);
}
#endif

}  // namespace
