#include "rec_Lifecycle.h"

bool tagCln_CgiOnLogonUser::Serialize(ISerializer& s) {
  return ser::WriteWString(s, uid) && ser::WriteWString(s, logonUser) && ser::WriteWString(s, logonUserId);
}

bool tagCln_CgiOnLogonUser::Deserialize(ISerializer& s) {
  return ser::ReadWString(s, &uid) && ser::ReadWString(s, &logonUser) && ser::ReadWString(s, &logonUserId);
}

bool CComplianceClientProtection::Serialize(ISerializer& s) {
  return ser::WriteWString(s, uid) && ser::WriteU32(s, mask);
}

bool CComplianceClientProtection::Deserialize(ISerializer& s) {
  return ser::ReadWString(s, &uid) && ser::ReadU32(s, &mask);
}
