#include "signature_check.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <vector>

#include "b64_Base64Coder.h"

bool SignatureVerifies(const std::string& certificatePath, const std::string& reply, int32_t number,
                       const std::string& signature) {
  std::vector<uint8_t> raw;
  if (!Base64Coder::Decode(signature, &raw)) return false;
  std::FILE* file = std::fopen(certificatePath.c_str(), "r");
  X509* certificate = file ? PEM_read_X509(file, nullptr, nullptr, nullptr) : nullptr;
  if (file) std::fclose(file);
  if (!certificate) return false;
  std::string bytes = reply;
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(static_cast<uint32_t>(number) >> (8 * i)));
  EVP_PKEY* key = X509_get_pubkey(certificate);
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  const bool ok = EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, key) == 1 &&
                  EVP_DigestVerify(context, raw.data(), raw.size(), reinterpret_cast<const uint8_t*>(bytes.data()),
                                   bytes.size()) == 1;
  EVP_MD_CTX_free(context);
  EVP_PKEY_free(key);
  X509_free(certificate);
  return ok;
}
