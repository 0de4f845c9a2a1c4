// Two front doors on one PostgreSQL server: each an isapi-host with the
// extension and a service of its own (its own data folder, pipe folder and
// server folder), both services on one database. They must behave as one
// server, and ride out the database going away for a while.
#include <algorithm>
#include <atomic>
#include <thread>

#include "channel/rec_Logs.h"
#include "system_fixture.h"

namespace {

using namespace systest;

constexpr int kSlots = 5;

std::string DesktopUid(int n) {
  char tail[16];
  std::snprintf(tail, sizeof tail, "%012X", n);
  return std::string("7C9E6679-7425-40DE-944B-") + tail;
}

std::string VirusLog(const std::string& uid, int n) {
  return "requestid=110&functiontype=1&uid=" + uid +
         "&release=14.0.1&date=2026-11-23&time=09:30:00&login=CORP%5Cjdoe&virus=EICAR-" + std::to_string(n) +
         "&file=eicar.com&compressedfile=&directory=C%3A%5C&infectionsource=PC&firstaction=2&firststatus=0"
         "&secondaction=3&secondstatus=0";
}

// Sets an environment variable for the processes started meanwhile.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name)) {
      saved_ = old;
      had_ = true;
    }
    ::setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() {
    if (had_) {
      ::setenv(name_, saved_.c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::string saved_;
  bool had_ = false;
};

struct Door {
  std::string folder;  // data/, pipes/, server/ and the service's log
  Child service;
  std::unique_ptr<Host> host;
  std::string data() const { return folder + "/data"; }
  std::string log() const { return folder + "/service.log"; }
};

class ScaleOut : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = MakeTempFolder();
    // A server of the test's own: the outage below must not reach the
    // other tests' server.
    cluster_ = folder_ + "/postgres.location";
    ASSERT_EQ(Child({"/bin/bash", VGCR_PGCLUSTER, "start", cluster_, "fsync=off"}).Wait(), 0);
    const std::string server = ServerLocationIn(cluster_);
    std::string error;
    auto admin = db::ConnectPostgres(server + " dbname=postgres", "", &error);
    ASSERT_TRUE(admin && admin->Exec("CREATE DATABASE vgcr")) << error;
    location_ = server + " dbname=vgcr";
    db_ = std::make_unique<DbProbe>(location_);
    ASSERT_NO_FATAL_FAILURE(StartDoor(a_, "a"));
    // The second door signs with the first one's pair, as the operator
    // provisions every door.
    std::filesystem::create_directories(folder_ + "/b/data");
    for (const char* file : {"/signing-key.pem", "/signing-cert.pem"}) {
      std::filesystem::copy_file(a_.data() + file, folder_ + "/b/data" + file);
    }
    ASSERT_NO_FATAL_FAILURE(StartDoor(b_, "b"));
  }
  void TearDown() override {
    for (Door* door : {&a_, &b_}) {
      door->host.reset();
      if (door->service.running()) {
        EXPECT_EQ(door->service.Stop(), 0) << "a clean stop";
      }
    }
    for (Door* door : {&a_, &b_}) {
      if (HasFailure()) std::cerr << door->folder << " service log:\n" << ReadFile(door->log());
    }
    db_.reset();
    Child({"/bin/bash", VGCR_PGCLUSTER, "stop", cluster_}).Wait();
    RemoveFolder(folder_);
  }

  std::vector<std::string> ServiceArgs(const Door& door, const std::vector<std::string>& rest) const {
    std::vector<std::string> args = {VGCR_CMDHANDLER, "--data", door.data(), "--database", location_};
    args.insert(args.end(), rest.begin(), rest.end());
    return args;
  }

  // Starts a door's service and host with its own pipe and server folders.
  void StartDoor(Door& door, const std::string& name) {
    door.folder = folder_ + "/" + name;
    for (const char* sub : {"/data", "/pipes", "/server"}) std::filesystem::create_directories(door.folder + sub);
    ScopedEnv pipes("VGCR_PIPE_DIR", door.folder + "/pipes");
    ScopedEnv server("VGCR_LOCAL_PATH", door.folder + "/server");
    door.service.Start(ServiceArgs(door, {"--instances", "8", "--vdi-slots", std::to_string(kSlots)}), door.log());
    ASSERT_TRUE(WaitForListening(door.log())) << ReadFile(door.log());
    door.host = std::make_unique<Host>();
    ASSERT_TRUE(door.host->ready());
  }

  static std::string Ask(const Door& door, const std::string& query) { return Body(Get(door.host->port(), query)); }

  std::string folder_, cluster_, location_;
  std::unique_ptr<DbProbe> db_;
  Door a_, b_;
};

std::string PollingState(int individual, int message, int sequence) {
  return "[Polling_Response]\r\nRECEIVING_STATUS=1\r\nINDIVIDUAL_SETTING=" + std::to_string(individual) +
         "\r\nMESSAGE_ID=" + std::to_string(message) + "\r\nSETTING_SEQUENCE=" + std::to_string(sequence);
}

// A client registers through one door and polls through the other; an
// operator's change reaches it through both; its fetch through one door
// resets the record for both; logs through both land in one table.
TEST_F(ScaleOut, TwoDoorsKeepOneViewOfTheClients) {
  ASSERT_EQ(Ask(a_, Registration(kUid)).substr(0, 2), "1\n");
  ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "1"), "1");
  EXPECT_EQ(Ask(b_, Poll(kUid)), PollingState(0, 0, 0));

  const std::string file = folder_ + "/MS_CFG.ini";
  std::ofstream(file) << "[Manual_Scan]\nScanAllFiles=0\n";
  ASSERT_EQ(Child(ServiceArgs(a_, {"set-section", kUid, "MS_CFG", file})).Wait(), 0);
  EXPECT_EQ(Ask(a_, Poll(kUid)), PollingState(1, 0, 1));
  EXPECT_EQ(Ask(b_, Poll(kUid)), PollingState(1, 0, 1));
  EXPECT_EQ(Ask(b_, "requestid=202&functiontype=1&release=14.0.1&uid=" + std::string(kUid)),
            "[Manual_Scan]\r\nScanAllFiles=0\r\n");
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM config_records", "0"), "0") << "the fetch reset the record";
  EXPECT_EQ(Ask(a_, Poll(kUid)), PollingState(1, 0, 1)) << "and moved nothing else";

  // An alert message posted beside door B reaches the client through A.
  const std::string alert = folder_ + "/alert.txt";
  std::ofstream(alert) << "Outbreak";
  ASSERT_EQ(Child(ServiceArgs(b_, {"alert", "128", alert})).Wait(), 0);
  const std::string id = db_->Value("SELECT MAX(id) FROM alert_messages");
  EXPECT_EQ(Ask(a_, Poll(kUid)), PollingState(1, std::stoi(id), 1));

  constexpr int kEach = 40;
  std::vector<std::thread> senders;
  std::atomic<int> answered{0};
  for (Door* door : {&a_, &b_}) {
    senders.emplace_back([&, door] {
      for (int n = 0; n < kEach; ++n) answered += Ask(*door, VirusLog(kUid, n)) == "1";
    });
  }
  for (std::thread& t : senders) t.join();
  EXPECT_EQ(answered.load(), 2 * kEach);
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM virus_log", std::to_string(2 * kEach)), std::to_string(2 * kEach));
}

// Fifty desktops of one pool ask through both doors at once: the pool's
// slots are counted across the doors.
TEST_F(ScaleOut, VdiSlotsAreCountedAcrossTheDoors) {
  constexpr int kDesktops = 50;
  for (int n = 0; n < kDesktops; ++n) {
    ASSERT_EQ(Ask(n % 2 ? b_ : a_, Registration(DesktopUid(n))).substr(0, 2), "1\n");
  }
  ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", std::to_string(kDesktops)), std::to_string(kDesktops));
  std::vector<std::string> answers(kDesktops);
  std::vector<std::thread> desktops;
  for (int n = 0; n < kDesktops; ++n) {
    desktops.emplace_back([&, n] {
      const std::string data =
          R"({"uid":")" + DesktopUid(n) + R"(","pool":"hv-07","taskId":"scan-1","taskKind":"scheduled-scan"})";
      answers[n] = Ask(n % 2 ? b_ : a_, "requestid=301&functiontype=1&data=" + UrlEncode(data));
    });
  }
  for (std::thread& t : desktops) t.join();
  EXPECT_EQ(std::count(answers.begin(), answers.end(), R"({"action":"start"})"), kSlots);
  EXPECT_EQ(std::count_if(answers.begin(), answers.end(),
                          [](const std::string& a) { return a.rfind(R"({"action":"wait",)", 0) == 0; }),
            kDesktops - kSlots);
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM vdi_tasks WHERE state = 'running'"), std::to_string(kSlots));
}

// A door with a signing certificate of its own is refused: clients verify
// one certificate, whichever door answers.
TEST_F(ScaleOut, ADoorWithAnotherCertificateIsRefused) {
  Door c;
  c.folder = folder_ + "/c";
  std::filesystem::create_directories(c.data());
  ScopedEnv pipes("VGCR_PIPE_DIR", folder_ + "/c");
  EXPECT_EQ(Child(ServiceArgs(c, {}), c.log()).Wait(), 1);
  EXPECT_NE(ReadFile(c.log()).find("is not the one the database records"), std::string::npos) << ReadFile(c.log());
}

// The database stops for five seconds: meanwhile every round trip is
// answered -5 at once through either door, and the logs both doors take are
// kept until it is back; afterwards both doors serve again without being
// restarted.
TEST_F(ScaleOut, ADatabaseOutageIsAnsweredAtOnceAndRecoveredFrom) {
  ASSERT_EQ(Ask(a_, Registration(kUid)).substr(0, 2), "1\n");
  ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "1"), "1");
  ASSERT_EQ(Ask(b_, Poll(kUid)), PollingState(0, 0, 0));

  ASSERT_EQ(Child({"/bin/bash", VGCR_PGCLUSTER, "pause", cluster_}).Wait(), 0);
  const auto outage = std::chrono::steady_clock::now();
  int polls = 0;
  while (std::chrono::steady_clock::now() - outage < std::chrono::seconds(5)) {
    for (Door* door : {&a_, &b_}) {
      std::string answer;
      const auto asked = std::chrono::steady_clock::now();
      answer = Ask(*door, Poll(kUid));
      EXPECT_EQ(answer, "-5");
      EXPECT_LT(std::chrono::steady_clock::now() - asked, httptest::kPromptly);
      EXPECT_EQ(Ask(*door, VirusLog(kUid, polls)), "1");
      ++polls;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
  EXPECT_GE(polls, 10);
  ASSERT_EQ(Child({"/bin/bash", VGCR_PGCLUSTER, "resume", cluster_}).Wait(), 0);

  // Each door finds the database again by itself within a moment.
  for (Door* door : {&a_, &b_}) {
    std::string answer;
    for (int i = 0; i < 100 && answer != PollingState(0, 0, 0); ++i) {
      answer = Ask(*door, Poll(kUid));
      if (answer != PollingState(0, 0, 0)) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(answer, PollingState(0, 0, 0)) << door->folder;
  }
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM virus_log", std::to_string(polls), 20000), std::to_string(polls));
}

}  // namespace
