#include "channel/ser_MsgSerializer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/text.h"
#include "server_folder.h"
#include "wire_format.h"

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
  // A message that claims its body is in a file outside the spill folders
  // (or not a spill file) must not make the receiver read or delete it.
  const std::u16string victim = folder.path() + u"/../precious.txt";
  for (const std::u16string& path : {victim, folder.path() + u"/notmine.tmp", std::u16string(u"relative.tmp")}) {
    peer::Bytes header(16, 0);
    header[1] = 0xAC;
    header[4] = 0x02;
    peer::Builder builder;
    builder.U32(1).Block(header).WString(u"CMD").WString(u"0105CMD1_2_3").WString(path);
    CMsgSerializer receiver;
    EXPECT_FALSE(receiver.Load(builder.bytes().data(), static_cast<uint32_t>(builder.bytes().size())))
        << plat::ToUtf8(path);
  }
}

}  // namespace
