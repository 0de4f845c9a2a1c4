// The whole system under test: vgcr-cmdhandler in a folder of its own,
// isapi-host in front of it with the extension, and the service's database
// read back. The server folder (where spill files and uploads land on
// their way) is a folder of the test's own, shared by both processes.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "db_probe.h"
#include "http_support.h"

namespace systest {

using httptest::Body;
using httptest::Child;
using httptest::Get;
using httptest::Header;
using httptest::Host;
using httptest::UrlEncode;

constexpr char kUid[] = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

inline std::string Registration(const std::string& uid) {
  return "requestid=101&uid=" + uid +
         "&date=20261122&time=031500&computer=PC%C3%A9&platform=Linux&ip=10.0.0.7&program=14.0&timezone=-480"
         "&engine=22.1&domain=CORP&hotfix=KB1&instdate=20260101&insttime=120000&release=14.0.1"
         "&clientlistenport=70000&mac=00AABBCCDDEE";
}

// Waits (up to 5 s) until a service's log says it listens, after `from`.
inline bool WaitForListening(const std::string& log, std::size_t from = 0) {
  for (int i = 0; i < 500; ++i) {
    if (ReadFile(log).find("listening", from) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

inline std::string Poll(const std::string& uid) { return "requestid=207&functiontype=1&uid=" + uid; }

class System : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = MakeTempFolder();
    serverFolder_ = folder_ + "/server";
    std::filesystem::create_directory(serverFolder_);
    ::setenv("VGCR_LOCAL_PATH", serverFolder_.c_str(), 1);
    testDb_ = std::make_unique<TestDatabase>(folder_);
    ASSERT_EQ(testDb_->error(), "");
    ASSERT_TRUE(StartService());
    db_ = std::make_unique<DbProbe>(testDb_->location());
  }
  void TearDown() override {
    host_.reset();
    if (service_.running()) {
      EXPECT_EQ(service_.Stop(), 0) << "a clean stop";
    }
    db_.reset();
    testDb_.reset();
    if (HasFailure()) std::cerr << "service log:\n" << ReadFile(folder_ + "/service.log");
    ::unsetenv("VGCR_LOCAL_PATH");
    RemoveFolder(folder_);
  }

  // Starts the service (with few listeners, unless told how many) and
  // waits until it listens.
  bool StartService(const char* instances = "4", const std::vector<std::string>& extra = {}) {
    const std::string log = folder_ + "/service.log";
    const std::size_t before = ReadFile(log).size();
    std::vector<std::string> args = Operator({"--instances", instances});
    args.insert(args.end(), extra.begin(), extra.end());
    service_.Start(args, log);
    return WaitForListening(log, before);
  }

  void StartHost(bool adapter) {
    host_ = std::make_unique<Host>(adapter ? std::vector<std::string>{"--adapter"} : std::vector<std::string>{});
    ASSERT_TRUE(host_->ready());
  }

  std::string Ask(const std::string& query) { return Body(Get(host_->port(), query)); }

  // SIGSTOP, then waits until every thread of the service has stopped: on a
  // busy machine a thread already woken may otherwise run on for a while.
  void FreezeService() {
    service_.Signal(SIGSTOP);
    const std::string tasks = "/proc/" + std::to_string(service_.pid()) + "/task";
    for (int i = 0; i < 500; ++i) {
      bool frozen = true;
      for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        const std::string stat = ReadFile(task.path().string() + "/stat");
        const std::size_t end = stat.rfind(')');
        if (end == std::string::npos || stat.compare(end + 2, 1, "T") != 0) frozen = false;
      }
      if (frozen) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ADD_FAILURE() << "the service did not stop";
  }

  // Registers kUid and waits until its row is there (the registration is
  // one way: the client is answered before the service has stored it).
  void RegisterClient() {
    ASSERT_EQ(Ask(Registration(kUid)).substr(0, 2), "1\n");
    ASSERT_EQ(db_->WaitFor("SELECT COUNT(*) FROM clients", "1"), "1");
  }

  // The service's command line with these arguments: its data folder and
  // database, as the operator's commands take them too.
  std::vector<std::string> Operator(const std::vector<std::string>& rest) const {
    std::vector<std::string> args = {VGCR_CMDHANDLER, "--data", folder_};
    if (testDb_ && testDb_->postgres()) args.insert(args.end(), {"--database", testDb_->option()});
    args.insert(args.end(), rest.begin(), rest.end());
    return args;
  }

  // The signing certificate's SA_ISR and SA_SN, as the service prints them.
  void ReadIdentity(std::string* issuer, std::string* serial) {
    const std::string identityFile = folder_ + "/identity.txt";
    ASSERT_EQ(Child({VGCR_CMDHANDLER, "--print-identity", "--data", folder_}, identityFile).Wait(), 0);
    std::istringstream lines(ReadFile(identityFile));
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("SA_ISR=", 0) == 0) *issuer = line.substr(7);
      if (line.rfind("SA_SN=", 0) == 0) *serial = line.substr(6);
    }
    ASSERT_FALSE(serial->empty());
  }

  std::string folder_;
  std::string serverFolder_;
  std::unique_ptr<TestDatabase> testDb_;
  Child service_;
  std::unique_ptr<Host> host_;
  std::unique_ptr<DbProbe> db_;
};

class BothModes : public System, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    System::SetUp();
    StartHost(GetParam());
  }
};

}  // namespace systest
