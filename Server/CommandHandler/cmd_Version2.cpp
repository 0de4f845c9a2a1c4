#include "cmd_Version2.h"

#include "channel/channel_Settings.h"
#include "channel/rec_Lifecycle.h"
#include "channel/rec_Settings.h"
#include "channel/rec_Sign.h"
#include "channel/rec_Update.h"
#include "channel/rec_Upload.h"
#include "channel/util_ipc_msg_buffer.h"
#include "cmd_Logs.h"
#include "cmd_Vdi.h"
#include "cmd_Text.h"
#include "platform/text.h"
#include "st_Components.h"

namespace cmd {
namespace {

std::string Utf8(const std::u16string& text) { return plat::ToUtf8(text); }

// The widths of the texts the extension sends; a longer text is cut to its
// width, as the extension cuts it.
constexpr std::size_t kUidChars = 36;
constexpr std::size_t kIssuerChars = 1024;
constexpr std::size_t kSerialChars = 40;

std::string Cut(const std::u16string& text, std::size_t width) { return Utf8(text.substr(0, width)); }

// A text a client chose, cut for the log line when it is longer than it
// may be.
std::string Shown(const std::u16string& text, std::size_t width) {
  return text.size() <= width ? Utf8(text) : Cut(text, width) + "...";
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string OnStart(Context& context, CMsgSerializer& message, Reply2&) {
  std::vector<uint8_t> block;
  if (!ser::ReadBytes(message, &block) || block.size() != tagCln_CgiOnStart::kSize)
    return "dropped: the registration block is " + std::to_string(block.size()) + " bytes";
  std::string uid;
  bool isNew = false;
  if (!context.store.Register(block.data(), block.size(), &uid, &isNew)) return "dropped: not stored (uid " + uid + ")";
  const rec::Field* computer = onstart::Find("computer");
  return "uid=" + uid + " computer=" + Utf8(rec::GetText(block.data() + computer->offset, computer->size / 2)) +
         (isNew ? " registered" : " registered again");
}

std::string OnLogonUser(Context& context, CMsgSerializer& message, Reply2&) {
  tagCln_CgiOnLogonUser record;
  if (!record.Deserialize(message)) return "dropped: incomplete record";
  if (!context.store.SetLogonUser(Utf8(record.uid), Utf8(record.logonUser), Utf8(record.logonUserId)))
    return "dropped: not stored";
  return "uid=" + Utf8(record.uid) + " user=" + Utf8(record.logonUser);
}

std::string OnProtectionStatus(Context& context, CMsgSerializer& message, Reply2& answer) {
  CComplianceClientProtection record;
  if (!record.Deserialize(message)) return "dropped: incomplete record";
  bool known = false;
  if (!context.store.SetProtectionStatus(Utf8(record.uid), record.mask, &known)) return "dropped: not stored";
  tagCln_ClientExists exists;
  exists.exists = known ? 1 : 0;
  exists.Serialize(answer.Fields());
  return "uid=" + Utf8(record.uid) + " mask=" + std::to_string(record.mask) + (known ? " stored" : " unknown client");
}

std::string OnHeartbeat(Context& context, CMsgSerializer& message, Reply2& answer) {
  tagCln_HeartbeatAnswer polled;
  tagCln_Heartbeat& record = polled.heartbeat;
  if (!record.Deserialize(message)) return "dropped: incomplete record";
  const std::string uid = Utf8(record.Text(tagCln_Heartbeat::kUid));
  const std::string debugInfo = Utf8(record.Text(tagCln_Heartbeat::kDebugInfo));
  bool known = false;
  st::PollingState state;
  if (!context.store.Heartbeat(uid, static_cast<int32_t>(record.Number(tagCln_Heartbeat::kRequestType)), debugInfo, &known, &state))
    return "dropped: not stored";
  record.Put(tagCln_Heartbeat::kIndividualSetting, state.individualSetting);
  record.Put(tagCln_Heartbeat::kMessageId, state.messageId);
  record.Put(tagCln_Heartbeat::kSettingSequence, state.settingSequence);
  polled.receivingStatus = known ? 1 : 0;
  polled.Serialize(answer.Fields());
  return "uid=" + uid + (known ? "" : " unknown client") + " individual=" + std::to_string(state.individualSetting) +
         " message=" + std::to_string(state.messageId) + " sequence=" + std::to_string(state.settingSequence);
}

std::string OnRemoveConfigRecord(Context& context, CMsgSerializer& message, Reply2&) {
  tagCln_RemoveConfigRec record;
  if (!record.Deserialize(message)) return "dropped: incomplete record";
  const auto event = static_cast<uint32_t>(record.Number(tagCln_RemoveConfigRec::kEvent));
  const std::string uid = Utf8(record.Text(tagCln_RemoveConfigRec::kUid));
  const std::string release = Utf8(record.Text(tagCln_RemoveConfigRec::kRelease));
  bool removed = false;
  if (!context.store.RemoveConfigRecord(uid, event, &removed)) return "dropped: not stored";
  return "uid=" + uid + " event=" + std::to_string(event) + " release=" + release +
         (removed ? " removed" : " none pending");
}

std::string OnSignData(Context& context, CMsgSerializer& message, Reply2& answer) {
  tagSASignData request;
  if (!request.Deserialize(message)) return "dropped: incomplete record";
  const sig::Signer::Signature signature = context.signer.SignFor(
      Utf8(request.certificate.issuer), Utf8(request.certificate.serial), request.reply, request.clientNumber);
  tagSASignDataRet result;
  std::string what;
  if (signature.match == sig::Signer::Match::kNone) {
    result.result = kSignCertificateNotOurs;
    what = "another certificate: unsigned";
  } else {
    result.result = signature.base64.empty() ? -1 : 0;
    result.signature = plat::Widen(signature.base64);
    // Clear for the previous certificate: the client is told to fetch the
    // one in use ("SA_NEW: 1"), and can still verify this reply meanwhile.
    result.flag = signature.match == sig::Signer::Match::kCurrent ? 1 : 0;
    if (signature.base64.empty()) {
      what = "signing failed";
    } else {
      what = result.flag ? "signed" : "signed with the previous certificate; the client is told to fetch the new one";
    }
  }
  result.Serialize(answer.Fields());
  return std::to_string(request.reply.size()) + " bytes, number " + std::to_string(request.clientNumber) + ": " + what;
}

// A client trusts a certificate the server did not sign with when it
// asked: reload, unless the certificate in use already has the serial the
// client reported (another client's request did it meanwhile).
std::string OnRefreshCertInfo(Context& context, CMsgSerializer& message, Reply2&) {
  std::u16string serial;
  if (!ser::ReadWString(message, &serial)) return "dropped: incomplete record";
  const std::string shown = Shown(serial, kSerialChars);
  if (serial.size() <= kSerialChars && context.signer.SignsWithSerial(Utf8(serial)))
    return "serial " + shown + " is the one in use: nothing to reload";
  std::string error;
  bool replaced = false;
  if (!context.signer.Reload(&error, &replaced)) return "certificate kept: " + error;
  if (!replaced) {
    return "certificate reloaded, serial " + context.signer.Serial() + " as before (client reported " + shown + ")";
  }
  return "certificate reloaded, serial " + context.signer.Serial() + "; clients naming serial " +
         context.signer.PreviousSerial() + " are told to fetch it";
}

// The same command reports an update (one way) or asks whether another is
// due (round trip); only its record says which.
std::string OnUpdate(Context& context, CMsgSerializer& message, Reply2& answer) {
  tagCln_CgiOnUpdate record;
  bool complete = false;
  try {
    complete = record.Deserialize(message);
  } catch (const CIPCMsgBufferException&) {
    // Cut short: whether its sender waits, the record's first field, may
    // have been read all the same.
  }
  // A sender that waits is answered even when the rest of its record is
  // bad: the prologue alone, at once, instead of a reply time-out.
  if (record.answerWanted == 1) answer.Expect();
  if (!complete) return "dropped: incomplete record";
  if (record.uid.size() > kUidChars) return "dropped: the uid " + Shown(record.uid, kUidChars) + " is too long";
  st::UpdateReport report;
  report.uid = Utf8(record.uid);
  report.release = Cut(record.release, 7);
  report.date = Cut(record.date, 8);
  report.time = Cut(record.time, 6);
  report.result = record.result;
  report.program = Cut(record.program, 20);
  report.engine = Cut(record.engine, 20);
  report.ptnfile = record.ptnfile;
  report.spyptn = record.spyptn;
  report.cfwptn = record.cfwptn;
  report.vaptn = record.vaptn;
  report.tscptn = record.tscptn;
  bool known = false;
  std::string section;
  if (!context.store.ReportUpdate(report, &known, &section)) return "dropped: not stored (uid " + report.uid + ")";
  std::string what = "uid=" + report.uid + " result=" + std::to_string(report.result) + " program=" + report.program +
                     " engine=" + report.engine + " ptnfile=" + std::to_string(report.ptnfile);
  tagCln_OnUpdateAnswer reply;  // an unknown client: known 0, nothing due
  if (!known) {
    what += ": unknown client, not stored";
  } else {
    const std::vector<std::string> behind = st::ComponentsBehind(
        st::ParseComponentSection(section), st::ClientComponents{report.ptnfile, report.engine, report.program});
    what += behind.empty() ? " stored; up to date" : " stored; update due (" + Joined(behind) + ")";
    reply.known = 1;
    reply.updateDue = behind.empty() ? 0 : 1;
  }
  if (answer.expected()) reply.Serialize(answer.Fields());
  return what;
}

std::string OnSetCertificate(Context& context, CMsgSerializer& message, Reply2& answer) {
  tagCln_SetCertificate record;
  if (!record.Deserialize(message)) return "dropped: incomplete record";
  if (record.uid.size() > kUidChars || record.issuer.size() > kIssuerChars || record.serial.size() > kSerialChars)
    return "dropped: uid=" + Shown(record.uid, kUidChars) + " a text longer than its width";
  const std::string uid = Utf8(record.uid);
  const std::string issuer = Utf8(record.issuer);
  const std::string serial = Utf8(record.serial);
  bool known = false;
  if (!context.store.SetClientCertificate(uid, issuer, serial, &known)) return "dropped: not stored (uid " + uid + ")";
  tagCln_SetCertificateAnswer reply;
  std::string what = "uid=" + uid + " serial=" + serial;
  if (!known) {
    reply.status = tagCln_SetCertificateAnswer::kUnknownClient;
    what += ": unknown client, not stored";
  } else if (context.signer.IsOurs(issuer, serial)) {
    reply.status = tagCln_SetCertificateAnswer::kCurrent;
    what += " stored; the certificate in use";
  } else {
    reply.status = tagCln_SetCertificateAnswer::kNotCurrent;
    what += " stored; not the certificate in use";
  }
  reply.Serialize(answer.Fields());
  return what;
}

std::string OnUpload(Context& context, CMsgSerializer& message, std::string_view kind) {
  tagCln_UploadFile record;
  // A record that cannot be read names no file to take: the temporary
  // file, if any, is left to the sweep.
  if (!record.Deserialize(message)) return "dropped: incomplete record";
  if (context.uploads == nullptr) return "dropped: uploads are not taken here; no file touched";
  return context.uploads->TakeOver(record, kind);
}

std::string OnLogUpload(Context& context, CMsgSerializer& message, Reply2&) {
  return OnUpload(context, message, "log");
}

std::string OnForensicUpload(Context& context, CMsgSerializer& message, Reply2&) {
  return OnUpload(context, message, "dlp-forensic");
}

std::string OnCheckClientExist(Context& context, CMsgSerializer& message, Reply2& answer) {
  tagCln_ClientUid request;
  if (!request.Deserialize(message)) return "dropped: incomplete record";
  bool known = false;
  if (!context.store.IsKnown(Utf8(request.uid), &known)) return "dropped: the database failed";
  tagCln_ClientExists exists;
  exists.exists = known ? 1 : 0;
  exists.Serialize(answer.Fields());
  return "uid=" + Utf8(request.uid) + (known ? " known" : " unknown client");
}

std::string OnRequestUpdate(Context& context, CMsgSerializer&, Reply2& answer) {
  std::string order;
  if (!context.store.UpdateOrder(&order)) return "dropped: the database failed";
  tagCln_SettingsText text;
  text.text = plat::FromUtf8(order);
  text.Serialize(answer.Fields());
  return order.empty() ? "no update order" : "update order " + std::to_string(order.size()) + " bytes";
}

std::string OnDlpDeploySettings(Context& context, CMsgSerializer& message, Reply2& answer) {
  tagCln_ClientUid request;
  if (!request.Deserialize(message)) return "dropped: incomplete record";
  std::string settings;
  if (!context.store.ReadSection(Utf8(request.uid), "DLP_DEPLOY_SETTINGS", &settings))
    return "dropped: the database failed";
  tagCln_SettingsText text;
  text.text = plat::FromUtf8(settings);
  text.Serialize(answer.Fields());
  return "uid=" + Utf8(request.uid) + " DLP_DEPLOY_SETTINGS " + std::to_string(settings.size()) + " bytes";
}

std::string OnActiveRestoreOpp(Context& context, CMsgSerializer& message, Reply2&) {
  tagCln_ActiveRestoreOpp record;
  if (!record.Deserialize(message)) return "dropped: incomplete record";
  if (record.operation != tagCln_ActiveRestoreOpp::kActivated && record.operation != tagCln_ActiveRestoreOpp::kRestored)
    return "dropped: operation " + std::to_string(record.operation) + " is neither 52 nor 53";
  const std::string uid = AnsiToUtf8(record.Uid());
  const std::string release = AnsiToUtf8(record.Release());
  bool known = false;
  if (!context.store.AddOppReport(uid, release, record.operation, &known)) return "dropped: not stored";
  return "uid=" + uid + (record.operation == tagCln_ActiveRestoreOpp::kActivated ? " activated" : " restored") +
         (known ? "" : ": unknown client, not stored");
}

constexpr Command2 kCommands[] = {
    {u"CMDHLV2_CLN_ON_START", kCommandHandlerPipe, OnStart, false},
    {u"CMDHLV2_CLN_ON_LOGON_USER", kCommandHandlerPipe, OnLogonUser, false},
    {u"CMDHLV2_CLN_ON_PROTECTION_STATUS", kCommandHandlerPipe, OnProtectionStatus, true},
    {u"CMDHLV2_HEARTBEAT_NOTIFY", kCommandHandlerPipe, OnHeartbeat, true},
    {u"CMDHLV2_CLN_REMOVE_CONFIG_REC", kCommandHandlerPipe, OnRemoveConfigRecord, false},
    {u"CMDHLV2_CHECK_CLIENT_EXIST", kCommandHandlerPipe, OnCheckClientExist, true},
    {u"CMDHLV2_CLN_RQ_UPD", kCommandHandlerPipe, OnRequestUpdate, true},
    {u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS", kCommandHandlerPipe, OnDlpDeploySettings, true},
    {u"CMDHLV2_CLN_ACTIVE_RESTORE_OPP", kCommandHandlerPipe, OnActiveRestoreOpp, false},
    // A round trip when its record asks for an answer (OnUpdate).
    {u"CMDHLV2_CLN_ON_UPDATE", kCommandHandlerPipe, OnUpdate, false},
    {u"CMDHLV2_CLN_SET_CERTIFICATE", kCommandHandlerPipe, OnSetCertificate, true},
    {u"CMDHLV2_SET_LOG_COMMON", kCommandHandlerPipe, OnLogUpload, false},
    {u"CMDHLV2_DLP_FORENSIC_DATA_UPLOAD", kCommandHandlerPipe, OnForensicUpload, false},
    {u"CMDHSAV2_DATA", kCommandHandler2Pipe, OnSignData, true},
    {u"VG_REFRESH_CERT_INFO", kServerNotifyPipe, OnRefreshCertInfo, false},
};

}  // namespace

const Command2* FindCommand2(std::u16string_view name) {
  for (const Command2& command : kCommands) {
    if (name == command.name) return &command;
  }
  if (const Command2* log = FindLogCommand(name)) return log;
  return FindVdiCommand(name);
}

}  // namespace cmd
