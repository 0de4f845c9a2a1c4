// Logs sent through the extension's own channel: what is dropped, a log in a
// spill file, and that nothing acknowledged is lost when the service stops.
// (What each type stores is checked end to end in system_test.)
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "channel/ocl_Command.h"
#include "handlers/hdl_Common.h"
#include "service_fixture.h"
#include "platform/text.h"
#include "raw_send.h"

namespace {

using logrec::Layout;
using logrec::tagCln_Log;

// Non-ASCII on purpose: the texts must arrive as UTF-8.
std::u16string TextFor(const logrec::Key& key) { return plat::Widen(key.name) + u" \u00e9\u4e2d"; }
int32_t NumberFor(std::size_t position) { return static_cast<int32_t>(position) * 37 - 100; }

tagCln_Log Filled(const Layout& layout) {
  tagCln_Log record(layout);
  record.SetUid(kLogUid);
  record.SetRelease("14.0\xE9");  // e acute in the ANSI code page
  record.recordType = layout.lastRecordType;
  for (std::size_t i = 0; i < layout.keys.size(); ++i) {
    if (layout.keys[i].value == logrec::Value::kText) {
      record.SetText(i, TextFor(layout.keys[i]));
    } else {
      record.SetNumber(i, NumberFor(i));
    }
  }
  return record;
}

// As the extension sends it: on the layout's pipe, or on the one given.
bool Send(tagCln_Log& record, int mode = 1, std::optional<logrec::Pipe> pipe = {}) {
  const Layout& layout = record.layout();
  if (pipe.value_or(layout.pipe) == logrec::Pipe::kCommandHandler) return SendRecord(layout.command, record, mode);
  CMsgSerializer message(layout.command, mode);
  message << record;
  return ocl_SendToThreatLogServer(message);
}

TEST_F(InProcessService, BadLogsAreDroppedAndTheServiceGoesOn) {
  tagCln_Log foreignType = Filled(logrec::kVirusLog);
  foreignType.recordType = logrec::kUrlFilteringLog.firstRecordType;
  tagCln_Log noUid = Filled(logrec::kVirusLog);
  noUid.SetUid("");
  tagCln_Log wrongPipe = Filled(logrec::kVirusLog);
  tagCln_Log callbackOnCommandPipe = Filled(logrec::kCallbackLog);
  ASSERT_TRUE(Send(foreignType));
  ASSERT_TRUE(Send(noUid));
  ASSERT_TRUE(Send(wrongPipe, 1, logrec::Pipe::kThreatLog));
  ASSERT_TRUE(Send(callbackOnCommandPipe, 1, logrec::Pipe::kCommandHandler));

  tagCln_Log cut = Filled(logrec::kDlpLog);
  CMsgSerializer message(logrec::kDlpLog.command, 1);
  message << cut;
  std::vector<uint8_t> bytes = MessageBytes(message);
  for (std::size_t keep : {bytes.size() - 3, bytes.size() - 40, bytes.size() / 2}) {
    SendRaw(std::vector<uint8_t>(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(keep)));
  }

  tagCln_Log good = Filled(logrec::kVirusLog);
  ASSERT_TRUE(Send(good));
  service_.Stop();  // every request read has been handled and stored
  EXPECT_EQ(Count("virus_log"), "1");
  EXPECT_EQ(Count("callback_log"), "0");
  EXPECT_EQ(Count("dlp_log"), "0");
}

// A log longer than a pipe message travels in a spill file; the service
// reads it whole, on either pipe.
TEST_F(InProcessService, AFileBackedLogArrivesWhole) {
  std::u16string quote;
  for (std::size_t i = 0; i < logrec::kQuote; ++i) quote.push_back(static_cast<char16_t>(u'a' + i % 26));
  tagCln_Log dlp = Filled(logrec::kDlpLog);
  dlp.SetText(dlp.layout().keys.size() - 1, quote);  // originalstring
  tagCln_Log callback = Filled(logrec::kCallbackLog);
  callback.SetText(26, quote);  // EventMessage, cut to its width
  ASSERT_STREQ(logrec::kCallbackKeys[26].name, "EventMessage");
  ASSERT_TRUE(Send(dlp, 2));
  ASSERT_TRUE(Send(callback, 2));
  EXPECT_EQ(db_->WaitFor("SELECT originalstring FROM dlp_log", plat::ToUtf8(quote)).size(), quote.size());
  EXPECT_EQ(db_->WaitFor("SELECT length(\"EventMessage\") FROM callback_log", "4096"), "4096");
  EXPECT_EQ(db_->Value("SELECT channel FROM dlp_log"), plat::ToUtf8(TextFor(logrec::kDlpKeys[3])))
      << "the keys after the long one as well";
}

// Every log whose send succeeded is stored by the time Stop returns, however
// many are still queued: here all of them, as a person with the shell holds
// the database until the stop has begun.
TEST_F(InProcessService, AcknowledgedLogsSurviveAStop) {
  constexpr int kThreads = 8, kEach = 250;
  ASSERT_TRUE(db_->Exec("BEGIN IMMEDIATE"));
  std::atomic<int> acknowledged{0};
  std::vector<std::thread> senders;
  for (int t = 0; t < kThreads; ++t) {
    senders.emplace_back([t, &acknowledged] {
      tagCln_Log record = Filled(logrec::kVirusLog);
      for (int i = 0; i < kEach; ++i) {
        record.SetNumber(8, t * kEach + i);  // firstaction: which log it is
        if (Send(record)) ++acknowledged;
      }
    });
  }
  for (std::thread& sender : senders) sender.join();
  std::thread stopper([this] { service_.Stop(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  ASSERT_TRUE(db_->Exec("COMMIT"));
  stopper.join();
  EXPECT_EQ(acknowledged.load(), kThreads * kEach);
  EXPECT_EQ(Count("virus_log"), std::to_string(acknowledged.load()));
  EXPECT_EQ(db_->Value("SELECT COUNT(DISTINCT firstaction) FROM virus_log"), std::to_string(acknowledged.load()));
}

// The latest firewall counts per client; a count that is not a plain decimal
// number, or a uid of another length, is refused.
TEST_F(InProcessService, FirewallCountsAreCheckedBeforeTheyAreStored) {
  struct Case {
    const char16_t* uid;
    const char16_t* thirdCount;
    bool stored;
  } cases[] = {
      {u"00000000-0000-0000-0000-000000000001", u"3", true},
      {u"00000000-0000-0000-0000-000000000002", u"-3", false},
      {u"00000000-0000-0000-0000-000000000006", u"99999999999999999999", false},
      {u"00000000-0000-0000-0000-000000000007", u"", false},
      {u"00000000-0000-0000-0000-00000000008", u"3", false},
  };
  for (const Case& c : cases) {
    SendRaw(Utf16(std::u16string(u"CMDHL_PFW_UPDATE_CFW_COUNT\t") + c.uid + u"\t0\t1\t2\t" + c.thirdCount +
                  u"\t4\t5\t6\tfw\t1"));
  }
  service_.Stop();
  for (const Case& c : cases) {
    EXPECT_EQ(db_->Value("SELECT network_virus_per_hour || ',' || network_virus_total FROM firewall_counts "
                         "WHERE uid = '" + plat::ToUtf8(c.uid) + "'"),
              c.stored ? "3,6" : "<none>")
        << plat::ToUtf8(c.uid) << " " << plat::ToUtf8(c.thirdCount);
  }
}

}  // namespace
