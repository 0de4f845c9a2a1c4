// The frame the settings-file and configuration requests (201, 202) share:
// the identity fields, one row per function type naming the settings
// queries to run and the configuration record to reset, and the signed
// text reply. A settings request is its table of rows and a call of
// ServeSettingsRequest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "hdl_Identity.h"
#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// One settings query of the version-1 command API, whatever it is given
// besides its output text: the uid, the uid and the release, or nothing.
class SettingsQuery {
 public:
  using ByUid = bool (*)(const char16_t* uid, std::u16string* out);
  using ByUidAndRelease = bool (*)(const char16_t* uid, const char16_t* release, std::u16string* out);
  using Alone = bool (*)(std::u16string* out);

  constexpr SettingsQuery() = default;
  constexpr SettingsQuery(ByUid query) : byUid_(query) {}
  constexpr SettingsQuery(ByUidAndRelease query) : byUidAndRelease_(query) {}
  constexpr SettingsQuery(Alone query) : alone_(query) {}

  constexpr bool IsSet() const { return byUid_ || byUidAndRelease_ || alone_; }
  bool Run(const ClientIdentity& identity, std::u16string* out) const;

 private:
  ByUid byUid_ = nullptr;
  ByUidAndRelease byUidAndRelease_ = nullptr;
  Alone alone_ = nullptr;
};

// A function type served: its queries, run in order with their texts
// joined (a failed one leaves its share out, and only the last decides
// whether the request succeeds), and the configuration record reset once
// the client has the text (0: none).
struct SettingsRow {
  int32_t functionType;
  SettingsQuery queries[3];
  uint32_t configEvent;
};

struct SettingsRequest {
  HandlerName handler;
  const SettingsRow* rows;
  std::size_t rowCount;
  // When set, the server is asked first whether it knows the client.
  ClientKnownCheck known;
};

int32_t ServeSettingsRequest(const SettingsRequest& request, const RequestParams& params, CHttpResponse& response);

// Runs a row's queries into *text; false when the deciding (last) one failed.
bool RunSettingsRow(const SettingsRow& row, const ClientIdentity& identity, std::u16string* text);
