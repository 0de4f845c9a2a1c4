// The fields that say who is asking: `functiontype`, `uid` (a GUID without
// braces, at most 36 characters) and `release` (at most 7). Every handler
// reads them through one ClientIdentity, in its own order: the order, which
// failure wins and which lines are traced differ between the requests on
// purpose, so each handler states its order and the reader keeps the
// score. A later failure replaces an earlier one.
#pragma once

#include <cstdint>
#include <string>

#include "host/isapi_Result.h"
#include "host/req_RequestParams.h"

// Who traces: the handler's source unit and its name.
struct HandlerName {
  const char16_t* traceSource;  // u".\\isapi_RqCfg"
  const char16_t* name;         // u"ProcessRqCfg"
};

class ClientIdentity {
 public:
  explicit ClientIdentity(const RequestParams& params) : params_(params) {}

  // `functiontype` as a number; absent: 0, and the result -3.
  bool ReadFunctionType();
  // `uid`; absent or longer than 36: empty, and the result -6.
  bool ReadUid();
  // "{" + uid + "}" must parse as a GUID (CLSIDFromString, inside an
  // apartment COM scope); otherwise "This is an invalid UID." is traced at
  // level 5 and the result is -6.
  bool CheckUid(const HandlerName& handler);
  // `release`; absent or longer than 7: the result -7.
  bool ReadRelease();
  // `release` where it is optional: absent, it stays empty; longer than 7,
  // it is cut to 7. Never a failure.
  void ReadOptionalRelease();
  // A failure found by the handler itself (an unknown client, say).
  void Fail(HandlerResult code) { result = code; }

  bool ok() const { return result == kResultHandled; }

  int32_t functionType = 0;
  std::u16string uid;
  std::u16string release;
  HandlerResult result = kResultHandled;

 private:
  const RequestParams& params_;
};

// The settings requests' order: `functiontype` (-3), `uid` (-6), its GUID
// check (-6), then, when given, whether the server knows the client (-6),
// and `release` last (-7, over everything before). A failure ends the
// request with the line "[<handler>] Leave due error(%d)": false then.
using ClientKnownCheck = bool (*)(const std::u16string& uid);
bool ReadSettingsRequestIdentity(ClientIdentity& identity, const HandlerName& handler,
                                 ClientKnownCheck known = nullptr);

// Asks the service ("CMDHLV2_CHECK_CLIENT_EXIST") whether it knows the
// client; false when it does not, or when it could not be asked.
bool IsClientKnownToServer(const std::u16string& uid);
