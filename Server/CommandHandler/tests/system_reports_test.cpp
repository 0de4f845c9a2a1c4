// The update report, the configuration upload and the file upload through
// the whole system: HTTP to isapi-host, the extension, the pipes, and what
// vgcr-cmdhandler keeps of them.
#include <filesystem>
#include <fstream>

#include "support/md5_MessageDigest5.h"
#include "system_fixture.h"

namespace {

using namespace systest;

std::string Update(const std::string& type, const std::string& more) {
  return "requestid=102&functiontype=" + type + "&uid=" + kUid + "&release=14.0.1" + more;
}

std::string Multipart(const std::string& uid, const std::string& type, const std::string& content,
                      const std::string& fileName = "logs.zip") {
  const std::string b = "--vgcr-test-boundary\r\n";
  auto field = [&](const std::string& name, const std::string& value) {
    return b + "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
  };
  return field("requestid", "501") + field("functiontype", type) + field("uid", uid) + field("release", "14.0.1") +
         b + "Content-Disposition: form-data; name=\"BinaryDataBlock\"; filename=\"" + fileName +
         "\"\r\nContent-Type: application/zip\r\n\r\n" + content + "\r\n--vgcr-test-boundary--\r\n";
}

std::string PostMultipart(uint16_t port, const std::string& body) {
  return httptest::Exchange(port,
                            "POST /vigilcrest/cgi/isapiClient.dll HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                            "Content-Type: multipart/form-data; boundary=vgcr-test-boundary\r\nContent-Length: " +
                                std::to_string(body.size()) + "\r\n\r\n" + body);
}

std::string PostForm(uint16_t port, const std::string& body) {
  return httptest::Exchange(port,
                            "POST /vigilcrest/cgi/isapiClient.dll HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                            "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                                std::to_string(body.size()) + "\r\n\r\n" + body);
}

// Bytes that are not text, and that come close to the boundary.
std::string Content(std::size_t size) {
  std::string content(size, '\0');
  for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>((i * 131 + i / 977) % 256);
  for (std::size_t at = 1000; at + 30 < size; at += 65536) content.replace(at, 16, "\r\n--vgcr-test-bo");
  return content;
}

std::string Md5(const std::string& content) { return CMessageDigest5::HexDigest(content.data(), content.size()); }

int TempUploads(const std::string& folder) {
  int n = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    n += entry.path().filename().string().rfind("upl", 0) == 0;
  }
  return n;
}

// The peak resident memory of a process, in bytes.
uint64_t PeakMemory(pid_t pid) {
  std::istringstream status(ReadFile("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stoull(line.substr(6)) * 1024;
  }
  return 0;
}

class Reports : public BothModes {};

TEST_P(Reports, UpdateReportsAreKeptAndAnsweredFromTheServersComponentVersions) {
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  const std::string versions = "&program=14.0.1200&engine=22.1&ptnfile=1956100";
  EXPECT_EQ(Ask(Update("2", "&updresult=0" + versions)), "1") << "nothing newer on the server";
  const std::string file = folder_ + "/INI_COMPONENT_VER.ini";
  std::ofstream(file) << "[Component_Version]\nPattern=1956200\nEngine=22.1\nProgram=14.0.1200\n";
  ASSERT_EQ(Child(Operator({"set-section", kUid, "INI_COMPONENT_VER", file})).Wait(), 0);
  EXPECT_EQ(Ask(Update("2", "&updresult=0" + versions)), "2") << "a newer pattern is due";
  EXPECT_EQ(Ask(Update("1", "&updresult=0&program=14.0.1200&engine=22.1&ptnfile=1956200")), "1");
  EXPECT_EQ(Ask(Update("1", "&updresult=1603")), "1") << "a failure is reported too";
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM update_history", "4"), "4");
  EXPECT_EQ(Ask(Update("2", "&updresult=0&uid=6F9619FF-8B86-D011-B42D-00C04FC964FF")), "-39");
}

TEST_P(Reports, TheCertificateAClientTrustsIsRecorded) {
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  std::string issuer, serial;
  ASSERT_NO_FATAL_FAILURE(ReadIdentity(&issuer, &serial));
  EXPECT_EQ(Ask(Update("3", "&CLN_SA_ISR=" + UrlEncode(issuer) + "&CLN_SA_SN=" + serial)), "1");
  EXPECT_EQ(db_->Value(std::string("SELECT serial FROM client_certificates WHERE uid = '") + kUid + "'"), serial);
  EXPECT_EQ(Ask(Update("3", "&CLN_SA_ISR=" + UrlEncode(issuer) + "&CLN_SA_SN=0BAD")), "2");
  EXPECT_EQ(db_->Value(std::string("SELECT serial FROM client_certificates WHERE uid = '") + kUid + "'"), "0BAD");
  // The extension asked the server to look at its certificate again.
  std::string log;
  for (int i = 0; i < 250 && log.find("VG_REFRESH_CERT_INFO") == std::string::npos; ++i) {
    log = ReadFile(folder_ + "/service.log");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_NE(log.find("VG_REFRESH_CERT_INFO"), std::string::npos);
}

TEST_P(Reports, UploadedScanSettingsAreWhatTheConfigurationRequestReturns) {
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  const std::string realTime = "[RealTime_Scan]\nEnabled=0\nScanOn=Write\nCompressedLayer=5\nFirstAction=Delete\n";
  const std::string spyware = "[Spyware_RealTime_Scan]\nEnabled=1\nAction=Pass\nApprovedList=a.exe;b.exe\n";
  const std::string form = std::string("requestid=111&functiontype=1&uid=") + kUid +
                           "&release=14.0.1&RT_CFG=" + UrlEncode(realTime) + "&SPY_RT_CFG=" + UrlEncode(spyware);
  EXPECT_EQ(Body(PostForm(host_->port(), form)), "1");
  auto crlf = [](std::string text) {  // as every settings text is handed out
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) text.insert(at, "\r");
    return text;
  };
  const std::string fetch = std::string("&uid=") + kUid + "&release=14.0.1";
  EXPECT_EQ(Ask("requestid=202&functiontype=2" + fetch), crlf(realTime));
  EXPECT_EQ(Ask("requestid=202&functiontype=12" + fetch), crlf(spyware));
  EXPECT_EQ(Body(PostForm(host_->port(), form + "&MS_CFG=" + UrlEncode("[Manual_Scan]\nCpuUsage=9"))),
            "-41\nMS_CFG.CpuUsage");
  EXPECT_EQ(Body(PostForm(host_->port(), "requestid=111&functiontype=1&uid=6F9619FF-8B86-D011-B42D-00C04FC964FF"
                                         "&release=14.0.1&RT_CFG=x")),
            "-6");
}

TEST_P(Reports, AnUploadEndsInTheDataFolderAndNothingIsLeftOnTheWay) {
  ASSERT_NO_FATAL_FAILURE(RegisterClient());
  const std::string content = Content(1 << 20);
  EXPECT_EQ(Body(PostMultipart(host_->port(), Multipart(kUid, "1", content, "logs-1.zip"))), "1");
  EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM uploads", "1"), "1");
  EXPECT_EQ(db_->Value("SELECT kind || '|' || file_name || '|' || size || '|' || md5 FROM uploads"),
            "log|logs-1.zip|" + std::to_string(content.size()) + "|" + Md5(content));
  const std::string stored = folder_ + "/uploads/" + db_->Value("SELECT stored_name FROM uploads");
  EXPECT_TRUE(ReadFile(stored) == content) << "the stored file, byte for byte";
  EXPECT_EQ(Body(PostMultipart(host_->port(), Multipart(kUid, "2", "forensic"))), "1");
  EXPECT_EQ(db_->WaitFor("SELECT group_concat(kind) FROM uploads", "log,dlp-forensic"), "log,dlp-forensic");
  // An unknown client's file is announced, refused by the service, and gone.
  EXPECT_EQ(Body(PostMultipart(host_->port(), Multipart("6F9619FF-8B86-D011-B42D-00C04FC964FF", "1", "x"))), "1");
  for (int i = 0; i < 250 && TempUploads(serverFolder_) != 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(TempUploads(serverFolder_), 0);
  EXPECT_EQ(db_->Value("SELECT COUNT(*) FROM uploads"), "2");
}

INSTANTIATE_TEST_SUITE_P(System, Reports, ::testing::Values(false, true),
                         [](const auto& param) { return param.param ? "Adapter" : "Iis"; });

// A 100 MB upload streams through: isapi-host holds a window of it at a
// time, never the file. (Sanitizer builds pay shadow memory for every
// byte that passes, and take a smaller file.)
TEST_F(System, ALargeUploadCostsTheHostAWindowNotTheFile) {
#if defined(VGCR_SANITIZED)
  const std::size_t size = 16u << 20;
#else
  const std::size_t size = 100u << 20;
#endif
  ::setenv("VGCR_UPLOAD_LIMIT", std::to_string(size + 1).c_str(), 1);
  for (const bool adapter : {false, true}) {
    SCOPED_TRACE(adapter ? "adapter" : "IIS");
    std::vector<std::string> args = {"--max-body", std::to_string(size + 4096)};
    if (adapter) args.push_back("--adapter");
    host_ = std::make_unique<Host>(args);
    ASSERT_TRUE(host_->ready());
    if (!adapter) {
      ASSERT_NO_FATAL_FAILURE(RegisterClient());
    }
    const std::string content = Content(size);
    EXPECT_EQ(Body(PostMultipart(host_->port(), Multipart(kUid, "1", content))), "1");
    const uint64_t peak = PeakMemory(host_->pid());
#if !defined(VGCR_SANITIZED)
    EXPECT_LT(peak, 64u << 20) << "isapi-host's peak resident memory";
#endif
    std::cout << "isapi-host peak after a " << (size >> 20) << " MiB upload: " << (peak >> 20) << " MiB\n";
    const std::string count = adapter ? "2" : "1";
    EXPECT_EQ(db_->WaitFor("SELECT COUNT(*) FROM uploads WHERE md5 = '" + Md5(content) + "'", count, 60000), count);
    host_.reset();
  }
  ::unsetenv("VGCR_UPLOAD_LIMIT");
}

}  // namespace
