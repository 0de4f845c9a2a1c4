// The service status report (requestid 103).
#pragma once

#include <cstdint>
#include <string>

#include "channel/ser_Serializer.h"
#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// The client's protection components as a mask: AV 1, AS 2, WR 4,
// AT_OFFICE 8, FW 16, AEGIS 32, DLP 64, NCIE 128, CCSF 256.
struct CComplianceClientProtection : ISerializable {
  std::u16string uid;
  uint32_t mask = 0;
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

// Reports the client's protection status and checks that the server still
// knows the client. *status comes in as 1; on failure it is -5 (the round
// trip failed) or -39 (the client is unknown).
bool ReportClientProtectionStatus(const RequestParams& params, const std::u16string& uid, int32_t* status);

int32_t ProcessOnServiceStatus(const RequestParams& params, CHttpResponse& response);
