// VDI coordination through the whole system: many desktops of one pool
// asking at once, their turns, and a desktop that dies mid-task.
#include <algorithm>
#include <atomic>
#include <thread>

#include "support/crypt_StringEnvelope.h"
#include "system_fixture.h"

namespace {

using namespace systest;

std::string DesktopUid(int n) {
  char tail[16];
  std::snprintf(tail, sizeof tail, "%012X", n);
  return std::string("0F8FAD5B-D9CB-469F-A165-") + tail;
}

std::string Vdi(int type, int desktop, const std::string& task, const std::string& more = "") {
  const std::string data = R"({"uid":")" + DesktopUid(desktop) + R"(","pool":"hv-07","taskId":")" + task + "\"" +
                           more + "}";
  return "requestid=301&functiontype=" + std::to_string(type) + "&data=" + UrlEncode(data);
}

class VdiSystem : public System {
 protected:
  void SetUp() override {
    System::SetUp();
    ASSERT_EQ(service_.Stop(), 0);
    ASSERT_TRUE(StartService("8", {"--vdi-slots", "5", "--vdi-task-timeout", TaskTimeout()}));
    StartHost(false);
    for (int n = 0; n < kDesktops; ++n) {
      ASSERT_EQ(Ask(Registration(DesktopUid(n))).substr(0, 2), "1\n");
    }
    ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", std::to_string(kDesktops)), std::to_string(kDesktops));
  }
  std::string StartTask(int desktop, const std::string& task) {
    return Ask(Vdi(1, desktop, task, R"(,"taskKind":"scheduled-scan")"));
  }
  // Long enough for fifty desktops' turns on a slow machine; the test of a
  // desktop that dies sets its own, short one.
  virtual const char* TaskTimeout() const { return "600"; }
  static constexpr int kDesktops = 50;
};

class VdiDeadDesktop : public VdiSystem {
 protected:
  const char* TaskTimeout() const override { return "2"; }
};

TEST_F(VdiSystem, FiftyDesktopsOfOnePoolTakeFiveSlotsInTurn) {
  std::vector<std::string> answers(kDesktops);
  std::vector<std::thread> desktops;
  for (int n = 0; n < kDesktops; ++n) {
    desktops.emplace_back([&, n] { answers[n] = StartTask(n, "scan-1"); });
  }
  for (std::thread& t : desktops) t.join();
  const auto started = std::count(answers.begin(), answers.end(), R"({"action":"start"})");
  const auto waiting = std::count_if(answers.begin(), answers.end(),
                                     [](const std::string& a) { return a.rfind(R"({"action":"wait",)", 0) == 0; });
  EXPECT_EQ(started, 5);
  EXPECT_EQ(waiting, kDesktops - 5);
  // Rounds: the running desktops finish, the waiting ones ask again.
  std::vector<bool> done(kDesktops, false);
  for (int round = 0; round < kDesktops && std::count(done.begin(), done.end(), true) < kDesktops; ++round) {
    for (int n = 0; n < kDesktops; ++n) {
      if (answers[n] == R"({"action":"start"})" && !done[n]) {
        EXPECT_EQ(Ask(Vdi(2, n, "scan-1", R"(,"progress":50)")), R"({"action":"continue"})");
        EXPECT_EQ(Ask(Vdi(3, n, "scan-1", R"(,"result":0)")), R"({"action":"done"})");
        done[n] = true;
      }
    }
    EXPECT_LE(std::stoi(db_->Value("SELECT COUNT(*) FROM vdi_tasks WHERE state = 'running'")), 5);
    for (int n = 0; n < kDesktops; ++n) {
      if (!done[n]) answers[n] = StartTask(n, "scan-1");
    }
  }
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM vdi_tasks WHERE state = 'done'"), std::to_string(kDesktops));
  EXPECT_EQ(Ask(Vdi(3, 0, "scan-1", R"(,"result":0)")), R"({"action":"done"})") << "a repeated complete";
  EXPECT_EQ(Ask(Vdi(2, 0, "scan-1", R"(,"progress":5)")), "-50") << "a task that is over does not run";
}

TEST_F(VdiDeadDesktop, ADesktopThatDiesMidTaskFreesItsSlotAfterTheTimeOut) {
  for (int n = 0; n < 5; ++n) ASSERT_EQ(StartTask(n, "scan-2"), R"({"action":"start"})");
  EXPECT_EQ(StartTask(5, "scan-2").rfind(R"({"action":"wait",)", 0), 0u);
  // Desktops 1 to 4 keep reporting; desktop 0 has died. Within the time-out
  // its slot stays taken; past it, desktop 5 gets it.
  const auto begin = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(3000)) {
    for (int n = 1; n < 5; ++n) ASSERT_EQ(Ask(Vdi(2, n, "scan-2", R"(,"progress":10)")), R"({"action":"continue"})");
    if (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(1000)) {
      EXPECT_EQ(StartTask(5, "scan-2").rfind(R"({"action":"wait",)", 0), 0u);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
  EXPECT_EQ(StartTask(5, "scan-2"), R"({"action":"start"})");
  EXPECT_EQ(db_->Value("SELECT state FROM vdi_tasks WHERE task_id = 'scan-2' AND uid = '" + DesktopUid(0) + "'"),
            "dead");
  EXPECT_EQ(Ask(Vdi(3, 0, "scan-2", R"(,"result":0)")), "-50") << "the dead desktop's late report";
}

TEST_F(VdiSystem, AnEncipheredRequestThroughTheAdapterIsAnsweredInItsEnvelope) {
  StartHost(true);
  const std::string data = R"({"uid":")" + DesktopUid(7) +
                           R"(","pool":"hv-08","taskKind":"manual-scan","taskId":"m-1"})";
  std::string envelope;
  ASSERT_EQ(StringEnvelope::Encrypt(EnvelopeForm::kCryptEx3, data, &envelope), EnvelopeStatus::kOk);
  const std::string reply = Ask("requestid=301&functiontype=1&data=" + UrlEncode(envelope));
  std::string plain;
  EXPECT_EQ(StringEnvelope::Decrypt(reply, &plain), EnvelopeStatus::kOk) << reply;
  EXPECT_EQ(StringEnvelope::FormOf(reply), EnvelopeForm::kCryptEx3);
  EXPECT_EQ(plain, R"({"action":"start"})");
}

}  // namespace
