// The client reports of the update unit: the logon user report
// (requestid 112).
#pragma once

#include <string>

#include "channel/ser_Serializer.h"
#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

// Three wide-string members, each one block of its UTF-16LE text and NUL.
struct tagCln_CgiOnLogonUser : ISerializable {
  std::u16string uid;          // at most 36 characters
  std::u16string logonUser;    // at most 256
  std::u16string logonUserId;  // at most 36
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

int32_t ProcessOnLogonUser(const RequestParams& params, CHttpResponse& response);
