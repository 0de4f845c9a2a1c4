#include "platform/codepage.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/errors.h"

namespace plat {
namespace {

struct RoundTrip {
  const char* label;
  uint32_t codePage;
  std::string narrow;
  std::u16string wide;
};

// Conversions both ways that must agree on every platform.
const RoundTrip kRoundTrips[] = {
    {"ascii-1252", 1252, "requestid=101", u"requestid=101"},
    {"latin-1252", 1252, "caf\xE9", u"caf\u00E9"},
    {"euro-1252", 1252, "\x80", u"\u20AC"},
    {"quotes-1252", 1252, "\x93q\x94", u"\u201Cq\u201D"},
    {"two-byte-utf8", kCpUtf8, "\xC3\xA9", u"\u00E9"},
    {"three-byte-utf8", kCpUtf8, "\xE2\x82\xAC", u"\u20AC"},
    {"four-byte-utf8", kCpUtf8, "\xF0\x9F\x98\x80", u"\U0001F600"},
    {"cjk-utf8", kCpUtf8, "\xE4\xB8\xAD\xE6\x96\x87", u"\u4E2D\u6587"},
};

void PrintTo(const RoundTrip& c, std::ostream* os) { *os << c.label; }

class CodePageRoundTrip : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(CodePageRoundTrip, NarrowToWideAndBack) {
  const RoundTrip& c = GetParam();
  char16_t wide[64] = {};
  int n = MultiByteToWide(c.codePage, 0, c.narrow.data(), static_cast<int>(c.narrow.size()), wide, 64);
  EXPECT_EQ(std::u16string(wide, static_cast<std::size_t>(n)), c.wide);

  char narrow[64] = {};
  n = WideToMultiByte(c.codePage, 0, c.wide.data(), static_cast<int>(c.wide.size()), narrow, 64);
  EXPECT_EQ(std::string(narrow, static_cast<std::size_t>(n)), c.narrow);
}

INSTANTIATE_TEST_SUITE_P(Table, CodePageRoundTrip, ::testing::ValuesIn(kRoundTrips),
                         [](const auto& param_info) {
                           std::string name = param_info.param.label;
                           for (char& ch : name) ch = ch == '-' ? '_' : ch;
                           return name;
                         });

TEST(CodePage, LengthQueryCountsTheTerminatorOfANulTerminatedSource) {
  EXPECT_EQ(MultiByteToWide(1252, 0, "abc", -1, nullptr, 0), 4);
  EXPECT_EQ(WideToMultiByte(kCpUtf8, 0, u"\u20AC", -1, nullptr, 0), 4);
  EXPECT_EQ(MultiByteToWide(kCpUtf8, 0, "\xE2\x82\xAC", 3, nullptr, 0), 1);
}

TEST(CodePage, TooSmallDestinationFailsWithInsufficientBuffer) {
  char16_t wide[3];
  SetLastError(0);
  EXPECT_EQ(MultiByteToWide(1252, 0, "abc", -1, wide, 3), 0);
  EXPECT_EQ(LastError(), kErrorInsufficientBuffer);
  char narrow[2];
  EXPECT_EQ(WideToMultiByte(kCpUtf8, 0, u"\u00E9", 1, narrow, 1), 0);
  EXPECT_EQ(LastError(), kErrorInsufficientBuffer);
}

TEST(CodePage, InvalidUtf8BecomesReplacementOrFailsWhenAskedTo) {
  char16_t wide[8] = {};
  int n = MultiByteToWide(kCpUtf8, 0, "a\xFF" "b", 3, wide, 8);
  EXPECT_EQ(std::u16string(wide, static_cast<std::size_t>(n)), u"a\uFFFDb");
  EXPECT_EQ(MultiByteToWide(kCpUtf8, kMbErrInvalidChars, "a\xFF" "b", 3, wide, 8), 0);
  EXPECT_EQ(LastError(), kErrorNoUnicodeTranslation);
}

TEST(CodePage, UnassignedWindows1252BytesDecodeToC1CodePoints) {
  char16_t wide[4] = {};
  int n = MultiByteToWide(1252, 0, "\x81\x8D", 2, wide, 4);
  EXPECT_EQ(std::u16string(wide, static_cast<std::size_t>(n)), u"\u0081\u008D");
}

TEST(CodePage, CharacterOutsideASingleByteCodePageBecomesQuestionMark) {
  char narrow[8] = {};
  int n = WideToMultiByte(1252, 0, u"a\u4E2Db", 3, narrow, 8);
  EXPECT_EQ(std::string(narrow, static_cast<std::size_t>(n)), "a?b");
}


#if !defined(_WIN32)
// Windows refuses these flags for UTF-8 (Wine lets them pass).
TEST(CodePage, Utf8RefusesFlagsItDoesNotTake) {
  char narrow[8];
  EXPECT_EQ(WideToMultiByte(kCpUtf8, kWcCompositeCheck, u"a", 1, narrow, 8), 0);
  EXPECT_EQ(LastError(), kErrorInvalidFlags);
}

TEST(CodePage, AnsiCodePageIsWindows1252UnlessConfigured) {
  ::unsetenv("VGCR_CODEPAGE");
  EXPECT_EQ(AnsiCodePage(), 1252u);
  ::setenv("VGCR_CODEPAGE", "65001", 1);
  EXPECT_EQ(AnsiCodePage(), 65001u);
  char16_t wide[4] = {};
  EXPECT_EQ(MultiByteToWide(kCpAcp, 0, "\xC3\xA9", 2, wide, 4), 1);
  EXPECT_EQ(wide[0], u'\u00E9');
  ::setenv("VGCR_CODEPAGE", "garbage", 1);
  EXPECT_EQ(AnsiCodePage(), 1252u);
  ::unsetenv("VGCR_CODEPAGE");
}
#endif

}  // namespace
}  // namespace plat
