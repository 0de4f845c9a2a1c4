#include "isapi_Upload.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>

#include "channel/rec_Upload.h"
#include "hdl_Common.h"
#include "hdl_Identity.h"
#include "host/fw_ThreadPool.h"
#include "host/rsp_Reply.h"
#include "platform/errors.h"
#include "platform/machine_config.h"
#include "platform/server_records.h"
#include "platform/temp_file.h"
#include "platform/text.h"
#include "support/dbg_Trace.h"
#include "support/md5_MessageDigest5.h"
#include "support/utf_Converter.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_Upload";
constexpr HandlerName kHandler{kTraceSource, u"CIsapiUploadProcessor::Run"};
constexpr char kFilePartName[] = "BinaryDataBlock";
constexpr std::size_t kPiece = 64 * 1024;

enum UploadKind : int32_t { kLogArchive = 1, kDlpForensicData = 2 };

// The replies of an accepted upload.
constexpr int32_t kAccepted = 1;
constexpr int32_t kAcceptedDiskTight = 2;

}  // namespace

// The temporary file an upload lands in: made new in the server folder,
// its MD5 taken as it is written, and deleted when it goes out of scope
// unless the service has been handed it.
class UploadTempFile {
 public:
  ~UploadTempFile() {
    stream_.reset();
    if (!path_.empty() && !handedOver_) plat::DeleteFileAt(path_);
  }

  bool Create() {
    std::u16string folder;
    if (!plat::ReadServerLocalPath(&folder) || folder.empty()) return false;
    if (folder.back() != u'\\' && folder.back() != u'/') folder.push_back(plat::kPathSeparator);
    if (!plat::CreateTempFile(folder, upload::kTempPrefix, &path_)) return false;
    stream_ = std::make_unique<std::ofstream>(std::filesystem::path(path_), std::ios::binary | std::ios::trunc);
    return stream_->good();
  }
  bool Write(const char* data, std::size_t size) {
    digest_.Update(data, size);
    size_ += size;
    return stream_->write(data, static_cast<std::streamsize>(size)).good();
  }
  // Closes the file (what the disk did not take shows now) and lets the
  // service's account read it. An upload that stalled for long may have
  // lost its file to the service's sweep of abandoned ones: the name must
  // still hold all that was written.
  bool Finish() {
    stream_->close();
    bool good = !stream_->fail();
    stream_.reset();
    std::error_code error;
    good = good && std::filesystem::file_size(std::filesystem::path(path_), error) == size_ && !error;
    if (good) plat::GrantServiceReadAccess(path_);
    return good;
  }
  std::string HexDigest() {
    uint8_t bytes[CMessageDigest5::kDigestSize];
    digest_.Final(bytes);
    static const char kHex[] = "0123456789ABCDEF";
    std::string hex;
    for (const uint8_t b : bytes) hex += {kHex[b >> 4], kHex[b & 15]};
    return hex;
  }
  void HandOver() { handedOver_ = true; }
  const std::u16string& path() const { return path_; }
  uint64_t size() const { return size_; }

 private:
  std::u16string path_;
  std::unique_ptr<std::ofstream> stream_;
  CMessageDigest5 digest_;
  uint64_t size_ = 0;
  bool handedOver_ = false;
};

uint32_t CIsapiUploadProcessor::UploadLimit() {
  uint32_t limit = kDefaultUploadLimit;
  return plat::ReadServerUploadLimit(&limit) ? limit : kDefaultUploadLimit;
}

int32_t CIsapiUploadProcessor::CheckFilePart(CMultipartReader** reader, std::u16string* fileName) const {
  *reader = request_.FilePart();
  if (*reader == nullptr || !plat::EqualsIgnoringAsciiCase((*reader)->FilePartName(), kFilePartName)) {
    VGCR_TRACE(69, u"%s - No [%s] part in the request.", ProcessName(), u"BinaryDataBlock");
    return kResultMissingField;
  }
  std::unique_ptr<char16_t[]> name = UTFConverter::decodeUTF((*reader)->FileName().c_str());
  if (name) fileName->assign(name.get());
  // The decoder stops at a NUL: one inside the name must be seen here.
  if (!name || (*reader)->FileName().find('\0') != std::string::npos || !upload::IsUploadFileName(*fileName)) {
    VGCR_TRACE(69, u"%s - The file name is refused.", ProcessName());
    return kResultBadFileName;
  }
  return kResultHandled;
}

int32_t CIsapiUploadProcessor::Receive(CMultipartReader& reader, UploadTempFile& file) const {
  if (!file.Create()) {
    VGCR_TRACE(69, u"%s - No temporary file in the server folder, error (%d).", ProcessName(), plat::LastError());
    return kResultUploadNotStored;
  }
  const uint64_t limit = UploadLimit();
  std::unique_ptr<char[]> piece(new char[kPiece]);
  for (;;) {
    std::size_t got = 0;
    const CMultipartReader::Chunk chunk = reader.ReadFileData(piece.get(), kPiece, &got);
    if (chunk == CMultipartReader::Chunk::kEnd) break;
    if (chunk == CMultipartReader::Chunk::kShort) {
      VGCR_TRACE(69, u"%s - The body ended inside the file, after %u bytes.", ProcessName(),
                 static_cast<uint32_t>(file.size()));
      return kResultUploadIncomplete;
    }
    if (file.size() + got > limit) {
      VGCR_TRACE(69, u"%s - The file is over the upload limit of %u bytes.", ProcessName(),
                 static_cast<uint32_t>(limit));
      return kResultUploadTooLarge;
    }
    if (!file.Write(piece.get(), got)) {
      VGCR_TRACE(69, u"%s - The temporary file could not be written.", ProcessName());
      return kResultUploadNotStored;
    }
  }
  if (!file.Finish()) {
    VGCR_TRACE(69, u"%s - The temporary file could not be written.", ProcessName());
    return kResultUploadNotStored;
  }
  return kResultHandled;
}

unsigned CIsapiUploadProcessor::MaxConcurrentUploads() {
  static const unsigned limit = std::max(1u, CThreadPool::DefaultWorkerCount() / 2);
  return limit;
}

// Counts the uploads in progress for as long as it lives; admitted only
// while they leave half the pool's workers for every other request.
class UploadSlot {
 public:
  UploadSlot() : admitted_(inFlight_.fetch_add(1) < CIsapiUploadProcessor::MaxConcurrentUploads()) {}
  ~UploadSlot() { inFlight_.fetch_sub(1); }
  UploadSlot(const UploadSlot&) = delete;
  UploadSlot& operator=(const UploadSlot&) = delete;
  bool admitted() const { return admitted_; }

 private:
  static inline std::atomic<unsigned> inFlight_{0};
  const bool admitted_;
};

int32_t CIsapiUploadProcessor::Process(const std::u16string& uid, const std::u16string& release) {
  VGCR_TRACE(68, u"%s - >>>", ProcessName());
  int32_t result = kResultHandled;
  // An upload holds its worker while the file trickles in: a crowd of slow
  // ones must not take every worker.
  const UploadSlot slot;
  if (!slot.admitted()) {
    VGCR_TRACE(69, u"%s - %u uploads in progress already; the client is asked to come back.", ProcessName(),
               MaxConcurrentUploads());
    VGCR_TRACE(68, u"%s - <<<", ProcessName());
    return kResultBackOff;
  }
  const bool diskTight = diskStatus_ == plat::kDiskWarning;
  if (diskStatus_ != plat::kDiskNormal && !diskTight) {
    VGCR_TRACE(69, u"%s - Disk threshold status:[%u]; the upload is refused.", ProcessName(), diskStatus_);
    result = kResultDiskFull;
  }
  CMultipartReader* reader = nullptr;
  tagCln_UploadFile record;
  if (result == kResultHandled) result = CheckFilePart(&reader, &record.fileName);
  UploadTempFile file;
  if (result == kResultHandled) result = Receive(*reader, file);
  if (result == kResultHandled) {
    record.uid = uid;
    record.release = release;
    record.tempPath = file.path();
    record.size = static_cast<uint32_t>(file.size());
    record.md5 = plat::Widen(file.HexDigest());
    record.diskStatus = diskStatus_;
    VGCR_TRACE(73, u"%s - File [%s], %u bytes, MD5 %s.", ProcessName(), record.fileName, record.size, record.md5);
    // Delivered, the file is the service's: it takes it over or deletes it.
    if (SendRecord(Command(), record)) {
      file.HandOver();
    } else {
      result = kResultNotDelivered;
    }
  }
  if (result == kResultHandled) {
    result = WriteCodeReply(params_, response_, diskTight ? kAcceptedDiskTight : kAccepted) ? kResultHandled
                                                                                              : kResultBackOff;
  }
  VGCR_TRACE(68, u"%s - <<<", ProcessName());
  return result;
}

int32_t CIsapiUploadProcessor::Run(const RequestParams& params, CHttpResponse& response, CHttpRequest& request,
                                   uint32_t diskThresholdStatus) {
  VGCR_TRACE(68, u"%s - >>>", kHandler.name);
  ClientIdentity identity(params);
  identity.ReadFunctionType();
  identity.ReadUid();
  identity.CheckUid(kHandler);
  identity.ReadOptionalRelease();
  if (identity.ok() && identity.functionType != kLogArchive && identity.functionType != kDlpForensicData) {
    identity.Fail(kResultBadFunctionType);
  }
  int32_t result = identity.result;
  if (identity.ok()) {
    std::unique_ptr<CIsapiUploadProcessor> processor;
    if (identity.functionType == kLogArchive) {
      processor = std::make_unique<CIsapCommonLogUploadProcessor>(params, response, request, diskThresholdStatus);
    } else {
      processor = std::make_unique<CIsapiDlpForensicDataUploadProcessor>(params, response, request, diskThresholdStatus);
    }
    result = processor->Process(identity.uid, identity.release);
  }
  if (result != kResultHandled && result != kResultBackOff) {
    VGCR_TRACE(69, u"%s - Leave due error(%d)", kHandler.name, result);
  }
  VGCR_TRACE(68, u"%s - <<<", kHandler.name);
  return result;
}
