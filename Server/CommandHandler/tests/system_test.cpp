// The whole system: real HTTP from this process to isapi-host, through the
// extension and the pipes, to vgcr-cmdhandler and its database; in IIS and
// adapter mode, then with the service stopped, slow and killed.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "channel/channel_Settings.h"
#include "channel/pipe_Client.h"
#include "channel/rec_Lifecycle.h"
#include "channel/rec_Logs.h"
#include "channel/ser_MsgSerializer.h"
#include "db_probe.h"
#include "system_fixture.h"
#include "http_support.h"
#include "platform/pipe.h"
#include "signature_check.h"

namespace {

using namespace systest;

constexpr char kSha1[] = "da39a3ee5e6b4b0d3255bfef95601890afd80709";

// The value a log report gives its key at `position`: texts "t<position>",
// numbers 100 + position, SoData a SHA-1.
std::string LogValue(const logrec::Layout& layout, std::size_t position) {
  const logrec::Key& key = layout.keys[position];
  if (std::string(key.name) == "SoData") return kSha1;
  return key.value == logrec::Value::kNumber ? std::to_string(100 + position) : "t" + std::to_string(position);
}

std::string LogReport(int logType, const logrec::Layout& layout, const std::string& uid = kUid) {
  std::string query = "requestid=110&functiontype=" + std::to_string(logType) + "&uid=" + uid + "&release=14.0.1";
  for (std::size_t i = 0; i < layout.keys.size(); ++i) {
    query += std::string("&") + layout.keys[i].name + "=" + LogValue(layout, i);
  }
  return query;
}

// The key columns of the report's row, joined by "|", and what they should hold.
std::string StoredLogSql(const logrec::Layout& layout, int32_t recordType) {
  std::string columns;
  for (const logrec::Key& key : layout.keys) {
    columns += std::string(columns.empty() ? "" : " || '|' || ") + "\"" + key.name + "\"";
  }
  return "SELECT " + columns + " FROM " + layout.table + " WHERE uid = '" + kUid +
         "' AND release = '14.0.1' AND record_type = " + std::to_string(recordType);
}
std::string ExpectedLog(const logrec::Layout& layout) {
  std::string values;
  for (std::size_t i = 0; i < layout.keys.size(); ++i) values += (i ? "|" : "") + LogValue(layout, i);
  return values;
}


TEST_P(BothModes, ARegistrationLandsAsARowWithItsFields) {
  EXPECT_EQ(Ask(Registration(kUid)).substr(0, 2), "1\n");
  const std::string row = std::string(" FROM clients WHERE uid = '") + kUid + "'";
  EXPECT_EQ(db_->WaitFor("SELECT computer" + row, "PC\xc3\xa9"), "PC\xc3\xa9");
  EXPECT_EQ(db_->Value("SELECT timezone || ' ' || clientlistenport || ' ' || release || ' ' || mac || ' ' || ip" + row),
            "-480 4464 14.0.1 00AABBCCDDEE 10.0.0.7");
  EXPECT_EQ(db_->Value("SELECT first_seen = last_seen" + row), "1");
}

TEST_P(BothModes, AHeartbeatReturnsThePollingStateHeldInTheDatabase) {
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  EXPECT_EQ(Ask(Poll(kUid)),
            "[Polling_Response]\r\nRECEIVING_STATUS=1\r\nINDIVIDUAL_SETTING=0\r\nMESSAGE_ID=0\r\nSETTING_SEQUENCE=0");
  ASSERT_TRUE(db_->Exec("UPDATE polling_state SET individual_setting = 1, message_id = 12, setting_sequence = -3"));
  EXPECT_EQ(Ask(Poll(kUid)),
            "[Polling_Response]\r\nRECEIVING_STATUS=1\r\nINDIVIDUAL_SETTING=1\r\nMESSAGE_ID=12\r\nSETTING_SEQUENCE=-3");
}

TEST_P(BothModes, AProtectionStatusReportNeedsAKnownClient) {
  const std::string report = std::string("requestid=103&functiontype=3&uid=") + kUid + "&av=1&dlp=5";
  EXPECT_EQ(Ask(report), "-39");
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  EXPECT_EQ(Ask(report), "1");
  EXPECT_EQ(db_->Value("SELECT mask FROM protection_status"), "65");
}

TEST_P(BothModes, ASignedReplyVerifiesWithTheCertificate) {
  std::string issuer, serial;
  ASSERT_NO_FATAL_FAILURE(ReadIdentity(&issuer, &serial));
  ASSERT_NO_FATAL_FAILURE(RegisterClient());

  const std::string signed_ =
      Get(host_->port(), Poll(kUid) + "&SA_ISR=" + UrlEncode(issuer) + "&SA_SN=" + serial + "&SA_RN=42");
  EXPECT_EQ(Header(signed_, "SA_NEW"), "0");
  EXPECT_TRUE(SignatureVerifies(folder_ + "/signing-cert.pem", Body(signed_), 42, Header(signed_, "SA_SG")))
      << signed_;
  EXPECT_FALSE(SignatureVerifies(folder_ + "/signing-cert.pem", Body(signed_), 43, Header(signed_, "SA_SG")));

  const std::string other = Get(host_->port(), Poll(kUid) + "&SA_ISR=CN%3DSomeone&SA_SN=01&SA_RN=42");
  EXPECT_EQ(Header(other, "SA_SG"), "") << "another certificate: the reply goes out unsigned";
  EXPECT_EQ(Body(other), Body(signed_));
}

// The settings loop: an operator changes a client's sections, the client
// sees its setting sequence move in its heartbeat, fetches each section and
// gets the new text, and its fetch clears the pending configuration record.
TEST_P(BothModes, TheSettingsLoop) {
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  EXPECT_EQ(Ask(Poll(kUid)),
            "[Polling_Response]\r\nRECEIVING_STATUS=1\r\nINDIVIDUAL_SETTING=0\r\nMESSAGE_ID=0\r\nSETTING_SEQUENCE=0");
  struct Change {
    const char* section;
    const char* text;   // as the operator writes it, LF line ends
    std::string fetch;  // the client's request for the section
    const char* event;
  } changes[] = {
      {"MS_CFG", "[Manual_Scan]\nScanAllFiles=0\n", "requestid=202&functiontype=1", "65"},
      {"INI_GLOBALSETTING", "[Global_Setting]\nPollInterval=30\n", "requestid=201&functiontype=1", "73"},
      {"OPPSETTING", "[Outbreak_Prevention]\nEnabled=1\n", "requestid=203&functiontype=0&chkdatabase=1", "50"},
      {"DLP_DEPLOY_SETTINGS", "[DLP_Deploy]\nEnabled=1\n", "requestid=321&functiontype=1", "118"},
  };
  EXPECT_EQ(Ask("requestid=203&functiontype=0&chkdatabase=1&uid=" + std::string(kUid) + "&release=14.0.1"), "-8")
      << "no change flagged yet";
  for (const Change& change : changes) {
    const std::string file = folder_ + "/" + change.section + ".ini";
    std::ofstream(file) << change.text;
    ASSERT_EQ(Child(Operator({"set-section", kUid, change.section, file})).Wait(), 0);
  }
  EXPECT_EQ(db_->Value("SELECT group_concat(event) FROM (SELECT event FROM config_records ORDER BY event) AS e"),
            "50,65,73,118");
  EXPECT_EQ(Ask(Poll(kUid)),
            "[Polling_Response]\r\nRECEIVING_STATUS=1\r\nINDIVIDUAL_SETTING=1\r\nMESSAGE_ID=0\r\nSETTING_SEQUENCE=4");
  for (const Change& change : changes) {
    std::string expected = change.text;
    for (std::size_t at = 0; (at = expected.find('\n', at)) != std::string::npos; at += 2) expected.insert(at, "\r");
    EXPECT_EQ(Ask(change.fetch + "&uid=" + kUid + "&release=14.0.1"), expected) << change.section;
    EXPECT_EQ(db_->WaitFor(std::string("SELECT COUNT(*) FROM config_records WHERE event = ") + change.event, "0"), "0")
        << change.section << ": the fetch clears its record";
  }
  EXPECT_EQ(Ask("requestid=203&functiontype=0&chkdatabase=1&uid=" + std::string(kUid) + "&release=14.0.1"), "-8")
      << "the fetch cleared the OPP flag too";
}

TEST_P(BothModes, UpdateOrderAndAlertMessagesFromTheOperator) {
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  EXPECT_EQ(Ask("requestid=205"), "") << "no update order yet";
  const std::string order = folder_ + "/order.txt";
  std::ofstream(order) << "[Update]\nSource=http://updates.example/\n";
  ASSERT_EQ(Child(Operator({"update-order", order})).Wait(), 0);
  EXPECT_EQ(Ask("requestid=205"), "[Update]\r\nSource=http://updates.example/\r\n");

  EXPECT_EQ(Ask("requestid=204&functiontype=128"), "[Alert_Message]\r\nTitle=Message from your administrator\r\nText=\r\n")
      << "the shipped text";
  const std::string alert = folder_ + "/alert.txt";
  std::ofstream(alert) << "Patch tonight.";
  ASSERT_EQ(Child(Operator({"alert", "128", alert})).Wait(), 0);
  EXPECT_EQ(Ask("requestid=204&functiontype=128&uid=" + std::string(kUid)), "Patch tonight.");
  EXPECT_NE(Ask(Poll(kUid)).find("MESSAGE_ID=1\r\n"), std::string::npos) << "the heartbeat shows the new message";
  EXPECT_EQ(Child(Operator({"alert", "2", alert})).Wait(), 2) << "a kind no client asks for";
  EXPECT_EQ(Child(Operator({"set-section", kUid, "NO_SUCH", alert})).Wait(), 2);
  EXPECT_EQ(Child(Operator({"set-section", "not-a-uid", "MS_CFG", alert})).Wait(), 2);
  const char* stranger = "00000000-0000-4000-8000-0000000000FF";
  EXPECT_EQ(Child(Operator({"set-section", stranger, "MS_CFG", alert})).Wait(), 1)
      << "no such client";
  EXPECT_EQ(Child(Operator({"alert", "128", alert, stranger})).Wait(), 1);
  const std::string binary = folder_ + "/binary.ini";
  std::ofstream(binary, std::ios::binary) << std::string("[Manual_Scan]\nA=\0\xFF\n", 19);
  EXPECT_EQ(Child(Operator({"set-section", kUid, "MS_CFG", binary})).Wait(), 1)
      << "not text";
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM client_sections"), "0") << "nothing refused was stored";
}

TEST_P(BothModes, EveryLogTypeLandsInItsTableWithItsFields) {
  const struct {
    int logType;
    int32_t recordType;
    const logrec::Layout* layout;
  } cases[] = {
      {1, 1, &logrec::kVirusLog},         {4, 4, &logrec::kVirusLog},          {17, 17, &logrec::kUrlFilteringLog},
      {23, 23, &logrec::kDlpLog},         {24, 24, &logrec::kDlpLog2},         {25, 25, &logrec::kDlpLog2},
      {26, 20, &logrec::kCallbackLog},    {27, 27, &logrec::kRestoreItemResult},
      {32, 22, &logrec::kScanOperationLog}, {33, 33, &logrec::kSuspiciousObjectLog},
  };
  for (const auto& c : cases) EXPECT_EQ(Ask(LogReport(c.logType, *c.layout)), "1") << c.logType;
  for (const auto& c : cases) {
    const std::string expected = ExpectedLog(*c.layout);
    EXPECT_EQ(db_->WaitFor(StoredLogSql(*c.layout, c.recordType), expected), expected) << c.logType;
  }
  EXPECT_EQ(Ask("requestid=110&functiontype=13&uid=" + std::string(kUid) + "&PFWcountstr=fw%091,2,3,4,5,6"), "1");
  EXPECT_EQ(db_->WaitFor("SELECT text_field || firewall_per_hour || intrusion_per_hour || network_virus_per_hour || "
                         "firewall_total || intrusion_total || network_virus_total FROM firewall_counts",
                         "fw123456"),
            "fw123456");
  EXPECT_EQ(Ask("requestid=110&functiontype=20&uid=" + std::string(kUid)), "-3");
  EXPECT_EQ(Ask("requestid=110&functiontype=1&uid=" + std::string(kUid)), "-5") << "no keys";
}

INSTANTIATE_TEST_SUITE_P(System, BothModes, ::testing::Values(false, true),
                         [](const auto& mode) { return mode.param ? "Adapter" : "Iis"; });

TEST_F(System, TheMemoryGuardTurnsRepliesIntoMinus38AndBack) {
  StartHost(false);
  ASSERT_EQ(Ask(Registration(kUid)).substr(0, 2), "1\n");
  ASSERT_EQ(Child({VGCR_GUARD, "memory", "1", "1", "1"}).Wait(), 0);
  std::string answer;
  for (int i = 0; i < 300 && answer != "-38"; ++i) answer = Ask(Poll(kUid));
  EXPECT_EQ(answer, "-38");
  // A missing record leaves the last word in force: "not over" must be
  // published before the record goes.
  ASSERT_EQ(Child({VGCR_GUARD, "memory", "0", "1", "1"}).Wait(), 0);
  for (int i = 0; i < 300 && answer == "-38"; ++i) {
    answer = Ask(Poll(kUid));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(answer.rfind("[Polling_Response]", 0), 0u) << answer;
  EXPECT_EQ(Child({VGCR_GUARD, "clear"}).Wait(), 0);
}

// How long one request takes, and its answer.
template <typename F>
double Seconds(F&& request) {
  const auto start = std::chrono::steady_clock::now();
  request();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(System, AStoppedServiceIsAnsweredMinus5AtOnceAndRecoveryFollowsItsRestart) {
  StartHost(false);
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  ASSERT_EQ(service_.Stop(), 0);
  std::string answer;
  EXPECT_LT(Seconds([&] { answer = Ask(Poll(kUid)); }), 2.0);
  EXPECT_EQ(answer, "-5");
  ASSERT_TRUE(StartService());
  EXPECT_EQ(Ask(Poll(kUid)).rfind("[Polling_Response]\r\nRECEIVING_STATUS=1", 0), 0u) << "the client is still known";
}

TEST_F(System, ASlowServiceIsBoundedByTheReplyTimeout) {
  StartHost(false);
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  FreezeService();
  std::string answer;
  const double took = Seconds([&] { answer = Ask(Poll(kUid)); });
  service_.Signal(SIGCONT);
  EXPECT_EQ(answer, "-5");
  EXPECT_GT(took, 9.0);
  EXPECT_LT(took, 14.0);
  // The late answer finds its reply pipe gone; the service goes on.
  EXPECT_EQ(Ask(Poll(kUid)).rfind("[Polling_Response]", 0), 0u);
  std::string log;
  for (int i = 0; i < 250 && log.find("reply pipe gone") == std::string::npos; ++i) {
    log = ReadFile(folder_ + "/service.log");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_NE(log.find("not answered: reply pipe gone"), std::string::npos) << log;
}

// isapi-host told to stop while workers hold requests (a frozen service
// keeps them for the reply time-out) waits for them past its grace, and
// frees no connection a worker still holds: under the sanitizer build a
// use after free would end it otherwise.
TEST_F(System, TheHostStopsCleanlyWithRequestsInFlight) {
  for (const bool adapter : {false, true}) {
    SCOPED_TRACE(adapter ? "adapter" : "IIS");
    // Adapter mode with two workers: the third request waits in the queue
    // and is answered 500 at the stop, never handed to a terminated extension.
    host_ = std::make_unique<Host>(adapter ? std::vector<std::string>{"--stop-grace", "1", "--adapter",
                                                                      "--adapter-workers", "2"}
                                           : std::vector<std::string>{"--stop-grace", "1"});
    ASSERT_TRUE(host_->ready());
    ASSERT_NO_FATAL_FAILURE(RegisterClient());
    FreezeService();
    std::vector<std::thread> requests;
    std::vector<std::string> answers(3);
    for (std::size_t i = 0; i < answers.size(); ++i) {
      requests.emplace_back([&, i] { answers[i] = Ask(Poll(kUid)); });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const double took = Seconds([&] { EXPECT_EQ(host_->Stop(), 0); });
    for (auto& request : requests) request.join();
    service_.Signal(SIGCONT);
    EXPECT_GT(took, 5.0) << "the workers were waited for";
    std::sort(answers.begin(), answers.end());
    const std::vector<std::string> expected = adapter ? std::vector<std::string>{"-5", "-5", "extension error\n"}
                                                      : std::vector<std::string>{"-5", "-5", "-5"};
    EXPECT_EQ(answers, expected);
  }
}

TEST_F(System, AServiceKilledBeforeItAnswersCostsOneRequestOnly) {
  StartHost(false);
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  FreezeService();
  std::string answer;
  double took = 0;
  std::thread request([&] { took = Seconds([&] { answer = Ask(Poll(kUid)); }); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  service_.Kill();
  request.join();
  EXPECT_EQ(answer, "-5");
  EXPECT_LT(took, 14.0);
  ASSERT_TRUE(StartService());
  EXPECT_EQ(Ask(Poll(kUid)).rfind("[Polling_Response]\r\nRECEIVING_STATUS=1", 0), 0u);
}


// ---- Local peers that are broken or hostile, and the service's files.

// A heartbeat message as the extension sends it, with its identifier (the
// reply pipe's name) replaced.
std::vector<uint8_t> HeartbeatNamed(const std::u16string& identifier) {
  CMsgSerializer message(u"CMDHLV2_HEARTBEAT_NOTIFY");
  tagCln_Heartbeat record;
  record.Put(tagCln_Heartbeat::kRequestType, 1);
  record.Put(tagCln_Heartbeat::kUid, u"3F2504E0-4F89-11D3-9A0C-0305E82C3301");
  record.Serialize(message);
  std::vector<uint8_t> bytes(message.Buffer().Data(), message.Buffer().Data() + message.GetSize());
  // Items: version (4 + 4), header (4 + 16), command, identifier.
  auto word = [&](std::size_t at) {
    return static_cast<std::size_t>(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | bytes[at + 3] << 24);
  };
  const std::size_t at = 28 + 4 + word(28);
  std::vector<uint8_t> item(4);
  const auto length = static_cast<uint32_t>(2 * identifier.size() + 2);
  for (int i = 0; i < 4; ++i) item[static_cast<std::size_t>(i)] = static_cast<uint8_t>(length >> (8 * i));
  for (char16_t c : identifier) {
    item.push_back(static_cast<uint8_t>(c));
    item.push_back(static_cast<uint8_t>(c >> 8));
  }
  item.push_back(0);
  item.push_back(0);
  bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.begin() + static_cast<std::ptrdiff_t>(at + 4 + word(at)));
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), item.begin(), item.end());
  return bytes;
}

std::size_t Occurrences(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

// A message whose reply pipe is the service's own pipe, or any name not of
// the protocol's form, is dropped once: the service does not answer itself
// in a loop, nor write where it was pointed.
TEST_F(System, AMessageNamingAForeignReplyPipeIsDroppedOnce) {
  for (const std::u16string& name : {std::u16string(kCommandHandlerPipe), std::u16string(u"../../elsewhere"),
                                     std::u16string(u"0105CMDHLV2_HEARTBEAT_NOTIFY1_2_3/x")}) {
    CPipeClient client;
    ASSERT_TRUE(client.Open(kCommandHandlerPipe));
    const std::vector<uint8_t> bytes = HeartbeatNamed(name);
    uint32_t length = static_cast<uint32_t>(bytes.size());
    ASSERT_TRUE(client.Send(bytes.data(), &length));
    client.Close();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const std::string log = ReadFile(folder_ + "/service.log");
  EXPECT_EQ(Occurrences(log, "not of the protocol's form"), 3u) << log.substr(0, 2000);
  EXPECT_LT(Occurrences(log, "CMDHLV2_HEARTBEAT_NOTIFY"), 5u) << "no loop";
  StartHost(false);
  EXPECT_EQ(Ask(Poll(kUid)).rfind("[Polling_Response]", 0), 0u) << "still serving";
}

// Clients that connect to the command pipe and say nothing hold no
// instance for long: a heartbeat behind 40 of them is answered promptly by
// a service with its default listeners.
TEST_F(System, SilentLocalClientsDoNotWedgeTheService) {
  ASSERT_EQ(service_.Stop(), 0);
  ASSERT_TRUE(StartService("16"));
  StartHost(false);
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  std::vector<std::unique_ptr<plat::PipeClient>> silent;
  for (int i = 0; i < 40; ++i) {
    silent.push_back(std::make_unique<plat::PipeClient>());
    silent.back()->Open(kCommandHandlerPipe);
  }
  std::string answer;
  EXPECT_LT(Seconds([&] { answer = Ask(Poll(kUid)); }), 3.0);
  EXPECT_EQ(answer.rfind("[Polling_Response]", 0), 0u) << answer;
}

// A second service on the same pipe folder says who holds it and leaves;
// the first one goes on serving.
TEST_F(System, ASecondServiceOnThePipeFolderIsRefused) {
  const std::string other = MakeTempFolder();
  const std::string log = other + "/second.log";
  EXPECT_EQ(Child({VGCR_CMDHANDLER, "--data", other}, log).Wait(), 1);
  EXPECT_NE(ReadFile(log).find("another vgcr-cmdhandler (pid " + std::to_string(service_.pid()) + ")"),
            std::string::npos)
      << ReadFile(log);
  StartHost(false);
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  EXPECT_EQ(Ask(Poll(kUid)).rfind("[Polling_Response]\r\nRECEIVING_STATUS=1", 0), 0u);
  RemoveFolder(other);
}

TEST_F(System, TheServicesFilesAreItsOwn) {
  const struct {
    const char* name;
    unsigned mode;
  } files[] = {{"", 0700}, {"/cmdhandler.db", 0600}, {"/cmdhandler.db-wal", 0600},
               {"/signing-key.pem", 0600}, {"/signing-cert.pem", 0644}};
  for (const auto& file : files) {
    struct stat st {};
    ASSERT_EQ(::lstat((folder_ + file.name).c_str(), &st), 0) << file.name;
    EXPECT_EQ(st.st_mode & 07777, file.mode) << file.name;
  }
}

// Half a signing pair, or a link where the key goes, stops the service with
// a reason: the key is never made anew behind the clients' back, nor
// written through a link.
TEST_F(System, AMissingHalfOfTheSigningPairIsNotReplacedSilently) {
  ASSERT_EQ(service_.Stop(), 0);
  const std::string log = folder_ + "/service.log";
  std::filesystem::rename(folder_ + "/signing-cert.pem", folder_ + "/cert.away");
  EXPECT_EQ(Child({VGCR_CMDHANDLER, "--data", folder_}, log).Wait(), 1);
  EXPECT_NE(ReadFile(log).find("the signing certificate is missing"), std::string::npos) << ReadFile(log);

  const std::string target = folder_ + "/target";
  std::filesystem::remove(folder_ + "/signing-key.pem");
  std::ofstream(target) << "precious";
  std::filesystem::create_symlink(target, folder_ + "/signing-key.pem");
  std::filesystem::rename(folder_ + "/cert.away", folder_ + "/cert.gone");
  EXPECT_EQ(Child({VGCR_CMDHANDLER, "--data", folder_}, log).Wait(), 1);
  EXPECT_EQ(ReadFile(target), "precious");
}

// Another process holding the database's write lock, and a damaged
// database file: the first is answered at once with a failure (-5), the
// second is refused at start with what is wrong.
TEST_F(System, DatabaseFaultsAreAnsweredAtOnce) {
  StartHost(false);
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  {
    DbProbe writer(folder_ + "/cmdhandler.db");
    ASSERT_EQ(writer.Value("BEGIN IMMEDIATE"), "<none>");
    std::string answer;
    EXPECT_LT(Seconds([&] { answer = Ask(Poll(kUid)); }), 2.5);
    EXPECT_EQ(answer, "-5");
    writer.Value("ROLLBACK");
  }
  EXPECT_EQ(Ask(Poll(kUid)).rfind("[Polling_Response]", 0), 0u) << "served again";

  host_.reset();
  ASSERT_EQ(service_.Stop(), 0);
  db_.reset();
  for (const char* suffix : {"-wal", "-shm"}) std::filesystem::remove(folder_ + "/cmdhandler.db" + suffix);
  {
    std::fstream file(folder_ + "/cmdhandler.db", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(4096 + 8);
    file << std::string(64, '\xA5');  // a page of the clients table, over-written
  }
  const std::string log = folder_ + "/service.log";
  EXPECT_EQ(Child({VGCR_CMDHANDLER, "--data", folder_}, log).Wait(), 1);
  EXPECT_NE(ReadFile(log).find("is damaged"), std::string::npos) << ReadFile(log);
}

}  // namespace
