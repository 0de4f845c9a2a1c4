#include "hdl_Common.h"

#include <cstdlib>
#include <cstring>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/ser_MsgSerializer.h"
#include "platform/com.h"
#include "support/dbg_Trace.h"
#include "support/ut_InitCOM.h"

bool ReadNumber(const RequestParams& params, const char* name, long* value) {
  const std::string* raw = params.Lookup(name);
  *value = raw ? std::strtol(raw->c_str(), nullptr, 10) : 0;
  return raw != nullptr;
}

bool IsValidUid(const std::u16string& uid, const char16_t* traceSource, const char16_t* handlerName) {
  UTIL::CComInitiator com(plat::kCoInitApartmentThreaded, false);
  if (com.GetResult() < 0) {
    dbg::TraceW(69, traceSource, __LINE__,
                u"%s - Failed to initiate CComInitiator with thread model: [%d] m_bInitialize: [%d] result: [%d].",
                handlerName, 2, com.IsInitialized(), com.GetResult());
  }
  plat::Guid guid;
  const std::u16string braced = u"{" + uid + u"}";
  if (plat::ClsidFromString(braced.c_str(), &guid) < 0) {
    dbg::TraceW(5, traceSource, __LINE__, u"This is an invalid UID.");
    return false;
  }
  return true;
}

bool SendRecord(const char16_t* command, ISerializable& record) {
  try {
    CMsgSerializer message(command, 1);
    message << record;
    return cmdal2_Send(message);
  } catch (const CIPCMsgBufferException&) {
    return false;
  }
}
