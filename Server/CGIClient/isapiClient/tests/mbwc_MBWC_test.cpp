#include "support/mbwc_MBWC.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/codepage.h"
#include "support/dbg_Trace.h"
#include "trace_sink.h"

namespace {

TEST(MBToWC, DestinationExactlyAsLongAsTextAndTerminatorSucceeds) {
  char16_t out[5] = {u'#', u'#', u'#', u'#', u'#'};
  EXPECT_EQ(MBWC::MBToWC("caf\xE9", out, 5, 1252, 0), 5);
  EXPECT_EQ(std::u16string(out), u"caf\u00E9");
}

TEST(MBToWC, OneUnitShorterFailsWritesNothingAndSaysWhy) {
  TraceCapture capture;
  char16_t out[4] = {u'#', u'#', u'#', u'#'};
  EXPECT_EQ(MBWC::MBToWC("caf\xE9", out, 4, 1252, 0), 0);
  EXPECT_EQ(out[0], u'#') << "no partial result";
  auto lines = capture.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, 70);
  EXPECT_EQ(lines[0].message,
            u"[MBWC::MBToWC] MBWC error. Not enough buffer or wrong function was called. "
            u"pszMultiByteStr=caf\u00E9, nWideCharLength=4, CodePage=1252, dwFlags=0");
}

TEST(WCToMB, ExactAndOneShort) {
  TraceCapture capture;
  char out[3] = {'#', '#', '#'};
  EXPECT_EQ(MBWC::WCToMB(u"\u00E9", out, 3, plat::kCpUtf8, 0), 3);
  EXPECT_EQ(std::string(out), "\xC3\xA9");
  char small[2] = {'#', '#'};
  EXPECT_EQ(MBWC::WCToMB(u"\u00E9", small, 2, plat::kCpUtf8, 0), 0);
  EXPECT_EQ(small[0], '#');
  ASSERT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(capture.Lines()[0].message,
            u"[MBWC::WCToMB] MBWC error. Not enough buffer or wrong function was called. "
            u"pszWideCharStr=\u00E9, nMultiByteLength=2, CodePage=65001, dwFlags=0");
}

TEST(WCToMBString, GrowsToFitAnyLength) {
  std::u16string text(10000, u'\u00E9');
  std::string out;
  ASSERT_TRUE(MBWC::WCToMBString(text.c_str(), &out, 1252, 0));
  EXPECT_EQ(out, std::string(10000, '\xE9'));
  ASSERT_TRUE(MBWC::WCToMBString(u"", &out));
  EXPECT_EQ(out, "");
  EXPECT_FALSE(MBWC::WCToMBString(nullptr, &out));
}

}  // namespace
