#include "svc_Log.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// What a client may put into a text that ends up in a log line.
TEST(LogText, ControlCharactersAreEscapedAndOtherTextIsKept) {
  struct Case {
    const char* name;
    std::string text;
    std::string logged;
  };
  const Case cases[] = {
      {"plain", "PC-ONE uid=0f8fad5b", "PC-ONE uid=0f8fad5b"},
      {"line feed", "PC\n2026-11-22 05:04:02.581 [Manager] forged", "PC\\n2026-11-22 05:04:02.581 [Manager] forged"},
      {"carriage return", "a\rb", "a\\rb"},
      {"tab", "a\tb", "a\\tb"},
      {"escape", "\x1b[2Jred", "\\x1b[2Jred"},
      {"delete", "a\x7f", "a\\x7f"},
      {"nul and bell", std::string("a\0b\a", 4), "a\\x00b\\x07"},
      {"backslash", "DOMAIN\\jdoe", "DOMAIN\\\\jdoe"},
      {"backslash before n", "\\n", "\\\\n"},
      {"UTF-8", "Jürgen 東京 \xf0\x9f\x94\x92", "Jürgen 東京 \xf0\x9f\x94\x92"},
      {"next line (C1)", "a\xc2\x85" "b", "a\\xc2\\x85b"},
      {"line separator", "a\xe2\x80\xa8" "b", "a\\xe2\\x80\\xa8b"},
      {"not UTF-8", "caf\xe9\n", "caf\\xe9\\n"},
      {"cut sequence", "\xe6\x9d", "\\xe6\\x9d"},
      {"overlong slash", "\xc0\xaf", "\\xc0\\xaf"},
      {"surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
  };
  for (const Case& c : cases) EXPECT_EQ(svc::LogText(c.text), c.logged) << c.name;
}

// Every part of a command's line is escaped where the line is put together,
// so a client's text cannot end it early.
TEST(LogText, ACommandsLineStaysOneLine) {
  svc::SetQuiet(false);
  ::testing::internal::CaptureStdout();
  svc::Log("Manager", "CMDHLV2_CLN_ON_START\n", "uid=1 computer=PC\n2026-11-22 forged (pid 7)");
  const std::string out = ::testing::internal::GetCapturedStdout();
  ASSERT_FALSE(out.empty());
  EXPECT_EQ(out.find('\n'), out.size() - 1) << out;
  EXPECT_NE(out.find(" [Manager] CMDHLV2_CLN_ON_START\\n: uid=1 computer=PC\\n2026-11-22 forged (pid 7)\n"),
            std::string::npos)
      << out;
}

}  // namespace
