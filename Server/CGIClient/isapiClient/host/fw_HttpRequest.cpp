#include "fw_HttpRequest.h"

#include <cstring>

bool CHttpRequest::Initialize(EXTENSION_CONTROL_BLOCK* ecb, uint32_t maxFormSize) {
  ecb_ = ecb;
  // Every other POST body is parsed as a form, whatever type it claims to
  // be, so every one obeys the form's limit; a body of unknown length
  // (chunked) announces 0xFFFFFFFF and is over it too.
  const bool post = ecb->lpszMethod != nullptr && std::strcmp(ecb->lpszMethod, "POST") == 0;
  std::string boundary;
  if (post && CMultipartReader::BoundaryOf(ecb->lpszContentType, &boundary)) return true;
  return !(post && ecb->cbTotalBytes > maxFormSize);
}

CMultipartReader::Fields CHttpRequest::ReadMultipartFields(const std::string& boundary) {
  multipart_ = std::make_unique<CMultipartReader>(*this, boundary);
  const CMultipartReader::Fields fields = multipart_->ReadFields(params_, kMaxFormSize);
  filePart_ = fields == CMultipartReader::Fields::kFilePart;
  return fields;
}

bool CHttpRequest::ReadClient(void* buffer, uint32_t* size) {
  DWORD n = *size;
  BOOL ok = ecb_->ReadClient(ecb_->ConnID, buffer, &n);
  *size = ok ? n : 0;
  return ok != FALSE;
}

void* CHttpRequest::ImpersonationToken() {
  HANDLE token = nullptr;
  if (!ecb_->ServerSupportFunction(ecb_->ConnID, HSE_REQ_GET_IMPERSONATION_TOKEN, &token, nullptr, nullptr)) {
    return nullptr;
  }
  return token;
}
