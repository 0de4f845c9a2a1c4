#include "rec_Vdi.h"

bool tagCln_VdiTask::Serialize(ISerializer& s) {
  return ser::WriteWString(s, uid) && ser::WriteWString(s, pool) && ser::WriteWString(s, taskKind) &&
         ser::WriteWString(s, taskId) && ser::WriteI32(s, progress) && ser::WriteI32(s, result);
}

bool tagCln_VdiTask::Deserialize(ISerializer& s) {
  return ser::ReadWString(s, &uid) && ser::ReadWString(s, &pool) && ser::ReadWString(s, &taskKind) &&
         ser::ReadWString(s, &taskId) && ser::ReadI32(s, &progress) && ser::ReadI32(s, &result);
}
