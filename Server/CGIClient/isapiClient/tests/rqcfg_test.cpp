// The configuration request (202): each function type's queries and reset,
// function type 0's joined texts, the results, and settings texts that are
// odd, large or never end.
#include <thread>

#include "handlers/isapi_RqCfg.h"
#include "isapi/exchange.h"
#include "platform/com.h"
#include "settings_fixture.h"

namespace {

using isapi::Response;

class RqCfg : public SettingsRequests {};

struct CfgRow {
  int32_t functionType;
  const char16_t* query;
  uint32_t event;
};

const CfgRow kCfgRows[] = {
    {1, u"CMDHL_GET_MS_CFG", 65},          {2, u"CMDHL_GET_RT_CFG", 66},
    {3, u"CMDHL_GET_PS_CFG", 67},          {4, u"CMDHL_GET_SN_CFG", 68},
    {7, u"CMDHL_GET_MS_CFG_EX", 69},       {8, u"CMDHL_GET_RT_CFG_EX", 70},
    {9, u"CMDHL_GET_PS_CFG_EX", 71},       {10, u"CMDHL_GET_SN_CFG_EX", 72},
    {11, u"CMDHL_GET_SPY_MS_CFG", 97},     {12, u"CMDHL_GET_SPY_RT_CFG", 98},
    {13, u"CMDHL_GET_SPY_PS_CFG", 99},     {14, u"CMDHL_GET_SPY_SN_CFG", 100},
    {15, u"CMDHL_GET_SPY_RESTORE_LIST", 0}, {16, u"CMDHL_GET_WTP_SETTING", 113},
    {17, u"CMDHL_GET_FA_RESTORE_SETTING", 119},
};

TEST_F(RqCfg, EachFunctionTypeRunsItsQueryWithTheUidAndResetsItsRecord) {
  for (const CfgRow& row : kCfgRows) {
    SCOPED_TRACE(row.functionType);
    peer_.Clear();
    EXPECT_EQ(Get(Query(202, std::to_string(row.functionType))).body, NarrowTextOf(row.query));
    const auto received = peer_.WaitFor(2, row.event ? 5000 : 300);
    EXPECT_EQ(received.size(), row.event ? 2u : 1u) << "no existence check; a reset only with an event";
    const peer::Received* query = Find(received, row.query);
    ASSERT_NE(query, nullptr);
    EXPECT_EQ(std::vector<std::u16string>(query->text.begin() + 2, query->text.end()), Fields({plat::Widen(kUid)}));
    EXPECT_EQ(RemovedEvent(received), row.event);
  }
}

TEST_F(RqCfg, FunctionTypeZeroJoinsThreeTextsAndOnlyTheLastDecides) {
  EXPECT_EQ(Get(Query(202, "0")).body, NarrowTextOf(u"CMDHL_GET_ALL_SCAN_CFG") +
                                           NarrowTextOf(u"CMDHL_GET_WTP_SETTING") +
                                           NarrowTextOf(u"CMDHL_GET_FA_RESTORE_SETTING"));
  EXPECT_EQ(RemovedEvent(peer_.WaitFor(4, 300)), 0u) << "type 0 resets nothing";

  SetChannelReplyTimeoutMs(300);
  peer_.Script(u"CMDHL_GET_ALL_SCAN_CFG", Answer(peer::ReplyKind::kSilence));
  EXPECT_EQ(Get(Query(202, "0")).body,
            NarrowTextOf(u"CMDHL_GET_WTP_SETTING") + NarrowTextOf(u"CMDHL_GET_FA_RESTORE_SETTING"))
      << "a failed scan query leaves its share out";
  peer_.Script(u"CMDHL_GET_ALL_SCAN_CFG", TextAnswer(u"scan"));
  peer_.Script(u"CMDHL_GET_FA_RESTORE_SETTING", Answer(peer::ReplyKind::kSilence));
  EXPECT_EQ(Get(Query(202, "0")).body, "-5") << "the last query decides";
}

// The identity fields are read as for 201 (its tests), without the
// existence check.
TEST_F(RqCfg, RefusedFunctionTypesAskNothing) {
  for (const char* type : {"5", "6", "18", "-1", "2147483648"}) EXPECT_EQ(Get(Query(202, type)).body, "-3") << type;
  EXPECT_EQ(Get(std::string("requestid=202&functiontype=1&uid=") + kUid).body, "-7");
  EXPECT_TRUE(peer_.WaitFor(1, 200).empty()) << "nothing is asked";
  TraceCapture capture;
  Get(Query(202, "5"));
  EXPECT_EQ(LinesOf(capture, "[ProcessRqCfg]"),
            (std::vector<std::string>{"[ProcessRqCfg] Enter",
                                      std::string("[ProcessRqCfg] FunctionType = 5, Uid = ") + kUid + ", Release = 14.0",
                                      "[ProcessRqCfg] Leave due error(-3)", "[ProcessRqCfg] Leave successfully"}));
}

TEST_F(RqCfg, SettingsTextsOutsideTheCodePageLargeOrEndless) {
  // The ANSI code page (1252 here) has e-acute and the euro sign; a CJK
  // character becomes '?'.
  peer_.Script(u"CMDHL_GET_MS_CFG", TextAnswer(u"[Manual_Scan]\r\nName=caf\u00e9 \u20ac \u4e2d"));
  EXPECT_EQ(Get(Query(202, "1")).body, "[Manual_Scan]\r\nName=caf\xe9 \x80 ?");

  for (std::size_t size : {std::size_t{4097}, std::size_t{1} << 20}) {
    std::u16string big = u"[Manual_Scan]\r\n";
    while (big.size() < size) big += u"Pattern=0123456789ABCDEF\r\n";
    big.resize(size);
    peer_.Script(u"CMDHL_GET_MS_CFG", TextAnswer(big));
    const Response response = Get(Query(202, "1"));
    EXPECT_EQ(response.body.size(), size);
    EXPECT_EQ(plat::FromUtf8(response.body), big) << "arrives whole";
  }

  SetChannelReplyTimeoutMs(500);
  peer::Reply endless = TextAnswer(u"[Manual_Scan]\r\n");
  endless.kind = peer::ReplyKind::kStall;
  peer_.Script(u"CMDHL_GET_MS_CFG", endless);
  EXPECT_EQ(Get(Query(202, "1")).body, "-5") << "bounded by the reply time-out";
  peer_.Script(u"CMDHL_GET_MS_CFG", TextAnswer(u"again"));
  EXPECT_EQ(Get(Query(202, "1")).body, "again") << "the worker is free again";
}

// A worker thread already in the multi-threaded apartment: the uid check's
// COM scope cannot start, which is traced, and the request goes on.
TEST_F(RqCfg, AComScopeThatCannotStartIsTracedAndTheRequestGoesOn) {
  TraceCapture capture;
  int32_t result = 0;
  std::string body;
  std::thread worker([&] {
    plat::CoInitializeEx(plat::kCoInitMultithreaded);
    isapi::Exchange exchange{isapi::Request{}};
    CHttpResponse response{exchange.Ecb()};
    RequestParams params;
    params.Parse(Query(202, "1"));
    result = ProcessRqCfg(params, response);
    body = exchange.TakeResponse().body;
    plat::CoUninitialize();
  });
  worker.join();
  EXPECT_EQ(result, 1);
  EXPECT_EQ(body, NarrowTextOf(u"CMDHL_GET_MS_CFG"));
  EXPECT_EQ(capture.Count("ProcessRqCfg - Failed to initiate CComInitiator with thread model: [2] m_bInitialize: [0] "
                          "result: [-2147417850]."),
            1);
}

}  // namespace
