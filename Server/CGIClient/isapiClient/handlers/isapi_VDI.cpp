#include "isapi_VDI.h"

#include <json/json.h>

#include <memory>
#include <sstream>
#include <string>

#include "channel/rec_Vdi.h"
#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "host/rsp_Reply.h"
#include "platform/text.h"
#include "support/crypt_StringEnvelope.h"
#include "support/dbg_Trace.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_VDI";
constexpr char16_t kProcess[] = u"CIsapiVdiProcessor::Process";
constexpr HandlerName kHandler{kTraceSource, kProcess};

enum VdiRequestType : int32_t { kTaskStart = 1, kRunning = 2, kComplete = 3 };

// The document as an object; false for anything else, JSON or not. The
// reader may throw (its nesting limit does): nothing leaves this function.
bool ParseDocument(const std::string& text, Json::Value* root) {
  if (text.size() > CIsapiVdiProcessor::kMaxDocument) return false;
  try {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = CIsapiVdiProcessor::kMaxDepth;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    return reader->parse(text.data(), text.data() + text.size(), root, &errors) && root->isObject();
  } catch (...) {
    return false;
  }
}

// A string member of 1 to `limit` characters, none of them a control
// character (the reader lets "\u0000" and raw controls through).
bool ReadText(const Json::Value& root, const char* name, std::size_t limit, std::u16string* out) {
  const Json::Value* member = root.find(name, name + std::char_traits<char>::length(name));
  if (member == nullptr || !member->isString()) return false;
  const std::string text = member->asString();
  *out = plat::FromUtf8(text);
  // The reader lets bytes that are no UTF-8 through; read as U+FFFD, two
  // different names could become one pool.
  if (plat::ToUtf8(*out) != text) return false;
  for (const char16_t c : *out) {
    if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) return false;
  }
  return !out->empty() && out->size() <= limit;
}

bool ReadInt(const Json::Value& root, const char* name, int32_t min, int32_t max, int32_t* out) {
  const Json::Value* member = root.find(name, name + std::char_traits<char>::length(name));
  // An integer as written: 50.0 or 5e1 is a number, but no integer.
  if (member == nullptr || (member->type() != Json::intValue && member->type() != Json::uintValue) ||
      !member->isInt64()) {
    return false;
  }
  const int64_t value = member->asInt64();
  if (value < min || value > max) return false;
  *out = static_cast<int32_t>(value);
  return true;
}

// The record of the request; the result code when the document does not make one.
int32_t ReadTask(const Json::Value& root, int32_t type, const RequestParams& params, tagCln_VdiTask* task) {
  bool ok = ReadText(root, "uid", 36, &task->uid) && ReadText(root, "pool", vdi::kMaxPool, &task->pool) &&
            ReadText(root, "taskId", vdi::kMaxTaskId, &task->taskId);
  if (type == kTaskStart) ok = ok && ReadText(root, "taskKind", vdi::kMaxTaskKind, &task->taskKind);
  if (type == kRunning) ok = ok && ReadInt(root, "progress", 0, 100, &task->progress);
  if (type == kComplete) ok = ok && ReadInt(root, "result", INT32_MIN, INT32_MAX, &task->result);
  if (!ok) return kResultBadDocument;
  ClientIdentity identity(params);
  identity.uid = task->uid;
  return identity.CheckUid(kHandler) ? kResultHandled : kResultInvalidUid;
}

// The JSON reply to the service's answer; the result code when it has none.
int32_t ReplyOf(int32_t type, const tagCln_VdiAnswer& answer, std::string* text) {
  if (answer.decision == tagCln_VdiAnswer::kUnknownClient) return kResultUnknownClient;
  if (answer.decision == tagCln_VdiAnswer::kUnknownTask) return kResultUnknownTask;
  Json::Value reply(Json::objectValue);
  if (type == kTaskStart && answer.decision == tagCln_VdiAnswer::kStart) {
    reply["action"] = "start";
  } else if (type == kTaskStart && answer.decision == tagCln_VdiAnswer::kWait) {
    reply["action"] = "wait";
    reply["retryAfter"] = answer.retryAfter;
    reply["position"] = answer.position;
  } else if (type != kTaskStart && answer.decision == tagCln_VdiAnswer::kNoted) {
    reply["action"] = type == kRunning ? "continue" : "done";
  } else {
    return kResultNotDelivered;  // an answer that is no answer to this request
  }
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  *text = Json::writeString(writer, reply);
  return kResultHandled;
}

int32_t Process(const RequestParams& params, CHttpResponse& response) {
  int32_t type = 0;
  if (!ReadNumber(params, "functiontype", &type) || type < kTaskStart || type > kComplete) {
    VGCR_TRACE(69, u"%s - functiontype = %d", kProcess, type);
    return kResultBadFunctionType;
  }
  const std::string* data = params.Lookup("data");
  if (data == nullptr) {
    VGCR_TRACE(69, u"%s - [%s] missed", u"Lookup", u"data");
    return kResultMissingField;
  }
  std::string document = *data;
  const EnvelopeForm form = StringEnvelope::FormOf(*data);
  if (form != EnvelopeForm::kPlain) {
    const EnvelopeStatus status = StringEnvelope::Decrypt(*data, &document);
    if (status != EnvelopeStatus::kOk) {
      VGCR_TRACE(69, u"%s - The envelope does not decrypt: %s.", kProcess, StringEnvelope::StatusName(status));
      return kResultBadEnvelope;
    }
  }
  Json::Value root;
  tagCln_VdiTask task;
  int32_t result = ParseDocument(document, &root) ? ReadTask(root, type, params, &task) : kResultBadDocument;
  if (result != kResultHandled) {
    VGCR_TRACE(69, u"%s - The request is not a valid document of type %d.", kProcess, type);
    return result;
  }
  VGCR_TRACE(73, u"%s - Uid = %s, Pool = %s, TaskId = %s", kProcess, task.uid, task.pool, task.taskId);
  tagCln_VdiAnswer answer;
  if (!AskService(vdi::kCommands[type - 1], task, answer)) return kResultNotDelivered;
  std::string reply;
  if ((result = ReplyOf(type, answer, &reply)) != kResultHandled) return result;
  std::string enveloped;
  if (StringEnvelope::Encrypt(form, reply, &enveloped) != EnvelopeStatus::kOk) return kResultBackOff;
  return WriteTextReply(params, response, enveloped.data(), enveloped.size()) ? kResultHandled : kResultBackOff;
}

}  // namespace

int32_t CIsapiVdiProcessor::Run(const RequestParams& params, CHttpResponse& response) {
  VGCR_TRACE(68, u"%s - >>>", kProcess);
  const int32_t result = Process(params, response);
  if (result != kResultHandled) VGCR_TRACE(69, u"%s - <<, Ret(%d)", kProcess, result);
  VGCR_TRACE(68, u"%s - <<<", kProcess);
  return result;
}
