// The file upload (501): a multipart body whose file part streams into a
// temporary file in the server folder, announced to the service; and every
// way it can be refused, none of which leaves a file behind.
#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <thread>

#include "guard_record.h"
#include "handler_fixture.h"
#include "host/ext_Extension.h"
#include "handlers/isapi_Upload.h"
#include "host/grd_Guards.h"
#include "platform/process.h"
#include "server_folder.h"
#include "support/md5_MessageDigest5.h"

namespace {

constexpr char kBoundary[] = "b7f3-upload";

struct Part {
  std::string name;
  std::string value;
  std::optional<std::string> fileName = std::nullopt;  // a file part when set
};

std::string Multipart(const std::vector<Part>& parts, bool close = true) {
  std::string body = "preamble nobody reads\r\n";
  for (const Part& part : parts) {
    body += std::string("--") + kBoundary + "\r\nContent-Disposition: form-data; name=\"" + part.name + "\"";
    if (part.fileName) body += "; filename=\"" + *part.fileName + "\"\r\nContent-Type: application/zip";
    body += "\r\n\r\n" + part.value + "\r\n";
  }
  if (close) body += std::string("--") + kBoundary + "--\r\n";
  return body;
}

std::vector<Part> Identity(const std::string& type = "1") {
  return {{"requestid", "501"}, {"functiontype", type}, {"uid", kUid}, {"release", "14.0"}};
}

std::vector<Part> WithFile(std::vector<Part> parts, const std::string& content, const std::string& name = "logs.zip") {
  parts.push_back({"BinaryDataBlock", content, name});
  return parts;
}

// Content that keeps coming close to the delimiter without being it.
std::string TrickyContent(std::size_t size) {
  std::string content;
  const std::string almost = std::string("\r\n--") + std::string(kBoundary).substr(0, 6);
  for (std::size_t i = 0; content.size() < size; ++i) {
    content += (i % 7 == 0) ? almost : std::string(1, static_cast<char>(i * 37 % 256));
  }
  content.resize(size);
  return content;
}

std::string FileContent(const std::u16string& path) {
  std::ifstream file(std::filesystem::path(path), std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

uint32_t g_tick = 0;
uint32_t FarTick() { return g_tick; }

class Upload : public Handlers {
 protected:
  void SetUp() override {
    Handlers::SetUp();
    folder_ = std::make_unique<ScopedServerFolder>();
  }
  void TearDown() override {
    SetUploadLimit(0);
    folder_.reset();
    Handlers::TearDown();
  }
  isapi::Response Send(const std::string& body, uint32_t preload = 49152, uint64_t announced = UINT64_MAX) {
    isapi::Request request = InProcessHost::Post(body);
    request.contentType = std::string("multipart/form-data; boundary=\"") + kBoundary + "\"";
    request.preload = preload;
    request.announcedLength = announced;
    return host_.Send(std::move(request));
  }
  std::unique_ptr<ScopedServerFolder> folder_;
};

TEST_F(Upload, TheFileLandsWholeInTheServerFolderAndIsAnnounced) {
  const std::string content = TrickyContent(300000);
  // Preloads that cut the body before, inside and after the fields.
  for (const uint32_t preload : {0u, 1u, 7u, 200u, 49152u}) {
    peer_.Clear();
    EXPECT_EQ(Send(Multipart(WithFile(Identity(), content, "logs-2026.zip")), preload).body, "1") << preload;
    const auto fields = OnlyMessage(u"CMDHLV2_SET_LOG_COMMON");
    ASSERT_EQ(fields.size(), 7u);
    EXPECT_EQ(peer::AsWString(fields[0]), plat::Widen(kUid));
    EXPECT_EQ(peer::AsWString(fields[1]), u"14.0");
    EXPECT_EQ(peer::AsWString(fields[2]), u"logs-2026.zip");
    const std::u16string path = peer::AsWString(fields[3]);
    EXPECT_EQ(std::filesystem::path(path).parent_path(), std::filesystem::path(folder_->path()));
    EXPECT_EQ(std::filesystem::path(path).filename().u16string().rfind(u"upl", 0), 0u);
    EXPECT_EQ(peer::AsU32(fields[4]), content.size());
    EXPECT_EQ(peer::AsWString(fields[5]), plat::Widen(CMessageDigest5::HexDigest(content.data(), content.size())));
    EXPECT_EQ(peer::AsU32(fields[6]), 1700u);
    EXPECT_TRUE(FileContent(path) == content) << "the file, byte for byte";
    std::filesystem::remove(std::filesystem::path(path));  // the service's to remove
  }
}

// The body in pieces of every size around the delimiter's, so that the
// delimiter falls across reads at each of its bytes; and of unknown length.
TEST_F(Upload, TheDelimiterIsFoundWhereverTheReadsCutIt) {
  const std::string content = TrickyContent(5000);
  const std::string body = Multipart(WithFile(Identity(), content));
  const std::size_t delimiter = std::string("\r\n--").size() + std::string(kBoundary).size();
  for (std::size_t piece = 1; piece <= delimiter + 2; ++piece) {
    for (const bool unknownLength : {false, true}) {
      peer_.Clear();
      isapi::Request request = InProcessHost::Post("");
      request.contentType = std::string("multipart/form-data; boundary=") + kBoundary;
      request.announcedLength = unknownLength ? 0xFFFFFFFFu : body.size();
      auto at = std::make_shared<std::size_t>(0);
      request.readMore = [&body, piece, at](void* buffer, uint32_t* size) {
        const std::size_t n = std::min({piece, static_cast<std::size_t>(*size), body.size() - *at});
        std::memcpy(buffer, body.data() + *at, n);
        *at += n;
        *size = static_cast<uint32_t>(n);
        return true;
      };
      EXPECT_EQ(host_.Send(std::move(request)).body, "1") << piece << (unknownLength ? " unknown length" : "");
      const auto fields = OnlyMessage(u"CMDHLV2_SET_LOG_COMMON");
      ASSERT_EQ(fields.size(), 7u);
      const std::u16string path = peer::AsWString(fields[3]);
      EXPECT_TRUE(FileContent(path) == content) << piece;
      std::filesystem::remove(std::filesystem::path(path));
    }
  }
}

// Uploads past half the workers are asked to come back (503), so that slow
// ones cannot take every worker from the other requests.
TEST_F(Upload, SlowUploadsLeaveWorkersForEveryoneElse) {
  const std::string body = Multipart(WithFile(Identity(), "content"));
  const std::string head = body.substr(0, body.find("content"));
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t waiting = 0;
  bool release = false;
  const unsigned slow = CIsapiUploadProcessor::MaxConcurrentUploads();
  std::vector<std::thread> clients;
  std::vector<std::string> answers(slow);
  for (unsigned i = 0; i < slow; ++i) {
    clients.emplace_back([&, i] {
      isapi::Request request = InProcessHost::Post(head);
      request.contentType = std::string("multipart/form-data; boundary=") + kBoundary;
      request.announcedLength = body.size();
      auto sent = std::make_shared<bool>(false);
      request.readMore = [&, sent](void* buffer, uint32_t* size) {
        std::unique_lock<std::mutex> lock(mutex);
        if (!*sent) {
          ++waiting;
          changed.notify_all();
          changed.wait(lock, [&] { return release; });
        }
        const std::string rest = *sent ? "" : body.substr(head.size());
        *sent = true;
        *size = static_cast<uint32_t>(std::min<std::size_t>(*size, rest.size()));
        std::memcpy(buffer, rest.data(), *size);
        return true;
      };
      answers[i] = host_.Send(std::move(request)).body;
    });
  }
  {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait_for(lock, std::chrono::seconds(30), [&] { return waiting == slow; });
  }
  EXPECT_EQ(waiting, slow);
  EXPECT_EQ(Send(body).status, 503) << "one more upload than half the workers";
  EXPECT_EQ(Get("requestid=206").body, "-2") << "every other request is served";
  {
    std::lock_guard<std::mutex> lock(mutex);
    release = true;
  }
  changed.notify_all();
  for (std::thread& t : clients) t.join();
  for (const std::string& answer : answers) EXPECT_EQ(answer, "1");
  for (const peer::Received& r : peer_.WaitFor(slow)) {
    std::filesystem::remove(std::filesystem::path(peer::AsWString(r.message.fields.at(3))));
  }
}

TEST_F(Upload, KindsAndEmptyFiles) {
  EXPECT_EQ(Send(Multipart(WithFile(Identity("2"), ""))).body, "1");
  const auto fields = OnlyMessage(u"CMDHLV2_DLP_FORENSIC_DATA_UPLOAD");
  ASSERT_EQ(fields.size(), 7u);
  EXPECT_EQ(peer::AsU32(fields[4]), 0u);
  EXPECT_EQ(peer::AsWString(fields[5]), u"D41D8CD98F00B204E9800998ECF8427E");
  std::filesystem::remove(std::filesystem::path(peer::AsWString(fields[3])));
}

TEST_F(Upload, RefusalsLeaveNoFileBehind) {
  SetUploadLimit(1000);
  const std::string body = Multipart(WithFile(Identity(), std::string(600, 'x')));
  struct Case {
    const char* label;
    std::string body;
    const char* reply;
    uint64_t announced = UINT64_MAX;
  };
  const Case cases[] = {
      {"no functiontype", Multipart(WithFile({{"requestid", "501"}, {"uid", kUid}}, "x")), "-3"},
      {"a kind not served", Multipart(WithFile(Identity("3"), "x")), "-3"},
      {"no uid", Multipart(WithFile({{"requestid", "501"}, {"functiontype", "1"}}, "x")), "-6"},
      {"another file part", Multipart({Identity()[0], Identity()[1], Identity()[2], {"Data", "x", "a.zip"}}), "-40"},
      {"no file part", Multipart(Identity()), "-40"},
      {"fields never closed", Multipart(Identity(), false), "-40"},
      {"a separator", Multipart(WithFile(Identity(), "x", "logs/a.zip")), "-44"},
      {"a backslash", Multipart(WithFile(Identity(), "x", "a\\\\b.zip")), "-44"},
      {"a drive", Multipart(WithFile(Identity(), "x", "C:a.zip")), "-44"},
      {"dot dot inside", Multipart(WithFile(Identity(), "x", "a..b.zip")), "-44"},
      {"trailing dot", Multipart(WithFile(Identity(), "x", "a.")), "-44"},
      {"trailing blank", Multipart(WithFile(Identity(), "x", "a.zip ")), "-44"},
      {"empty name", Multipart(WithFile(Identity(), "x", "")), "-44"},
      {"a NUL", Multipart(WithFile(Identity(), "x", std::string("a\0b.zip", 7))), "-44"},
      {"a control character", Multipart(WithFile(Identity(), "x", "a\tb")), "-44"},
      {"a C1 control character", Multipart(WithFile(Identity(), "x", "a\xC2\x85" "b")), "-44"},
      {"201 characters", Multipart(WithFile(Identity(), "x", std::string(201, 'n'))), "-44"},
      {"300 characters", Multipart(WithFile(Identity(), "x", std::string(300, 'n'))), "-44"},
      {"not UTF-8", Multipart(WithFile(Identity(), "x", "\xff\xfe.zip")), "-44"},
      {"over the limit", Multipart(WithFile(Identity(), std::string(1001, 'x'))), "-42"},
      {"the body ends inside the file", body.substr(0, body.size() - 30), "-45", body.size()},
      {"the body ends at the file's delimiter", body.substr(0, body.find("\r\n--b7f3-upload--") + 15), "-45",
       body.find("\r\n--b7f3-upload--") + 15},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Send(c.body, 49152, c.announced).body, c.reply) << c.label;
    EXPECT_EQ(folder_->UploadFiles(), 0) << c.label;
  }
  EXPECT_EQ(Send(Multipart(WithFile(Identity(), std::string(1000, 'x')))).body, "1") << "at the limit";
  // The only announcement: a refused upload is never announced.
  std::filesystem::remove(std::filesystem::path(peer::AsWString(OnlyMessage(u"CMDHLV2_SET_LOG_COMMON").at(3))));
}

TEST_F(Upload, NoServerFolderOrNoServiceLeavesNothing) {
  const std::string body = Multipart(WithFile(Identity(), "content"));
  peer_.Stop();
  EXPECT_EQ(Send(body).body, "-5");
  EXPECT_EQ(folder_->UploadFiles(), 0);
  folder_.reset();
  EXPECT_EQ(Send(body).body, "-46");
}

TEST_F(Upload, TheDiskThresholdStatusDecides) {
  GuardRecord record(kDiskThresholdRecord);
  ASSERT_TRUE(record.ok());
  g_tick = plat::TickCount() + 3600000;  // far past the last read: read now
  TheExtension().SetTickSource(FarTick);
  const std::string body = Multipart(WithFile(Identity(), "content"));
  for (const auto& [status, reply] : std::vector<std::pair<uint32_t, std::string>>{
           {1702, "-43"}, {9999, "-43"}, {1701, "2"}, {1700, "1"}}) {
    peer_.Clear();
    record.Set(status, 1, 1);
    g_tick += 5000;
    EXPECT_EQ(Send(body).body, reply) << status;
    if (reply[0] != '-') {
      const auto fields = OnlyMessage(u"CMDHLV2_SET_LOG_COMMON");
      ASSERT_EQ(fields.size(), 7u);
      EXPECT_EQ(peer::AsU32(fields[6]), status);
      std::filesystem::remove(std::filesystem::path(peer::AsWString(fields[3])));
    }
    EXPECT_EQ(folder_->UploadFiles(), 0) << status;
  }
  TheExtension().SetTickSource(nullptr);
}

}  // namespace
