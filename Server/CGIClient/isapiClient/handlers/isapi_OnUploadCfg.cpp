#include "isapi_OnUploadCfg.h"

#include <string>
#include <vector>

#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "hdl_ScanCfg.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_OnUploadCfg";
constexpr HandlerName kHandler{kTraceSource, u"ProcessOnUploadCfg"};

struct ParsedSection {
  const scancfg::Section* section;
  std::u16string text;
};

// Every section the client sent, parsed; on a refusal *where names it.
bool ParseUploadedSections(const RequestParams& params, std::vector<ParsedSection>* parsed, std::string* where) {
  for (const scancfg::Section& section : scancfg::kSections) {
    std::u16string text;
    if (params.Lookup(section.formKey) == nullptr) continue;
    params.GetString(section.formKey, &text, 0xFFFFFFFFu);
    ParsedSection one{&section, {}};
    if (!scancfg::ParseSection(section, text, &one.text, where)) return false;
    parsed->push_back(std::move(one));
  }
  return true;
}

// "-41", a line feed and what was refused.
bool WriteRefusal(const RequestParams& params, CHttpResponse& response, const std::string& where) {
  const std::string text = std::to_string(kResultInvalidSetting) + "\n" + where;
  return WriteTextReply(params, response, text.data(), text.size());
}

int32_t SendSections(const std::u16string& uid, const std::vector<ParsedSection>& parsed) {
  for (const ParsedSection& one : parsed) {
    if (!one.section->setter(uid.c_str(), one.text.c_str())) {
      VGCR_TRACE(69, u"[ProcessOnUploadCfg] Setting [%s] not stored", one.section->header);
      return kResultNotDelivered;
    }
  }
  return kResultHandled;
}

}  // namespace

int32_t ProcessOnUploadCfg(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(8, u"[ProcessOnUploadCfg] Enter");
  ClientIdentity identity(params);
  if (!ReadSettingsRequestIdentity(identity, kHandler, IsClientKnownToServer)) return identity.result;
  VGCR_TRACE(73, u"[ProcessOnUploadCfg] FunctionType = %d, Uid = %s", identity.functionType, identity.uid);
  int32_t result = identity.functionType == 1 ? kResultHandled : kResultBadFunctionType;
  std::vector<ParsedSection> parsed;
  std::string where;
  if (result == kResultHandled && !ParseUploadedSections(params, &parsed, &where)) {
    VGCR_TRACE(69, u"[ProcessOnUploadCfg] Invalid setting [%s]", where.c_str());
    VGCR_TRACE(69, u"[ProcessOnUploadCfg] Leave due error(%d)", kResultInvalidSetting);
    return WriteRefusal(params, response, where) ? kResultHandled : kResultBackOff;
  }
  if (result == kResultHandled && parsed.empty()) result = kResultMissingField;
  if (result == kResultHandled) result = SendSections(identity.uid, parsed);
  if (result != kResultHandled) {
    VGCR_TRACE(69, u"[ProcessOnUploadCfg] Leave due error(%d)", result);
    return result;
  }
  result = WriteCodeReply(params, response, kResultHandled) ? kResultHandled : kResultBackOff;
  VGCR_TRACE(8, u"[ProcessOnUploadCfg] Leave successfully");
  return result;
}
