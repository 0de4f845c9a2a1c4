// The update report and the signing certificate: whether a client is behind
// the server's components, the certificate each client trusts, the reload a
// client's report asks for, and replies signed for clients still on the
// previous certificate.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <thread>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/ocl_Command.h"
#include "channel/rec_Lifecycle.h"
#include "channel/rec_Sign.h"
#include "channel/rec_Update.h"
#include "cmd_Dispatch.h"
#include "db_Schema.h"
#include "handlers/hdl_Common.h"
#include "platform/text.h"
#include "raw_send.h"
#include "service_fixture.h"
#include "sig_Signer.h"
#include "signature_check.h"
#include "st_Components.h"
#include "svc_Log.h"

namespace {

constexpr char16_t kUid[] = u"6B29FC40-CA47-1067-B31D-00DD010662DA";
constexpr char16_t kOtherUid[] = u"0F8FAD5B-D9CB-469F-A165-70867728950E";
constexpr char16_t kStranger[] = u"00000000-0000-0000-0000-0000000000AA";

TEST(ComponentVersions, CompareAsNumbersPartByPart) {
  const struct {
    const char *a, *b;
    std::optional<int> order;
  } cases[] = {
      {"12.0.1003", "12.0.1010", -1},
      {"12.0.1010", "12.0.1003", 1},
      {"12.0", "12.0.0", 0},
      {"10", "9", 1},  // not as text
      {"012.3", "12.3", 0},
      {" 1.2\t", "1.2", 0},
      {"99999999999999999999999.1", "99999999999999999999998.9", 1},  // wider than any integer
      {"1..2", "1.2", std::nullopt},
      {"1.2.", "1.2", std::nullopt},
      {"1.a", "1", std::nullopt},
      {"-1", "1", std::nullopt},
      {"", "1", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(st::CompareVersions(c.a, c.b), c.order) << c.a << " vs " << c.b;
}

TEST(ComponentVersions, TheSectionsKeysAndWhatMakesAnUpdateDue) {
  const st::ServerComponents parsed = st::ParseComponentSection(
      "[Component_Version]\r\n; Program=99\r\nPattern = 1500 \r\nENGINE=12.0.1010\r\nnot a line\r\nProgram=14.0");
  EXPECT_EQ(parsed.pattern, "1500");
  EXPECT_EQ(parsed.engine, "12.0.1010");
  EXPECT_EQ(parsed.program, "14.0");

  using Behind = std::vector<std::string>;
  const st::ServerComponents server{"1500", "12.0.1010", "14.0"};
  const struct {
    const char* what;
    st::ServerComponents server;
    st::ClientComponents client;
    Behind behind;
  } cases[] = {
      {"the same", server, {1500, "12.0.1010", "14.0"}, {}},
      {"newer than the server", server, {1501, "12.1", "14.0.1"}, {}},
      {"every one behind", server, {1499, "12.0.1003", "13.9.9999"}, {"Pattern", "Engine", "Program"}},
      {"a component not reported is not asked for", server, {0, "", ""}, {}},
      {"only what was reported is compared", server, {1499, "", "13.0"}, {"Pattern", "Program"}},
      {"a client value that is no version is not compared", server, {1500, "n/a", "14.0 beta"}, {}},
      {"the shipped zeros ask nothing", {"0", "0", "0.0"}, {0, "", ""}, {}},
      {"empty asks nothing", {"", "", ""}, {0, "", ""}, {}},
      {"a server value that is no version asks nothing", {"x", "12.x", "latest"}, {0, "1", "1"}, {}},
      {"a dotted pattern is no number", {"15.00", "0", "0"}, {1, "", ""}, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(st::ComponentsBehind(c.server, c.client), c.behind) << c.what;
}

class Updates : public InProcessService {
 protected:
  static bool Register(const char16_t* uid) {
    tagCln_CgiOnStart record;
    record.Put(*onstart::Find("uid"), uid);
    record.Put(*onstart::Find("engine"), u"11.0");
    record.Put(*onstart::Find("ptnfile"), 1000);
    return SendRecord(u"CMDHLV2_CLN_ON_START", record);
  }
  static tagCln_CgiOnUpdate Report(const char16_t* uid, uint32_t ptnfile, const char16_t* engine,
                                   const char16_t* program, int32_t result = 0) {
    tagCln_CgiOnUpdate record;
    record.answerWanted = 1;
    record.uid = uid;
    record.release = u"14.0.1";
    record.date = u"20261123";
    record.time = u"101500";
    record.result = result;
    record.program = program;
    record.engine = engine;
    record.ptnfile = ptnfile;
    record.spyptn = 7;
    return record;
  }
  void RegisterBoth() {
    ASSERT_TRUE(Register(kUid));
    ASSERT_TRUE(Register(kOtherUid));
    ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "2"), "2");
  }
};

// The client kUid has versions of its own to reach; kOtherUid reads the
// shipped section, all zeros.
TEST_F(Updates, TheAnswerSaysWhetherTheClientIsKnownAndBehind) {
  ASSERT_NO_FATAL_FAILURE(RegisterBoth());
  ASSERT_TRUE(db_->Exec(std::string("INSERT INTO client_sections VALUES ('") + kLogUid +
                        "', 'INI_COMPONENT_VER', '[Component_Version]\r\nPattern=1500\r\nEngine=12.0.1010\r\nProgram=14.0', "
                        "'now')"));
  const struct {
    const char* what;
    tagCln_CgiOnUpdate report;
    uint32_t known, due;
  } cases[] = {
      {"up to date", Report(kUid, 1500, u"12.0.1010", u"14.0"), 1, 0},
      {"the pattern behind", Report(kUid, 1499, u"12.0.1010", u"14.0"), 1, 1},
      {"the engine behind", Report(kUid, 1500, u"12.0.1003", u"14.0"), 1, 1},
      {"a failed update, behind", Report(kUid, 1400, u"12.0.1010", u"14.0", -12), 1, 1},
      {"the default asks nothing", Report(kOtherUid, 1, u"1.0", u"1.0"), 1, 0},
      {"unknown client", Report(kStranger, 1, u"1.0", u"1.0"), 0, 0},
  };
  for (const auto& c : cases) {
    tagCln_CgiOnUpdate report = c.report;
    tagCln_OnUpdateAnswer answer;
    answer.known = answer.updateDue = 99;
    ASSERT_TRUE(AskService(u"CMDHLV2_CLN_ON_UPDATE", report, answer)) << c.what;
    EXPECT_EQ(answer.known, c.known) << c.what;
    EXPECT_EQ(answer.updateDue, c.due) << c.what;
  }
  EXPECT_EQ(Count("update_history"), "5") << "every report of a known client";
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM update_history WHERE substr(uid, 1, 8) = '00000000'"), "0");
  EXPECT_EQ(db_->Value("SELECT \"date\" || ' ' || \"time\" || ' ' || result || ' ' || spyptn FROM update_history "
                       "WHERE result <> 0"),
            "20261123 101500 -12 7");
}

// A successful update's versions become the client's; a failed one's do
// not, and a version left out of a report keeps the one known.
TEST_F(Updates, TheClientsVersionsFollowItsSuccessfulUpdates) {
  ASSERT_NO_FATAL_FAILURE(RegisterBoth());
  const std::string sql =
      std::string("SELECT engine || ' ' || program || ' ' || ptnfile FROM clients WHERE uid = '") + kLogUid + "'";
  EXPECT_EQ(db_->Value(sql), "11.0  1000") << "as registered";
  tagCln_CgiOnUpdate report = Report(kUid, 1500, u"12.0.1010", u"14.0");
  report.answerWanted = 0;  // a plain report, one way
  ASSERT_TRUE(SendRecord(u"CMDHLV2_CLN_ON_UPDATE", report));
  EXPECT_EQ(db_->WaitFor(sql, "12.0.1010 14.0 1500"), "12.0.1010 14.0 1500");

  tagCln_OnUpdateAnswer answer;
  report = Report(kUid, 1, u"1.0", u"1.0", 5);
  ASSERT_TRUE(AskService(u"CMDHLV2_CLN_ON_UPDATE", report, answer));
  report = Report(kUid, 0, u"", u"14.1");
  ASSERT_TRUE(AskService(u"CMDHLV2_CLN_ON_UPDATE", report, answer));
  EXPECT_EQ(db_->Value(sql), "12.0.1010 14.1 1500");
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM update_history", "3"), "3");
  EXPECT_EQ(db_->Value("SELECT engine || ' ' || program FROM clients WHERE uid = '" +
                       plat::ToUtf8(kOtherUid) + "'"),
            "11.0 ") << "another client's row is left alone";
}

// What a sender that waits gets when its record is bad or too long: the
// prologue alone, at once, not a wait for the reply time-out.
TEST_F(Updates, AWaitingSenderOfABadReportIsAnsweredAtOnce) {
  SetChannelReplyTimeoutMs(8000);
  struct CutShort : ISerializable {
    bool Serialize(ISerializer& s) override { return ser::WriteU32(s, 1) && ser::WriteWString(s, kUid); }
    bool Deserialize(ISerializer&) override { return false; }
  };
  struct LongUid : ISerializable {
    tagCln_CgiOnUpdate report = Report(std::u16string(37, u'A').c_str(), 1, u"1", u"1");
    bool Serialize(ISerializer& s) override { return report.Serialize(s); }
    bool Deserialize(ISerializer&) override { return false; }
  };
  CutShort cut;
  LongUid tooLong;
  ISerializable* records[] = {&cut, &tooLong};
  for (ISerializable* record : records) {
    tagCln_OnUpdateAnswer answer;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(AskService(u"CMDHLV2_CLN_ON_UPDATE", *record, answer));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  }
  EXPECT_EQ(Count("update_history"), "0");
}

// A new key pair put where the service reads it, as an operator would.
void ReplaceKeys(const std::string& folder) {
  const std::string other = MakeTempFolder();
  std::string error;
  ASSERT_TRUE(sig::Signer::Open(other, sig::KeyKind::kEcdsaP256, &error)) << error;
  namespace fs = std::filesystem;
  for (const char* name : {"/signing-key.pem", "/signing-cert.pem"})
    fs::copy_file(other + name, folder + name, fs::copy_options::overwrite_existing);
  RemoveFolder(other);
}

// The refresh runs the handler directly, so that what it did (or did not
// do) is done when it returns.
class Refresh : public ::testing::Test {
 protected:
  void SetUp() override {
    svc::SetQuiet(true);
    folder_ = MakeTempFolder();
    std::string error;
    database_ = db::Database::Open(folder_ + "/cmdhandler.db", &error);
    ASSERT_TRUE(database_ && db::CreateSchema(*database_, &error)) << error;
    store_ = std::make_unique<st::Store>(*database_);
    signer_ = sig::Signer::Open(folder_, sig::KeyKind::kEcdsaP256, &error);
    ASSERT_TRUE(signer_) << error;
    logs_ = std::make_unique<st::LogWriter>(*database_);
    context_ = std::make_unique<cmd::Context>(cmd::Context{*store_, *signer_, *logs_});
  }
  void TearDown() override {
    context_.reset();
    logs_.reset();
    signer_.reset();
    store_.reset();
    database_.reset();
    RemoveFolder(folder_);
  }
  void Notify(const std::string& serial) {
    CMsgSerializer message(u"VG_REFRESH_CERT_INFO", 1);
    ser::WriteWString(message, plat::FromUtf8(serial));
    PipeRequest request;
    request.bytes = MessageBytes(message);
    cmd::Dispatch(*context_, kServerNotifyPipe, std::move(request));
  }

  std::string folder_;
  std::unique_ptr<db::Database> database_;
  std::unique_ptr<st::Store> store_;
  std::unique_ptr<sig::Signer> signer_;
  std::unique_ptr<st::LogWriter> logs_;
  std::unique_ptr<cmd::Context> context_;
};

TEST_F(Refresh, NothingIsReloadedForTheSerialInUse) {
  const std::string first = signer_->Serial();
  ASSERT_NO_FATAL_FAILURE(ReplaceKeys(folder_));
  std::string lower = "00" + first;
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  Notify(lower);
  EXPECT_EQ(signer_->Serial(), first) << "the serial in use, written otherwise: the new files are not read";

  Notify("ABCDEF");
  const std::string second = signer_->Serial();
  EXPECT_NE(second, first);
  EXPECT_EQ(signer_->PreviousSerial(), first);

  Notify(first);  // a client still on the previous certificate: read again, nothing changes
  EXPECT_EQ(signer_->Serial(), second);
  EXPECT_EQ(signer_->PreviousSerial(), first) << "the same certificate read again keeps the previous one";
}

// Through the signing pipe: a client naming the previous certificate gets a
// reply it can verify with it, and the flag that makes it fetch the new one.
TEST_F(Updates, RepliesForThePreviousCertificateAreSignedWithItsKeyAndFlagged) {
  std::string error;
  auto before = sig::Signer::Open(folder_, sig::KeyKind::kEcdsaP256, &error);
  ASSERT_TRUE(before) << error;
  const std::string oldCertificate = folder_ + "/old-cert.pem";
  std::filesystem::copy_file(before->CertificatePath(), oldCertificate);
  ASSERT_NO_FATAL_FAILURE(ReplaceKeys(folder_));
  auto after = sig::Signer::Open(folder_, sig::KeyKind::kEcdsaP256, &error);
  ASSERT_TRUE(after) << error;
  ocl_RefreshCertInfo(plat::FromUtf8(after->Serial()).c_str());

  const auto sign = [](const std::string& issuer, const std::string& serial, tagSASignDataRet* answer) {
    tagSASignData request;
    request.certificate.issuer = plat::FromUtf8(issuer);
    request.certificate.serial = plat::FromUtf8(serial);
    request.clientNumber = 42;
    request.reply = {'1', '\n'};
    CMsgSerializer message(u"CMDHSAV2_DATA", 1);
    message << request;
    return cmdal2_SendAndRecvHandler2(message, message.Identifier().c_str()) && ReadAnswer(message, *answer);
  };
  tagSASignDataRet current;
  for (int i = 0; i < 200 && !(sign(after->Issuer(), after->Serial(), &current) && current.result == 0); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the refresh is one way
  ASSERT_EQ(current.result, 0) << "the new certificate in use";
  EXPECT_EQ(current.flag, 1u);
  EXPECT_TRUE(SignatureVerifies(after->CertificatePath(), "1\n", 42, plat::ToUtf8(current.signature)));

  tagSASignDataRet previous;
  ASSERT_TRUE(sign(before->Issuer(), before->Serial(), &previous));
  EXPECT_EQ(previous.result, 0);
  EXPECT_EQ(previous.flag, 0u) << "SA_NEW: 1";
  EXPECT_TRUE(SignatureVerifies(oldCertificate, "1\n", 42, plat::ToUtf8(previous.signature)));
  EXPECT_FALSE(SignatureVerifies(after->CertificatePath(), "1\n", 42, plat::ToUtf8(previous.signature)));

  tagSASignDataRet neither;
  ASSERT_TRUE(sign(before->Issuer(), "1234", &neither));
  EXPECT_EQ(neither.result, kSignCertificateNotOurs);
  EXPECT_TRUE(neither.signature.empty());
}

}  // namespace
