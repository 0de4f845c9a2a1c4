#include "host/req_RequestParams.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

struct ParseCase {
  const char* text;
  std::map<std::string, std::string> expected;  // looked up case-blind
  std::size_t count;
};

const ParseCase kParseCases[] = {
    {"a=1&A=2", {{"a", "2"}, {"A", "2"}}, 1},
    {"x=%4", {{"x", ""}}, 1},
    {"x=1#y=2", {{"x", "1"}}, 1},
    {"flag&x=1", {{"flag", ""}, {"x", "1"}}, 2},
    {"name=a+b%20c", {{"name", "a b c"}}, 1},
    {"k=%41%62", {{"k", "Ab"}}, 1},
    {"k=%G1", {{"k", "\xF1"}}, 1},             // invalid high digit: 0xF0 + low
    {"k=%1G", {{"k", "\x0F"}}, 1},             // invalid low digit: 16 * high - 1
    {"k=%ZZ", {{"k", "\xEF"}}, 1},
    {"k=a%00b", {{"k", "a"}}, 1},              // an escaped NUL ends the value
    {"k=v%", {{"k", "v"}}, 1},
    {"a#b=1", {{"a#b", "1"}}, 1},              // '#' ends only a value
    {"p=1&p=2&p=3", {{"P", "3"}}, 1},
    {"x=1&#&y=2", {{"x", "1"}, {"y", "2"}}, 3},  // '#' in a name position is part of the name
    {"", {}, 0},
    {"requestid=207&uid=abc", {{"REQUESTID", "207"}, {"UID", "abc"}}, 2},
};

TEST(RequestParams, ParsesAsClientsExpect) {
  for (const ParseCase& c : kParseCases) {
    RequestParams params;
    params.Parse(c.text, std::char_traits<char>::length(c.text));
    EXPECT_EQ(params.size(), c.count) << c.text;
    for (const auto& [name, value] : c.expected) {
      const std::string* found = params.Lookup(name.c_str());
      ASSERT_NE(found, nullptr) << c.text << " / " << name;
      EXPECT_EQ(*found, value) << c.text << " / " << name;
    }
  }
}

TEST(RequestParams, AbsentAndNullNamesFindNothing) {
  RequestParams params;
  params.Parse(std::string("a=1"));
  EXPECT_EQ(params.Lookup("b"), nullptr);
  EXPECT_EQ(params.Lookup(nullptr), nullptr);
  std::u16string out = u"untouched";
  EXPECT_FALSE(params.GetString("b", &out, 10));
  EXPECT_EQ(out, u"untouched");
}

TEST(RequestParams, TheBodyEndsAtItsFirstNul) {
  RequestParams params;
  const char body[] = "a=1\0b=2";
  params.Parse(body, sizeof body - 1);
  EXPECT_NE(params.Lookup("a"), nullptr);
  EXPECT_EQ(params.Lookup("b"), nullptr);
}

TEST(RequestParams, LengthLimitAndExactFlag) {
  RequestParams params;
  params.Parse(std::string("uid=3F2504E0-4F89-11D3-9A0C-0305E82C3301&short=abc&long=") + std::string(37, 'x'));
  std::u16string out;
  EXPECT_TRUE(params.GetString("uid", &out, 36, true));
  EXPECT_TRUE(params.GetString("uid", &out, 36, false));
  EXPECT_FALSE(params.GetString("short", &out, 36, true)) << "exact wants exactly 36";
  EXPECT_TRUE(params.GetString("short", &out, 36, false));
  EXPECT_FALSE(params.GetString("long", &out, 36, false));
  EXPECT_EQ(out.size(), 37u) << "the value is kept even when the length check fails";
}

TEST(RequestParams, ValuesReadBackAsUtf8) {
  RequestParams params;
  params.Parse(std::string("name=caf%C3%A9&bad=%FF%FE&euro=%E2%82%AC"));
  std::u16string wide;
  ASSERT_TRUE(params.GetString("name", &wide, 10));
  EXPECT_EQ(wide, u"caf\u00E9");
  ASSERT_TRUE(params.GetString("bad", &wide, 0)) << "invalid UTF-8 reads as empty, within a limit of 0";
  EXPECT_EQ(wide, u"");
  std::string narrow;
  ASSERT_TRUE(params.GetStringA("name", &narrow, 10));
  EXPECT_EQ(narrow, "caf\xE9") << "the ANSI code page";
  ASSERT_TRUE(params.GetStringA("euro", &narrow, 10));
  EXPECT_EQ(narrow, "\x80");
}

}  // namespace

// A request carries at most kMaxParameters distinct names: the rest are
// dropped, while a name already held still takes its later value. Names that
// a fixed hash would put in one bucket cost no more than any others.
TEST(RequestParams, DistinctNamesAreCappedAndRepeatsStillReplace) {
  std::string text;
  for (std::size_t i = 0; i < RequestParams::kMaxParameters + 100; ++i) text += "n" + std::to_string(i) + "=v&";
  text += "n0=last&requestid=101";
  RequestParams params;
  params.Parse(text);
  EXPECT_EQ(params.size(), RequestParams::kMaxParameters);
  EXPECT_EQ(*params.Lookup("N0"), "last");
  EXPECT_EQ(params.Lookup("requestid"), nullptr) << "a new name past the cap";
  EXPECT_EQ(params.Lookup(("n" + std::to_string(RequestParams::kMaxParameters)).c_str()), nullptr);
}
