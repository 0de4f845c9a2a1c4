// The cryptographic primitives over OpenSSL's libcrypto (EVP).
//
// A key keeps its 32 bytes and each operation sets up a cipher context of
// its own: contexts are never shared between threads, and a key schedule
// costs far less than anything the callers do with the result.
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <climits>
#include <cstring>

#include "platform/crypto.h"
#include "platform/errors.h"

namespace plat {
namespace {

constexpr uint32_t kErrorGenFailure = 31;  // ERROR_GEN_FAILURE

// OpenSSL keeps its reasons in a per-thread queue; nothing here reads them,
// and a queue left full would mislead the next user of the library on this
// thread.
bool Fail(uint32_t code) {
  ::ERR_clear_error();
  SetLastError(code);
  return false;
}

struct ContextDeleter {
  void operator()(EVP_CIPHER_CTX* ctx) const { ::EVP_CIPHER_CTX_free(ctx); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, ContextDeleter>;

// The EVP calls take int lengths; our texts are bounded far below that.
bool FitsInt(std::size_t size) { return size <= static_cast<std::size_t>(INT_MAX); }

}  // namespace

bool RandomBytes(void* buffer, std::size_t size) {
  auto* at = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    int piece = static_cast<int>(size > 1u << 20 ? 1u << 20 : size);
    if (::RAND_bytes(at, piece) != 1) return Fail(kErrorGenFailure);
    at += piece;
    size -= static_cast<std::size_t>(piece);
  }
  return true;
}

bool Pbkdf2HmacSha256(std::string_view password, const uint8_t* salt, std::size_t saltSize,
                      uint32_t iterations, uint8_t* key, std::size_t keySize) {
  if (iterations == 0 || iterations > INT_MAX || !FitsInt(password.size()) || !FitsInt(saltSize) ||
      !FitsInt(keySize)) {
    return Fail(kErrorInvalidParameter);
  }
  if (::PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt, static_cast<int>(saltSize),
                          static_cast<int>(iterations), ::EVP_sha256(), static_cast<int>(keySize), key) != 1) {
    return Fail(kErrorGenFailure);
  }
  return true;
}

void WipeSecret(void* buffer, std::size_t size) { ::OPENSSL_cleanse(buffer, size); }

// ---------------------------------------------------------------------------
// CBC

struct AesCbcKey::Impl {
  uint8_t key[kAes256KeySize];
  ~Impl() { WipeSecret(key, sizeof key); }
};

AesCbcKey::AesCbcKey(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
AesCbcKey::~AesCbcKey() = default;

std::unique_ptr<AesCbcKey> AesCbcKey::FromBytes(const uint8_t (&key)[kAes256KeySize]) {
  auto impl = std::make_unique<Impl>();
  std::memcpy(impl->key, key, sizeof impl->key);
  return std::unique_ptr<AesCbcKey>(new AesCbcKey(std::move(impl)));
}

std::unique_ptr<AesCbcKey> AesCbcKey::FromLegacyPassphrase(std::string_view passphrase) {
  constexpr std::size_t kSha1Size = 20;
  constexpr std::size_t kBufferSize = 64;
  uint8_t hash[kSha1Size];
  unsigned int hashSize = 0;
  if (::EVP_Digest(passphrase.data(), passphrase.size(), hash, &hashSize, ::EVP_sha1(), nullptr) != 1 ||
      hashSize != kSha1Size) {
    Fail(kErrorGenFailure);
    return nullptr;
  }
  // The classic provider's expansion of a hash too short for the key: the
  // hash XORed into a buffer of 0x36 and into one of 0x5C, each hashed,
  // the two digests joined, the key's length taken from the front.
  uint8_t inner[kBufferSize], outer[kBufferSize];
  std::memset(inner, 0x36, sizeof inner);
  std::memset(outer, 0x5C, sizeof outer);
  for (std::size_t i = 0; i < kSha1Size; ++i) {
    inner[i] ^= hash[i];
    outer[i] ^= hash[i];
  }
  uint8_t material[2 * kSha1Size];
  unsigned int innerSize = 0, outerSize = 0;
  bool ok = ::EVP_Digest(inner, sizeof inner, material, &innerSize, ::EVP_sha1(), nullptr) == 1 &&
            ::EVP_Digest(outer, sizeof outer, material + kSha1Size, &outerSize, ::EVP_sha1(), nullptr) == 1;
  std::unique_ptr<AesCbcKey> result;
  if (ok) {
    uint8_t key[kAes256KeySize];
    std::memcpy(key, material, sizeof key);
    result = FromBytes(key);
    WipeSecret(key, sizeof key);
  } else {
    Fail(kErrorGenFailure);
  }
  WipeSecret(hash, sizeof hash);
  WipeSecret(inner, sizeof inner);
  WipeSecret(outer, sizeof outer);
  WipeSecret(material, sizeof material);
  return result;
}

namespace {

bool CbcRun(const uint8_t* key, const uint8_t* iv, bool encrypt, const uint8_t* in, std::size_t size,
            uint8_t* out) {
  if (size % kAesBlockSize != 0 || !FitsInt(size)) return Fail(kErrorInvalidParameter);
  Context ctx(::EVP_CIPHER_CTX_new());
  if (!ctx || ::EVP_CipherInit_ex(ctx.get(), ::EVP_aes_256_cbc(), nullptr, key, iv, encrypt ? 1 : 0) != 1 ||
      ::EVP_CIPHER_CTX_set_padding(ctx.get(), 0) != 1) {
    return Fail(kErrorGenFailure);
  }
  int written = 0, last = 0;
  if (::EVP_CipherUpdate(ctx.get(), out, &written, in, static_cast<int>(size)) != 1 ||
      ::EVP_CipherFinal_ex(ctx.get(), out + written, &last) != 1 ||
      static_cast<std::size_t>(written) + static_cast<std::size_t>(last) != size) {
    return Fail(kErrorGenFailure);
  }
  return true;
}

}  // namespace

bool AesCbcKey::Encrypt(const uint8_t (&iv)[kAesBlockSize], const uint8_t* in, std::size_t size,
                        uint8_t* out) const {
  return CbcRun(impl_->key, iv, true, in, size, out);
}

bool AesCbcKey::Decrypt(const uint8_t (&iv)[kAesBlockSize], const uint8_t* in, std::size_t size,
                        uint8_t* out) const {
  return CbcRun(impl_->key, iv, false, in, size, out);
}

// ---------------------------------------------------------------------------
// GCM

struct AesGcmKey::Impl {
  uint8_t key[kAes256KeySize];
  ~Impl() { WipeSecret(key, sizeof key); }
};

AesGcmKey::AesGcmKey(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
AesGcmKey::~AesGcmKey() = default;

std::unique_ptr<AesGcmKey> AesGcmKey::FromBytes(const uint8_t (&key)[kAes256KeySize]) {
  auto impl = std::make_unique<Impl>();
  std::memcpy(impl->key, key, sizeof impl->key);
  return std::unique_ptr<AesGcmKey>(new AesGcmKey(std::move(impl)));
}

namespace {

// Starts a GCM context with its key, nonce and additional data.
Context GcmStart(const uint8_t* key, const uint8_t* nonce, const uint8_t* aad, std::size_t aadSize,
                 bool encrypt) {
  Context ctx(::EVP_CIPHER_CTX_new());
  int ignored = 0;
  if (!ctx || ::EVP_CipherInit_ex(ctx.get(), ::EVP_aes_256_gcm(), nullptr, nullptr, nullptr, encrypt ? 1 : 0) != 1 ||
      ::EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmNonceSize), nullptr) != 1 ||
      ::EVP_CipherInit_ex(ctx.get(), nullptr, nullptr, key, nonce, -1) != 1 ||
      (aadSize > 0 && ::EVP_CipherUpdate(ctx.get(), nullptr, &ignored, aad, static_cast<int>(aadSize)) != 1)) {
    return nullptr;
  }
  return ctx;
}

}  // namespace

bool AesGcmKey::Encrypt(const uint8_t (&nonce)[kGcmNonceSize], const uint8_t* aad, std::size_t aadSize,
                        const uint8_t* in, std::size_t size, uint8_t* out, uint8_t (&tag)[kGcmTagSize]) const {
  if (!FitsInt(size) || !FitsInt(aadSize)) return Fail(kErrorInvalidParameter);
  Context ctx = GcmStart(impl_->key, nonce, aad, aadSize, true);
  int written = 0, last = 0;
  if (!ctx || (size > 0 && ::EVP_EncryptUpdate(ctx.get(), out, &written, in, static_cast<int>(size)) != 1) ||
      ::EVP_EncryptFinal_ex(ctx.get(), out + written, &last) != 1 ||
      static_cast<std::size_t>(written) + static_cast<std::size_t>(last) != size ||
      ::EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kGcmTagSize), tag) != 1) {
    return Fail(kErrorGenFailure);
  }
  return true;
}

bool AesGcmKey::Decrypt(const uint8_t (&nonce)[kGcmNonceSize], const uint8_t* aad, std::size_t aadSize,
                        const uint8_t* in, std::size_t size, const uint8_t (&tag)[kGcmTagSize],
                        uint8_t* out) const {
  if (!FitsInt(size) || !FitsInt(aadSize)) return Fail(kErrorInvalidParameter);
  Context ctx = GcmStart(impl_->key, nonce, aad, aadSize, false);
  int written = 0;
  if (!ctx || (size > 0 && ::EVP_DecryptUpdate(ctx.get(), out, &written, in, static_cast<int>(size)) != 1) ||
      static_cast<std::size_t>(written) != size ||
      ::EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kGcmTagSize),
                            const_cast<uint8_t*>(tag)) != 1) {
    if (size > 0) WipeSecret(out, size);
    return Fail(kErrorGenFailure);
  }
  int last = 0;
  if (::EVP_DecryptFinal_ex(ctx.get(), out + written, &last) != 1) {
    if (size > 0) WipeSecret(out, size);
    return Fail(kErrorInvalidData);
  }
  return true;
}

}  // namespace plat
