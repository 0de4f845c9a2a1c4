#include "rec_Update.h"

bool tagCln_CgiOnUpdate::Serialize(ISerializer& s) {
  return ser::WriteU32(s, answerWanted) && ser::WriteWString(s, uid) && ser::WriteWString(s, release) &&
         ser::WriteWString(s, date) && ser::WriteWString(s, time) && ser::WriteI32(s, result) &&
         ser::WriteWString(s, program) && ser::WriteWString(s, engine) && ser::WriteU32(s, ptnfile) &&
         ser::WriteU32(s, spyptn) && ser::WriteU32(s, cfwptn) && ser::WriteU32(s, vaptn) && ser::WriteU32(s, tscptn);
}

bool tagCln_CgiOnUpdate::Deserialize(ISerializer& s) {
  return ser::ReadU32(s, &answerWanted) && ser::ReadWString(s, &uid) && ser::ReadWString(s, &release) &&
         ser::ReadWString(s, &date) && ser::ReadWString(s, &time) && ser::ReadI32(s, &result) &&
         ser::ReadWString(s, &program) && ser::ReadWString(s, &engine) && ser::ReadU32(s, &ptnfile) &&
         ser::ReadU32(s, &spyptn) && ser::ReadU32(s, &cfwptn) && ser::ReadU32(s, &vaptn) && ser::ReadU32(s, &tscptn);
}
