// String encryption envelopes: a UTF-8 text enciphered into a marker and
// base64 text, in one of three generations.
//
//   "!CRYPT!"    AES-256-CBC, zero IV, the key of the classic provider's
//                CryptDeriveKey over a SHA-1 hash of a fixed passphrase.
//                Deterministic: equal texts give equal envelopes.
//   "!CRYPTEX!"  AES-256-CBC, a random IV in the text, the key from
//                PBKDF2-HMAC-SHA256 over a fixed passphrase and salt.
//   "!CRYPTEX3!" AES-256-GCM, a random 96-bit nonce in the text, a 128-bit
//                tag, the marker as additional authenticated data: any
//                change to the text is detected. The form to use.
//
// The two CBC forms are not authenticated: a changed text may still decrypt
// (to other bytes), and a caller that tells a client why a text failed
// would hand it a padding oracle. Answer every failure the same way and keep
// the status for the trace. docs/envelopes.md is the byte-level contract.
//
// The keys are derived on first use and kept for the life of the process
// (PBKDF2 costs tens of milliseconds); PrepareKeys() pays that up front.
// Every function may be called from any thread, throws nothing, and on any
// failure leaves its output text empty: never a part of a text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

enum class EnvelopeForm : uint8_t {
  kPlain,     // no envelope: the text as it is
  kCrypt,     // "!CRYPT!"
  kCryptEx,   // "!CRYPTEX!"
  kCryptEx3,  // "!CRYPTEX3!"
};

enum class EnvelopeStatus : uint8_t {
  kOk,
  kUnknownMarker,  // the text does not begin with one of the three markers
  kTooLong,        // over kMaxEnvelopeSize, or an envelope would be
  kBadBase64,      // what follows the marker is not canonical padded base64
  kBadLength,      // the decoded bytes cannot be the form's layout
  kBadPadding,     // a CBC form's last block does not end in PKCS#7 padding
  kNotAuthentic,   // "!CRYPTEX3!": the tag does not match (a changed text)
  kBadText,        // the plain text is not UTF-8, or holds a NUL
  kInternalError,  // the platform's provider failed, or memory ran out
};

class StringEnvelope {
 public:
  // The longest envelope text, marker included, either way.
  static constexpr std::size_t kMaxEnvelopeSize = 1u << 20;

  // The form a text is in, by its marker (case matters); kPlain for any
  // text that begins with none of them.
  static EnvelopeForm FormOf(std::string_view text) noexcept;
  // "!CRYPT!", "!CRYPTEX!", "!CRYPTEX3!"; empty for kPlain.
  static std::string_view Marker(EnvelopeForm form) noexcept;

  // Enciphers a UTF-8 text (no NUL) into the form's envelope. kPlain hands
  // the text back as it is, so a reply can go back in the form its request
  // came in without a branch.
  static EnvelopeStatus Encrypt(EnvelopeForm form, std::string_view plain, std::string* envelope) noexcept;

  // Deciphers an envelope of any of the three forms. *form (when asked)
  // is the form the marker names, also on failure: kPlain for a text in no
  // envelope, which is kUnknownMarker.
  static EnvelopeStatus Decrypt(std::string_view envelope, std::string* plain,
                                EnvelopeForm* form = nullptr) noexcept;

  // Derives the keys now rather than on the first request; false when the
  // platform's provider cannot (the envelopes then fail kInternalError).
  static bool PrepareKeys() noexcept;

  // "ok", "unknown marker", ... for trace lines.
  static const char* StatusName(EnvelopeStatus status) noexcept;

  // Tests only: Encrypt with the IV ("!CRYPTEX!", 16 bytes) or nonce
  // ("!CRYPTEX3!", 12 bytes) given instead of random ones; "!CRYPT!" takes
  // none (ivSize 0). Any other size is kInternalError. A nonce used twice
  // under one key gives GCM's authentication away: never on a request path.
  static EnvelopeStatus EncryptWithIvForTesting(EnvelopeForm form, std::string_view plain, const uint8_t* iv,
                                                std::size_t ivSize, std::string* envelope) noexcept;
};
