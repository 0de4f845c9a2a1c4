// The records of the update report: an update's outcome, and the signing
// certificate a client trusts. The extension builds them; the
// command-handler service reads them back with the same classes.
#pragma once

#include <cstdint>
#include <string>

#include "ser_Serializer.h"

// "CMDHLV2_CLN_ON_UPDATE": one way for a plain report, a round trip when
// `answerWanted` is 1 (the receiver answers only then).
struct tagCln_CgiOnUpdate : ISerializable {
  uint32_t answerWanted = 0;
  std::u16string uid;      // at most 36 characters
  std::u16string release;  // at most 7
  std::u16string date;     // at most 8: when the update finished, client's clock
  std::u16string time;     // at most 6
  int32_t result = 0;      // 0: it succeeded; else the client's error code
  std::u16string program;  // at most 20
  std::u16string engine;   // at most 20
  // The pattern numbers, named by their query keys.
  uint32_t ptnfile = 0, spyptn = 0, cfwptn = 0, vaptn = 0, tscptn = 0;

  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

// Its answer: whether the server knows the client, and whether another
// update is due for it.
struct tagCln_OnUpdateAnswer : ISerializable {
  uint32_t known = 0;
  uint32_t updateDue = 0;
  bool Serialize(ISerializer& s) override { return ser::WriteU32(s, known) && ser::WriteU32(s, updateDue); }
  bool Deserialize(ISerializer& s) override { return ser::ReadU32(s, &known) && ser::ReadU32(s, &updateDue); }
};

// "CMDHLV2_CLN_SET_CERTIFICATE": the certificate the client trusts.
struct tagCln_SetCertificate : ISerializable {
  std::u16string uid;
  std::u16string issuer;  // at most 1024 characters
  std::u16string serial;  // at most 40
  bool Serialize(ISerializer& s) override {
    return ser::WriteWString(s, uid) && ser::WriteWString(s, issuer) && ser::WriteWString(s, serial);
  }
  bool Deserialize(ISerializer& s) override {
    return ser::ReadWString(s, &uid) && ser::ReadWString(s, &issuer) && ser::ReadWString(s, &serial);
  }
};

struct tagCln_SetCertificateAnswer : ISerializable {
  static constexpr int32_t kCurrent = 1;        // the server signs with it
  static constexpr int32_t kNotCurrent = 0;     // the server signs with another
  static constexpr int32_t kUnknownClient = -1;
  int32_t status = kNotCurrent;
  bool Serialize(ISerializer& s) override { return ser::WriteI32(s, status); }
  bool Deserialize(ISerializer& s) override { return ser::ReadI32(s, &status); }
};
