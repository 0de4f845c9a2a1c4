// The file upload (requestid 501): the body's "BinaryDataBlock" part lands
// in a temporary file in the server folder as it arrives, and the service
// is told to take it over. One processor per kind of file; they differ in
// the command that announces the file.
#pragma once

#include <cstdint>
#include <string>

#include "host/fw_HttpRequest.h"
#include "host/fw_HttpResponse.h"
#include "host/req_RequestParams.h"

class CIsapiUploadProcessor {
 public:
  // The upload handler: reads the identity, picks the processor by
  // function type (1 log archive, 2 DLP forensic data) and runs it.
  static int32_t Run(const RequestParams& params, CHttpResponse& response, CHttpRequest& request,
                     uint32_t diskThresholdStatus);

  virtual ~CIsapiUploadProcessor() = default;
  CIsapiUploadProcessor(const CIsapiUploadProcessor&) = delete;
  CIsapiUploadProcessor& operator=(const CIsapiUploadProcessor&) = delete;

  // Receives the file and announces it; the result is the handler's.
  int32_t Process(const std::u16string& uid, const std::u16string& release);

  // The largest file taken: the machine's setting, else 30,000,000 bytes.
  static uint32_t UploadLimit();
  static constexpr uint32_t kDefaultUploadLimit = 30000000;
  // Uploads received at once: half the pool's workers; beyond, -49 (503).
  static unsigned MaxConcurrentUploads();

  CIsapiUploadProcessor(const RequestParams& params, CHttpResponse& response, CHttpRequest& request,
                        uint32_t diskThresholdStatus)
      : params_(params), response_(response), request_(request), diskStatus_(diskThresholdStatus) {}

 protected:
  virtual const char16_t* Command() const = 0;
  virtual const char16_t* ProcessName() const = 0;  // "<class>::Process", for the trace

 private:
  int32_t CheckFilePart(CMultipartReader** reader, std::u16string* fileName) const;
  int32_t Receive(CMultipartReader& reader, class UploadTempFile& file) const;

  const RequestParams& params_;
  CHttpResponse& response_;
  CHttpRequest& request_;
  const uint32_t diskStatus_;
};

// Log archives: "CMDHLV2_SET_LOG_COMMON".
class CIsapCommonLogUploadProcessor : public CIsapiUploadProcessor {
 public:
  using CIsapiUploadProcessor::CIsapiUploadProcessor;
  const char16_t* Command() const override { return u"CMDHLV2_SET_LOG_COMMON"; }
  const char16_t* ProcessName() const override { return u"CIsapCommonLogUploadProcessor::Process"; }
};

// DLP forensic data: "CMDHLV2_DLP_FORENSIC_DATA_UPLOAD".
class CIsapiDlpForensicDataUploadProcessor : public CIsapiUploadProcessor {
 public:
  using CIsapiUploadProcessor::CIsapiUploadProcessor;
  const char16_t* Command() const override { return u"CMDHLV2_DLP_FORENSIC_DATA_UPLOAD"; }
  const char16_t* ProcessName() const override { return u"CIsapiDlpForensicDataUploadProcessor::Process"; }
};
