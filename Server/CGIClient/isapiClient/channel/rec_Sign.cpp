#include "rec_Sign.h"

bool tagSASignData::Serialize(ISerializer& s) {
  return ser::WriteWString(s, certificate.issuer) && ser::WriteWString(s, certificate.serial) &&
         ser::WriteI32(s, clientNumber) &&
         ser::WriteBlock(s, reply.empty() ? "" : reinterpret_cast<const char*>(reply.data()),
                         static_cast<uint32_t>(reply.size()));
}

bool tagSASignData::Deserialize(ISerializer& s) {
  return ser::ReadWString(s, &certificate.issuer) && ser::ReadWString(s, &certificate.serial) &&
         ser::ReadI32(s, &clientNumber) && ser::ReadBytes(s, &reply);
}

bool tagSASignDataRet::Serialize(ISerializer& s) {
  return ser::WriteI32(s, result) && ser::WriteWString(s, signature) && ser::WriteU32(s, flag);
}

bool tagSASignDataRet::Deserialize(ISerializer& s) {
  return ser::ReadI32(s, &result) && ser::ReadWString(s, &signature) && ser::ReadU32(s, &flag);
}
