#include "support/str_Format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/text.h"

namespace {

template <typename... Args>
std::string W(const char16_t* format, const Args&... args) {
  char16_t out[256];
  std::size_t n = fmt16::Format(out, 256, format, args...);
  EXPECT_EQ(out[n], u'\0');
  return plat::ToUtf8(std::u16string(out, n));
}

template <typename... Args>
std::string N(const char* format, const Args&... args) {
  char out[256];
  std::size_t n = fmt16::Format(out, 256, format, args...);
  return std::string(out, n);
}

TEST(Format, IntegersFollowPrintfOnWindows) {
  EXPECT_EQ(W(u"%d", -38), "-38");
  EXPECT_EQ(W(u"%d", 0xFFFF0022u), "-65502") << "a 32-bit conversion of an unsigned value";
  EXPECT_EQ(W(u"%u", -1), "4294967295");
  EXPECT_EQ(W(u"%ld", 2147483647L), "2147483647");
  EXPECT_EQ(W(u"%lld", int64_t{-5000000000}), "-5000000000");
  EXPECT_EQ(W(u"%I64u", uint64_t{18446744073709551615u}), "18446744073709551615");
  EXPECT_EQ(W(u"%d", uint64_t{0x100000005}), "5") << "low 32 bits, as printf reads them";
  EXPECT_EQ(W(u"%d", static_cast<int8_t>(-3)), "-3");
  EXPECT_EQ(W(u"%hd", 70000), "4464");
}

TEST(Format, WidthPrecisionAndFlags) {
  EXPECT_EQ(W(u"%04d %02d/%02d", 2026, 1, 9), "2026 01/09");
  EXPECT_EQ(W(u"%.10d", 5), "0000000005");
  EXPECT_EQ(W(u"%.10d", 1234567890), "1234567890");
  EXPECT_EQ(W(u"[%04x : %04x]", 0x1a, 0x12345), "[001a : 12345]");
  EXPECT_EQ(W(u"%08lX", 0xdeadbeefu), "DEADBEEF");
  EXPECT_EQ(W(u"%02X", 10), "0A");
  EXPECT_EQ(W(u"%5d|%-5d|", 42, 42), "   42|42   |");
  EXPECT_EQ(W(u"%+d % d", 7, 7), "+7  7");
  EXPECT_EQ(W(u"%*d", 4, 1), "   1");
  EXPECT_EQ(W(u"%.3s", u"abcdef"), "abc");
  EXPECT_EQ(W(u"%-4s|", u"ab"), "ab  |");
  EXPECT_EQ(W(u"100%%"), "100%");
  EXPECT_EQ(W(u"%c%c", u'o', u'k'), "ok");
}

TEST(Format, StringsOfEitherWidth) {
  EXPECT_EQ(W(u"%s", u"caf\u00E9"), "caf\xC3\xA9");
  EXPECT_EQ(W(u"%S", "caf\xE9"), "caf\xC3\xA9") << "narrow text is in the ANSI code page";
  EXPECT_EQ(N("%s=%S", "uid", u"\u00E9"), "uid=\xE9");
  EXPECT_EQ(W(u"%s", static_cast<const char16_t*>(nullptr)), "(null)");
  EXPECT_EQ(W(u"%s", std::u16string(u"owned")), "owned");
}

TEST(Format, MismatchedArgumentsStayVisibleAndSafe) {
  EXPECT_EQ(W(u"%d", u"text"), "text");
  EXPECT_EQ(W(u"%s", 12), "12");
  EXPECT_EQ(W(u"%d and %d", 1), "1 and (missing)");
  EXPECT_EQ(W(u"%n%d", 5), "5") << "%n never writes";
  EXPECT_EQ(W(u"tail %"), "tail %");
  EXPECT_EQ(W(u"extra", 1, 2), "extra");
}

}  // namespace
