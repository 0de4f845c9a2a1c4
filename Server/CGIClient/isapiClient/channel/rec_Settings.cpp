#include "rec_Settings.h"

bool tagCln_ActiveRestoreOpp::Serialize(ISerializer& s) {
  return ser::WriteI32(s, operation) && ser::WriteBlock(s, uid, kUidBytes) && ser::WriteBlock(s, release, kReleaseBytes);
}

bool tagCln_ActiveRestoreOpp::Deserialize(ISerializer& s) {
  return ser::ReadI32(s, &operation) && ser::ReadBlock(s, uid, kUidBytes) && ser::ReadBlock(s, release, kReleaseBytes);
}
