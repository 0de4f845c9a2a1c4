// The service in this process with a data folder of its own; a test may
// restart it with other options.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "channel/channel_Settings.h"
#include "channel/rec_Logs.h"
#include "db_probe.h"
#include "svc_Service.h"

inline constexpr char kLogUid[] = "6B29FC40-CA47-1067-B31D-00DD010662DA";

// What the tests start the service with: the shipped sections, few
// listeners, no line per command.
inline svc::Options TestOptions(const std::string& folder) {
  svc::Options options;
  options.dataFolder = folder;
  options.defaultsFolder = VGCR_DEFAULT_SECTIONS;
  options.instances = 4;
  options.quiet = true;
  return options;
}

class InProcessService : public ::testing::Test {
 protected:
  void SetUp() override {
    SetChannelReplyTimeoutMs(3000);
    folder_ = MakeTempFolder();
    testDb_ = std::make_unique<TestDatabase>(folder_);
    ASSERT_EQ(testDb_->error(), "");
    Restart([](svc::Options&) {});
    db_ = std::make_unique<DbProbe>(testDb_->location());
  }
  void TearDown() override {
    service_.Stop();
    db_.reset();
    testDb_.reset();
    RemoveFolder(folder_);
    SetChannelReplyTimeoutMs(0);
  }
  void Restart(const std::function<void(svc::Options&)>& adjust) {
    service_.Stop();
    svc::Options options = TestOptions(folder_);
    options.database = testDb_->option();
    adjust(options);
    std::string error;
    ASSERT_TRUE(service_.Start(options, &error)) << error;
  }
  std::string Count(const char* table) { return db_->Value(std::string("SELECT COUNT(*) FROM ") + table); }

  std::string folder_;
  std::unique_ptr<TestDatabase> testDb_;
  svc::Service service_;
  std::unique_ptr<DbProbe> db_;
};
