// Cryptographic primitives of the platform's own providers: random bytes,
// PBKDF2-HMAC-SHA256, AES-256 in CBC and GCM, and the AES-256 key the
// classic provider derives from a passphrase's SHA-1 hash.
//
// Windows: CNG (bcrypt) for random bytes, PBKDF2, CBC and GCM; the classic
// CryptoAPI (advapi32, PROV_RSA_AES) for the passphrase-derived key, since
// that derivation is CryptDeriveKey's own and the classic API has neither
// PBKDF2 nor GCM. POSIX: OpenSSL's libcrypto, with CryptDeriveKey's
// expansion written out over its SHA-1.
//
// Failures are false with a last error, as everywhere in this layer. A key
// never changes once made: one key may serve many threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace plat {

inline constexpr std::size_t kAesBlockSize = 16;
inline constexpr std::size_t kAes256KeySize = 32;
inline constexpr std::size_t kGcmNonceSize = 12;
inline constexpr std::size_t kGcmTagSize = 16;

// Fills buffer with bytes from the system's cryptographic generator
// (BCryptGenRandom / RAND_bytes).
bool RandomBytes(void* buffer, std::size_t size);

// PBKDF2 with HMAC-SHA256 (RFC 8018), the password's bytes as given.
bool Pbkdf2HmacSha256(std::string_view password, const uint8_t* salt, std::size_t saltSize,
                      uint32_t iterations, uint8_t* key, std::size_t keySize);

// Overwrites memory that held a secret; the compiler cannot drop it.
void WipeSecret(void* buffer, std::size_t size);

// AES-256 in CBC mode over whole blocks. Padding is the caller's business,
// so that the checks on it are written once above this layer: a size that
// is not a multiple of kAesBlockSize fails with kErrorInvalidParameter. The
// input and output may be the same buffer.
class AesCbcKey {
 public:
  static std::unique_ptr<AesCbcKey> FromBytes(const uint8_t (&key)[kAes256KeySize]);
  // What CryptCreateHash(CALG_SHA1), CryptHashData(passphrase's bytes) and
  // CryptDeriveKey(CALG_AES_256) give in a PROV_RSA_AES provider: with
  // h = SHA-1(passphrase), the key is the first 32 bytes of
  // SHA-1(h ^ 0x36 x 64) || SHA-1(h ^ 0x5C x 64), h XORed into the first 20
  // bytes of each 64-byte buffer.
  static std::unique_ptr<AesCbcKey> FromLegacyPassphrase(std::string_view passphrase);

  ~AesCbcKey();
  AesCbcKey(const AesCbcKey&) = delete;
  AesCbcKey& operator=(const AesCbcKey&) = delete;

  bool Encrypt(const uint8_t (&iv)[kAesBlockSize], const uint8_t* in, std::size_t size, uint8_t* out) const;
  bool Decrypt(const uint8_t (&iv)[kAesBlockSize], const uint8_t* in, std::size_t size, uint8_t* out) const;

 private:
  struct Impl;
  explicit AesCbcKey(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// AES-256 in GCM mode with a 96-bit nonce and a 128-bit tag. The output
// holds as many bytes as the input; the input and output may be the same
// buffer.
class AesGcmKey {
 public:
  static std::unique_ptr<AesGcmKey> FromBytes(const uint8_t (&key)[kAes256KeySize]);

  ~AesGcmKey();
  AesGcmKey(const AesGcmKey&) = delete;
  AesGcmKey& operator=(const AesGcmKey&) = delete;

  bool Encrypt(const uint8_t (&nonce)[kGcmNonceSize], const uint8_t* aad, std::size_t aadSize,
               const uint8_t* in, std::size_t size, uint8_t* out, uint8_t (&tag)[kGcmTagSize]) const;
  // A tag that does not match is false with kErrorInvalidData, and the
  // output is wiped: nothing unauthenticated is ever handed out.
  bool Decrypt(const uint8_t (&nonce)[kGcmNonceSize], const uint8_t* aad, std::size_t aadSize,
               const uint8_t* in, std::size_t size, const uint8_t (&tag)[kGcmTagSize], uint8_t* out) const;

 private:
  struct Impl;
  explicit AesGcmKey(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace plat
