#include "rsp_Reply.h"

#include <cstring>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/rec_Settings.h"
#include "channel/rec_Sign.h"
#include "channel/ser_MsgSerializer.h"
#include "platform/codepage.h"
#include "platform/process.h"
#include "platform/text.h"
#include "support/dbg_Trace.h"
#include "support/mbwc_MBWC.h"
#include "support/str_Format.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_Client";
constexpr char16_t kAppendHTTPSign[] = u"AppendHTTPSign";

constexpr uint32_t kIssuerLimit = 1024;
constexpr uint32_t kSerialLimit = 40;
constexpr uint32_t kClientNumberLimit = 32;

bool WriteSigned(const RequestParams& params, CHttpResponse& response, const char* body, std::size_t length) {
  if (!AppendHTTPSign(params, response, body, static_cast<uint32_t>(length))) return false;
  response.SetHeader("Content-Type", "application/octet-stream");
  response.Write(body, length);
  // A reply that was handed over counts as written: the client's connection
  // is the web server's to keep.
  response.Flush();
  return true;
}

}  // namespace

bool WriteCodeReply(const RequestParams& params, CHttpResponse& response, int32_t code) {
  char body[260] = {};
  std::size_t n = fmt16::Format(body, sizeof body, "%d", code);
  return WriteSigned(params, response, body, n);
}

bool WriteCodeAndTimeReplyAt(const RequestParams& params, CHttpResponse& response, int32_t code, int64_t unixTime) {
  char body[260] = {};
  std::size_t n = fmt16::Format(body, sizeof body, "%d\n%.10d", code, static_cast<int32_t>(unixTime));
  return WriteSigned(params, response, body, n);
}

bool WriteCodeAndTimeReply(const RequestParams& params, CHttpResponse& response, int32_t code) {
  return WriteCodeAndTimeReplyAt(params, response, code, plat::UnixTime());
}

bool WriteTextReply(const RequestParams& params, CHttpResponse& response, const char* text, std::size_t length) {
  return WriteSigned(params, response, text ? text : "", text ? length : 0);
}

bool WriteWideTextReply(const RequestParams& params, CHttpResponse& response, const char16_t* text) {
  std::string narrow;
  if (text && *text && !MBWC::WCToMBString(text, &narrow, plat::kCpAcp, 0)) return false;
  return WriteSigned(params, response, narrow.data(), narrow.size());
}

bool AppendHTTPSign(const RequestParams& params, CHttpResponse& response, const char* body, uint32_t length) {
  VGCR_TRACE(68, u"%s - >>", kAppendHTTPSign);
  tagSASignData request;
  if (!params.GetString("SA_ISR", &request.certificate.issuer, kIssuerLimit) ||
      !params.GetString("SA_SN", &request.certificate.serial, kSerialLimit)) {
    VGCR_TRACE(68, u"%s - No cert info", kAppendHTTPSign);
    return true;
  }
  std::string number;
  if (params.GetStringA("SA_RN", &number, kClientNumberLimit)) {
    request.clientNumber = plat::StrToLong(number.c_str());
  }
  request.reply.assign(body, body + length);

  CMsgSerializer message(u"CMDHSAV2_DATA", 1);
  tagSASignDataRet answer;
  bool sent = false;
  try {
    message << request;
    sent = cmdal2_SendAndRecvHandler2(message, message.Identifier().c_str()) && answer.Deserialize(message);
  } catch (const CIPCMsgBufferException&) {
    sent = false;
  }
  if (!sent) {
    VGCR_TRACE(69, u"%s - Fail to send command", kAppendHTTPSign);
    return false;
  }
  if (answer.result < 0) {
    VGCR_TRACE(69, u"%s - Fail to process command, error (%d)", kAppendHTTPSign, answer.result);
    // Another certificate than the server's: the reply goes out unsigned.
    return answer.result == kSignCertificateNotOurs;
  }
  std::string signature;
  MBWC::WCToMBString(answer.signature.c_str(), &signature, plat::kCpAcp, 0);
  response.SetHeader("SA_SG", signature.c_str());
  response.SetHeader("SA_NEW", answer.flag ? "0" : "1");
  VGCR_TRACE(68, u"%s - <<, Ret(%d)", kAppendHTTPSign, 1);
  return true;
}

bool CheckValidDomainString(const RequestParams& params, std::u16string* domain) {
  if (!params.GetString("domain", domain, 120)) return false;
  for (std::size_t i = 0; i < domain->size(); ++i) {
    const char16_t c = (*domain)[i];
    if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) return false;
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 >= domain->size() || (*domain)[i + 1] < 0xDC00 || (*domain)[i + 1] > 0xDFFF) return false;
      ++i;
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      return false;
    }
  }
  return true;
}

bool RemoveConfigRecord(const char16_t* uid, uint32_t event, const char16_t* release) {
  VGCR_TRACE(8, u"[RemoveConfigRecord] remove uid = %s, event = %ld", uid ? uid : u"", event);
  tagCln_RemoveConfigRec record;
  record.Put(tagCln_RemoveConfigRec::kEvent, event);
  record.Put(tagCln_RemoveConfigRec::kUid, uid ? uid : u"");
  record.Put(tagCln_RemoveConfigRec::kRelease, release ? release : u"");
  try {
    CMsgSerializer message(u"CMDHLV2_CLN_REMOVE_CONFIG_REC", 1);
    message << record;
    return cmdal2_Send(message);
  } catch (const CIPCMsgBufferException&) {
    return false;
  }
}
