// Keeping the logs: retention by age and count, the export, the migration
// of tables of an older layout, and the options that set them.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <vector>

#include "db_LogSchema.h"
#include "db_Schema.h"
#include "service_fixture.h"
#include "st_Retention.h"
#include "svc_Admin.h"
#include "svc_Export.h"

namespace {

std::string Insert(const char* table, int rows, const char* received) {
  return std::string("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ") +
         std::to_string(rows) + ") INSERT INTO " + table + " (received, uid) SELECT '" + received +
         "', 'u' || i FROM n";
}

struct Pass {
  std::vector<std::string> lines;
  bool ok = false;
};

Pass Retain(db::Database& database, st::RetentionLimits limits, bool stopping = false) {
  Pass pass;
  pass.ok = st::RunRetention(
      database, limits, [stopping] { return stopping; }, [&](const std::string& line) { pass.lines.push_back(line); });
  return pass;
}

class Upkeep : public InProcessService {
 protected:
  void SetUp() override {
    InProcessService::SetUp();
    std::string error;
    database_ = db::Database::Open(testDb_->location(), &error);
    ASSERT_TRUE(database_) << error;
  }
  void TearDown() override {
    database_.reset();
    InProcessService::TearDown();
  }
  std::unique_ptr<db::Database> database_;
};

TEST_F(Upkeep, RetentionDeletesByAgeThenByCount) {
  ASSERT_TRUE(db_->Exec(Insert("virus_log", 3, "2000-01-01 00:00:00.000")));
  ASSERT_TRUE(db_->Exec("INSERT INTO virus_log (uid) VALUES ('new'), ('newer')"));
  ASSERT_TRUE(db_->Exec(Insert("url_filtering_log", 1234, "2999-01-01 00:00:00.000")));

  EXPECT_TRUE(Retain(*database_, {90, 0}, /*stopping=*/true).lines.empty()) << "a stopping pass deletes nothing";
  EXPECT_EQ(Count("virus_log"), "5");

  Pass byAge = Retain(*database_, {90, 0});
  EXPECT_TRUE(byAge.ok);
  EXPECT_EQ(byAge.lines, std::vector<std::string>{"virus_log 3 rows older than 90 days"});
  EXPECT_EQ(db_->Value("SELECT group_concat(uid) FROM virus_log"), "new,newer");

  // More than one batch of 500; the newest ids stay.
  Pass byCount = Retain(*database_, {0, 100});
  EXPECT_EQ(byCount.lines, std::vector<std::string>{"url_filtering_log 1134 rows beyond the newest 100"});
  EXPECT_EQ(db_->Value("SELECT COUNT(*) || ' ' || MIN(id) || ' ' || MAX(id) FROM url_filtering_log"),
            "100 1135 1234");
  EXPECT_EQ(Count("virus_log"), "2") << "under the count";
  EXPECT_TRUE(Retain(*database_, {90, 100}).lines.empty()) << "nothing left to delete";
}

TEST_F(Upkeep, TheServiceRunsRetentionOnItsOwn) {
  ASSERT_TRUE(db_->Exec(Insert("scan_operation_log", 50, "2999-01-01 00:00:00.000")));
  Restart([](svc::Options& options) {
    options.logMaxRows = 10;
    options.retentionIntervalSeconds = 1;
  });
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM scan_operation_log", "10"), "10");
  ASSERT_TRUE(db_->Exec(Insert("scan_operation_log", 5, "2999-01-01 00:00:00.000")));
  EXPECT_EQ(db_->WaitFor("SELECT MIN(id) FROM scan_operation_log", "46", 4000), "46") << "and again each interval";
}

TEST_F(Upkeep, ExportWritesEveryColumnAsJsonOldestFirst) {
  ASSERT_TRUE(db_->Exec(std::string("INSERT INTO virus_log (received, uid, release, record_type, virus, firstaction) "
                                    "VALUES ('2024-05-06 07:08:09.123', '") +
                        kLogUid + "', '14.0', 2, 'say \"hi\"\tcaf\u00e9', -3);"
                        "INSERT INTO virus_log (received, uid) VALUES ('2024-06-01 00:00:00.000', 'other')"));
  // Every column in table order; those not set are null.
  const std::map<std::string, std::string> values = {
      {"id", "1"},
      {"received", "\"2024-05-06 07:08:09.123\""},
      {"uid", std::string("\"") + kLogUid + "\""},
      {"release", "\"14.0\""},
      {"record_type", "2"},
      {"virus", "\"say \\\"hi\\\"\\tcaf\u00e9\""},
      {"firstaction", "-3"}};
  std::string expected;
  for (const db::Column& column : db::LogColumns(logrec::kVirusLog)) {
    const auto found = values.find(column.name);
    expected += (expected.empty() ? "{\"" : ",\"") + column.name + "\":" +
                (found != values.end() ? found->second : "null");
  }
  expected += "}\n";

  const auto exported = [&](svc::ExportFilter filter, svc::ExportFormat format = svc::ExportFormat::kJsonLines) {
    std::ostringstream out;
    std::string error;
    EXPECT_TRUE(svc::ExportLogs(*database_, logrec::kVirusLog, filter, format, out, &error)) << error;
    return out.str();
  };
  const std::string all = exported({});
  EXPECT_EQ(all.substr(0, all.find('\n') + 1), expected);
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2);
  EXPECT_EQ(exported({"", "", "6b29fc40-ca47-1067-b31d-00dd010662da"}), expected) << "uids compare without case";
  const std::string since = exported({"2024-05-07", "", ""});
  EXPECT_EQ(std::count(since.begin(), since.end(), '\n'), 1);
  EXPECT_NE(since.find("\"uid\":\"other\""), std::string::npos) << since;
  const std::string until = exported({"", "2024-05-07", ""});
  EXPECT_EQ(std::count(until.begin(), until.end(), '\n'), 1);
  EXPECT_EQ(until.find("\"uid\":\"other\""), std::string::npos) << "the bound itself is left out";

  // CSV: a header, then fields quoted only where they must be, quotes doubled.
  const std::string csv = exported({"", "2024-05-07", ""}, svc::ExportFormat::kCsv);
  std::string header;
  for (const db::Column& column : db::LogColumns(logrec::kVirusLog)) header += (header.empty() ? "" : ",") + column.name;
  EXPECT_EQ(csv.substr(0, csv.find("\r\n")), header);
  EXPECT_NE(csv.find(",\"say \"\"hi\"\"\tcaf\u00e9\","), std::string::npos) << csv;
  EXPECT_NE(csv.find(",14.0,"), std::string::npos) << csv;
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 2);

  // A table larger than a page is read a page at a time, each row once, in
  // order, the filters applying on every page.
  ASSERT_TRUE(db_->Exec(Insert("virus_log", 12345, "2024-06-01 00:00:00.000")));
  const std::string many = exported({"2024-05-07", "", ""});
  EXPECT_EQ(std::count(many.begin(), many.end(), '\n'), 12346);
  EXPECT_EQ(many.substr(many.rfind("{\"id\":")).substr(0, 13), "{\"id\":12347,\"");
}

TEST(Export, JsonStringsAreEscapedAndStayUtf8) {
  const struct {
    std::string text, json;
  } cases[] = {
      {"plain", "\"plain\""},
      {"a\"b\\c/d", "\"a\\\"b\\\\c/d\""},
      {"\t\n\r\b\f", "\"\\t\\n\\r\\b\\f\""},
      {std::string("\x01\x1f\x7f", 3), "\"\\u0001\\u001f\\u007f\""},
      {std::string("nul\0x", 5), "\"nul\\u0000x\""},
      {"\u00e9\u4e2d\U0001F600", "\"\u00e9\u4e2d\U0001F600\""},
      {"\xff", "\"\\ufffd\""},                    // never a UTF-8 byte
      {"\xe4\xb8", "\"\\ufffd\\ufffd\""},         // a sequence cut short
      {"\xc0\xaf", "\"\\ufffd\\ufffd\""},         // overlong
      {"\xed\xa0\x80", "\"\\ufffd\\ufffd\\ufffd\""},  // a surrogate
      {"\xf4\x90\x80\x80", "\"\\ufffd\\ufffd\\ufffd\\ufffd\""},  // beyond U+10FFFF
  };
  for (const auto& c : cases) EXPECT_EQ(svc::JsonString(c.text), c.json) << c.json;
}

TEST(Export, AnUnknownTableOrABadTimeIsRefused) {
  const std::string folder = MakeTempFolder();
  svc::Options options;
  options.dataFolder = folder;
  options.command = {"export-logs", "no_such_log"};
  EXPECT_EQ(svc::RunAdmin(options), 2);
  options.command = {"export-logs", "virus_log", "--since", "last week"};
  EXPECT_EQ(svc::RunAdmin(options), 2);
  RemoveFolder(folder);
}

// Tables made by earlier versions with other columns: nothing was ever
// written to them, so an empty one is made again; one with rows is left
// alone and the start refused.
TEST(LogMigration, AnEmptyOldTableIsMadeAgainOneWithRowsStopsTheStart) {
  SetChannelReplyTimeoutMs(3000);
  const std::string folder = MakeTempFolder();
  {
    std::string error;
    auto database = db::Database::Open(folder + "/cmdhandler.db", &error);
    ASSERT_TRUE(database) << error;
    ASSERT_TRUE(database->Exec("CREATE TABLE dlp_log (id INTEGER PRIMARY KEY, received TEXT NOT NULL, uid TEXT NOT "
                               "NULL, release TEXT, record_type INTEGER, form TEXT, action TEXT);"
                               "INSERT INTO dlp_log (received, uid) VALUES ('2020-01-01', 'u')"));
  }
  const svc::Options options = TestOptions(folder);
  std::string error;
  {
    svc::Service service;
    EXPECT_FALSE(service.Start(options, &error));
    EXPECT_NE(error.find("dlp_log"), std::string::npos) << error;
    EXPECT_NE(error.find("1 rows"), std::string::npos) << error;
  }
  DbProbe db(folder + "/cmdhandler.db");
  EXPECT_EQ(db.Value("SELECT COUNT(*) FROM dlp_log"), "1") << "kept";
  ASSERT_TRUE(db.Exec("DELETE FROM dlp_log"));
  {
    svc::Service service;
    EXPECT_TRUE(service.Start(options, &error)) << error;
  }
  EXPECT_EQ(db.Value("SELECT group_concat(name) FROM pragma_table_info('dlp_log') WHERE name IN ('form', "
                     "'originalstring')"),
            "originalstring");
  EXPECT_EQ(db.Value("SELECT type FROM pragma_table_info('dlp_log') WHERE name = 'action'"), "INTEGER");
  RemoveFolder(folder);
  SetChannelReplyTimeoutMs(0);
}

bool Parse(std::vector<const char*> args, svc::Options* options, std::string* error) {
  args.insert(args.begin(), "vgcr-cmdhandler");
  return svc::ParseOptions(static_cast<int>(args.size()), const_cast<char**>(args.data()), options, error);
}

// The retention options are read before the command; the command's own
// words stay with it.
TEST(LogOptions, RetentionOptionsAndTheCommandKeepItsOwn) {
  svc::Options options;
  std::string error;
  EXPECT_FALSE(Parse({"--log-max-age", "36501"}, &options, &error));
  EXPECT_FALSE(Parse({"--retention-interval", "0"}, &options, &error));
  EXPECT_FALSE(Parse({"--since", "2024-01-01"}, &options, &error)) << "only after a command";
  EXPECT_FALSE(Parse({"--signing-key", "dsa"}, &options, &error));
  EXPECT_EQ(options.signingKey, "ecdsa");
  ASSERT_TRUE(Parse({"--signing-key", "rsa"}, &options, &error)) << error;
  EXPECT_EQ(options.signingKey, "rsa");
  ASSERT_TRUE(Parse({"--log-max-age", "7", "--log-max-rows", "5", "--retention-interval", "30", "export-logs",
                     "virus_log", "--since", "2024-01-01", "--uid", "x"},
                    &options, &error))
      << error;
  EXPECT_EQ(options.logMaxAgeDays, 7u);
  EXPECT_EQ(options.logMaxRows, 5);
  EXPECT_EQ(options.retentionIntervalSeconds, 30u);
  EXPECT_EQ(options.command,
            (std::vector<std::string>{"export-logs", "virus_log", "--since", "2024-01-01", "--uid", "x"}));
  svc::Options listing;
  ASSERT_TRUE(Parse({"clients", "--seen-before", "2026-01-01", "--release", "14.0", "--json"}, &listing, &error))
      << error;
  EXPECT_EQ(listing.command,
            (std::vector<std::string>{"clients", "--seen-before", "2026-01-01", "--release", "14.0", "--json"}));
  svc::Options bare;
  EXPECT_FALSE(Parse({"--json"}, &bare, &error)) << "only after a command";
}

}  // namespace

// The schema's version: a database a newer release has used is refused with
// a message that says so; an older one is brought up to this release's.
TEST_F(InProcessService, TheSchemaVersionIsCheckedAndBroughtUp) {
  service_.Stop();
  ASSERT_TRUE(db_->Exec("INSERT INTO schema_version (version, applied) VALUES (99, 'later')"));
  svc::Options options = TestOptions(folder_);
  options.database = testDb_->option();
  std::string error;
  {
    svc::Service service;
    EXPECT_FALSE(service.Start(options, &error));
  }
  EXPECT_NE(error.find("schema is version 99, newer than this vgcr-cmdhandler's (2)"), std::string::npos) << error;
  ASSERT_TRUE(db_->Exec("DELETE FROM schema_version WHERE version > 1"));
  ASSERT_TRUE(db_->Exec("ALTER TABLE uploads DROP COLUMN door"));
  Restart([](svc::Options&) {});
  EXPECT_EQ(db_->Value("SELECT group_concat(version) FROM schema_version"), "1,2");
  EXPECT_EQ(db_->Value("SELECT COUNT(door) FROM uploads"), "0") << "the column is back";
}
