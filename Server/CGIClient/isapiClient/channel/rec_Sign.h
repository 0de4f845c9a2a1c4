// The records of "CMDHSAV2_DATA", the signing round trip on the second
// service pipe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ser_Serializer.h"

// The certificate the client expects: issuer and serial number.
struct _CERT_ID_BASE64 {
  std::u16string issuer;  // at most 1024 characters
  std::u16string serial;  // at most 40 characters
};

// Request: issuer (wide string), serial (wide string), the client's number
// (32-bit signed), the reply bytes (block).
struct tagSASignData : ISerializable {
  _CERT_ID_BASE64 certificate;
  int32_t clientNumber = 0;
  std::vector<uint8_t> reply;
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

// Answer: result (32-bit signed: 0 signed, -65502 the certificate is not the
// server's, any other negative value a failure), the signature (wide
// string), and a flag (32-bit; set: the client's certificate is current,
// SA_NEW "0"; clear: the client should fetch a new one, SA_NEW "1").
struct tagSASignDataRet : ISerializable {
  int32_t result = 0;
  std::u16string signature;
  uint32_t flag = 0;
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

inline constexpr int32_t kSignCertificateNotOurs = -65502;  // 0xFFFF0022
