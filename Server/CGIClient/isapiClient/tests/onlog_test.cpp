// The log report (110): every handled log type's record on its pipe, the
// type conversion and its refusals, the identity order, the builders'
// required keys and traces, texts and numbers at their limits, the firewall
// counters, a large log through a spill file, and the results.
#include <set>

#include "channel/channel_Settings.h"
#include "channel/rec_Logs.h"
#include "handler_fixture.h"
#include "handlers/hdl_LogBuilders.h"
#include "server_folder.h"

namespace {

using logrec::Layout;
using logrec::Value;

constexpr char kSha1[] = "0123456789abcdef0123456789ABCDEF01234567";

// A log request whose keys all have values: texts "t<position>", numbers
// 100 + position; SoData is a SHA-1. `drop` leaves one key out.
std::string LogQuery(int logType, const Layout& layout, const std::string& drop = "") {
  std::string query = "requestid=110&functiontype=" + std::to_string(logType) + "&uid=" + kUid + "&release=14.0";
  for (std::size_t i = 0; i < layout.keys.size(); ++i) {
    const std::string name = layout.keys[i].name;
    if (name == drop) continue;
    const std::string value = name == "SoData"                            ? std::string(kSha1)
                              : layout.keys[i].value == Value::kNumber ? std::to_string(100 + i)
                                                                       : "t" + std::to_string(i);
    query += "&" + name + "=" + value;
  }
  return query;
}

peer::Bytes Narrow(const std::string& text, std::size_t size) {
  peer::Bytes bytes(text.begin(), text.end());
  bytes.resize(size, 0);
  return bytes;
}

class OnLog : public Handlers {
 protected:
  // The one message that arrived, on the pipe expected.
  peer::Message Received(const std::u16string& pipe) {
    const auto received = peer_.WaitFor(1);
    if (received.size() != 1) {
      ADD_FAILURE() << received.size() << " messages";
      return {};
    }
    EXPECT_EQ(received[0].pipe, pipe);
    return received[0].message;
  }
  std::vector<std::string> Lines(const TraceCapture& capture, const std::string& text) {
    std::vector<std::string> lines;
    for (const std::string& m : capture.Messages()) {
      if (m.find(text) != std::string::npos) lines.push_back(m);
    }
    return lines;
  }
};

TEST_F(OnLog, EveryHandledTypeSendsItsRecordOnItsPipe) {
  const struct {
    int logType;
    int32_t recordType;
    const Layout* layout;
  } cases[] = {
      {1, 1, &logrec::kVirusLog},       {5, 5, &logrec::kVirusLog},      {17, 17, &logrec::kUrlFilteringLog},
      {23, 23, &logrec::kDlpLog},       {24, 24, &logrec::kDlpLog2},     {25, 25, &logrec::kDlpLog2},
      {26, 20, &logrec::kCallbackLog},  {27, 27, &logrec::kRestoreItemResult},
      {32, 22, &logrec::kScanOperationLog}, {33, 33, &logrec::kSuspiciousObjectLog},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.logType);
    peer_.Clear();
    EXPECT_EQ(Get(LogQuery(c.logType, *c.layout)).body, "1");
    const bool threatLog = c.layout->pipe == logrec::Pipe::kThreatLog;
    const peer::Message message = Received(threatLog ? kThreatLogPipe : kCommandHandlerPipe);
    EXPECT_EQ(message.command, c.layout->command);
    EXPECT_FALSE(message.fileBacked);
    ASSERT_EQ(message.fields.size(), 3 + c.layout->keys.size());
    EXPECT_EQ(message.fields[0], Narrow(kUid, 37));
    EXPECT_EQ(message.fields[1], Narrow("14.0", 8));
    EXPECT_EQ(peer::AsU32(message.fields[2]), static_cast<uint32_t>(c.recordType));
    std::size_t text = 0;  // the first text key that the query sets to "t<position>"
    while (c.layout->keys[text].value != Value::kText || std::string(c.layout->keys[text].name) == "SoData") ++text;
    EXPECT_EQ(peer::AsWString(message.fields[3 + text]), u"t" + plat::Widen(std::to_string(text)))
        << "the keys follow, in order";
  }
}

TEST_F(OnLog, TypesTheConversionRefusesOrNoBuilderTakes) {
  // 11, 15 and 20 convert (20 to 18) but are still refused, without the line.
  const struct {
    const char* type;
    bool converts;
  } cases[] = {{"0", false},  {"-1", false}, {"6", false},  {"10", false}, {"12", false},
               {"22", false}, {"28", false}, {"31", false}, {"34", false}, {"4294967297", false},
               {"11", true},  {"15", true},  {"20", true}};
  for (const auto& c : cases) {
    TraceCapture capture;
    EXPECT_EQ(Get(std::string("requestid=110&functiontype=") + c.type + "&uid=" + kUid).body, "-3") << c.type;
    EXPECT_EQ(capture.Count("[ProcessOnLog] ISAPI_FAIL_MISSING_FUNCTIONTYPE"), c.converts ? 0 : 1) << c.type;
    const auto lines = Lines(capture, "[ProcessOnLog] Leave");
    EXPECT_EQ(lines, (std::vector<std::string>{"[ProcessOnLog] Leave due error(-3)", "[ProcessOnLog] Leave"}));
  }
  EXPECT_TRUE(peer_.WaitFor(1, 200).empty()) << "nothing sent";
}

TEST_F(OnLog, IdentityFieldsInOrder) {
  const std::string keys = "&date=d&time=t&virus=v&file=f";
  const struct {
    std::string query;
    const char* body;
  } cases[] = {
      {std::string("requestid=110&uid=") + kUid, "-3"},
      {"requestid=110&functiontype=1", "-6"},
      {"requestid=110&uid=not-a-guid", "-6"},
  };
  for (const auto& c : cases) {
    TraceCapture capture;
    EXPECT_EQ(Get(c.query + keys).body, c.body) << c.query;
    EXPECT_EQ(Lines(capture, "[ProcessOnLog] Leave"),
              std::vector<std::string>{std::string("[ProcessOnLog] Leave due error(") + c.body + ")"})
        << "an identity failure ends before the leave line";
  }
  EXPECT_TRUE(peer_.WaitFor(1, 200).empty());

  // release is optional here, and a long one is cut to 7 characters.
  for (const auto& [release, field] : {std::pair{"", ""}, std::pair{"&release=14.0.1234", "14.0.12"}}) {
    peer_.Clear();
    EXPECT_EQ(Get(std::string("requestid=110&functiontype=1&uid=") + kUid + release + keys).body, "1");
    const peer::Message message = Received(kCommandHandlerPipe);
    ASSERT_GE(message.fields.size(), 2u);
    EXPECT_EQ(message.fields[1], Narrow(field, 8));
  }
}

TEST_F(OnLog, RequiredKeysRefuseOptionalKeysStoreEmpty) {
  const struct {
    int logType;
    const Layout* layout;
    const char* drop;
    const char* body;
    std::vector<std::string> lines;  // the builders' missing-key lines and the handler's own, in order
  } cases[] = {
      {1, &logrec::kVirusLog, "virus", "-5", {"RetrieveVirusLog - Error: Invalid parameter - [virus]"}},
      {1, &logrec::kVirusLog, "login", "1", {}},
      {17, &logrec::kUrlFilteringLog, "time", "-5", {"RetrieveUrlFilteringLog - Error: Invalid parameter - [time]"}},
      {23, &logrec::kDlpLog, "desc", "1", {}},
      {24, &logrec::kDlpLog2, "action", "-5",
       {"ProcessOnLog - type=24", "RetrieveDlpLog2 - Error: Invalid parameter - [action]"}},
      {26, &logrec::kCallbackLog, "CCServer", "-5", {"RetrieveCCCALog - no parameter [CCServer]"}},
      {26, &logrec::kCallbackLog, "Port", "1", {"RetrieveCCCALog - no parameter [Port]"}},
      {27, &logrec::kRestoreItemResult, "result", "-5",
       {"RetrieveRestoreItemResult - Error: Invalid parameter - [result]"}},
      {32, &logrec::kScanOperationLog, "MEMO", "1", {}},
      {32, &logrec::kScanOperationLog, "SCAN_TYPE", "-5", {"RetrieveScanOPLog - Error: Invalid parameter - [SCAN_TYPE]"}},
      {33, &logrec::kSuspiciousObjectLog, "Time", "-5",
       {"RetrieveSuspiciousObjFileLog - Error: Invalid parameter - [8]",
        "ProcessOnLog - SUSPICIOUSOBJECT_FILESHA1 Error:[-1]"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.logType) + " without " + c.drop);
    peer_.Clear();
    TraceCapture capture;
    EXPECT_EQ(Get(LogQuery(c.logType, *c.layout, c.drop)).body, c.body);
    std::vector<std::string> seen;
    for (const std::string& m : capture.Messages()) {
      for (const char* kind : {"Invalid parameter", "no parameter", "ProcessOnLog - "}) {
        if (m.find(kind) != std::string::npos) {
          seen.push_back(m);
          break;
        }
      }
    }
    EXPECT_EQ(seen, c.lines);
    if (std::string(c.body) == "-5") {
      EXPECT_EQ(Lines(capture, "[ProcessOnLog] Leave"),
                (std::vector<std::string>{"[ProcessOnLog] Leave due error(-5)", "[ProcessOnLog] Leave"}));
      EXPECT_TRUE(peer_.WaitFor(1, 100).empty());
      continue;
    }
    const peer::Message message = Received(c.layout->pipe == logrec::Pipe::kThreatLog ? kThreatLogPipe
                                                                                     : kCommandHandlerPipe);
    for (std::size_t i = 0; i < c.layout->keys.size(); ++i) {
      if (std::string(c.layout->keys[i].name) != c.drop) continue;
      const peer::Bytes& field = message.fields.at(3 + i);
      if (c.layout->keys[i].value == Value::kNumber) {
        EXPECT_EQ(peer::AsU32(field), 0u);
      } else {
        EXPECT_EQ(field, (peer::Bytes{0, 0})) << "an empty wide string";
      }
    }
  }
  TraceCapture capture;
  EXPECT_EQ(Get(LogQuery(33, logrec::kSuspiciousObjectLog) + "&SoData=not-a-sha1").body, "-5");
  EXPECT_EQ(capture.Count("ProcessOnLog - SUSPICIOUSOBJECT_FILESHA1 Error:[-2]"), 1);
}

TEST_F(OnLog, NamedBuildersTraceTheirValues) {
  TraceCapture capture;
  ASSERT_EQ(Get(LogQuery(26, logrec::kCallbackLog) + "&Port=8080&CCServer=c2.example").body, "1");
  EXPECT_EQ(capture.Count("RetrieveCCCALog - [Port]=8080"), 1);
  EXPECT_EQ(capture.Count("RetrieveCCCALog - [CCServer]=c2.example"), 1);

  capture.Clear();
  ASSERT_EQ(Get(LogQuery(32, logrec::kScanOperationLog)).body, "1");
  EXPECT_EQ(capture.Count(std::string("SendDataScanOPLog - Debug: ID[") + kUid +
                          "],1[t0],2[t1],3[t2],4[t3],5[104],6[105],7[106],8[107],9[108],m[t9]"),
            1);
  std::vector<std::string> frame;
  for (const std::string& m : capture.Messages()) {
    if (m.rfind("[ProcessOnLog]", 0) == 0 || m.rfind("ConvertLogType", 0) == 0) frame.push_back(m);
  }
  EXPECT_EQ(frame, (std::vector<std::string>{"[ProcessOnLog] Enter",
                                             std::string("[ProcessOnLog] LogType = 32, Uid = ") + kUid +
                                                 ", Release = 14.0",
                                             "ConvertLogType - type=32", "[ProcessOnLog] Leave"}))
      << "the conversion follows the LogType line";
}

TEST_F(OnLog, TextsAreCutToTheirWidthNumbersConvertAsA32BitStrtol) {
  // A surrogate pair (as the decoder takes it: two three-byte halves) across the 256th unit.
  const std::string cutPair = std::string(255, 'x') + "%ED%A0%BD%ED%B8%80";
  const struct {
    std::string extra;
    std::size_t field;  // position among the virus log's keys
    std::u16string text;
    uint32_t number;
  } cases[] = {
      {"&virus=" + cutPair, 3, std::u16string(255, u'x'), 0},
      {"&firstaction=abc", 8, u"", 0},
      {"&firstaction=99999999999", 8, u"", 2147483647u},
      {"&firstaction=-99999999999", 8, u"", 0x80000000u},
      {"&firstaction=-7", 8, u"", static_cast<uint32_t>(-7)},
  };
  for (const auto& c : cases) {
    peer_.Clear();
    EXPECT_EQ(Get(LogQuery(1, logrec::kVirusLog) + c.extra).body, "1") << c.extra.substr(0, 40);
    const peer::Message message = Received(kCommandHandlerPipe);
    const peer::Bytes& field = message.fields.at(3 + c.field);
    if (logrec::kVirusLog.keys[c.field].value == Value::kNumber) {
      EXPECT_EQ(peer::AsU32(field), c.number) << c.extra;
    } else {
      EXPECT_EQ(peer::AsWString(field), c.text) << c.extra.substr(0, 40);
      EXPECT_EQ(field.size(), 2 * (c.text.size() + 1)) << "terminated inside the width";
    }
  }
}

// Every text key of every log, one unit over its width: cut to the width,
// its terminator inside.
TEST_F(OnLog, EveryTextKeyIsCutToItsWidth) {
  const struct {
    int logType;
    const Layout* layout;
  } logs[] = {{1, &logrec::kVirusLog},           {17, &logrec::kUrlFilteringLog},
              {23, &logrec::kDlpLog},            {24, &logrec::kDlpLog2},
              {26, &logrec::kCallbackLog},       {27, &logrec::kRestoreItemResult},
              {32, &logrec::kScanOperationLog},  {33, &logrec::kSuspiciousObjectLog}};
  for (const auto& log : logs) {
    std::string query = LogQuery(log.logType, *log.layout);
    for (const logrec::Key& key : log.layout->keys) {
      if (key.value == Value::kText && std::string(key.name) != "SoData") {
        query += std::string("&") + key.name + "=" + std::string(key.width + 1u, 'w');
      }
    }
    peer_.Clear();
    ASSERT_EQ(host_.Send(InProcessHost::Post(query)).body, "1") << log.logType;
    const peer::Message message = Received(log.layout == &logrec::kCallbackLog ? kThreatLogPipe : kCommandHandlerPipe);
    for (std::size_t i = 0; i < log.layout->keys.size(); ++i) {
      const logrec::Key& key = log.layout->keys[i];
      if (key.value != Value::kText || std::string(key.name) == "SoData") continue;
      EXPECT_EQ(peer::AsWString(message.fields.at(3 + i)), std::u16string(key.width, u'w')) << key.name;
      EXPECT_EQ(message.fields.at(3 + i).size(), 2u * key.width + 2u) << key.name;
    }
  }
}

TEST_F(OnLog, FirewallCountersGoAsTheVersionOneCommand) {
  const std::u16string uid = plat::Widen(kUid);
  const struct {
    const char* value;  // PFWcountstr, already escaped; null: absent
    const char* body;
    std::vector<std::u16string> fields;  // after the command name
  } cases[] = {
      {"fw,1,2,3,4,5,6", "1", {uid, u"0", u"1", u"2", u"3", u"4", u"5", u"6", u"fw", u"1"}},
      {"fw%091%092,3%094,5,6", "1", {uid, u"0", u"1", u"2", u"3", u"4", u"5", u"6", u"fw", u"1"}},
      {",0,0,0,%2010,20,30%0D%0A", "1", {uid, u"0", u"0", u"0", u"0", u"10", u"20", u"30", u"", u"1"}},
      {"fw,1,2,3,4,5,1234567890123456789012345", "1",
       {uid, u"0", u"1", u"2", u"3", u"4", u"5", u"2147483647", u"fw", u"1"}},
      {"fw,1,2,3,4,5", "-4", {}},
      {"fw,1,2,3,4,5,6,7", "-4", {}},
      {"fw,1,2,-3,4,5,6", "-4", {}},
      {"fw,1,2,x,4,5,6", "-4", {}},
      {"fw,1,2,3 4,4,5,6", "-4", {}},
      {"fw,1,2,,4,5,6", "-4", {}},
      {nullptr, "-4", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value ? c.value : "absent");
    peer_.Clear();
    TraceCapture capture;
    std::string query = std::string("requestid=110&functiontype=13&uid=") + kUid;
    if (c.value) query += std::string("&PFWcountstr=") + c.value;
    EXPECT_EQ(Get(query).body, c.body);
    if (c.fields.empty()) {
      EXPECT_EQ(capture.Count("ProcessFirewallLogCount - Error: Invalid parameter - [PFWcountstr]"), 1);
      EXPECT_TRUE(peer_.WaitFor(1, 100).empty());
      continue;
    }
    const auto received = peer_.WaitFor(1);
    ASSERT_EQ(received.size(), 1u);
    ASSERT_FALSE(received[0].version2);
    EXPECT_EQ(received[0].text.at(0), u"CMDHL_PFW_UPDATE_CFW_COUNT");
    EXPECT_EQ(std::vector<std::u16string>(received[0].text.begin() + 1, received[0].text.end()), c.fields);
  }
  peer_.Stop();
  EXPECT_EQ(Get(std::string("requestid=110&functiontype=13&uid=") + kUid + "&PFWcountstr=fw,1,2,3,4,5,6").body,
            "-4");
}

TEST_F(OnLog, ALargeLogTravelsAsASpillFileAndArrivesWhole) {
  ScopedServerFolder folder;
  // The whole form body the web server takes: 49152 bytes.
  const std::string head = LogQuery(23, logrec::kDlpLog, "originalstring") + "&originalstring=";
  const std::string body = head + std::string(49152 - head.size(), 'q');
  peer_.Clear();
  EXPECT_EQ(host_.Send(InProcessHost::Post(body)).body, "1");
  const peer::Message message = Received(kCommandHandlerPipe);
  EXPECT_TRUE(message.fileBacked);
  EXPECT_EQ(peer::AsWString(message.fields.at(3 + 9)), std::u16string(logrec::kQuote, u'q'));
  EXPECT_EQ(folder.SpillFiles(), 0) << "the receiver deleted it";

  // Over the threat-log pipe too; a short log stays inline.
  peer_.Clear();
  EXPECT_EQ(Get(LogQuery(26, logrec::kCallbackLog) + "&EventMessage=" + std::string(4096, 'e')).body, "1");
  EXPECT_FALSE(Received(kThreatLogPipe).fileBacked);
}

TEST_F(OnLog, AnUndeliveredLogIsMinus5AndAMissingThreatLogPipeLeavesTheOthers) {
  peer_.Stop();
  peer::ServicePeer commandPipeOnly({kCommandHandlerPipe});
  ASSERT_TRUE(commandPipeOnly.Start());
  TraceCapture capture;
  EXPECT_EQ(Get(LogQuery(26, logrec::kCallbackLog)).body, "-5");
  EXPECT_EQ(Lines(capture, "[ProcessOnLog] Leave"),
            (std::vector<std::string>{"[ProcessOnLog] Leave due error(-5)", "[ProcessOnLog] Leave"}));
  EXPECT_EQ(Get(LogQuery(1, logrec::kVirusLog)).body, "1");
  EXPECT_EQ(commandPipeOnly.WaitFor(1).size(), 1u);
  commandPipeOnly.Stop();
  EXPECT_EQ(Get(LogQuery(1, logrec::kVirusLog)).body, "-5");
}

// -49: the log went out, but the signed reply could not be written.
TEST_F(OnLog, AReplyThatCannotBeSignedIs503AfterTheSend) {
  peer::Reply refused;
  refused.make = [](const peer::Received& r) {
    return peer::Builder().Prologue(r.message.command, r.message.identifier).I32(-1).WString(u"").U32(0).bytes();
  };
  peer_.Script(u"CMDHSAV2_DATA", refused);
  TraceCapture capture;
  EXPECT_EQ(Get(LogQuery(1, logrec::kVirusLog) + "&SA_ISR=CN%3Dx&SA_SN=01").status, 503);
  EXPECT_EQ(Lines(capture, "[ProcessOnLog] Leave"), std::vector<std::string>{"[ProcessOnLog] Leave"});
  std::set<std::u16string> commands;
  for (const auto& r : peer_.WaitFor(2)) commands.insert(r.message.command);
  EXPECT_TRUE(commands.count(u"CMDHLV2_SET_VIRUS_LOG"));
}

}  // namespace
