#include "cmd_Version2.h"

#include "channel/channel_Settings.h"
#include "channel/rec_Lifecycle.h"
#include "channel/rec_Settings.h"
#include "channel/rec_Sign.h"
#include "cmd_Logs.h"
#include "cmd_Text.h"
#include "platform/text.h"

namespace cmd {
namespace {

std::string Utf8(const std::u16string& text) { return plat::ToUtf8(text); }

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
  tagSASignDataRet result;
  std::string what;
  if (!context.signer.IsOurs(Utf8(request.certificate.issuer), Utf8(request.certificate.serial))) {
    result.result = kSignCertificateNotOurs;
    what = "another certificate: unsigned";
  } else {
    const std::string signature = context.signer.Sign(request.reply, request.clientNumber);
    result.result = signature.empty() ? -1 : 0;
    result.signature = plat::Widen(signature);
    result.flag = 1;  // the client named the certificate in use
    what = signature.empty() ? "signing failed" : "signed";
  }
  result.Serialize(answer.Fields());
  return std::to_string(request.reply.size()) + " bytes, number " + std::to_string(request.clientNumber) + ": " + what;
}

std::string OnRefreshCertInfo(Context& context, CMsgSerializer& message, Reply2&) {
  std::u16string detail;
  ser::ReadWString(message, &detail);
  std::string error;
  if (!context.signer.Reload(&error)) return "certificate kept: " + error;
  return "certificate reloaded, serial " + context.signer.Serial();
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
    {u"CMDHSAV2_DATA", kCommandHandler2Pipe, OnSignData, true},
    {u"VG_REFRESH_CERT_INFO", kServerNotifyPipe, OnRefreshCertInfo, false},
};

}  // namespace

const Command2* FindCommand2(std::u16string_view name) {
  for (const Command2& command : kCommands) {
    if (name == command.name) return &command;
  }
  return FindLogCommand(name);
}

}  // namespace cmd
