#include "hdl_Identity.h"

#include "channel/rec_Coding.h"

#include "channel/rec_Settings.h"
#include "hdl_Common.h"
#include "platform/com.h"
#include "support/dbg_Trace.h"
#include "support/ut_InitCOM.h"

bool ClientIdentity::ReadFunctionType() {
  const bool present = ReadNumber(params_, "functiontype", &functionType);
  if (!present) Fail(kResultBadFunctionType);
  return present;
}

bool ClientIdentity::ReadUid() {
  if (params_.GetString("uid", &uid, 36)) return true;
  uid.clear();
  Fail(kResultInvalidUid);
  return false;
}

bool ClientIdentity::CheckUid(const HandlerName& handler) {
  UTIL::CComInitiator com(plat::kCoInitApartmentThreaded, false);
  if (com.GetResult() < 0) {
    dbg::TraceW(69, handler.traceSource, __LINE__,
                u"%s - Failed to initiate CComInitiator with thread model: [%d] m_bInitialize: [%d] result: [%d].",
                handler.name, 2, com.IsInitialized(), com.GetResult());
  }
  plat::Guid guid;
  const std::u16string braced = u"{" + uid + u"}";
  if (plat::ClsidFromString(braced.c_str(), &guid) < 0) {
    dbg::TraceW(5, handler.traceSource, __LINE__, u"This is an invalid UID.");
    Fail(kResultInvalidUid);
    return false;
  }
  return true;
}

bool ClientIdentity::ReadRelease() {
  if (params_.GetString("release", &release, 7)) return true;
  Fail(kResultMissingRelease);
  return false;
}

void ClientIdentity::ReadOptionalRelease() {
  if (!params_.GetString("release", &release, 7)) release = rec::CutText(release, 7);
}

bool ReadSettingsRequestIdentity(ClientIdentity& identity, const HandlerName& handler, ClientKnownCheck known) {
  identity.ReadFunctionType();
  identity.ReadUid();
  identity.CheckUid(handler);
  if (known && !known(identity.uid)) identity.Fail(kResultInvalidUid);
  identity.ReadRelease();
  if (identity.ok()) return true;
  dbg::TraceW(69, handler.traceSource, __LINE__, u"[%s] Leave due error(%d)", handler.name, identity.result);
  return false;
}

bool IsClientKnownToServer(const std::u16string& uid) {
  tagCln_ClientUid request;
  request.uid = uid;
  tagCln_ClientExists answer;
  return AskService(u"CMDHLV2_CHECK_CLIENT_EXIST", request, answer) && answer.exists != 0;
}
