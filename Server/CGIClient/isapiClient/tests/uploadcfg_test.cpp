// The configuration upload (111): each scan section is parsed by its own
// row of keys and types, and only valid sections reach the setters.
#include <fstream>
#include <iterator>
#include <map>

#include "handler_fixture.h"
#include "handlers/hdl_ScanCfg.h"

namespace {

std::string Encode(const std::string& text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const unsigned char c : text) {
    if (std::isalnum(c) || c == '_' || c == '.' || c == '-') {
      out.push_back(static_cast<char>(c));
    } else {
      out += {'%', kHex[c >> 4], kHex[c & 15]};
    }
  }
  return out;
}

std::string WithCrLf(const std::string& text) {
  std::string out;
  for (const char c : text) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return out;
}

class UploadCfg : public Handlers {
 protected:
  void SetUp() override {
    Handlers::SetUp();
    peer_.Script(u"CMDHLV2_CHECK_CLIENT_EXIST", MessageAnswer([](peer::Builder& b) { b.I32(1); }));
  }
  isapi::Response Upload(const std::string& sections, const std::string& type = "1") {
    return host_.Send(InProcessHost::Post("requestid=111&functiontype=" + type + "&uid=" + kUid +
                                          "&release=14.0" + sections));
  }
  // The version-1 setters received (each on its own connection, so in no
  // particular order): command to text.
  std::map<std::u16string, std::u16string> Setters(std::size_t expected) {
    std::map<std::u16string, std::u16string> setters;
    for (const peer::Received& r : peer_.WaitFor(expected + 1, expected ? 5000 : 300)) {
      if (r.version2) continue;  // the existence check
      EXPECT_EQ(r.text.size(), 3u);
      if (r.text.size() == 3) setters[r.text[0]] = r.text[2];
    }
    return setters;
  }
};

TEST_F(UploadCfg, ValidSectionsReachTheirSettersInCanonicalForm) {
  const std::string realTime =
      "[RealTime_Scan]\r\nEnabled=1\r\n\r\nScanOn=Read,Write\r\nCompressedLayer=20\r\nFirstAction=Quarantine\r\n";
  const std::string spyware = "[Spyware_Manual_Scan]\nAction=Deny\nApprovedList=C:\\Tools\\a.exe; b.exe\nEnabled=0";
  const std::string scheduled = "[Scheduled_Scan]\nFrequency=Monthly\nDay=Friday\nTime=23:59\nCpuUsage=3\n";
  // Form keys in any case; LF or CR LF, blank lines, no last line end.
  EXPECT_EQ(Upload("&spy_ms_cfg=" + Encode(spyware) + "&PS_CFG=" + Encode(scheduled) + "&RT_CFG=" + Encode(realTime))
                .body,
            "1");
  const std::map<std::u16string, std::u16string> expected = {
      {u"CMDHL_SET_RT_CFG",
       u"[RealTime_Scan]\r\nEnabled=1\r\nScanOn=Read,Write\r\nCompressedLayer=20\r\nFirstAction=Quarantine\r\n"},
      {u"CMDHL_SET_PS_CFG", plat::Widen(WithCrLf(scheduled))},
      {u"CMDHL_SET_SPY_MS_CFG",
       u"[Spyware_Manual_Scan]\r\nAction=Deny\r\nApprovedList=C:\\Tools\\a.exe; b.exe\r\nEnabled=0\r\n"},
  };
  EXPECT_EQ(Setters(3), expected);
}

TEST_F(UploadCfg, AnInvalidSectionIsNamedAndNothingIsSent) {
  struct Case {
    const char* key;
    std::string text;
    const char* where;
  };
  const Case cases[] = {
      {"RT_CFG", "Enabled=1", "RT_CFG"},                                  // no header
      {"RT_CFG", "[Manual_Scan]\nEnabled=1", "RT_CFG"},                   // another section's header
      {"RT_CFG", "[RealTime_Scan]\nEnabled", "RT_CFG"},                   // not Key=Value
      {"RT_CFG", "[RealTime_Scan]\n=1", "RT_CFG"},
      {"RT_CFG", "[RealTime_Scan]\nEnabled=2", "RT_CFG.Enabled"},
      {"RT_CFG", "[RealTime_Scan]\nenabled=1", "RT_CFG.enabled"},         // names are exact
      {"RT_CFG", "[RealTime_Scan]\nEnabled=1\nEnabled=0", "RT_CFG.Enabled"},
      {"RT_CFG", "[RealTime_Scan]\nCompressedLayer=0", "RT_CFG.CompressedLayer"},
      {"RT_CFG", "[RealTime_Scan]\nCompressedLayer=21", "RT_CFG.CompressedLayer"},
      {"RT_CFG", "[RealTime_Scan]\nCompressedLayer= 2", "RT_CFG.CompressedLayer"},
      {"RT_CFG", "[RealTime_Scan]\nScanOn=Write,Read", "RT_CFG.ScanOn"},
      {"RT_CFG", "[RealTime_Scan]\nFirstAction=Deny", "RT_CFG.FirstAction"},
      {"RT_CFG", "[RealTime_Scan]\nCpuUsage=1", "RT_CFG.CpuUsage"},       // a key of another section
      {"RT_CFG", "[RealTime_Scan]\nNo Such=1", "RT_CFG"},                 // not a plain word: not echoed
      {"MS_CFG_EX", "[Manual_Scan_Ex]\nSkipFilesLargerThanMB=102401", "MS_CFG_EX.SkipFilesLargerThanMB"},
      {"PS_CFG", "[Scheduled_Scan]\nTime=24:00", "PS_CFG.Time"},
      {"PS_CFG", "[Scheduled_Scan]\nTime=7:30", "PS_CFG.Time"},
      {"PS_CFG", "[Scheduled_Scan]\nDay=sunday", "PS_CFG.Day"},
      {"PS_CFG_EX", "[Scheduled_Scan_Ex]\nExclusionList=a\tb", "PS_CFG_EX.ExclusionList"},
      {"PS_CFG_EX", "[Scheduled_Scan_Ex]\nExclusionList=" + std::string(1025, 'x'), "PS_CFG_EX.ExclusionList"},
      {"SPY_RT_CFG", "[Spyware_RealTime_Scan]\nAction=Quarantine", "SPY_RT_CFG.Action"},
      {"SPY_PS_CFG", "[Spyware_Scheduled_Scan]\n" + std::string(8200, '\n'), "SPY_PS_CFG"},  // over 8192
  };
  const std::string valid = "&MS_CFG=" + Encode("[Manual_Scan]\nCpuUsage=2");
  for (const Case& c : cases) {
    peer_.Clear();
    EXPECT_EQ(Upload(valid + "&" + c.key + "=" + Encode(c.text)).body, std::string("-41\n") + c.where) << c.text;
    EXPECT_TRUE(Setters(0).empty()) << "a valid section is not sent beside an invalid one";
  }
}

TEST_F(UploadCfg, IdentityAndTheService) {
  EXPECT_EQ(Upload("&RT_CFG=" + Encode("[RealTime_Scan]"), "2").body, "-3");
  EXPECT_EQ(Upload("").body, "-40") << "no section at all";
  EXPECT_EQ(Upload("&SN_CFG=" + Encode("[ScanNow]")).body, "-40") << "a section nobody uploads";
  peer_.Script(u"CMDHLV2_CHECK_CLIENT_EXIST", MessageAnswer([](peer::Builder& b) { b.I32(0); }));
  EXPECT_EQ(Upload("&RT_CFG=" + Encode("[RealTime_Scan]")).body, "-6");
  peer_.Stop();
  EXPECT_EQ(Upload("&RT_CFG=" + Encode("[RealTime_Scan]")).body, "-6") << "nobody to ask: unknown";
}

// The settings the server ships are what a client would upload back.
TEST(ScanCfgTable, TheShippedDefaultsParse) {
  for (const scancfg::Section& section : scancfg::kSections) {
    std::ifstream file(std::string(VGCR_DEFAULT_SECTIONS) + "/" + section.formKey + ".ini", std::ios::binary);
    ASSERT_TRUE(file) << section.formKey;
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::u16string canonical;
    std::string where;
    EXPECT_TRUE(scancfg::ParseSection(section, plat::Widen(text), &canonical, &where)) << where;
    EXPECT_EQ(canonical, plat::Widen(WithCrLf(text))) << "the defaults are in canonical form";
  }
}

}  // namespace
