#include "sig_Signer.h"

#include <fcntl.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "b64_Base64Coder.h"
#include "platform/text.h"

namespace sig {

struct Signer::Keys {
  EVP_PKEY* key = nullptr;
  X509* certificate = nullptr;
  std::string issuer;
  std::string serial;
  ~Keys() {
    EVP_PKEY_free(key);
    X509_free(certificate);
  }
};

namespace {

constexpr int kRsaKeyBits = 2048;
constexpr long kValidSeconds = 10L * 365 * 24 * 3600;

std::string OpenSslError(const char* what) {
  char text[256];
  ERR_error_string_n(ERR_get_error(), text, sizeof text);
  return std::string(what) + ": " + text;
}

std::string NameText(const X509_NAME* name) {
  BIO* bio = BIO_new(BIO_s_mem());
  X509_NAME_print_ex(bio, name, 0, XN_FLAG_RFC2253);
  char* data = nullptr;
  const long n = BIO_get_mem_data(bio, &data);
  std::string text(data, static_cast<std::size_t>(n));
  BIO_free(bio);
  return text;
}

std::string SerialText(const X509* certificate) {
  BIGNUM* number = ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr);
  char* hex = BN_bn2hex(number);
  std::string text(hex ? hex : "");
  OPENSSL_free(hex);
  BN_free(number);
  return text;
}

// Writes a new file only: an existing one, or a link planted in its place,
// is never written through or replaced.
bool WritePem(const std::string& path, mode_t mode, bool isKey, EVP_PKEY* key, X509* certificate) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
  if (fd < 0) return false;
  if (::fchmod(fd, mode) != 0) {  // the umask may have taken bits away
    ::close(fd);
    return false;
  }
  FILE* file = ::fdopen(fd, "w");
  if (!file) {
    ::close(fd);
    return false;
  }
  const int ok = isKey ? PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr)
                       : PEM_write_X509(file, certificate);
  return std::fclose(file) == 0 && ok == 1;
}

// A new key and a self-signed certificate for it, written to the folder.
bool Create(const std::string& folder, KeyKind kind, std::string* error) {
  EVP_PKEY* key = kind == KeyKind::kRsa2048 ? EVP_RSA_gen(kRsaKeyBits) : EVP_EC_gen("P-256");
  X509* certificate = X509_new();
  bool ok = key && certificate;
  unsigned char serial[16];
  if (ok) ok = RAND_bytes(serial, sizeof serial) == 1;
  serial[0] &= 0x7F;  // a positive serial
  serial[0] |= 0x10;  // of a fixed length
  if (ok) {
    BIGNUM* number = BN_bin2bn(serial, sizeof serial, nullptr);
    BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate));
    BN_free(number);
    X509_set_version(certificate, 2);
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), kValidSeconds);
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Vigilcrest Server"),
                               -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("Vigilcrest Reply Signing"), -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    ok = X509_set_pubkey(certificate, key) == 1 && X509_sign(certificate, key, EVP_sha256()) > 0;
  }
  if (!ok) *error = OpenSslError("cannot create the signing key");
  if (ok && !WritePem(folder + "/signing-key.pem", 0600, true, key, nullptr)) {
    ok = false;
    *error = "cannot write " + folder + "/signing-key.pem";
  }
  if (ok && !WritePem(folder + "/signing-cert.pem", 0644, false, nullptr, certificate)) {
    ok = false;
    *error = "cannot write " + folder + "/signing-cert.pem";
  }
  EVP_PKEY_free(key);
  X509_free(certificate);
  return ok;
}

std::unique_ptr<Signer::Keys> Load(const std::string& folder, std::string* error) {
  auto keys = std::make_unique<Signer::Keys>();
  FILE* file = std::fopen((folder + "/signing-key.pem").c_str(), "r");
  if (file) {
    keys->key = PEM_read_PrivateKey(file, nullptr, nullptr, nullptr);
    std::fclose(file);
  }
  file = std::fopen((folder + "/signing-cert.pem").c_str(), "r");
  if (file) {
    keys->certificate = PEM_read_X509(file, nullptr, nullptr, nullptr);
    std::fclose(file);
  }
  if (!keys->key || !keys->certificate) {
    *error = "cannot read the signing key and certificate in " + folder;
    return nullptr;
  }
  if (X509_check_private_key(keys->certificate, keys->key) != 1) {
    *error = "the signing certificate in " + folder + " is not for its key";
    return nullptr;
  }
  keys->issuer = NameText(X509_get_issuer_name(keys->certificate));
  keys->serial = SerialText(keys->certificate);
  return keys;
}

std::string WithoutLeadingZeros(const std::string& hex) {
  const std::size_t first = hex.find_first_not_of('0');
  return first == std::string::npos ? "0" : hex.substr(first);
}

bool Exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;  // a link counts: it is never written through
}

}  // namespace

Signer::Signer(std::string folder) : folder_(std::move(folder)) {}
Signer::~Signer() = default;

KeyKind KeyKindNamed(const std::string& name) { return name == "rsa" ? KeyKind::kRsa2048 : KeyKind::kEcdsaP256; }

std::unique_ptr<Signer> Signer::Open(const std::string& folder, KeyKind kind, std::string* error) {
  const bool hasKey = Exists(folder + "/signing-key.pem");
  const bool hasCertificate = Exists(folder + "/signing-cert.pem");
  // Half a pair is a fault to look at, not a reason to make a new key: the
  // clients know the old certificate.
  if (hasKey != hasCertificate) {
    *error = std::string("the signing ") + (hasKey ? "certificate" : "key") + " is missing in " + folder +
             " while the " + (hasKey ? "key" : "certificate") +
             " is there; restore it, or remove both to make a new pair (clients must then learn the new "
             "certificate)";
    return nullptr;
  }
  if (!hasKey && !Create(folder, kind, error)) return nullptr;
  std::unique_ptr<Signer> signer(new Signer(folder));
  if (!signer->Reload(error)) return nullptr;
  return signer;
}

bool Signer::Reload(std::string* error, bool* replaced) {
  std::shared_ptr<const Keys> keys = Load(folder_, error);
  if (!keys) return false;
  std::lock_guard lock(lock_);
  // The same certificate read again (a reload asked for by a client still
  // on the previous one) must not push the previous one out.
  const bool other = keys_ && X509_cmp(keys_->certificate, keys->certificate) != 0;
  if (other) previous_ = std::move(keys_);
  keys_ = std::move(keys);
  if (replaced) *replaced = other;
  return true;
}

std::shared_ptr<const Signer::Keys> Signer::Current() const {
  std::lock_guard lock(lock_);
  return keys_;
}

namespace {

bool SameSerial(const std::string& a, const std::string& b) {
  return plat::EqualsIgnoringAsciiCase(WithoutLeadingZeros(a), WithoutLeadingZeros(b));
}

bool Names(const Signer::Keys& keys, const std::string& issuer, const std::string& serial) {
  return plat::EqualsIgnoringAsciiCase(issuer, keys.issuer) && SameSerial(serial, keys.serial);
}

// The reply and the number are fed to the digest in turn: nothing is
// copied, and the only allocations are OpenSSL's own context.
std::string SignWith(const Signer::Keys& keys, const std::vector<uint8_t>& reply, int32_t clientNumber) {
  const uint32_t number = static_cast<uint32_t>(clientNumber);
  const unsigned char numberBytes[4] = {static_cast<unsigned char>(number), static_cast<unsigned char>(number >> 8),
                                        static_cast<unsigned char>(number >> 16),
                                        static_cast<unsigned char>(number >> 24)};
  unsigned char signature[512];  // RSA 4096 at most; an ECDSA P-256 signature is at most 72 bytes
  std::size_t length = sizeof signature;
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  const bool ok = context && EVP_PKEY_get_size(keys.key) <= static_cast<int>(sizeof signature) &&
                  EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, keys.key) == 1 &&
                  EVP_DigestSignUpdate(context, reply.data(), reply.size()) == 1 &&
                  EVP_DigestSignUpdate(context, numberBytes, sizeof numberBytes) == 1 &&
                  EVP_DigestSignFinal(context, signature, &length) == 1;
  EVP_MD_CTX_free(context);
  return ok ? Base64Coder::Encode(signature, length) : std::string();
}

}  // namespace

bool Signer::IsOurs(const std::string& issuer, const std::string& serial) const {
  return Names(*Current(), issuer, serial);
}

bool Signer::SignsWithSerial(const std::string& serial) const { return SameSerial(serial, Current()->serial); }

std::string Signer::Sign(const std::vector<uint8_t>& reply, int32_t clientNumber) const {
  return Timed(*Current(), reply, clientNumber);
}

std::string Signer::Timed(const Keys& keys, const std::vector<uint8_t>& reply, int32_t clientNumber) const {
  const auto started = std::chrono::steady_clock::now();
  std::string signature = SignWith(keys, reply, clientNumber);
  signSeconds_.Observe(std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
  return signature;
}

void Signer::WriteMetrics(metrics::Writer& w) const {
  w.Family("vgcr_cmdhandler_signing_seconds", "histogram", "Time to sign one reply.");
  signSeconds_.Write(w, "vgcr_cmdhandler_signing_seconds", "");
}

Signer::Signature Signer::SignFor(const std::string& issuer, const std::string& serial,
                                  const std::vector<uint8_t>& reply, int32_t clientNumber) const {
  std::shared_ptr<const Keys> current, previous;
  {
    std::lock_guard lock(lock_);
    current = keys_;
    previous = previous_;
  }
  Signature result;
  const Keys* keys = nullptr;
  if (Names(*current, issuer, serial)) {
    result.match = Match::kCurrent;
    keys = current.get();
  } else if (previous && Names(*previous, issuer, serial)) {
    result.match = Match::kPrevious;
    keys = previous.get();
  }
  if (keys) result.base64 = Timed(*keys, reply, clientNumber);
  return result;
}

std::string Signer::Issuer() const { return Current()->issuer; }

std::string Signer::Serial() const { return Current()->serial; }

std::string Signer::PreviousSerial() const {
  std::lock_guard lock(lock_);
  return previous_ ? previous_->serial : std::string();
}

}  // namespace sig
