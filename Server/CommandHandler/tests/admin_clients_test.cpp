// The operator's view of the clients: what the list and one client show,
// as a script reads them (JSON), including texts a client filled with
// anything at all.
#include <gtest/gtest.h>
#include <json/json.h>

#include <sstream>

#include "db_Database.h"
#include "db_Schema.h"
#include "db_probe.h"
#include "st_Store.h"
#include "svc_Clients.h"

namespace {

constexpr char kA[] = "00000000-0000-4000-8000-00000000000A";
constexpr char kB[] = "00000000-0000-4000-8000-00000000000B";

Json::Value Parse(const std::string& text) {
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  Json::Value value;
  std::string errors;
  std::istringstream in(text);
  EXPECT_TRUE(Json::parseFromStream(builder, in, &value, &errors)) << errors << " in " << text;
  return value;
}

class AdminClients : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = MakeTempFolder();
    std::string error;
    database_ = db::Database::Open(folder_ + "/cmdhandler.db", &error);
    ASSERT_TRUE(database_ && db::CreateSchema(*database_, &error)) << error;
    // B's computer name is what a hostile client may send: quotes, a
    // control character and a byte that is not UTF-8.
    ASSERT_TRUE(database_->Exec(std::string(
                                    "INSERT INTO clients (uid, first_seen, last_seen, computer, release) VALUES "
                                    "('") + kA + "', '2026-01-01 00:00:00.000', '2026-02-01 00:00:00.000', 'PC-A', '14.0.1'),"
                                "('" + kB + "', '2026-01-01 00:00:00.000', '2026-03-01 00:00:00.000', "
                                "'say \"hi\"' || char(1) || CAST(x'FF' AS TEXT), '14.0.2');"
                                "INSERT INTO protection_status (uid, reported, mask) VALUES ('" + kA + "', '2026-02-01', 5);"
                                "INSERT INTO client_sections (uid, section, text, updated) VALUES ('" + kA +
                                "', 'MS_CFG', 'abc', '2026-02-01');"
                                "INSERT INTO config_records (uid, event, created) VALUES ('" + kA + "', 65, '2026-02-01');"
                                "INSERT INTO virus_log (uid, received) VALUES ('" + kA + "', '2026-02-01 01:00:00'), ('" +
                                kA + "', '2026-02-02 01:00:00');"));
  }
  void TearDown() override {
    database_.reset();
    RemoveFolder(folder_);
  }
  std::vector<std::string> ListedUids(const svc::ClientFilter& filter) {
    std::ostringstream out;
    std::string error;
    EXPECT_TRUE(svc::ListClients(*database_, filter, true, out, &error)) << error;
    std::vector<std::string> uids;
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);) uids.push_back(Parse(line)["uid"].asString());
    return uids;
  }
  std::string folder_;
  std::unique_ptr<db::Database> database_;
};

TEST_F(AdminClients, TheListFiltersAndPutsTheMostRecentlySeenFirst) {
  EXPECT_EQ(ListedUids({}), (std::vector<std::string>{kB, kA}));
  EXPECT_EQ(ListedUids({"2026-02-15", ""}), (std::vector<std::string>{kA}));
  EXPECT_EQ(ListedUids({"", "14.0.2"}), (std::vector<std::string>{kB}));
  EXPECT_EQ(ListedUids({"2026-01-15", ""}), (std::vector<std::string>{}));
  // A has reported mask 5 (AV, WR); B never reported.
  EXPECT_EQ(ListedUids({"", "", 5, 0}), (std::vector<std::string>{kA}));
  EXPECT_EQ(ListedUids({"", "", 1, 0}), (std::vector<std::string>{kA}));
  EXPECT_EQ(ListedUids({"", "", 2, 0}), (std::vector<std::string>{}));
  EXPECT_EQ(ListedUids({"", "", 0, 16}), (std::vector<std::string>{kB, kA})) << "never reported counts as lacking";
  EXPECT_EQ(ListedUids({"", "", 0, 4}), (std::vector<std::string>{kB}));
  EXPECT_EQ(ListedUids({"", "", 0, 6}), (std::vector<std::string>{kB, kA})) << "lacking one of the bits is enough";
}

// An operator's default reaches every client that has no section of its
// own by that name as a change it will fetch, survives the service loading
// the shipped defaults again, and goes back to the shipped text when cleared.
TEST_F(AdminClients, ADefaultMovesTheClientsWithoutTheirOwnSection) {
  st::Store store(*database_);
  ASSERT_TRUE(store.LoadDefaults({{"MS_CFG", "shipped"}}));
  ASSERT_TRUE(database_->Exec("UPDATE polling_state SET setting_sequence = 7 WHERE uid = '" + std::string(kA) + "'"));
  DbProbe probe(folder_ + "/cmdhandler.db");
  const auto sequence = [&](const char* uid) {
    return probe.Value("SELECT IFNULL((SELECT setting_sequence FROM polling_state WHERE uid = '" + std::string(uid) +
                       "'), 'none')");
  };
  const std::string text = "[MS_CFG]\r\nScanCompressed=0\r\n";
  int64_t clients = 0;
  ASSERT_TRUE(store.SetDefault("MS_CFG", &text, &clients));
  EXPECT_EQ(clients, 1) << "A has its own MS_CFG";
  EXPECT_EQ(sequence(kA), "7");
  EXPECT_EQ(sequence(kB), "1");
  EXPECT_EQ(probe.Value("SELECT COUNT(*) FROM config_records WHERE uid = '" + std::string(kB) + "' AND event = 65"), "1");
  std::string read;
  ASSERT_TRUE(store.ReadSection(kB, "MS_CFG", &read));
  EXPECT_EQ(read, text);
  ASSERT_TRUE(store.LoadDefaults({{"MS_CFG", "shipped"}}));
  ASSERT_TRUE(store.ReadSection(kB, "MS_CFG", &read));
  EXPECT_EQ(read, text) << "kept across a restart";
  ASSERT_TRUE(store.SetDefault("MS_CFG", nullptr, &clients));
  EXPECT_EQ(sequence(kB), "2");
  ASSERT_TRUE(store.ReadSection(kB, "MS_CFG", &read));
  EXPECT_EQ(read, "shipped");
  ASSERT_TRUE(store.ReadSection(kA, "MS_CFG", &read));
  EXPECT_EQ(read, "abc");
  EXPECT_FALSE(store.SetDefault("NO_SUCH_SECTION", &text, &clients));
}

TEST_F(AdminClients, OneClientShowsWhatIsKeptAboutIt) {
  std::ostringstream out;
  std::string error;
  bool known = false;
  ASSERT_TRUE(svc::ShowClient(*database_, kA, true, out, &known, &error)) << error;
  ASSERT_TRUE(known);
  const Json::Value client = Parse(out.str());
  EXPECT_EQ(client["client"]["computer"].asString(), "PC-A");
  EXPECT_EQ(client["protection_status"]["mask"].asInt(), 5);
  EXPECT_TRUE(client["logon_user"].isNull());
  ASSERT_EQ(client["sections"].size(), 1u);
  EXPECT_EQ(client["sections"][0]["section"].asString(), "MS_CFG");
  EXPECT_EQ(client["config_records"][0]["event"].asInt(), 65);
  EXPECT_EQ(client["logs"]["virus_log"]["count"].asInt(), 2);
  EXPECT_EQ(client["logs"]["virus_log"]["newest"].asString(), "2026-02-02 01:00:00");
  EXPECT_EQ(client["logs"]["dlp_log"]["count"].asInt(), 0);

  std::ostringstream hostile;
  ASSERT_TRUE(svc::ShowClient(*database_, kB, true, hostile, &known, &error)) << error;
  EXPECT_EQ(Parse(hostile.str())["client"]["computer"].asString(), "say \"hi\"\x01\xEF\xBF\xBD");

  std::ostringstream none;
  ASSERT_TRUE(svc::ShowClient(*database_, "00000000-0000-4000-8000-0000000000FF", false, none, &known, &error));
  EXPECT_FALSE(known);
  EXPECT_EQ(none.str(), "");
}

}  // namespace
