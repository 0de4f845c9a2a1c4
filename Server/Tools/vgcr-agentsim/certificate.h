// The server's signing certificate as a client holds it: the names it puts
// in SA_ISR and SA_SN, and the public key that verifies SA_SG.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

typedef struct evp_pkey_st EVP_PKEY;

namespace agentsim {

class Certificate {
 public:
  Certificate() = default;
  ~Certificate();
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;

  bool Load(const std::string& pemPath, std::string* error);
  const std::string& issuer() const { return issuer_; }  // RFC 2253
  const std::string& serial() const { return serial_; }  // hexadecimal
  // The signature (base64 of SHA-256 over the body and the client's number,
  // 32-bit little-endian) checked with the certificate's key, whatever its
  // kind. Safe from many threads at once.
  bool Verifies(std::string_view body, int32_t number, std::string_view signatureBase64) const;

 private:
  EVP_PKEY* key_ = nullptr;
  std::string issuer_;
  std::string serial_;
};

}  // namespace agentsim
