// Requests through the extension's real entry points, in IIS and adapter
// mode, from a web server in this process.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "handler_fixture.h"
#include "guard_record.h"
#include "host/ext_Extension.h"
#include "host/grd_Guards.h"
#include "host/isapi_Routes.h"
#include "channel/rec_Sign.h"
#include "inprocess_host.h"
#include "platform/event.h"
#include "platform/process.h"
#include "platform/thread_token.h"
#include "trace_sink.h"

namespace {

using isapi::Request;
using isapi::Response;

class Dispatch : public Handlers {
 protected:
  Response Send(Request request, DWORD* status = nullptr) { return host_.Send(std::move(request), status); }
};

struct ReplyCase {
  const char* label;
  const char* method;
  const char* query;
  const char* body;
  const char* reply;
};

const ReplyCase kReplyCases[] = {
    {"no_requestid", "GET", "uid=1", "", "-1"},
    {"unknown_206", "GET", "requestid=206", "", "-2"},
    {"zero", "GET", "requestid=0", "", "-2"},
    {"letters_convert_to_zero", "GET", "requestid=abc", "", "-2"},
    {"above_501", "GET", "requestid=502", "", "-2"},
    // strtol with a 32-bit long saturates: never 101 by wrapping round.
    {"beyond_32_bits_saturates", "GET", "requestid=4294967397", "", "-2"},
    {"upload_reaches_its_handler", "GET", "requestid=501", "", "-6"},
    {"head_reads_nothing", "HEAD", "requestid=206", "", "-1"},
    {"post_body", "POST", "", "requestid=206&x=1", "-2"},
    {"post_ignores_the_query", "POST", "requestid=206", "x=1", "-1"},
    {"case_blind_name", "GET", "RequestID=206", "", "-2"},
    {"escaped_value", "GET", "requestid=%32%30%36", "", "-2"},
    {"invalid_utf8_query_parses_nothing", "GET", "requestid=206&x=\xF0\x9F\x98\x80", "", "-1"},
};

class DispatchReplies : public Dispatch, public ::testing::WithParamInterface<ReplyCase> {};

TEST_P(DispatchReplies, AnswerTheErrorCodeSignedAsOctetStream) {
  const ReplyCase& c = GetParam();
  for (bool adapter : {false, true}) {
    Request request = std::string(c.method) == "POST" ? InProcessHost::Post(c.body, adapter)
                                                       : InProcessHost::Get(c.query, adapter);
    request.method = c.method;
    request.queryString = c.query;
    DWORD status = 0;
    Response response = Send(request, &status);
    EXPECT_EQ(status, adapter ? DWORD{HSE_STATUS_SUCCESS} : DWORD{HSE_STATUS_PENDING});
    EXPECT_TRUE(response.done);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, c.reply) << (adapter ? "adapter" : "IIS");
    EXPECT_EQ(response.Header("Content-Type"), "application/octet-stream");
    EXPECT_FALSE(response.HasHeader("SA_SG"));
  }
}

void PrintTo(const ReplyCase& c, std::ostream* os) { *os << c.label; }

INSTANTIATE_TEST_SUITE_P(Table, DispatchReplies, ::testing::ValuesIn(kReplyCases),
                         [](const auto& param_info) { return std::string(param_info.param.label); });

TEST_F(Dispatch, APostBodyCutShortIsParsedAsFarAsItCame) {
  Request request = InProcessHost::Post("requestid=206&rest=");
  request.announcedLength = 500;  // the client promised more than it sent
  request.preload = 4;            // and most of it comes through ReadClient
  Response response = Send(request);
  EXPECT_EQ(response.body, "-2");
}

// Every POST body but a multipart one is parsed as a form, so every one
// obeys the form limit, whatever its content type says.
TEST_F(Dispatch, EveryPostBodyObeysTheFormLimitWhateverItsType) {
  for (const char* type : {"application/x-www-form-urlencoded", "Application/X-WWW-Form-Urlencoded", "text/plain",
                           "multipart/form-data", "multipart/mixed; boundary=x", ""}) {
    for (const std::size_t size : {std::size_t{49152}, std::size_t{49153}}) {
      std::string body = "requestid=206&pad=";
      body.resize(size, 'a');
      Request request = InProcessHost::Post(body);
      request.contentType = type;
      const Response response = Send(request);
      EXPECT_EQ(response.status, size > 49152 ? 500 : 200) << type << " " << size;
      if (size <= 49152) {
        EXPECT_EQ(response.body, "-2") << type;
      }
    }
  }
}

// A multipart body's fields are the parameters, read up to the first file
// part; the file part's length is not held against the form limit.
TEST_F(Dispatch, AMultipartBodyIsReadAsItsFields) {
  auto part = [](const std::string& name, const std::string& value) {
    return "--x\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
  };
  struct Case {
    std::string body;
    const char* reply;
  };
  const Case cases[] = {
      {part("requestid", "206") + "--x--\r\n", "-2"},
      {part("requestid", "206") + part("requestid", "202x") + "--x--", "-7"},  // the last one wins
      {part("requestid", "%32%30%36") + "--x--", "-2"},                          // no percent decoding: 0
      {part("requestid", "206") + part("pad", std::string(49100, 'p')) + "--x--", "500"},  // over the form size
      {part("requestid", "206") + part("pad", std::string(49000, 'p')) + "--x--", "-2"},
      {part("requestid", "206") + "--x\r\nContent-Disposition: form-data; name=\"f\"; filename=\"a\"\r\n\r\n" +
           std::string(100000, 'f') + "\r\n--x--",
       "-2"},
      {"--x\r\nContent-Disposition: form-data; name=\"requestid\r\n\r\n206\r\n--x--", "-1"},  // unclosed quote
      {"--x\r\n" + std::string(5000, 'h') + "\r\n\r\n206\r\n--x--", "-1"},  // a header over 4096 bytes
  };
  for (const Case& c : cases) {
    Request request = InProcessHost::Post(c.body);
    request.contentType = "Multipart/Form-Data; charset=utf-8; boundary=x";
    request.preload = 3;
    const Response response = Send(request);
    if (std::string(c.reply) == "500") {
      EXPECT_EQ(response.status, 500) << "refused as any form over the limit";
    } else {
      EXPECT_EQ(response.body, c.reply) << c.body.substr(0, 120);
    }
  }
}

// An adapter request may set the adapter-mode flag while an IIS-mode worker
// sits between setting its caller's token and reverting: the worker must
// revert all the same.
TEST_F(Dispatch, AnAdapterRequestDuringTheTokenCheckLeavesNoWorkerImpersonating) {
  Request request = InProcessHost::Get("requestid=206");
  void* token = plat::CreateImpersonationToken();
  request.impersonationToken = token;
  isapi::Exchange exchange(std::move(request));
  TheExtension().SetTokenSetHook([] { TheExtension().SetAdapterModeSeen(true); });
  TheExtension().DispatchStencilCall(exchange.Ecb());  // on this thread, as a worker would
  const bool impersonating = plat::IsImpersonating();
  plat::RevertToSelf();
  TheExtension().SetTokenSetHook(nullptr);
  TheExtension().SetAdapterModeSeen(false);
  exchange.WaitDone(5000);
  plat::CloseImpersonationToken(token);
  EXPECT_FALSE(impersonating);
  EXPECT_EQ(exchange.TakeResponse().body, "-2");
}

uint32_t g_fakeTick = 0;
uint32_t FakeTick() { return g_fakeTick; }

TEST_F(Dispatch, TheMemoryGuardAnswersMinus38UntilTheRecordSaysZero) {
  GuardRecord record(kMemThresholdRecord);
  ASSERT_TRUE(record.ok());
  record.Set(1, 1, 1);
  // Far past the last read, so the next request reads the record.
  g_fakeTick = plat::TickCount() + 3600000;
  TheExtension().SetTickSource(FakeTick);
  TraceCapture capture;
  EXPECT_EQ(Send(InProcessHost::Get("requestid=206")).body, "-38");
  EXPECT_EQ(Send(InProcessHost::Get("requestid=206", true)).body, "-38");
  EXPECT_GE(capture.Count("Server is over memory usage threshold, return -38"), 2);
  record.Set(0, 1, 1);
  EXPECT_EQ(Send(InProcessHost::Get("requestid=206")).body, "-2");
  TheExtension().SetTickSource(nullptr);
}

peer::Reply SignReply(int32_t result, const std::u16string& signature, uint32_t flag) {
  peer::Reply reply;
  reply.make = [=](const peer::Received& r) {
    return peer::Builder()
        .Prologue(r.message.command, r.message.identifier)
        .I32(result)
        .WString(signature)
        .U32(flag)
        .bytes();
  };
  return reply;
}

constexpr char kSigned[] = "requestid=206&SA_ISR=CN%3DVigilcrest%20Test&SA_SN=0A1B&SA_RN=77";

// What the signing service answers decides the headers and the status; the
// signature itself is checked against the real service in the system tests.
TEST_F(Dispatch, TheSigningAnswerDecidesHeadersAndStatus) {
  struct Case {
    int32_t result;
    uint32_t flag;
    int status;
    bool headers;
    const char* isNew;
  } cases[] = {
      {0, 0, 200, true, "1"},  // flag clear: the client should fetch a new certificate
      {0, 1, 200, true, "0"},
      {kSignCertificateNotOurs, 0, 200, false, ""},  // not our certificate: unsigned
      {-1, 0, 503, false, ""},
  };
  for (const Case& c : cases) {
    peer_.Script(u"CMDHSAV2_DATA", SignReply(c.result, u"c2ln", c.flag));
    TraceCapture capture;
    Response response = Send(InProcessHost::Get(kSigned));
    EXPECT_EQ(response.status, c.status) << c.result;
    // A failed or refused signing returns at once, without the closing line.
    EXPECT_EQ(capture.Count("AppendHTTPSign - <<, Ret(1)"), c.result == 0 ? 1 : 0) << c.result;
    EXPECT_EQ(capture.Count("AppendHTTPSign - Fail to process command, error"), c.result < 0 ? 1 : 0);
    if (c.status != 200) continue;
    EXPECT_EQ(response.body, "-2");
    EXPECT_EQ(response.HasHeader("SA_SG"), c.headers) << c.result;
    EXPECT_EQ(response.Header("SA_NEW"), c.isNew) << c.result;
  }
  peer::Reply silent;
  silent.kind = peer::ReplyKind::kSilence;
  peer_.Script(u"CMDHSAV2_DATA", silent);
  TraceCapture capture;
  Response response = Send(InProcessHost::Get(kSigned, true));
  EXPECT_EQ(response.status, 503) << "a silent signing service, bounded by the reply time-out";
  EXPECT_EQ(capture.Count("AppendHTTPSign - Fail to send command"), 1);
  EXPECT_EQ(capture.Count("AppendHTTPSign - <<"), 0);
}

TEST_F(Dispatch, ASerialOf41CharactersLeavesTheReplyUnsigned) {
  TraceCapture capture;
  Response response =
      Send(InProcessHost::Get("requestid=206&SA_ISR=CN%3Dx&SA_RN=1&SA_SN=" + std::string(41, '0')));
  EXPECT_EQ(response.body, "-2");
  EXPECT_FALSE(response.HasHeader("SA_SG"));
  EXPECT_FALSE(response.HasHeader("SA_NEW"));
  EXPECT_EQ(capture.Count("AppendHTTPSign - No cert info"), 1);
  EXPECT_TRUE(peer_.WaitFor(1, 200).empty()) << "the signing service is not asked";
}

TEST_F(Dispatch, APathInfoWithoutAPathTranslatedIsAdapterMode) {
  Request request = InProcessHost::Get("requestid=206", true);
  request.adapterKeepsPathInfo = true;
  DWORD status = 0;
  Response response = Send(request, &status);
  EXPECT_EQ(status, DWORD{HSE_STATUS_SUCCESS}) << "answered before the call returns";
  EXPECT_EQ(response.body, "-2");
}

// One mode at a time: the adapter mode is one value for the whole process,
// so a server mixing both modes at once is not supported (by design).
TEST_F(Dispatch, ConcurrentRequestsInEachMode) {
  for (bool adapter : {false, true}) {
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
      threads.emplace_back([&] {
        InProcessHost host(LinkedEntryPoints());
        for (int i = 0; i < 10; ++i) {
          Response response = host.Send(InProcessHost::Get(i % 2 ? "requestid=206" : "x=1", adapter));
          if (response.body == (i % 2 ? "-2" : "-1") && response.status == 200) ++right;
        }
      });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(right.load(), 80) << (adapter ? "adapter" : "IIS");
  }
}

TEST(AdapterHandshake, OnlyEventsWithThePrefixAreSignalled) {
  adapterMode = 1;
  for (const char* name : {"VGCR_ISAPI_RETURN_4242", "OTHER_EVENT_4242", "VGCR_ISAPI_RETURN"}) {
    char16_t wide[64];
    std::size_t i = 0;
    for (; name[i]; ++i) wide[i] = static_cast<char16_t>(name[i]);
    wide[i] = 0;
    plat::Event event;
    ASSERT_TRUE(event.Create(wide, false));
    EXTENSION_CONTROL_BLOCK ecb{};
    char path[64];
    std::snprintf(path, sizeof path, "%s", name);
    ecb.lpszPathTranslated = path;
    SignalAdapterEvent(&ecb);
    const bool expected = std::string(name) == "VGCR_ISAPI_RETURN_4242";
    EXPECT_EQ(event.Wait(0) == plat::kWaitObject0, expected) << name;
  }
  adapterMode = 0;
  plat::Event event;
  ASSERT_TRUE(event.Create(u"VGCR_ISAPI_RETURN_77", false));
  EXTENSION_CONTROL_BLOCK ecb{};
  char path[] = "VGCR_ISAPI_RETURN_77";
  ecb.lpszPathTranslated = path;
  SignalAdapterEvent(&ecb);
  EXPECT_EQ(event.Wait(0), plat::kWaitTimeout) << "not in adapter mode";
}

TEST(Routes, HandlersStillToWrite) {
  std::vector<std::string> missing;
  for (const Route& route : kRoutes) {
    if (route.handler == nullptr) missing.push_back(route.handlerName);
  }
  // Shrinks as the handlers land; an entry may leave this list, never join it.
  const std::vector<std::string> expected = {};
  EXPECT_EQ(missing, expected);
  EXPECT_NE(kUploadHandler, nullptr);
}

}  // namespace
