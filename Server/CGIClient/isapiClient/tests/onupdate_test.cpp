// The update report (102): the outcome of an update, one way or answered,
// and the certificate a client trusts.
#include "handler_fixture.h"

namespace {

class UpdateReport : public Handlers {
 protected:
  static std::string Query(const std::string& type, const std::string& more = "") {
    return "requestid=102&functiontype=" + type + "&uid=" + kUid + "&release=14.0" + more;
  }
  static peer::Reply UpdateAnswer(uint32_t known, uint32_t due) {
    return MessageAnswer([=](peer::Builder& b) { b.U32(known).U32(due); });
  }
  static peer::Reply CertificateAnswer(int32_t status) {
    return MessageAnswer([=](peer::Builder& b) { b.I32(status); });
  }
};

TEST_F(UpdateReport, OneWayReportCarriesTheRegistrationsKeysAndResetsTheCriticalUpdate) {
  const std::string keys =
      "&updresult=0&date=20261123&time=101500&program=14.0.1234&engine=" + std::string(25, 'e') +
      "&ptnfile=1956100&spyptn=2001&cfwptn=-1&vaptn=abc&tscptn=99999999999";
  EXPECT_EQ(Get(Query("1", keys)).body, "1");
  const auto received = peer_.WaitFor(2);
  const peer::Received* report = Find(received, u"CMDHLV2_CLN_ON_UPDATE");
  ASSERT_NE(report, nullptr);
  const auto& f = report->message.fields;
  ASSERT_EQ(f.size(), 13u);
  EXPECT_EQ(peer::AsU32(f[0]), 0u) << "one way: no answer wanted";
  EXPECT_EQ(peer::AsWString(f[1]), plat::Widen(kUid));
  EXPECT_EQ(peer::AsWString(f[2]), u"14.0");
  EXPECT_EQ(peer::AsWString(f[3]), u"20261123");
  EXPECT_EQ(peer::AsWString(f[4]), u"101500");
  EXPECT_EQ(peer::AsU32(f[5]), 0u);
  EXPECT_EQ(peer::AsWString(f[6]), u"14.0.1234");
  EXPECT_EQ(peer::AsWString(f[7]), std::u16string(20, u'e')) << "cut to the registration's width";
  EXPECT_EQ(peer::AsU32(f[8]), 1956100u);
  EXPECT_EQ(peer::AsU32(f[9]), 2001u);
  EXPECT_EQ(peer::AsU32(f[10]), 0xFFFFFFFFu) << "strtol, then 32 bits";
  EXPECT_EQ(peer::AsU32(f[11]), 0u);
  EXPECT_EQ(peer::AsU32(f[12]), 0x7FFFFFFFu);
  const peer::Received* reset = Find(received, u"CMDHLV2_CLN_REMOVE_CONFIG_REC");
  ASSERT_NE(reset, nullptr);
  EXPECT_EQ(U32At(reset->message.fields[0], 0), 22u);
  EXPECT_EQ(TextAt(reset->message.fields[0], 78, 16).c_str(), std::u16string(u"14.0"));
}

TEST_F(UpdateReport, AFailedUpdateIsReportedButResetsNothing) {
  EXPECT_EQ(Get(Query("1", "&updresult=-7")).body, "1");
  const auto received = peer_.WaitFor(1);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(peer::AsU32(received[0].message.fields[5]), static_cast<uint32_t>(-7));
  EXPECT_EQ(Find(peer_.WaitFor(2, 300), u"CMDHLV2_CLN_REMOVE_CONFIG_REC"), nullptr);
}

TEST_F(UpdateReport, AnsweredReportAndCertificateReplies) {
  struct Case {
    const char* type;
    peer::Reply answer;
    const char* reply;
    bool refreshSent;
  };
  const Case cases[] = {
      {"2", UpdateAnswer(1, 0), "1", false},
      {"2", UpdateAnswer(1, 1), "2", false},
      {"2", UpdateAnswer(0, 1), "-39", false},
      {"2", Answer(peer::ReplyKind::kSilence), "-5", false},
      {"2", MessageAnswer([](peer::Builder&) {}), "-5", false},  // the prologue alone
      {"3", CertificateAnswer(1), "1", false},
      {"3", CertificateAnswer(0), "2", true},
      {"3", CertificateAnswer(-1), "-39", false},
      {"3", Answer(peer::ReplyKind::kGarbage), "-5", false},
  };
  for (const Case& c : cases) {
    peer_.Clear();
    const bool certificate = std::string(c.type) == "3";
    peer_.Script(certificate ? u"CMDHLV2_CLN_SET_CERTIFICATE" : u"CMDHLV2_CLN_ON_UPDATE", c.answer);
    const std::string more = certificate ? "&CLN_SA_ISR=CN%3DVigilcrest%20Signing&CLN_SA_SN=0A1B" : "&updresult=3";
    EXPECT_EQ(Get(Query(c.type, more)).body, c.reply) << c.type << " " << c.reply;
    const auto received = peer_.WaitFor(c.refreshSent ? 2 : 1, c.refreshSent ? 5000 : 300);
    const peer::Received* refresh = Find(received, u"VG_REFRESH_CERT_INFO");
    EXPECT_EQ(refresh != nullptr, c.refreshSent) << c.type << " " << c.reply;
    if (refresh != nullptr) {
      EXPECT_EQ(refresh->pipe, u"VgcServerNamePipe");
      EXPECT_EQ(peer::AsWString(refresh->message.fields.at(0)), u"0A1B");
    }
    ASSERT_FALSE(received.empty()) << c.type << " " << c.reply;
    const auto& f = received[0].message.fields;
    if (certificate) {
      ASSERT_EQ(f.size(), 3u);
      EXPECT_EQ(peer::AsWString(f[1]), u"CN=Vigilcrest Signing");
      EXPECT_EQ(peer::AsWString(f[2]), u"0A1B");
    } else {
      EXPECT_EQ(peer::AsU32(f.at(0)), 1u) << "round trip: answer wanted";
    }
  }
}

TEST_F(UpdateReport, OnlyADeliveredSuccessResetsTheCriticalUpdate) {
  peer_.Script(u"CMDHLV2_CLN_ON_UPDATE", UpdateAnswer(1, 0));
  EXPECT_EQ(Get(Query("2", "&updresult=%2B0")).body, "1");
  EXPECT_NE(Find(peer_.WaitFor(2), u"CMDHLV2_CLN_REMOVE_CONFIG_REC"), nullptr);
  peer_.Clear();
  peer_.Script(u"CMDHLV2_CLN_ON_UPDATE", UpdateAnswer(0, 0));
  EXPECT_EQ(Get(Query("2", "&updresult=0")).body, "-39");
  EXPECT_EQ(Find(peer_.WaitFor(2, 300), u"CMDHLV2_CLN_REMOVE_CONFIG_REC"), nullptr);
  peer_.Stop();
  EXPECT_EQ(Get(Query("1", "&updresult=0")).body, "-5");
}

TEST_F(UpdateReport, Refusals) {
  struct Case {
    std::string query;
    const char* reply;
  };
  const Case cases[] = {
      {std::string("requestid=102&uid=") + kUid + "&release=14.0&updresult=0", "-3"},
      {"requestid=102&functiontype=1&uid=nope&release=14.0&updresult=0", "-6"},
      {std::string("requestid=102&functiontype=1&uid=") + kUid + "&updresult=0", "-7"},
      {"requestid=102&functiontype=1", "-7"},  // a later failure replaces an earlier one
      {Query("4", "&updresult=0"), "-3"},
      {Query("1"), "-40"},
      {Query("1", "&updresult=abc"), "-40"},  // would read as 0: success
      {Query("1", "&updresult="), "-40"},
      {Query("3", "&CLN_SA_ISR=x&CLN_SA_SN="), "-40"},
      {Query("3", "&CLN_SA_SN=0A1B"), "-40"},
      {Query("3", "&CLN_SA_ISR=x&CLN_SA_SN=" + std::string(41, '1')), "-40"},
  };
  for (const Case& c : cases) EXPECT_EQ(Get(c.query).body, c.reply) << c.query;
  EXPECT_TRUE(peer_.WaitFor(1, 200).empty()) << "nothing is sent for a refused report";
}

TEST_F(UpdateReport, TracesItsEnterAndLeaveLines) {
  TraceCapture capture;
  Get(Query("1"));
  EXPECT_EQ(capture.Count("[ProcessOnUpdate] Enter"), 1);
  EXPECT_EQ(capture.Count("[ProcessOnUpdate] Leave due error(-40)"), 1);
  peer_.Script(u"CMDHLV2_CLN_ON_UPDATE", UpdateAnswer(1, 0));
  Get(Query("2", "&updresult=0"));
  EXPECT_EQ(capture.Count("[ProcessOnUpdate] Leave successfully"), 1);
}

}  // namespace
