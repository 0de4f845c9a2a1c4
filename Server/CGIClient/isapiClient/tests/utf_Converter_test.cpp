#include "support/utf_Converter.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/text.h"

namespace {

struct Case {
  const char* bytes;
  std::u16string expected;  // the units up to the first NUL
};

const Case kCases[] = {
    {"plain ascii", u"plain ascii"},
    {"\xC3\xA9", u"\u00E9"},
    {"\xE2\x82\xAC", u"\u20AC"},
    {"a\xC3\xA9z\xE2\x82\xAC", u"a\u00E9z\u20AC"},
    {"\xF0\x9F\x98\x80", u""},        // four-byte form: invalid
    {"A\x80", u""},                   // continuation byte as a lead
    {"\xBF", u""},
    {"\xC3", u""},                    // cut short by the end
    {"\xE2\x82", u""},
    {"\xC3(", u""},                   // second byte not 10xxxxxx
    {"\xE2\x82(", u""},
    {"\xC1\xBF", u"\u007F"},          // overlong, accepted
    {"\xE0\x80\xAF", u"/"},           // overlong, accepted
    {"\xED\xA0\x80", u"\xD800"},      // a surrogate code point passes through
    {"\xFF", u""},
    {"", u""},
};

TEST(DecodeUTF, Table) {
  for (const Case& c : kCases) {
    auto decoded = UTFConverter::decodeUTF(c.bytes);
    ASSERT_NE(decoded, nullptr) << c.bytes;
    EXPECT_EQ(std::u16string(decoded.get()), c.expected) << "input: " << c.bytes;
  }
}

TEST(DecodeUTF, OverlongNulEndsTheTextForItsReaders) {
  auto decoded = UTFConverter::decodeUTF("ab\xC0\x80" "cd");
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(std::u16string(decoded.get()), u"ab");
  EXPECT_EQ(decoded[3], u'c') << "the units behind the NUL are still decoded";
}

}  // namespace
