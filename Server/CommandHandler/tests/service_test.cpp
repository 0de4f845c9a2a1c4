// The service in this process, driven through the extension's own channel:
// what each command stores and answers, and what it does with bad input.
#include <gtest/gtest.h>

#include <functional>

#include "channel/channel_Settings.h"
#include "channel/cmdal2_OutputCmd.h"
#include "channel/cmdal_CmdAPI.h"
#include "channel/pipe_Client.h"
#include "db_probe.h"
#include "service_fixture.h"
#include "raw_send.h"
#include "channel/rec_Lifecycle.h"
#include "channel/rec_Settings.h"
#include "handlers/hdl_Common.h"
#include "handlers/hdl_Identity.h"
#include "host/rsp_Reply.h"
#include "platform/text.h"
#include "st_Store.h"
#include "svc_Service.h"

namespace {

constexpr char16_t kUid[] = u"6B29FC40-CA47-1067-B31D-00DD010662DA";
constexpr const char* kUidText = kLogUid;

class Service : public InProcessService {
 protected:
  static bool Register(const char16_t* uid) {
    tagCln_CgiOnStart record;
    record.Put(*onstart::Find("uid"), uid);
    return SendRecord(u"CMDHLV2_CLN_ON_START", record);
  }

  static bool Heartbeat(const char16_t* uid, tagCln_Heartbeat* answer) {
    tagCln_Heartbeat record;
    record.Put(tagCln_Heartbeat::kRequestType, 1);
    record.Put(tagCln_Heartbeat::kUid, uid);
    tagCln_HeartbeatAnswer reply;
    if (!AskService(u"CMDHLV2_HEARTBEAT_NOTIFY", record, reply)) return false;
    *answer = reply.heartbeat;
    return true;
  }

  static std::u16string MsCfg(const char16_t* uid) {
    std::u16string text;
    return cmdal_GetMsCfg(uid, &text) ? text : u"<failed>";
  }
};

TEST_F(Service, SettingsComeFromDefaultsUntilAClientHasItsOwn) {
  const std::u16string defaults = MsCfg(kUid);
  EXPECT_EQ(defaults.rfind(u"[Manual_Scan]\r\n", 0), 0u) << plat::ToUtf8(defaults);
  // A configuration text may hold tabs: it is the last argument.
  const std::u16string own = u"[Manual_Scan]\r\nExclusionList=a\tb\r\n";
  ASSERT_TRUE(cmdal_SetMsCfg(kUid, own.c_str()));
  EXPECT_EQ(db_->WaitFor("SELECT event FROM config_records", "65"), "65");
  EXPECT_EQ(MsCfg(kUid), own);
  EXPECT_EQ(MsCfg(u"00000000-0000-0000-0000-000000000001"), defaults) << "others keep the defaults";
}

TEST_F(Service, AHeartbeatAnswersThePollingStateTheDatabaseHolds) {
  ASSERT_TRUE(Register(kUid));
  ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "1"), "1");
  tagCln_Heartbeat answer;
  ASSERT_TRUE(Heartbeat(kUid, &answer));
  EXPECT_EQ(answer.Number(tagCln_Heartbeat::kIndividualSetting), 0);
  EXPECT_EQ(answer.Number(tagCln_Heartbeat::kMessageId), 0);

  // A console adds a message and a client setting with the shell.
  ASSERT_TRUE(db_->Exec("INSERT INTO alert_messages (uid, text) VALUES (NULL, 'to all');"
                        "INSERT INTO alert_messages (uid, text) VALUES ('" + std::string(kUidText) + "', 'to one');"
                        "INSERT INTO alert_messages (uid, text) VALUES ('someone-else', 'not ours')"));
  ASSERT_TRUE(cmdal_SetMsCfg(kUid, u"[Manual_Scan]\r\n"));
  ASSERT_TRUE(cmdal_SetMsCfg(kUid, u"[Manual_Scan]\r\nCpuUsage=1\r\n"));
  ASSERT_EQ(db_->WaitFor("SELECT setting_sequence FROM polling_state", "2"), "2");
  ASSERT_TRUE(Heartbeat(kUid, &answer));
  EXPECT_EQ(answer.Number(tagCln_Heartbeat::kIndividualSetting), 1);
  EXPECT_EQ(answer.Number(tagCln_Heartbeat::kMessageId), 2);
  EXPECT_EQ(answer.Number(tagCln_Heartbeat::kSettingSequence), 2);
  EXPECT_EQ(db_->Value("SELECT last_request_type FROM polling_state"), "1");

  ASSERT_TRUE(Heartbeat(u"00000000-0000-0000-0000-000000000002", &answer)) << "an unknown client is answered";
  EXPECT_EQ(answer.Number(tagCln_Heartbeat::kSettingSequence), 0);
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM polling_state"), "1") << "and not stored";
}

// The version-1 setters store, the readers read back what the database
// holds (written by a setter, or by a console with the shell).
TEST_F(Service, VersionOneSettersAndReaders) {
  ASSERT_TRUE(Register(kUid));
  ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "1"), "1");
  const uint32_t warning = 7;
  ASSERT_TRUE(cmdal_SetClinetCfg_WarningSetting(kUid, &warning));
  const int32_t counts[6] = {1, 2, 3, 4, 5, 6};
  ASSERT_TRUE(cmdal_PfwUpdateCfwCount(kUid, 0, counts, u"fw", 1));
  EXPECT_EQ(db_->WaitFor("SELECT warning_setting FROM client_config", "7"), "7");
  EXPECT_EQ(db_->WaitFor("SELECT CAST(firewall_per_hour AS TEXT) || network_virus_total || text_field FROM firewall_counts", "16fw"),
            "16fw");
  ASSERT_TRUE(db_->Exec("UPDATE client_config SET config_flags = 4096;"
                        "UPDATE clients SET domain = 'CORP', addistinguishedname = '';"
                        "INSERT INTO alert_messages (uid, function_type, text) VALUES (NULL, 2, 'old');"
                        "INSERT INTO alert_messages (uid, function_type, text) VALUES (NULL, 2, 'new');"
                        "INSERT INTO alert_messages (uid, function_type, text) VALUES (NULL, 3, 'other type')"));
  const auto flag = [](uint32_t which, std::u16string* t) {
    bool set = false;
    const bool ok = cmdal_IsConfigFlagSet(kUid, which, &set);
    *t = set ? u"set" : u"clear";
    return ok;
  };
  struct Case {
    const char* what;
    std::function<bool(std::u16string*)> read;
    std::u16string expected;
  } cases[] = {
      {"flag set", [&](std::u16string* t) { return flag(0x1000, t); }, u"set"},
      {"flag clear", [&](std::u16string* t) { return flag(0x2000, t); }, u"clear"},
      {"newest alert of its type", [](std::u16string* t) { return cmdal_GetClnAlertMsg(kUid, 2, t); }, u"new"},
      {"no alert of this type", [](std::u16string* t) { return cmdal_GetClnAlertMsg(kUid, 9, t); }, u""},
      {"domain", [](std::u16string* t) { return cmdal_PfwGetClientDomain(kUid, t); }, u"CORP"},
      {"full domain falls back", [](std::u16string* t) { return cmdal_PfwGetClientFullDomain(kUid, t); }, u"CORP"},
  };
  for (const Case& c : cases) {
    std::u16string text = u"<unset>";
    EXPECT_TRUE(c.read(&text)) << c.what;
    EXPECT_EQ(text, c.expected) << c.what;
  }
}

// The round trips of the settings requests, answered from the database.
TEST_F(Service, SettingsRequestRoundTrips) {
  EXPECT_FALSE(IsClientKnownToServer(kUid));
  ASSERT_TRUE(Register(kUid));
  ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "1"), "1");
  EXPECT_TRUE(IsClientKnownToServer(kUid));
  EXPECT_TRUE(IsClientKnownToServer(u"6b29fc40-ca47-1067-b31d-00dd010662da")) << "uids compare without case";

  // The update order and alert messages are checked end to end (system tests).
  tagCln_ClientUid client;
  client.uid = kUid;
  tagCln_SettingsText dlp;
  ASSERT_TRUE(AskService(u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS", client, dlp));
  EXPECT_EQ(dlp.text.rfind(u"[DLP_Deploy]\r\n", 0), 0u) << "the default";
}

// The OPP settings: a change sets flag 0x1000 and makes event 50 pending;
// the client's fetch (its reset of 50) clears both. Reports are kept for
// known clients.
TEST_F(Service, OppSettingsFlagAndReports) {
  ASSERT_TRUE(Register(kUid));
  ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "1"), "1");
  bool changed = true;
  ASSERT_TRUE(cmdal_IsConfigFlagSet(kUid, 0x1000, &changed));
  EXPECT_FALSE(changed);
  // An operator changes the settings beside the running service.
  std::string error;
  auto database = db::Database::Open(testDb_->location(), &error);
  ASSERT_TRUE(database) << error;
  st::Store store(*database);
  uint32_t event = 0;
  ASSERT_TRUE(store.WriteSection(kUidText, "OPPSETTING", "[Outbreak_Prevention]\r\nEnabled=1\r\n", &event));
  EXPECT_EQ(event, 50u);
  ASSERT_TRUE(db_->Exec("UPDATE client_config SET config_flags = config_flags | 1"));
  ASSERT_TRUE(cmdal_IsConfigFlagSet(kUid, 0x1000, &changed));
  EXPECT_TRUE(changed);
  std::u16string opp;
  ASSERT_TRUE(cmdal_GetOppSetting(kUid, &opp));
  EXPECT_EQ(opp, u"[Outbreak_Prevention]\r\nEnabled=1\r\n");
  ASSERT_TRUE(RemoveConfigRecord(kUid, 50));
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM config_records", "0"), "0");
  EXPECT_EQ(db_->Value("SELECT config_flags FROM client_config"), "1") << "only the OPP flag is cleared";

  tagCln_ActiveRestoreOpp report;
  report.SetUid(kUidText);
  report.SetRelease("14.0.1");
  report.operation = tagCln_ActiveRestoreOpp::kRestored;
  ASSERT_TRUE(SendRecord(u"CMDHLV2_CLN_ACTIVE_RESTORE_OPP", report));
  EXPECT_EQ(db_->WaitFor("SELECT uid || ' ' || release || ' ' || operation FROM opp_reports",
                         std::string(kUidText) + " 14.0.1 53"),
            std::string(kUidText) + " 14.0.1 53");
  report.SetUid("00000000-0000-0000-0000-000000000009");
  ASSERT_TRUE(SendRecord(u"CMDHLV2_CLN_ACTIVE_RESTORE_OPP", report));
  report.operation = 54;
  ASSERT_TRUE(SendRecord(u"CMDHLV2_CLN_ACTIVE_RESTORE_OPP", report));
  EXPECT_EQ(MsCfg(kUid).rfind(u"[Manual_Scan]", 0), 0u) << "served in turn";
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM opp_reports"), "1") << "an unknown client's and a bad operation dropped";
}

TEST_F(Service, BadInputIsDroppedAndTheServiceGoesOnServing) {
  CMsgSerializer registration(u"CMDHLV2_CLN_ON_START", 1);
  uint8_t shortBlock[100] = {};
  ser::WriteBlock(registration, shortBlock, sizeof shortBlock);
  CMsgSerializer unknown(u"CMDHLV2_NOT_A_COMMAND", 1);
  ser::WriteU32(unknown, 1);
  CMsgSerializer cut(u"CMDHLV2_CLN_ON_PROTECTION_STATUS", 1);
  ser::WriteWString(cut, kUid);
  std::vector<uint8_t> cutBytes = MessageBytes(cut);
  cutBytes.resize(cutBytes.size() - 10);

  const std::vector<std::vector<uint8_t>> cases = {
      {1, 2, 3},                                             // no command at all
      {4, 0, 0, 0, 1, 0, 0, 0, 0x10, 0, 0, 0, 0xAC},         // a prologue cut short
      cutBytes,                                              // a record cut short
      MessageBytes(registration),                            // a registration block of the wrong size
      MessageBytes(unknown),                                 // an unknown command
      Utf16(u"CMDHL_GET_MS_CFG\tno-such-reply-pipe\tuid"),   // a reply pipe that is gone
      Utf16(u"CMDHL_SET_CLIENTCFG_WARNING_SETTING\tuid"),    // an argument missing
      Utf16(u"CMDHL_SET_CLIENTCFG_WARNING_SETTING\tuid\tx"), // not a number
      Utf16(u"CMDHL_NO_SUCH_THING\ta\tb"),                   // an unknown text command
  };
  for (const auto& bytes : cases) SendRaw(bytes);

  EXPECT_EQ(MsCfg(kUid).rfind(u"[Manual_Scan]", 0), 0u) << "still answering";
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM clients"), "0");
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM client_config"), "0");
}

}  // namespace
