// Reply signing: the service's own key and self-signed certificate, made in
// the data folder on first start (signing-key.pem, mode 0600, and
// signing-cert.pem): an ECDSA P-256 key unless RSA 2048 is asked for. A
// key found in the folder is used whatever its kind.
//
// Signature, with SHA-256 over the reply bytes followed by the client's
// number as a 32-bit little-endian signed integer, sent as base64: for an
// EC key ECDSA (the DER form, ECDSA-Sig-Value), for an RSA key PKCS #1 v1.5. A client names the certificate by its issuer (RFC 2253 text, as
// `openssl x509 -noout -issuer -nameopt RFC2253` prints it) and its serial
// number (hexadecimal, as `openssl x509 -noout -serial` prints it).
//
// A new certificate reaches the clients one by one: each learns of it from a
// reply marked "SA_NEW: 1" and fetches it. Until then its requests name the
// old one. So when a reload brings a different certificate, the one it
// replaces is kept, with its key, and a client naming it still gets replies
// it can verify, marked so that it fetches the new one. One certificate is
// kept so (the one before the current), in memory: a restart forgets it.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "metrics/text.h"

namespace sig {

enum class KeyKind { kEcdsaP256, kRsa2048 };
// "rsa" names RSA 2048; anything else ECDSA P-256.
KeyKind KeyKindNamed(const std::string& name);

class Signer {
 public:
  ~Signer();
  // Loads the key and certificate from the folder, creating a pair of the
  // given kind when both are missing.
  static std::unique_ptr<Signer> Open(const std::string& folder, KeyKind kind, std::string* error);
  // Loads them again (the certificate may have been replaced). *replaced
  // tells whether the certificate is another one than before; the one it
  // replaces is then kept as the previous one.
  bool Reload(std::string* error, bool* replaced = nullptr);

  // Is this the certificate in use, the one the client names? The issuer is
  // compared without regard to ASCII case, the serial without case or
  // leading zeros.
  bool IsOurs(const std::string& issuer, const std::string& serial) const;
  // Is this the serial of the certificate in use (compared as IsOurs does)?
  bool SignsWithSerial(const std::string& serial) const;
  // The signature with the key in use, base64; empty on a failure.
  std::string Sign(const std::vector<uint8_t>& reply, int32_t clientNumber) const;

  // Which of the service's certificates a client named.
  enum class Match { kNone, kCurrent, kPrevious };
  struct Signature {
    Match match = Match::kNone;
    std::string base64;  // empty when not signed (kNone, or a failure)
  };
  // Signs with the key of the certificate the client names: the one in use,
  // or the previous one. The certificate is told and the signature made
  // with the same keys, whatever a reload does meanwhile.
  Signature SignFor(const std::string& issuer, const std::string& serial, const std::vector<uint8_t>& reply,
                    int32_t clientNumber) const;

  std::string Issuer() const;
  std::string Serial() const;
  // The previous certificate's serial; empty when none is kept.
  std::string PreviousSerial() const;
  std::string CertificatePath() const { return folder_ + "/signing-cert.pem"; }
  // How long signatures take, as Prometheus text.
  void WriteMetrics(metrics::Writer& w) const;

  struct Keys;

 private:
  explicit Signer(std::string folder);
  // The keys in use; a reload swaps them while signatures go on.
  std::shared_ptr<const Keys> Current() const;
  std::string Timed(const Keys& keys, const std::vector<uint8_t>& reply, int32_t clientNumber) const;
  std::string folder_;
  mutable metrics::Histogram signSeconds_{0.00005, 0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025};
  mutable std::mutex lock_;
  std::shared_ptr<const Keys> keys_;
  std::shared_ptr<const Keys> previous_;  // null until a reload replaced the certificate
};

}  // namespace sig
