// The settings-file request (201): each function type's query, its
// arguments and the record it resets; the existence check; the results.
#include "settings_fixture.h"

namespace {

using isapi::Response;

class RqIni : public SettingsRequests {};

enum class Given { kUid, kUidAndRelease, kNothing };

struct IniRow {
  int32_t functionType;
  const char16_t* query;
  Given given;
  uint32_t event;
};

const IniRow kIniRows[] = {
    {0, u"CMDHL_GET_INI_CRITICAL", Given::kUidAndRelease, 22},
    {1, u"CMDHL_GET_INI_GLOBALSETTING", Given::kUid, 73},
    {2, u"CMDHL_GET_INI_OTHERUPDATESRC", Given::kUid, 74},
    {3, u"CMDHL_GET_INI_SERVICEMODEL", Given::kUid, 75},
    {4, u"CMDHL_PFW_GET_CLIENT_DOMAIN", Given::kUid, 79},
    {5, u"CMDHL_PFW_GET_LOG_QUERY_CONDITION", Given::kUid, 77},
    {6, u"CMDHL_GET_CLN_NET_QUARANTINE_CMD", Given::kUid, 11},
    {8, u"CMDHL_GET_INI_COMPONENT_VER", Given::kUidAndRelease, 0},
    {9, u"CMDHL_GET_PRODUCT_INFO", Given::kNothing, 0},
    {16, u"CMDHL_GET_INI_WHITELIST", Given::kUid, 103},
    {17, u"CMDHL_GET_INI_AEGISSETTING", Given::kUid, 111},
    {18, u"CMDHL_GET_INI_SCANSERVICELIST", Given::kUid, 110},
    {19, u"CMDHL_GET_INI_LOCALSCANSETTING", Given::kUid, 112},
    {20, u"CMDHL_GET_INI_SERVICESWITCHSETTING", Given::kUid, 117},
    {21, u"CMDHL_GET_NCIE_SETTING", Given::kUid, 120},
    {22, u"CMDHL_PFW_GET_CLIENT_FULL_DOMAIN", Given::kUid, 0},
    {255, u"CMDHL_GET_CLIENT_ALL_SETTING", Given::kUidAndRelease, 255},
};

TEST_F(RqIni, EachFunctionTypeRunsItsQueryAndResetsItsRecord) {
  const std::u16string uid = plat::Widen(kUid);
  for (const IniRow& row : kIniRows) {
    SCOPED_TRACE(row.functionType);
    peer_.Clear();
    const Response response = Get(Query(201, std::to_string(row.functionType)));
    EXPECT_EQ(response.body, NarrowTextOf(row.query));
    EXPECT_EQ(response.Header("Content-Type"), "application/octet-stream");
    // A record that is not reset must not arrive late either.
    const auto received = peer_.WaitFor(3, row.event ? 5000 : 300);
    EXPECT_EQ(received.size(), row.event ? 3u : 2u);
    const peer::Received* exists = Find(received, u"CMDHLV2_CHECK_CLIENT_EXIST");
    ASSERT_NE(exists, nullptr);
    ASSERT_EQ(exists->message.fields.size(), 1u);
    EXPECT_EQ(exists->message.fields[0], peer::TextBytes(uid + u'\0')) << "the uid with its terminator";
    const peer::Received* query = Find(received, row.query);
    ASSERT_NE(query, nullptr);
    std::vector<std::u16string> arguments(query->text.begin() + 2, query->text.end());
    const std::vector<std::u16string> expected = row.given == Given::kNothing ? Fields({})
                                                 : row.given == Given::kUid  ? Fields({uid})
                                                                             : Fields({uid, u"14.0"});
    EXPECT_EQ(arguments, expected);
    EXPECT_EQ(RemovedEvent(received), row.event);
  }
}

struct Refusal {
  const char* label;
  std::string query;
  int32_t known;  // the existence check's answer
  const char* reply;
};

TEST_F(RqIni, ResultsAndTheirPrecedence) {
  const std::string uid = kUid;
  const Refusal refusals[] = {
      {"no functiontype", "requestid=201&uid=" + uid + "&release=14.0", 1, "-3"},
      {"no uid", "requestid=201&functiontype=1&release=14.0", 1, "-6"},
      {"uid not a GUID", "requestid=201&functiontype=1&uid=" + std::string(36, 'Z') + "&release=14.0", 1, "-6"},
      {"unknown client", Query(201, "1"), 0, "-6"},
      {"unknown client over -3", "requestid=201&uid=" + uid + "&release=14.0", 0, "-6"},
      {"no release", "requestid=201&functiontype=1&uid=" + uid, 1, "-7"},
      {"no release over an unknown client", "requestid=201&functiontype=1&uid=" + uid, 0, "-7"},
      {"type 7", Query(201, "7"), 1, "-3"},
      {"type 23", Query(201, "23"), 1, "-3"},
      {"type 256", Query(201, "256"), 1, "-3"},
      {"type -1", Query(201, "-1"), 1, "-3"},
      {"type 2147483648 saturates", Query(201, "2147483648"), 1, "-3"},
  };
  for (const Refusal& r : refusals) {
    peer_.Script(u"CMDHLV2_CHECK_CLIENT_EXIST", Exists(r.known));
    peer_.Clear();
    EXPECT_EQ(Get(r.query).body, r.reply) << r.label;
    for (const peer::Received& received : peer_.WaitFor(2, 100)) {
      EXPECT_EQ(received.Command(), u"CMDHLV2_CHECK_CLIENT_EXIST") << r.label << ": nothing but the check is sent";
    }
  }
  // Letters convert to 0, a type that is served.
  EXPECT_EQ(Get(Query(201, "abc")).body, NarrowTextOf(u"CMDHL_GET_INI_CRITICAL"));
}

TEST_F(RqIni, AnExistenceAnswerTooShortCountsAsAnUnknownClient) {
  peer_.Script(u"CMDHLV2_CHECK_CLIENT_EXIST", MessageAnswer([](peer::Builder&) {}));
  TraceCapture capture;
  EXPECT_EQ(Get(Query(201, "1")).body, "-6");
  EXPECT_EQ(LinesOf(capture, "[ProcessRqIni]"),
            (std::vector<std::string>{"[ProcessRqIni] Enter", "[ProcessRqIni] Leave due error(-6)"}));
}

TEST_F(RqIni, TraceLinesOfEachPath) {
  TraceCapture capture;
  Get(Query(201, "4"));
  EXPECT_EQ(LinesOf(capture, "[ProcessRqIni]"),
            (std::vector<std::string>{"[ProcessRqIni] Enter",
                                      std::string("[ProcessRqIni] FunctionType = 4, Uid = ") + kUid + ", Release = 14.0",
                                      "[ProcessRqIni] Leave successfully"}));
  EXPECT_EQ(capture.Count(std::string("[RemoveConfigRecord] remove uid = ") + kUid + ", event = 79"), 1);
  capture.Clear();
  Get(Query(201, "7"));
  EXPECT_EQ(LinesOf(capture, "[ProcessRqIni]"),
            (std::vector<std::string>{"[ProcessRqIni] Enter",
                                      std::string("[ProcessRqIni] FunctionType = 7, Uid = ") + kUid + ", Release = 14.0",
                                      "[ProcessRqIni] Leave due error(-3)", "[ProcessRqIni] Leave successfully"}));
  capture.Clear();
  Get("requestid=201&functiontype=1&uid=not-a-guid&release=14.0");
  EXPECT_EQ(capture.Count("This is an invalid UID."), 1);
  EXPECT_EQ(capture.Count("[ProcessRqIni] Leave successfully"), 0);
}

TEST_F(RqIni, AFailedQueryIsMinus5AfterItsLeaveLines) {
  SetChannelReplyTimeoutMs(300);
  peer_.Script(u"CMDHL_GET_INI_GLOBALSETTING", Answer(peer::ReplyKind::kSilence));
  TraceCapture capture;
  EXPECT_EQ(Get(Query(201, "1")).body, "-5");
  const auto lines = LinesOf(capture, "[ProcessRqIni]");
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2], "[ProcessRqIni] Leave due error(-5)");
  EXPECT_EQ(lines.back(), "[ProcessRqIni] Leave successfully");
  EXPECT_EQ(RemovedEvent(peer_.WaitFor(3, 200)), 0u) << "nothing is reset";
}

}  // namespace
