#include "crypt_StringEnvelope.h"

#include <atomic>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <vector>

#include "b64_Base64Coder.h"
#include "platform/crypto.h"
#include "platform/errors.h"

namespace {

// The passphrases and salts are part of the envelopes' contract: another
// implementation needs them to read and write our texts, so they are
// written out in docs/envelopes.md too. Changing one breaks every envelope
// made before.
constexpr std::string_view kCryptPassphrase = "Vigilcrest/FrontDoor/Envelope#1:q7Zt2Lm9";
constexpr std::string_view kCryptExPassphrase = "Vigilcrest/FrontDoor/Envelope#2:Rk4vW8sN";
constexpr std::string_view kCryptEx3Passphrase = "Vigilcrest/FrontDoor/Envelope#3:Hb6xT1pJ";
constexpr uint8_t kCryptExSalt[16] = {0xb0, 0xfd, 0x4f, 0xf8, 0xf2, 0x70, 0x11, 0x9e,
                                      0xee, 0x0a, 0x35, 0x2f, 0x8b, 0x1c, 0x2d, 0xc8};
constexpr uint8_t kCryptEx3Salt[16] = {0xb0, 0x4e, 0xc1, 0x0b, 0x25, 0x21, 0x72, 0xfc,
                                       0x82, 0xc1, 0x3e, 0x54, 0x85, 0x0c, 0xd8, 0x84};
// Tens of milliseconds once per process; the keys are kept after that.
constexpr uint32_t kPbkdf2Iterations = 100000;

constexpr std::string_view kCryptMarker = "!CRYPT!";
constexpr std::string_view kCryptExMarker = "!CRYPTEX!";
constexpr std::string_view kCryptEx3Marker = "!CRYPTEX3!";

constexpr std::size_t kBlock = plat::kAesBlockSize;
constexpr std::size_t kNonce = plat::kGcmNonceSize;
constexpr std::size_t kTag = plat::kGcmTagSize;

// A key made on first use and kept; a failed derivation is tried again on
// the next use rather than remembered. Keys are never destroyed: a
// destructor would run as the module unloads, inside DllMain on Windows,
// and call into the providers' DLLs when they may be gone already.
template <typename Key>
class KeyCache {
 public:
  using Make = std::unique_ptr<Key> (*)();
  explicit constexpr KeyCache(Make make) : make_(make) {}

  const Key* Get() {
    if (const Key* key = ready_.load(std::memory_order_acquire)) return key;
    std::lock_guard lock(mutex_);
    const Key* key = ready_.load(std::memory_order_relaxed);
    if (!key) {
      key = make_().release();
      ready_.store(key, std::memory_order_release);
    }
    return key;
  }

 private:
  Make make_;
  std::mutex mutex_;
  std::atomic<const Key*> ready_{nullptr};
};

template <typename Key>
std::unique_ptr<Key> FromPbkdf2(std::string_view passphrase, const uint8_t (&salt)[16]) {
  uint8_t bytes[plat::kAes256KeySize];
  std::unique_ptr<Key> key;
  if (plat::Pbkdf2HmacSha256(passphrase, salt, sizeof salt, kPbkdf2Iterations, bytes, sizeof bytes)) {
    key = Key::FromBytes(bytes);
  }
  plat::WipeSecret(bytes, sizeof bytes);
  return key;
}

KeyCache<plat::AesCbcKey> g_cryptKey(
    [] { return plat::AesCbcKey::FromLegacyPassphrase(kCryptPassphrase); });
KeyCache<plat::AesCbcKey> g_cryptExKey(
    [] { return FromPbkdf2<plat::AesCbcKey>(kCryptExPassphrase, kCryptExSalt); });
KeyCache<plat::AesGcmKey> g_cryptEx3Key(
    [] { return FromPbkdf2<plat::AesGcmKey>(kCryptEx3Passphrase, kCryptEx3Salt); });

// Bytes that held a plain text are wiped before they are given back.
class Buffer {
 public:
  explicit Buffer(std::size_t size) : bytes_(size) {}
  ~Buffer() {
    if (!bytes_.empty()) plat::WipeSecret(bytes_.data(), bytes_.size());
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  uint8_t* data() { return bytes_.data(); }
  std::size_t size() const { return bytes_.size(); }
  std::vector<uint8_t>* vector() { return &bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

// UTF-8 as RFC 3629 has it (no overlong forms, no surrogates, nothing past
// U+10FFFF), without NUL: the texts are JSON, and a NUL would cut a text
// short wherever it is taken as a C string.
bool IsCleanUtf8(const uint8_t* text, std::size_t size) {
  std::size_t i = 0;
  while (i < size) {
    uint8_t lead = text[i];
    if (lead == 0) return false;
    if (lead < 0x80) {
      ++i;
      continue;
    }
    std::size_t length;
    uint32_t low = 0x80, high = 0xBF;  // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      if (lead == 0xE0) low = 0xA0;   // overlong
      if (lead == 0xED) high = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      if (lead == 0xF0) low = 0x90;   // overlong
      if (lead == 0xF4) high = 0x8F;  // past U+10FFFF
    } else {
      return false;
    }
    if (size - i < length || text[i + 1] < low || text[i + 1] > high) return false;
    for (std::size_t k = 2; k < length; ++k) {
      if ((text[i + k] & 0xC0) != 0x80) return false;
    }
    i += length;
  }
  return true;
}

bool IsCleanUtf8(std::string_view text) {
  return IsCleanUtf8(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

// The bytes before base64 for a plain text of `size` bytes.
std::size_t LayoutSize(EnvelopeForm form, std::size_t size) {
  std::size_t padded = (size / kBlock + 1) * kBlock;
  switch (form) {
    case EnvelopeForm::kCrypt: return padded;
    case EnvelopeForm::kCryptEx: return kBlock + padded;
    case EnvelopeForm::kCryptEx3: return kNonce + size + kTag;
    case EnvelopeForm::kPlain: break;
  }
  return size;
}

std::size_t Base64Size(std::size_t bytes) { return (bytes + 2) / 3 * 4; }

// Only the canonical encoding is taken: '=' padding, no white space, zero
// bits where a last letter has more than it needs. Otherwise two texts
// would carry the same bytes, and a changed "!CRYPTEX3!" text could still
// be accepted.
bool DecodeCanonical(std::string_view text, std::vector<uint8_t>* out) {
  if (text.size() % 4 != 0 || !Base64Coder::Decode(text, out)) return false;
  if (Base64Size(out->size()) != text.size() || Base64Coder::Encode(out->data(), out->size()) != text) {
    out->clear();
    return false;
  }
  return true;
}

// PKCS#7: the last byte n (1 to 16) says how many bytes of value n end the
// text. Every byte of the last block is looked at whatever the answer.
bool PaddingLength(const uint8_t* data, std::size_t size, std::size_t* padding) {
  const uint8_t n = data[size - 1];
  unsigned bad = static_cast<unsigned>(n == 0) | static_cast<unsigned>(n > kBlock);
  for (std::size_t i = 0; i < kBlock; ++i) {
    unsigned inPadding = static_cast<unsigned>(i < n);
    bad |= inPadding & static_cast<unsigned>(data[size - 1 - i] != n);
  }
  *padding = n;
  return bad == 0;
}

EnvelopeStatus EncryptInto(EnvelopeForm form, std::string_view plain, const uint8_t* iv, std::size_t ivSize,
                           std::string* envelope) {
  if (form == EnvelopeForm::kPlain) {
    envelope->assign(plain);
    return EnvelopeStatus::kOk;
  }
  const std::string_view marker = StringEnvelope::Marker(form);
  if (marker.empty()) return EnvelopeStatus::kInternalError;
  if (plain.size() > StringEnvelope::kMaxEnvelopeSize ||
      marker.size() + Base64Size(LayoutSize(form, plain.size())) > StringEnvelope::kMaxEnvelopeSize) {
    return EnvelopeStatus::kTooLong;
  }
  if (!IsCleanUtf8(plain)) return EnvelopeStatus::kBadText;

  Buffer bytes(LayoutSize(form, plain.size()));
  bool ok = false;
  if (form == EnvelopeForm::kCryptEx3) {
    const plat::AesGcmKey* key = g_cryptEx3Key.Get();
    if (ivSize != kNonce || !key) return EnvelopeStatus::kInternalError;
    uint8_t nonce[kNonce];
    std::memcpy(nonce, iv, kNonce);
    std::memcpy(bytes.data(), nonce, kNonce);
    uint8_t* text = bytes.data() + kNonce;
    if (!plain.empty()) std::memcpy(text, plain.data(), plain.size());
    uint8_t tag[kTag];
    ok = key->Encrypt(nonce, reinterpret_cast<const uint8_t*>(marker.data()), marker.size(), text, plain.size(), text,
                      tag);
    std::memcpy(text + plain.size(), tag, kTag);
  } else {
    const bool legacy = form == EnvelopeForm::kCrypt;
    const plat::AesCbcKey* key = legacy ? g_cryptKey.Get() : g_cryptExKey.Get();
    if (ivSize != (legacy ? 0 : kBlock) || !key) return EnvelopeStatus::kInternalError;
    uint8_t chain[kBlock] = {};  // the classic provider's default IV: zero
    if (!legacy) std::memcpy(chain, iv, kBlock);
    const std::size_t ivPart = legacy ? 0 : kBlock;
    std::memcpy(bytes.data(), chain, ivPart);
    uint8_t* text = bytes.data() + ivPart;
    const std::size_t padded = bytes.size() - ivPart;
    if (!plain.empty()) std::memcpy(text, plain.data(), plain.size());
    std::memset(text + plain.size(), static_cast<int>(padded - plain.size()), padded - plain.size());
    ok = key->Encrypt(chain, text, padded, text);
  }
  if (!ok) return EnvelopeStatus::kInternalError;
  envelope->reserve(marker.size() + Base64Size(bytes.size()));
  envelope->assign(marker);
  envelope->append(Base64Coder::Encode(bytes.data(), bytes.size()));
  return EnvelopeStatus::kOk;
}

EnvelopeStatus DecryptInto(std::string_view text, EnvelopeForm form, std::string* plain) {
  if (form == EnvelopeForm::kPlain) return EnvelopeStatus::kUnknownMarker;
  if (text.size() > StringEnvelope::kMaxEnvelopeSize) return EnvelopeStatus::kTooLong;
  const std::string_view marker = StringEnvelope::Marker(form);
  Buffer bytes(0);
  if (!DecodeCanonical(text.substr(marker.size()), bytes.vector())) return EnvelopeStatus::kBadBase64;

  const uint8_t* result = nullptr;
  std::size_t resultSize = 0;
  if (form == EnvelopeForm::kCryptEx3) {
    if (bytes.size() < kNonce + kTag) return EnvelopeStatus::kBadLength;
    const plat::AesGcmKey* key = g_cryptEx3Key.Get();
    if (!key) return EnvelopeStatus::kInternalError;
    uint8_t nonce[kNonce], tag[kTag];
    std::memcpy(nonce, bytes.data(), kNonce);
    resultSize = bytes.size() - kNonce - kTag;
    uint8_t* cipher = bytes.data() + kNonce;
    std::memcpy(tag, cipher + resultSize, kTag);
    if (!key->Decrypt(nonce, reinterpret_cast<const uint8_t*>(marker.data()), marker.size(), cipher, resultSize, tag,
                      cipher)) {
      return plat::LastError() == plat::kErrorInvalidData ? EnvelopeStatus::kNotAuthentic
                                                          : EnvelopeStatus::kInternalError;
    }
    result = cipher;
  } else {
    const bool legacy = form == EnvelopeForm::kCrypt;
    const std::size_t ivPart = legacy ? 0 : kBlock;
    if (bytes.size() < ivPart + kBlock || (bytes.size() - ivPart) % kBlock != 0) return EnvelopeStatus::kBadLength;
    const plat::AesCbcKey* key = legacy ? g_cryptKey.Get() : g_cryptExKey.Get();
    if (!key) return EnvelopeStatus::kInternalError;
    uint8_t chain[kBlock] = {};
    std::memcpy(chain, bytes.data(), ivPart);
    uint8_t* cipher = bytes.data() + ivPart;
    const std::size_t size = bytes.size() - ivPart;
    if (!key->Decrypt(chain, cipher, size, cipher)) return EnvelopeStatus::kInternalError;
    std::size_t padding = 0;
    if (!PaddingLength(cipher, size, &padding)) return EnvelopeStatus::kBadPadding;
    result = cipher;
    resultSize = size - padding;
  }
  if (!IsCleanUtf8(result, resultSize)) return EnvelopeStatus::kBadText;
  plain->assign(reinterpret_cast<const char*>(result), resultSize);
  return EnvelopeStatus::kOk;
}

}  // namespace

EnvelopeForm StringEnvelope::FormOf(std::string_view text) noexcept {
  // No marker is the beginning of another: "!CRYPT!" has '!' where the
  // others go on with 'E'.
  if (text.starts_with(kCryptEx3Marker)) return EnvelopeForm::kCryptEx3;
  if (text.starts_with(kCryptExMarker)) return EnvelopeForm::kCryptEx;
  if (text.starts_with(kCryptMarker)) return EnvelopeForm::kCrypt;
  return EnvelopeForm::kPlain;
}

std::string_view StringEnvelope::Marker(EnvelopeForm form) noexcept {
  switch (form) {
    case EnvelopeForm::kCrypt: return kCryptMarker;
    case EnvelopeForm::kCryptEx: return kCryptExMarker;
    case EnvelopeForm::kCryptEx3: return kCryptEx3Marker;
    case EnvelopeForm::kPlain: break;
  }
  return {};
}

EnvelopeStatus StringEnvelope::Encrypt(EnvelopeForm form, std::string_view plain, std::string* envelope) noexcept {
  uint8_t iv[kBlock] = {};
  std::size_t ivSize = 0;
  if (form == EnvelopeForm::kCryptEx) ivSize = kBlock;
  if (form == EnvelopeForm::kCryptEx3) ivSize = kNonce;
  if (ivSize > 0 && !plat::RandomBytes(iv, ivSize)) {
    envelope->clear();
    return EnvelopeStatus::kInternalError;
  }
  return EncryptWithIvForTesting(form, plain, iv, ivSize, envelope);
}

EnvelopeStatus StringEnvelope::EncryptWithIvForTesting(EnvelopeForm form, std::string_view plain, const uint8_t* iv,
                                                       std::size_t ivSize, std::string* envelope) noexcept {
  envelope->clear();
  EnvelopeStatus status;
  try {
    status = EncryptInto(form, plain, iv, ivSize, envelope);
  } catch (const std::exception&) {  // memory, or a mutex the system refused
    status = EnvelopeStatus::kInternalError;
  }
  if (status != EnvelopeStatus::kOk) envelope->clear();
  return status;
}

EnvelopeStatus StringEnvelope::Decrypt(std::string_view envelope, std::string* plain, EnvelopeForm* form) noexcept {
  plain->clear();
  const EnvelopeForm found = FormOf(envelope);
  if (form) *form = found;
  EnvelopeStatus status;
  try {
    status = DecryptInto(envelope, found, plain);
  } catch (const std::exception&) {
    status = EnvelopeStatus::kInternalError;
  }
  if (status != EnvelopeStatus::kOk) plain->clear();
  return status;
}

bool StringEnvelope::PrepareKeys() noexcept {
  try {
    return g_cryptKey.Get() && g_cryptExKey.Get() && g_cryptEx3Key.Get();
  } catch (const std::exception&) {
    return false;
  }
}

const char* StringEnvelope::StatusName(EnvelopeStatus status) noexcept {
  switch (status) {
    case EnvelopeStatus::kOk: return "ok";
    case EnvelopeStatus::kUnknownMarker: return "unknown marker";
    case EnvelopeStatus::kTooLong: return "too long";
    case EnvelopeStatus::kBadBase64: return "bad base64";
    case EnvelopeStatus::kBadLength: return "bad length";
    case EnvelopeStatus::kBadPadding: return "bad padding";
    case EnvelopeStatus::kNotAuthentic: return "not authentic";
    case EnvelopeStatus::kBadText: return "bad text";
    case EnvelopeStatus::kInternalError: return "internal error";
  }
  return "unknown status";
}
