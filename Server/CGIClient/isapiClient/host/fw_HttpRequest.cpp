#include "fw_HttpRequest.h"

#include <cstring>

bool CHttpRequest::Initialize(EXTENSION_CONTROL_BLOCK* ecb, uint32_t maxFormSize) {
  ecb_ = ecb;
  const char* type = ecb->lpszContentType ? ecb->lpszContentType : "";
  const char* form = "application/x-www-form-urlencoded";
  const bool isForm = std::strncmp(type, form, std::strlen(form)) == 0;
  return !(isForm && ecb->cbTotalBytes > maxFormSize);
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
