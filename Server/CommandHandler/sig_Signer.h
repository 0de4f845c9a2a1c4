// Reply signing: the service's own key and self-signed certificate, made in
// the data folder on first start (signing-key.pem, mode 0600, and
// signing-cert.pem).
//
// Signature: RSA PKCS #1 v1.5 with SHA-256 over the reply bytes followed by
// the client's number as a 32-bit little-endian signed integer; sent as
// base64. A client names the certificate by its issuer (RFC 2253 text, as
// `openssl x509 -noout -issuer -nameopt RFC2253` prints it) and its serial
// number (hexadecimal, as `openssl x509 -noout -serial` prints it).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sig {

class Signer {
 public:
  ~Signer();
  // Loads the key and certificate from the folder, creating them when
  // either is missing.
  static std::unique_ptr<Signer> Open(const std::string& folder, std::string* error);
  // Loads them again (the certificate may have been replaced).
  bool Reload(std::string* error);

  // Is this the certificate the client names? The issuer is compared
  // without regard to ASCII case, the serial without case or leading zeros.
  bool IsOurs(const std::string& issuer, const std::string& serial) const;
  // The signature, base64; empty on a failure.
  std::string Sign(const std::vector<uint8_t>& reply, int32_t clientNumber) const;

  std::string Issuer() const;
  std::string Serial() const;
  std::string CertificatePath() const { return folder_ + "/signing-cert.pem"; }

  struct Keys;

 private:
  explicit Signer(std::string folder);
  // The keys in use; a reload swaps them while signatures go on.
  std::shared_ptr<const Keys> Current() const;
  std::string folder_;
  mutable std::mutex lock_;
  std::shared_ptr<const Keys> keys_;
};

}  // namespace sig
