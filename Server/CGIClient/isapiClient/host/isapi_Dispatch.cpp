// The body of every request, run by a pool worker.
#include <chrono>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "ext_Extension.h"
#include "fw_HttpRequest.h"
#include "fw_HttpResponse.h"
#include "isapi_Result.h"
#include "isapi_Routes.h"
#include "mon_Metrics.h"
#include "platform/codepage.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "platform/text.h"
#include "platform/thread_token.h"
#include "rsp_Reply.h"
#include "support/dbg_Trace.h"
#include "support/mbwc_MBWC.h"
#include "support/utf_Converter.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_Client";
constexpr char16_t kDispatch[] = u"CisapiClientExtension::DispatchStencilCall";

// Method numbers, by name, in this order; -1 for any other.
int MethodNumber(const char* method) {
  static const char* const kMethods[] = {"GET", "POST", "HEAD", "DELETE", "LINK", "UNLINK", "DEBUG"};
  for (int i = 0; i < 7; ++i) {
    if (std::strcmp(method, kMethods[i]) == 0) return i;
  }
  return -1;
}

// GET: the query string is read as UTF-8 into UTF-16, then converted to the
// ANSI code page, and only then parsed, so percent escapes are undone after
// the UTF-8 step.
void ReadQueryParameters(CHttpRequest& request) {
  std::unique_ptr<char16_t[]> decoded = UTFConverter::decodeUTF(request.QueryString());
  std::string narrow;
  if (!decoded) {
    VGCR_TRACE(87, u"[CisapiClientExtension::DispatchStencilCall] Can't get wpszDecodeQueryString from "
                   u"UTFConverter::decodeUTF()");
  } else if (decoded[0] != u'\0') {
    MBWC::WCToMBString(decoded.get(), &narrow, plat::kCpAcp, 0);
  }
  request.Params().Parse(narrow);
}

// POST: the whole body, as received, parsed without the UTF-8 step. A read
// that delivers nothing ends the body where it got to.
void ReadBodyParameters(CHttpRequest& request) {
  const uint32_t total = request.TotalBytes();
  std::unique_ptr<char[]> body(new (std::nothrow) char[static_cast<std::size_t>(total) + 1]);
  uint32_t have = 0;
  if (!body) {
    VGCR_TRACE(69, u"%s - CHeapPtr::AllocateBytes failed to allocate memory.", kDispatch);
  } else {
    have = request.AvailableBytes() < total ? request.AvailableBytes() : total;
    if (have) std::memcpy(body.get(), request.AvailableData(), have);
    while (have < total) {
      uint32_t size = total - have;
      if (!request.ReadClient(body.get() + have, &size)) {
        VGCR_TRACE(69, u"%s - CHttpRequest::ReadClient failed with Windows error code:[%d].", kDispatch,
                   plat::LastError());
        have = 0;
        break;
      }
      if (size == 0) break;
      have += size;
    }
  }
  VGCR_TRACE(68, u"[CisapiClientExtension::DispatchStencilCall] Size: %d", have);
  if (body) request.Params().Parse(body.get(), have);
}

// POST multipart/form-data: the fields before the file part are the
// parameters; the file part is left in the body for the upload handler.
// Fields over the form size are refused as any form over it is (false);
// a malformed body is read as far as it is well formed, as a short one is.
bool ReadMultipartParameters(CHttpRequest& request, const std::string& boundary) {
  const CMultipartReader::Fields fields = request.ReadMultipartFields(boundary);
  if (fields == CMultipartReader::Fields::kMalformed || fields == CMultipartReader::Fields::kTooLarge) {
    VGCR_TRACE(69, u"%s - The multipart body is %s.", kDispatch,
               fields == CMultipartReader::Fields::kMalformed ? u"malformed" : u"over the form size");
  }
  VGCR_TRACE(68, u"[CisapiClientExtension::DispatchStencilCall] Size: %d",
             static_cast<uint32_t>(request.MultipartBytesRead()));
  return fields != CMultipartReader::Fields::kTooLarge;
}

// Writes the signed code reply; 503 when it cannot be signed. Returns what
// the client got.
int32_t WriteErrorReply(CHttpRequest& request, CHttpResponse& response, int32_t result) {
  if (WriteCodeReply(request.Params(), response, result)) return result;
  response.CompleteWithError(503);
  return mon::kResultHttp503;
}

}  // namespace

int32_t CisapiClientExtension::Route(CHttpRequest& request, CHttpResponse& response, int32_t* routedId) {
  const std::string* text = request.Params().Lookup("requestid");
  if (text == nullptr) return kResultNoRequestId;
  const int32_t requestId = plat::StrToLong(text->c_str());
  *routedId = requestId;
  VGCR_TRACE(73, u"[CisapiClientExtension::DispatchStencilCall] nRequestID: %d", requestId);
  if (requestId > kUploadRequestId) return kResultUnknownRequestId;
  if (requestId == kUploadRequestId) {
    uint32_t diskStatus = 1700;
    CheckDiskThreshold(guards_, tick_ ? tick_ : plat::TickCount, &diskStatus);
    return kUploadHandler ? kUploadHandler(request.Params(), response, request, diskStatus)
                          : kResultUnknownRequestId;
  }
  const ::Route* route = FindRoute(requestId);
  if (route == nullptr || route->handler == nullptr) return kResultUnknownRequestId;
  return route->handler(request.Params(), response);
}

void CisapiClientExtension::DispatchStencilCall(EXTENSION_CONTROL_BLOCK* ecb) {
  VGCR_TRACE(8, u"==> [CisapiClientExtension::DispatchStencilCall]");
  // The adapter's own request is synchronous: it ends with its event, not
  // with HSE_REQ_DONE_WITH_SESSION. (An asynchronous request never carries
  // the event prefix, so the hand-shake would do nothing for it anyway.)
  const bool asynchronous = !(ecb->lpszPathTranslated &&
                              std::strncmp(ecb->lpszPathTranslated, kAdapterEventPrefix,
                                           std::strlen(kAdapterEventPrefix)) == 0);
  // Whether this request's token is checked is read once: an adapter request
  // setting the flag between the set and the revert must not leave this
  // worker, and every later request on it, under the caller's token.
  const bool checkToken = adapterModeSeen_.load() == 0;
  const auto started = std::chrono::steady_clock::now();
  int32_t requestId = 0;
  int32_t outcome = kResultHandled;
  {
    CHttpRequest request;
    CHttpResponse response(ecb);
    response.SetStatusCode(200);
    if (!request.Initialize(ecb, CHttpRequest::kMaxFormSize)) {
      response.CompleteWithError(500);
      outcome = mon::kResultHttp500;
    } else if (checkToken && !plat::SetThreadToken(request.ImpersonationToken())) {
      response.CompleteWithError(500, 24);
      outcome = mon::kResultHttp500;
    } else {
      if (checkToken && tokenSetHook_) tokenSetHook_();
      if (checkToken && !plat::RevertToSelf()) plat::RaiseAccessViolation();
      if (CheckMemoryThreshold(guards_, tick_ ? tick_ : plat::TickCount)) {
        VGCR_TRACE(73, u"[CisapiClientExtension::DispatchStencilCall] Server is over memory usage threshold, return %d",
                   kResultOverMemory);
        outcome = WriteErrorReply(request, response, kResultOverMemory);
      } else {
        const int method = MethodNumber(request.Method());
        VGCR_TRACE(73, u"[CisapiClientExtension::DispatchStencilCall] HttpMethod: %d", method);
        if (method == 0) ReadQueryParameters(request);
        std::string boundary;
        bool readable = true;
        if (method == 1 && CMultipartReader::BoundaryOf(request.ContentType(), &boundary)) {
          readable = ReadMultipartParameters(request, boundary);
        } else if (method == 1) {
          ReadBodyParameters(request);
        }
        const int32_t result = readable ? Route(request, response, &requestId) : kResultHandled;
        if (!readable) {
          response.CompleteWithError(500);
          outcome = mon::kResultHttp500;
        } else if (result == kResultBackOff) {
          response.CompleteWithError(503);
          outcome = mon::kResultHttp503;
        } else if (result != kResultHandled) {
          VGCR_TRACE(69, u"<== [CisapiClientExtension::DispatchStencilCall] Leave with error(%d)", result);
          outcome = WriteErrorReply(request, response, result);
        }
      }
    }
    response.Flush();
  }
  mon::CountRequest(requestId, outcome, std::chrono::steady_clock::now() - started);
  // The last touch of the control block either way: once the host has it
  // back it may reuse it for its next request.
  if (asynchronous) {
    DoneWithSession(ecb);
  } else {
    SignalAdapterEvent(ecb);
  }
}
