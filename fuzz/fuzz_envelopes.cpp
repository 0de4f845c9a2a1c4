// Fuzz target: the string encryption envelopes. The first byte says what
// the rest is (its value modulo 8):
//   0     a whole text to decrypt;
//   1-3   what follows the marker of "!CRYPT!", "!CRYPTEX!", "!CRYPTEX3!";
//   4-6   a plain text to encrypt in those forms and decrypt back;
//   7     a plain text for every form.
// Whatever comes in, a refusal leaves no text behind, and a text that is
// accepted is exactly the one we would write for what it holds: one text
// per content, so nothing was taken that we did not mean to take.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "support/b64_Base64Coder.h"
#include "support/crypt_StringEnvelope.h"

namespace {

constexpr EnvelopeForm kForms[] = {EnvelopeForm::kCrypt, EnvelopeForm::kCryptEx, EnvelopeForm::kCryptEx3};

void Require(bool condition) {
  if (!condition) std::abort();
}

void DecryptAndCheck(std::string_view text) {
  std::string plain = "left over";
  EnvelopeForm form = EnvelopeForm::kPlain;
  const EnvelopeStatus status = StringEnvelope::Decrypt(text, &plain, &form);
  Require(form == StringEnvelope::FormOf(text));
  if (status != EnvelopeStatus::kOk) {
    Require(plain.empty());
    return;
  }
  std::vector<uint8_t> bytes;
  Require(Base64Coder::Decode(text.substr(StringEnvelope::Marker(form).size()), &bytes));
  const std::size_t ivSize = form == EnvelopeForm::kCryptEx ? 16 : form == EnvelopeForm::kCryptEx3 ? 12 : 0;
  Require(bytes.size() >= ivSize);
  std::string again;
  Require(StringEnvelope::EncryptWithIvForTesting(form, plain, bytes.data(), ivSize, &again) == EnvelopeStatus::kOk);
  Require(again == text);
}

void RoundTrip(EnvelopeForm form, std::string_view plain) {
  std::string envelope = "left over";
  const EnvelopeStatus status = StringEnvelope::Encrypt(form, plain, &envelope);
  if (status != EnvelopeStatus::kOk) {
    Require(envelope.empty());
    Require(status == EnvelopeStatus::kBadText || status == EnvelopeStatus::kTooLong);
    return;
  }
  Require(envelope.size() <= StringEnvelope::kMaxEnvelopeSize);
  std::string back;
  EnvelopeForm found = EnvelopeForm::kPlain;
  Require(StringEnvelope::Decrypt(envelope, &back, &found) == EnvelopeStatus::kOk);
  Require(found == form && back == plain);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 1u << 16) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const int mode = data[0] % 8;
  if (mode == 0) {
    DecryptAndCheck(rest);
  } else if (mode <= 3) {
    const EnvelopeForm form = kForms[mode - 1];
    DecryptAndCheck(std::string(StringEnvelope::Marker(form)) + std::string(rest));
  } else if (mode <= 6) {
    RoundTrip(kForms[mode - 4], rest);
  } else {
    for (EnvelopeForm form : kForms) RoundTrip(form, rest);
  }
  return 0;
}
