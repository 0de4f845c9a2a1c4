// vgcr-agentsim against the whole system: its clients register, poll, report
// logs, and fetch their settings when, and only when, an operator's change
// moves their setting sequence; what it reports agrees with what the
// service stored, and it checks every reply's signature.
#include <json/json.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "system_fixture.h"

namespace {

using namespace systest;

// Long enough for a client to poll, be changed, poll again and fetch, with
// room for a loaded machine's slow start of the operator's process; a
// sanitizer build runs every process several times slower.
#if defined(VGCR_SANITIZED)
constexpr char kRunSeconds[] = "12";
#else
constexpr char kRunSeconds[] = "6";
#endif

// One line of --trace: "T_MS CLIENT KIND STATUS MS OUTCOME [NOTE...]".
struct TraceLine {
  uint32_t client = 0;
  std::string kind;
  int status = 0;
  std::string outcome;
  std::string note;
};

std::vector<TraceLine> ReadTrace(const std::string& path) {
  std::vector<TraceLine> lines;
  std::istringstream text(ReadFile(path));
  for (std::string line; std::getline(text, line);) {
    std::istringstream fields(line);
    long long atMs = 0;
    double ms = 0;
    TraceLine t;
    fields >> atMs >> t.client >> t.kind >> t.status >> ms >> t.outcome;
    std::getline(fields >> std::ws, t.note);
    lines.push_back(t);
  }
  return lines;
}

Json::Value ReadJson(const std::string& path) {
  Json::Value root;
  std::ifstream file(path);
  Json::CharReaderBuilder builder;
  std::string errors;
  EXPECT_TRUE(Json::parseFromStream(builder, file, &root, &errors)) << errors;
  return root;
}

// The uid client `index` registered with, once it has polled once (so that
// it knows its setting sequence before the operator moves it); empty if it
// has not within 10 s.
std::string UidOnceItPolled(const std::string& tracePath, uint32_t index) {
  for (int i = 0; i < 1000; ++i) {
    std::string uid;
    bool polled = false;
    for (const TraceLine& t : ReadTrace(tracePath)) {
      if (t.client == index && t.kind == "register" && t.note.rfind("uid=", 0) == 0) uid = t.note.substr(4);
      if (t.client == index && t.kind == "heartbeat" && t.outcome == "ok") polled = true;
    }
    if (polled && !uid.empty()) return uid;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return "";
}

// A certificate with the service's issuer and serial number but a key of
// its own: the service signs for it as for its own, and a client holding it
// must find every signature wrong.
bool WriteForgedCertificate(const std::string& realPath, const std::string& forgedPath) {
  std::FILE* in = std::fopen(realPath.c_str(), "r");
  X509* real = in ? PEM_read_X509(in, nullptr, nullptr, nullptr) : nullptr;
  if (in) std::fclose(in);
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* forged = X509_new();
  bool ok = real && key && forged && X509_set_serialNumber(forged, X509_get_serialNumber(real)) == 1 &&
            X509_set_issuer_name(forged, X509_get_issuer_name(real)) == 1 &&
            X509_set_subject_name(forged, X509_get_issuer_name(real)) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(forged), 0) && X509_gmtime_adj(X509_getm_notAfter(forged), 3600) &&
            X509_set_pubkey(forged, key) == 1 && X509_sign(forged, key, EVP_sha256()) > 0;
  std::FILE* out = ok ? std::fopen(forgedPath.c_str(), "w") : nullptr;
  ok = out && PEM_write_X509(out, forged) == 1;
  if (out) std::fclose(out);
  X509_free(forged);
  EVP_PKEY_free(key);
  X509_free(real);
  return ok;
}

class Agentsim : public System {
 protected:
  void SetUp() override {
    System::SetUp();
    StartHost(false);
  }
  // A second's heartbeat with jitter, registrations within half a second.
  std::vector<std::string> Command(const std::string& clients, const std::string& seconds) const {
    const std::string url = "http://127.0.0.1:" + std::to_string(host_->port()) + "/vigilcrest/cgi/isapiClient.dll";
    return {VGCR_AGENTSIM, "--url", url, "--clients", clients, "--duration", seconds, "--heartbeat", "1",
            "--jitter", "0.2", "--register-within", "0.5", "--connections", "4"};
  }
  std::string Log() const { return folder_ + "/agentsim.log"; }
};

TEST_F(Agentsim, ClientsRegisterPollReportAndFetchOnlyTheSettingsThatMoved) {
  const std::string json = folder_ + "/agentsim.json", trace = folder_ + "/trace.txt";
  std::vector<std::string> args = Command("20", kRunSeconds);
  args.insert(args.end(), {"--logs-per-hour", "3600", "--seed", "7", "--sign", "--certificate",
                           folder_ + "/signing-cert.pem", "--json", json, "--trace", trace});
  Child simulator(args, Log());
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "20"), "20") << "every client registered";

  // The operator changes client 3's manual scan settings during the run.
  constexpr uint32_t kChanged = 3;
  const std::string uid = UidOnceItPolled(trace, kChanged);
  ASSERT_FALSE(uid.empty()) << ReadFile(trace);
  const std::string section = folder_ + "/ms.ini";
  std::ofstream(section) << "[Manual_Scan]\nScanAllFiles=0\n";
  ASSERT_EQ(Child(Operator({"set-section", uid, "MS_CFG", section})).Wait(), 0);
  ASSERT_EQ(simulator.Wait(), 0) << ReadFile(Log());

  const Json::Value report = ReadJson(json);
  EXPECT_EQ(report["kinds"]["register"]["ok"].asUInt64(), 20u);
  EXPECT_GE(report["kinds"]["heartbeat"]["ok"].asUInt64(), 40u) << "a heartbeat a second, from 20 clients";
  for (const char* kind : {"register", "heartbeat", "settings", "log", "status", "logon"}) {
    const Json::Value& k = report["kinds"][kind];
    EXPECT_EQ(k["failed"].asUInt64(), 0u) << kind << ": " << k["errors"].toStyledString();
    EXPECT_EQ(k["transport_errors"].asUInt64(), 0u) << kind;
    EXPECT_EQ(k["signature_failures"].asUInt64(), 0u) << kind;
  }
  const std::string virus = std::to_string(report["logs_accepted"]["virus"].asUInt64());
  EXPECT_NE(virus, "0");
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM virus_log", virus), virus) << "every virus log accepted was stored";

  // Each settings fetch follows a heartbeat whose sequence moved, and only
  // the changed client's ever did.
  std::map<uint32_t, int32_t> sequence;
  std::map<uint32_t, int> moves, fetches;
  for (const TraceLine& t : ReadTrace(trace)) {
    if (t.kind == "heartbeat") {
      int32_t seq = 0;
      ASSERT_EQ(std::sscanf(t.note.c_str(), "seq=%d", &seq), 1) << t.note;
      if (sequence.count(t.client) && sequence[t.client] != seq) ++moves[t.client];
      sequence[t.client] = seq;
    } else if (t.kind == "settings" && t.note == "202/1") {
      EXPECT_EQ(t.outcome, "ok");
      EXPECT_LT(fetches[t.client]++, moves[t.client]) << "client " << t.client << " fetched without a change";
    }
  }
  EXPECT_EQ(moves, (std::map<uint32_t, int>{{kChanged, 1}}));
  EXPECT_EQ(fetches, moves);
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM config_records"), "0") << "the fetch cleared the pending record";
}

TEST_F(Agentsim, SignaturesAreCheckedWithTheCertificateItHolds) {
  const std::string forged = folder_ + "/forged-cert.pem", json = folder_ + "/forged.json";
  ASSERT_TRUE(WriteForgedCertificate(folder_ + "/signing-cert.pem", forged));
  std::vector<std::string> args = Command("3", "1.5");
  args.insert(args.end(), {"--sign", "--certificate", forged, "--json", json});
  ASSERT_EQ(Child(args, Log()).Wait(), 0) << ReadFile(Log());
  const Json::Value total = ReadJson(json)["total"];
  EXPECT_GE(total["requests"].asUInt64(), 6u);
  EXPECT_EQ(total["failed"].asUInt64(), 0u) << "signed replies, signed with another key";
  EXPECT_EQ(total["signature_failures"], total["requests"]);
}

TEST(AgentsimOptions, ExitStatus) {
  auto run = [](std::vector<std::string> args) {
    args.insert(args.begin(), VGCR_AGENTSIM);
    return Child(args, "/dev/null").Wait();
  };
  const std::string nobody = "http://127.0.0.1:" + std::to_string(httptest::FreePort()) + "/x";
  EXPECT_EQ(run({"--url", nobody, "--clients", "3", "--duration", "1"}), 1) << "nobody listens";
  EXPECT_EQ(run({"--url", nobody, "--clients", "0", "--duration", "1"}), 2);
  EXPECT_EQ(run({"--url", nobody, "--clients", "3"}), 2) << "no duration";
  EXPECT_EQ(run({"--url", "ftp://127.0.0.1/x", "--clients", "3", "--duration", "1"}), 2);
  EXPECT_EQ(run({"--url", nobody, "--clients", "3", "--duration", "1", "--sign"}), 2) << "no certificate";
  EXPECT_EQ(run({"--url", nobody, "--clients", "3", "--duration", "1", "--sign", "--certificate", "/nonexistent.pem"}),
            2);
  EXPECT_EQ(run({"--help"}), 0);
}

}  // namespace
