// VDI coordination: a pool's slots, its first-come queue, and the tasks that
// die or desktops that go, on a database in memory with the clock in hand.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "channel/rec_Vdi.h"
#include "db_Schema.h"
#include "db_probe.h"
#include "st_Vdi.h"

namespace {

using Answer = tagCln_VdiAnswer;

class Vdi : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    folder_ = MakeTempFolder();
    testDb_ = std::make_unique<TestDatabase>(folder_);
    ASSERT_EQ(testDb_->error(), "");
    database_ = db::Database::Open(testDb_->location(), &error);
    ASSERT_TRUE(database_ && db::CreateSchema(*database_, &error)) << error;
    vdi_ = std::make_unique<st::VdiCoordinator>(
        *database_, st::VdiLimits{2, std::chrono::seconds(60), std::chrono::seconds(10)});
    for (char c = 'A'; c <= 'F'; ++c) {
      ASSERT_TRUE(database_->Exec(std::string("INSERT INTO clients (uid, first_seen, last_seen) VALUES ('") +
                                  Uid(c) + "', 'x', 'x')"));
    }
  }
  static std::string Uid(char desktop) { return std::string(35, '0') + desktop; }
  static st::VdiRequest Task(char desktop, const std::string& pool = "hv-1") {
    return {Uid(desktop), pool, "scheduled-scan", std::string("t-") + desktop, 0, 0};
  }
  // What the desktop is answered, at this many seconds into the test.
  std::string Ask(char desktop, int64_t second, const std::string& pool = "hv-1") {
    st::VdiDecision d;
    EXPECT_TRUE(vdi_->Start(Task(desktop, pool), second * 1000, &d));
    if (d.decision == Answer::kWait) return "wait " + std::to_string(d.position);
    return d.decision == Answer::kStart ? "start" : std::to_string(d.decision);
  }
  int32_t Report(char desktop, int64_t second, bool complete) {
    st::VdiDecision d;
    st::VdiRequest request = Task(desktop);
    request.progress = 40;
    EXPECT_TRUE(complete ? vdi_->Complete(request, second * 1000, &d) : vdi_->Running(request, second * 1000, &d));
    return d.decision;
  }
  std::string States() {
    db::Statement s = database_->Prepare("SELECT state FROM vdi_tasks ORDER BY id");
    std::string states;
    while (s.Step()) states += (states.empty() ? "" : ",") + s.Text(0);
    return states;
  }

  void TearDown() override {
    vdi_.reset();
    database_.reset();
    testDb_.reset();
    RemoveFolder(folder_);
  }
  std::string folder_;
  std::unique_ptr<TestDatabase> testDb_;
  std::unique_ptr<db::Database> database_;
  std::unique_ptr<st::VdiCoordinator> vdi_;
};

TEST_F(Vdi, SlotsAreTakenInTheOrderDesktopsAsked) {
  EXPECT_EQ(Ask('A', 0), "start");
  EXPECT_EQ(Ask('B', 1), "start");
  EXPECT_EQ(Ask('C', 2), "wait 1");
  EXPECT_EQ(Ask('D', 3), "wait 2");
  EXPECT_EQ(Ask('A', 4), "start") << "a running desktop asking again is told to start again";
  EXPECT_EQ(Ask('C', 5), "wait 1") << "a waiting desktop keeps its place";
  EXPECT_EQ(Ask('E', 5, "hv-2"), "start") << "another pool has slots of its own";
  EXPECT_EQ(Report('A', 6, false), Answer::kNoted);
  EXPECT_EQ(Report('A', 7, true), Answer::kNoted);
  EXPECT_EQ(Ask('D', 8), "wait 2") << "the freed slot is the first waiter's, not the first to ask";
  EXPECT_EQ(Ask('C', 9), "start");
  EXPECT_EQ(Ask('D', 9), "wait 1");
  EXPECT_EQ(States(), "done,running,running,queued,running");
  db::Statement progress = database_->Prepare("SELECT progress, result FROM vdi_tasks WHERE task_id = 't-A'");
  ASSERT_TRUE(progress.Step());
  EXPECT_EQ(progress.Int(0), 100);
  EXPECT_EQ(progress.Int(1), 0);
}

TEST_F(Vdi, ASilentTaskDiesAndASilentWaiterGoes) {
  EXPECT_EQ(Ask('A', 0), "start");
  EXPECT_EQ(Ask('B', 0), "start");
  EXPECT_EQ(Ask('C', 0), "wait 1");
  EXPECT_EQ(Ask('D', 0), "wait 2");
  EXPECT_EQ(Ask('D', 30), "wait 2") << "D asks again; C does not";
  EXPECT_EQ(Report('A', 50, false), Answer::kNoted) << "A reports; B stays silent";
  EXPECT_EQ(Ask('D', 61), "start") << "B is dead and C gone after 60 s: D moves up and starts";
  EXPECT_EQ(Report('B', 62, true), Answer::kUnknownTask) << "a dead task's report finds no running task";
  EXPECT_EQ(Ask('C', 62), "wait 1") << "a desktop that went asks as a newcomer";
  EXPECT_EQ(Report('A', 63, true), Answer::kNoted);
  EXPECT_EQ(Report('A', 64, true), Answer::kNoted) << "a complete notification repeated";
  EXPECT_EQ(States(), "done,dead,gone,running,queued");
}

TEST_F(Vdi, UnknownClientsAndTasks) {
  st::VdiDecision d;
  EXPECT_TRUE(vdi_->Start(Task('Z'), 0, &d));
  EXPECT_EQ(d.decision, Answer::kUnknownClient);
  EXPECT_EQ(Report('A', 0, false), Answer::kUnknownTask) << "no start asked";
  EXPECT_EQ(Ask('A', 0), "start");
  st::VdiRequest other = Task('A');
  other.taskId = "t-other";
  EXPECT_TRUE(vdi_->Complete(other, 1, &d));
  EXPECT_EQ(d.decision, Answer::kUnknownTask) << "another task id of the same desktop";
  EXPECT_EQ(States(), "running") << "nothing stored for refusals";
}

TEST_F(Vdi, AWaitSaysWhenToAskAgain) {
  Ask('A', 0);
  Ask('B', 0);
  st::VdiDecision d;
  ASSERT_TRUE(vdi_->Start(Task('C'), 0, &d));
  EXPECT_EQ(d.decision, Answer::kWait);
  EXPECT_EQ(d.retryAfter, 10u);
  EXPECT_EQ(d.position, 1u);
}

}  // namespace
