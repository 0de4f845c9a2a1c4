#include "cmd_Version2.h"

#include "channel/channel_Settings.h"
#include "channel/rec_Lifecycle.h"
#include "channel/rec_Settings.h"
#include "channel/rec_Sign.h"
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
  ser::WriteU32(answer.Fields(), known ? 1 : 0);
  return "uid=" + Utf8(record.uid) + " mask=" + std::to_string(record.mask) + (known ? " stored" : " unknown client");
}

std::string OnHeartbeat(Context& context, CMsgSerializer& message, Reply2& answer) {
  tagCln_Heartbeat record;
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
  // The receiving status: 1 when the poll was recorded for a known client.
  ser::WriteU32(answer.Fields(), known ? 1 : 0);
  record.Serialize(answer.Fields());
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

constexpr Command2 kCommands[] = {
    {u"CMDHLV2_CLN_ON_START", kCommandHandlerPipe, OnStart},
    {u"CMDHLV2_CLN_ON_LOGON_USER", kCommandHandlerPipe, OnLogonUser},
    {u"CMDHLV2_CLN_ON_PROTECTION_STATUS", kCommandHandlerPipe, OnProtectionStatus},
    {u"CMDHLV2_HEARTBEAT_NOTIFY", kCommandHandlerPipe, OnHeartbeat},
    {u"CMDHLV2_CLN_REMOVE_CONFIG_REC", kCommandHandlerPipe, OnRemoveConfigRecord},
    {u"CMDHSAV2_DATA", kCommandHandler2Pipe, OnSignData},
    {u"VG_REFRESH_CERT_INFO", kServerNotifyPipe, OnRefreshCertInfo},
};

}  // namespace

const Command2* FindCommand2(std::u16string_view name) {
  for (const Command2& command : kCommands) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

}  // namespace cmd
