#include "hdl_Settings.h"

#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"

bool SettingsQuery::Run(const ClientIdentity& identity, std::u16string* out) const {
  if (byUid_) return byUid_(identity.uid.c_str(), out);
  if (byUidAndRelease_) return byUidAndRelease_(identity.uid.c_str(), identity.release.c_str(), out);
  return alone_ && alone_(out);
}

bool RunSettingsRow(const SettingsRow& row, const ClientIdentity& identity, std::u16string* text) {
  text->clear();
  bool ok = false;
  for (const SettingsQuery& query : row.queries) {
    if (!query.IsSet()) break;
    std::u16string part;
    ok = query.Run(identity, &part);
    if (ok) *text += part;
  }
  return ok;
}

namespace {

const SettingsRow* FindRow(const SettingsRequest& request, int32_t functionType) {
  for (std::size_t i = 0; i < request.rowCount; ++i) {
    if (request.rows[i].functionType == functionType) return &request.rows[i];
  }
  return nullptr;
}

// Steps after the identity: the row's queries, the reset, the reply.
HandlerResult Serve(const SettingsRequest& request, const ClientIdentity& identity, const RequestParams& params,
                    CHttpResponse& response) {
  const char16_t* name = request.handler.name;
  const char16_t* const kTraceSource = request.handler.traceSource;
  const SettingsRow* row = FindRow(request, identity.functionType);
  if (row == nullptr) {
    VGCR_TRACE(69, u"[%s] Leave due error(%d)", name, kResultBadFunctionType);
    return kResultBadFunctionType;
  }
  std::u16string text;
  if (!RunSettingsRow(*row, identity, &text)) {
    VGCR_TRACE(69, u"[%s] Leave due error(%d)", name, kResultNotDelivered);
    return kResultNotDelivered;
  }
  if (row->configEvent != 0 && !RemoveConfigRecord(identity.uid.c_str(), row->configEvent)) {
    VGCR_TRACE(69, u"[%s] The config record in DB is not successfully reset.", name);
  }
  return WriteWideTextReply(params, response, text.c_str()) ? kResultHandled : kResultBackOff;
}

}  // namespace

int32_t ServeSettingsRequest(const SettingsRequest& request, const RequestParams& params, CHttpResponse& response) {
  const char16_t* name = request.handler.name;
  const char16_t* const kTraceSource = request.handler.traceSource;
  VGCR_TRACE(8, u"[%s] Enter", name);
  ClientIdentity identity(params);
  if (!ReadSettingsRequestIdentity(identity, request.handler, request.known)) return identity.result;
  VGCR_TRACE(73, u"[%s] FunctionType = %d, Uid = %s, Release = %s", name, identity.functionType, identity.uid,
             identity.release);
  const HandlerResult result = Serve(request, identity, params, response);
  // Every request past the identity ends so, after a refused function type
  // and a failed query too.
  VGCR_TRACE(8, u"[%s] Leave successfully", name);
  return result;
}
