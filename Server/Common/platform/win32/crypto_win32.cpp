// The cryptographic primitives over the system's providers.
//
// CNG (bcrypt) does random bytes, PBKDF2, CBC and GCM. The passphrase-derived
// legacy key is the classic CryptoAPI's (advapi32): CryptDeriveKey is the
// derivation itself, so it is asked rather than imitated, and its key is
// used through CryptEncrypt / CryptDecrypt. The classic API knows neither
// PBKDF2 nor GCM, hence the two providers.
//
// Both kinds of key handle carry the chaining state of an operation, so
// every operation works on a duplicate of the key and the key itself is
// only ever read: one key may serve many threads at once.
#include <windows.h>
#include <bcrypt.h>
#include <wincrypt.h>

#include <cstring>
#include <vector>

#include "platform/crypto.h"
#include "platform/errors.h"

namespace plat {
namespace {

constexpr uint32_t kErrorGenFailure = 31;  // ERROR_GEN_FAILURE

// NTSTATUS values; ntstatus.h cannot be included beside windows.h without
// undoing its definitions, and these are the only ones we tell apart.
constexpr NTSTATUS kStatusNoMemory = static_cast<NTSTATUS>(0xC0000017L);
constexpr NTSTATUS kStatusInvalidParameter = static_cast<NTSTATUS>(0xC000000DL);
constexpr NTSTATUS kStatusNotSupported = static_cast<NTSTATUS>(0xC00000BBL);
constexpr NTSTATUS kStatusAuthTagMismatch = static_cast<NTSTATUS>(0xC000A002L);

bool Succeeded(NTSTATUS status) { return status >= 0; }

bool Fail(uint32_t code) {
  ::SetLastError(code);
  return false;
}

// The Windows error for a CNG status, so that callers read the same codes
// as from the POSIX build.
bool FailStatus(NTSTATUS status) {
  switch (status) {
    case kStatusNoMemory: return Fail(kErrorNotEnoughMemory);
    case kStatusInvalidParameter: return Fail(kErrorInvalidParameter);
    case kStatusNotSupported: return Fail(kErrorNotSupported);
    case kStatusAuthTagMismatch: return Fail(kErrorInvalidData);
    default: return Fail(kErrorGenFailure);
  }
}

// The CNG calls take ULONG lengths; our texts are bounded far below that.
bool FitsUlong(std::size_t size) { return size <= 0xFFFFFFFFu; }

// CNG wants non-const pointers for input it does not change, and a valid
// pointer even for nothing.
PUCHAR In(const void* data) {
  static UCHAR nothing;
  return data ? static_cast<PUCHAR>(const_cast<void*>(data)) : &nothing;
}

// An AES algorithm provider with one chaining mode, and a key from it.
struct BcryptKey {
  BCRYPT_ALG_HANDLE alg = nullptr;
  BCRYPT_KEY_HANDLE key = nullptr;

  BcryptKey() = default;
  BcryptKey(const BcryptKey&) = delete;
  BcryptKey& operator=(const BcryptKey&) = delete;

  bool Make(const wchar_t* chainingMode, const uint8_t (&bytes)[kAes256KeySize]) {
    NTSTATUS status = ::BCryptOpenAlgorithmProvider(&alg, BCRYPT_AES_ALGORITHM, nullptr, 0);
    if (Succeeded(status)) {
      status = ::BCryptSetProperty(alg, BCRYPT_CHAINING_MODE, In(chainingMode),
                                   static_cast<ULONG>((std::wcslen(chainingMode) + 1) * sizeof(wchar_t)), 0);
    }
    if (Succeeded(status)) {
      status = ::BCryptGenerateSymmetricKey(alg, &key, nullptr, 0, In(bytes), sizeof bytes, 0);
    }
    return Succeeded(status) || FailStatus(status);
  }
  ~BcryptKey() {
    if (key) ::BCryptDestroyKey(key);
    if (alg) ::BCryptCloseAlgorithmProvider(alg, 0);
  }
};

// A duplicate of a CNG key for the length of one operation.
class KeyCopy {
 public:
  explicit KeyCopy(BCRYPT_KEY_HANDLE key) { status_ = ::BCryptDuplicateKey(key, &copy_, nullptr, 0, 0); }
  ~KeyCopy() {
    if (copy_) ::BCryptDestroyKey(copy_);
  }
  KeyCopy(const KeyCopy&) = delete;
  KeyCopy& operator=(const KeyCopy&) = delete;
  NTSTATUS status() const { return status_; }
  BCRYPT_KEY_HANDLE get() const { return copy_; }

 private:
  BCRYPT_KEY_HANDLE copy_ = nullptr;
  NTSTATUS status_;
};

}  // namespace

bool RandomBytes(void* buffer, std::size_t size) {
  auto* at = static_cast<PUCHAR>(buffer);
  while (size > 0) {
    ULONG piece = static_cast<ULONG>(size > 1u << 20 ? 1u << 20 : size);
    NTSTATUS status = ::BCryptGenRandom(nullptr, at, piece, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    if (!Succeeded(status)) return FailStatus(status);
    at += piece;
    size -= piece;
  }
  return true;
}

bool Pbkdf2HmacSha256(std::string_view password, const uint8_t* salt, std::size_t saltSize,
                      uint32_t iterations, uint8_t* key, std::size_t keySize) {
  if (iterations == 0 || !FitsUlong(password.size()) || !FitsUlong(saltSize) || !FitsUlong(keySize)) {
    return Fail(kErrorInvalidParameter);
  }
  BCRYPT_ALG_HANDLE hmac = nullptr;
  NTSTATUS status =
      ::BCryptOpenAlgorithmProvider(&hmac, BCRYPT_SHA256_ALGORITHM, nullptr, BCRYPT_ALG_HANDLE_HMAC_FLAG);
  if (Succeeded(status)) {
    status = ::BCryptDeriveKeyPBKDF2(hmac, In(password.data()), static_cast<ULONG>(password.size()), In(salt),
                                     static_cast<ULONG>(saltSize), iterations, key, static_cast<ULONG>(keySize), 0);
    ::BCryptCloseAlgorithmProvider(hmac, 0);
  }
  return Succeeded(status) || FailStatus(status);
}

void WipeSecret(void* buffer, std::size_t size) { ::SecureZeroMemory(buffer, size); }

// ---------------------------------------------------------------------------
// CBC: a CNG key, or a classic one for the legacy derivation.

struct AesCbcKey::Impl {
  BcryptKey cng;
  HCRYPTPROV provider = 0;
  HCRYPTKEY legacy = 0;

  ~Impl() {
    if (legacy) ::CryptDestroyKey(legacy);
    if (provider) ::CryptReleaseContext(provider, 0);
  }
};

AesCbcKey::AesCbcKey(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
AesCbcKey::~AesCbcKey() = default;

std::unique_ptr<AesCbcKey> AesCbcKey::FromBytes(const uint8_t (&key)[kAes256KeySize]) {
  auto impl = std::make_unique<Impl>();
  if (!impl->cng.Make(BCRYPT_CHAIN_MODE_CBC, key)) return nullptr;
  return std::unique_ptr<AesCbcKey>(new AesCbcKey(std::move(impl)));
}

std::unique_ptr<AesCbcKey> AesCbcKey::FromLegacyPassphrase(std::string_view passphrase) {
  if (!FitsUlong(passphrase.size())) {
    Fail(kErrorInvalidParameter);
    return nullptr;
  }
  auto impl = std::make_unique<Impl>();
  // A key container is never needed: the key lives in this process only.
  if (!::CryptAcquireContextW(&impl->provider, nullptr, nullptr, PROV_RSA_AES,
                              CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) {
    return nullptr;
  }
  HCRYPTHASH hash = 0;
  bool ok = ::CryptCreateHash(impl->provider, CALG_SHA1, 0, 0, &hash) &&
            ::CryptHashData(hash, In(passphrase.data()), static_cast<DWORD>(passphrase.size()), 0) &&
            ::CryptDeriveKey(impl->provider, CALG_AES_256, hash, 256u << 16, &impl->legacy);
  DWORD error = ::GetLastError();
  if (hash) ::CryptDestroyHash(hash);
  if (!ok) {
    ::SetLastError(error);
    return nullptr;
  }
  // CBC is the provider's default for a block cipher; said here so that no
  // default of another version can change what the key does.
  DWORD mode = CRYPT_MODE_CBC;
  if (!::CryptSetKeyParam(impl->legacy, KP_MODE, reinterpret_cast<BYTE*>(&mode), 0)) return nullptr;
  return std::unique_ptr<AesCbcKey>(new AesCbcKey(std::move(impl)));
}

namespace {

// Whole blocks through a classic key: Final is FALSE, so the provider
// neither adds nor strips padding; the duplicate starts from the IV given.
bool LegacyRun(HCRYPTKEY key, const uint8_t* iv, bool encrypt, const uint8_t* in, std::size_t size, uint8_t* out) {
  HCRYPTKEY copy = 0;
  if (!::CryptDuplicateKey(key, nullptr, 0, &copy)) return false;
  bool ok = ::CryptSetKeyParam(copy, KP_IV, const_cast<BYTE*>(iv), 0);
  if (ok && size > 0) {
    std::memmove(out, in, size);
    DWORD length = static_cast<DWORD>(size);
    ok = encrypt ? ::CryptEncrypt(copy, 0, FALSE, 0, out, &length, static_cast<DWORD>(size))
                 : ::CryptDecrypt(copy, 0, FALSE, 0, out, &length);
    if (ok && length != size) {
      ::SetLastError(kErrorGenFailure);
      ok = false;
    }
  }
  DWORD error = ::GetLastError();
  ::CryptDestroyKey(copy);
  if (!ok) ::SetLastError(error);
  return ok;
}

bool CngCbcRun(BCRYPT_KEY_HANDLE key, const uint8_t* iv, bool encrypt, const uint8_t* in, std::size_t size,
               uint8_t* out) {
  KeyCopy copy(key);
  if (!Succeeded(copy.status())) return FailStatus(copy.status());
  // CNG advances the IV buffer it is given.
  UCHAR chain[kAesBlockSize];
  std::memcpy(chain, iv, sizeof chain);
  ULONG written = 0;
  NTSTATUS status =
      encrypt ? ::BCryptEncrypt(copy.get(), In(in), static_cast<ULONG>(size), nullptr, chain, sizeof chain, out,
                                static_cast<ULONG>(size), &written, 0)
              : ::BCryptDecrypt(copy.get(), In(in), static_cast<ULONG>(size), nullptr, chain, sizeof chain, out,
                                static_cast<ULONG>(size), &written, 0);
  if (!Succeeded(status)) return FailStatus(status);
  return written == size || Fail(kErrorGenFailure);
}

}  // namespace

bool AesCbcKey::Encrypt(const uint8_t (&iv)[kAesBlockSize], const uint8_t* in, std::size_t size,
                        uint8_t* out) const {
  if (size % kAesBlockSize != 0 || !FitsUlong(size)) return Fail(kErrorInvalidParameter);
  if (size == 0) return true;
  return impl_->legacy ? LegacyRun(impl_->legacy, iv, true, in, size, out)
                       : CngCbcRun(impl_->cng.key, iv, true, in, size, out);
}

bool AesCbcKey::Decrypt(const uint8_t (&iv)[kAesBlockSize], const uint8_t* in, std::size_t size,
                        uint8_t* out) const {
  if (size % kAesBlockSize != 0 || !FitsUlong(size)) return Fail(kErrorInvalidParameter);
  if (size == 0) return true;
  return impl_->legacy ? LegacyRun(impl_->legacy, iv, false, in, size, out)
                       : CngCbcRun(impl_->cng.key, iv, false, in, size, out);
}

// ---------------------------------------------------------------------------
// GCM

struct AesGcmKey::Impl {
  BcryptKey cng;
};

AesGcmKey::AesGcmKey(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
AesGcmKey::~AesGcmKey() = default;

std::unique_ptr<AesGcmKey> AesGcmKey::FromBytes(const uint8_t (&key)[kAes256KeySize]) {
  auto impl = std::make_unique<Impl>();
  if (!impl->cng.Make(BCRYPT_CHAIN_MODE_GCM, key)) return nullptr;
  return std::unique_ptr<AesGcmKey>(new AesGcmKey(std::move(impl)));
}

namespace {

BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO GcmInfo(const uint8_t* nonce, const uint8_t* aad, std::size_t aadSize,
                                              const uint8_t* tag) {
  BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info;
  BCRYPT_INIT_AUTH_MODE_INFO(info);
  info.pbNonce = In(nonce);
  info.cbNonce = static_cast<ULONG>(kGcmNonceSize);
  info.pbAuthData = aadSize > 0 ? In(aad) : nullptr;
  info.cbAuthData = static_cast<ULONG>(aadSize);
  info.pbTag = In(tag);
  info.cbTag = static_cast<ULONG>(kGcmTagSize);
  return info;
}

}  // namespace

bool AesGcmKey::Encrypt(const uint8_t (&nonce)[kGcmNonceSize], const uint8_t* aad, std::size_t aadSize,
                        const uint8_t* in, std::size_t size, uint8_t* out, uint8_t (&tag)[kGcmTagSize]) const {
  if (!FitsUlong(size) || !FitsUlong(aadSize)) return Fail(kErrorInvalidParameter);
  KeyCopy copy(impl_->cng.key);
  if (!Succeeded(copy.status())) return FailStatus(copy.status());
  BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info = GcmInfo(nonce, aad, aadSize, tag);
  UCHAR nothing = 0;
  ULONG written = 0;
  NTSTATUS status = ::BCryptEncrypt(copy.get(), In(in), static_cast<ULONG>(size), &info, nullptr, 0,
                                    size > 0 ? out : &nothing, static_cast<ULONG>(size), &written, 0);
  if (!Succeeded(status)) return FailStatus(status);
  return written == size || Fail(kErrorGenFailure);
}

bool AesGcmKey::Decrypt(const uint8_t (&nonce)[kGcmNonceSize], const uint8_t* aad, std::size_t aadSize,
                        const uint8_t* in, std::size_t size, const uint8_t (&tag)[kGcmTagSize],
                        uint8_t* out) const {
  if (!FitsUlong(size) || !FitsUlong(aadSize)) return Fail(kErrorInvalidParameter);
  KeyCopy copy(impl_->cng.key);
  if (!Succeeded(copy.status())) return FailStatus(copy.status());
  BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info = GcmInfo(nonce, aad, aadSize, tag);
  UCHAR nothing = 0;
  ULONG written = 0;
  NTSTATUS status = ::BCryptDecrypt(copy.get(), In(in), static_cast<ULONG>(size), &info, nullptr, 0,
                                    size > 0 ? out : &nothing, static_cast<ULONG>(size), &written, 0);
  if (Succeeded(status) && written == size) return true;
  if (size > 0) WipeSecret(out, size);
  return Succeeded(status) ? Fail(kErrorGenFailure) : FailStatus(status);
}

}  // namespace plat
