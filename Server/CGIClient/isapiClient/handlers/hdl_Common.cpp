#include "hdl_Common.h"

#include "channel/cmdal2_OutputCmd.h"
#include "channel/ser_MsgSerializer.h"
#include "platform/codepage.h"
#include "platform/text.h"
#include "support/mbwc_MBWC.h"

bool ReadNumber(const RequestParams& params, const char* name, int32_t* value) {
  const std::string* raw = params.Lookup(name);
  *value = raw ? plat::StrToLong(raw->c_str()) : 0;
  return raw != nullptr;
}

std::string NarrowAnsi(const std::u16string& text) {
  std::string narrow;
  MBWC::WCToMBString(text.c_str(), &narrow, plat::kCpAcp, 0);
  return narrow;
}

bool SendRecord(const char16_t* command, ISerializable& record, int mode) {
  try {
    CMsgSerializer message(command, mode);
    message << record;
    return cmdal2_Send(message);
  } catch (const CIPCMsgBufferException&) {
    return false;
  }
}

bool SendForAnswer(CMsgSerializer& message, ISerializable& record) {
  try {
    message << record;
    return cmdal2_SendAndRecv(message, message.Identifier().c_str());
  } catch (const CIPCMsgBufferException&) {
    return false;
  }
}

bool ReadAnswer(CMsgSerializer& message, ISerializable& answer) {
  try {
    return answer.Deserialize(message);
  } catch (const CIPCMsgBufferException&) {
    return false;  // an answer too short for its record
  }
}

bool AskService(const char16_t* command, ISerializable& record, ISerializable& answer) {
  try {
    CMsgSerializer message(command, 1);
    return SendForAnswer(message, record) && ReadAnswer(message, answer);
  } catch (const CIPCMsgBufferException&) {
    return false;
  }
}
