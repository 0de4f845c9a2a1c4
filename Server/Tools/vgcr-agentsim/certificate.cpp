#include "certificate.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <memory>
#include <vector>

namespace agentsim {

namespace {

// A signature is a few hundred bytes at most (RSA 4096: 512).
constexpr std::size_t kMaxSignatureText = 4096;

std::string IssuerText(X509* certificate) {
  BIO* memory = BIO_new(BIO_s_mem());
  if (!memory) return {};
  std::string text;
  if (X509_NAME_print_ex(memory, X509_get_issuer_name(certificate), 0, XN_FLAG_RFC2253) >= 0) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory, &data);
    if (length > 0) text.assign(data, static_cast<std::size_t>(length));
  }
  BIO_free(memory);
  return text;
}

std::string SerialText(X509* certificate) {
  BIGNUM* number = ASN1_INTEGER_to_BN(X509_get_serialNumber(certificate), nullptr);
  char* hex = number ? BN_bn2hex(number) : nullptr;
  std::string text = hex ? hex : "";
  OPENSSL_free(hex);
  BN_free(number);
  return text;
}

bool DecodeBase64(std::string_view text, std::vector<unsigned char>* out) {
  while (!text.empty() && (text.back() == '\r' || text.back() == ' ')) text.remove_suffix(1);
  if (text.empty() || text.size() % 4 != 0 || text.size() > kMaxSignatureText) return false;
  out->resize(text.size() / 4 * 3);
  const int n = EVP_DecodeBlock(out->data(), reinterpret_cast<const unsigned char*>(text.data()),
                                static_cast<int>(text.size()));
  if (n < 0) return false;
  std::size_t length = static_cast<std::size_t>(n);
  // EVP_DecodeBlock counts the padding as zero bytes.
  for (std::size_t i = text.size(); i > 0 && text[i - 1] == '='; --i) --length;
  out->resize(length);
  return true;
}

}  // namespace

Certificate::~Certificate() { EVP_PKEY_free(key_); }

bool Certificate::Load(const std::string& pemPath, std::string* error) {
  std::FILE* file = std::fopen(pemPath.c_str(), "r");
  if (!file) {
    *error = "cannot open " + pemPath;
    return false;
  }
  X509* certificate = PEM_read_X509(file, nullptr, nullptr, nullptr);
  std::fclose(file);
  if (!certificate) {
    *error = pemPath + " holds no PEM certificate";
    return false;
  }
  key_ = X509_get_pubkey(certificate);
  issuer_ = IssuerText(certificate);
  serial_ = SerialText(certificate);
  X509_free(certificate);
  if (!key_ || issuer_.empty() || serial_.empty()) {
    *error = pemPath + ": no public key, issuer or serial number";
    return false;
  }
  return true;
}

bool Certificate::Verifies(std::string_view body, int32_t number, std::string_view signatureBase64) const {
  std::vector<unsigned char> signature;
  if (!key_ || !DecodeBase64(signatureBase64, &signature)) return false;
  std::string signedBytes(body);
  for (int i = 0; i < 4; ++i) signedBytes.push_back(static_cast<char>(static_cast<uint32_t>(number) >> (8 * i)));
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  const bool ok = context && EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, key_) == 1 &&
                  EVP_DigestVerify(context, signature.data(), signature.size(),
                                   reinterpret_cast<const unsigned char*>(signedBytes.data()), signedBytes.size()) == 1;
  EVP_MD_CTX_free(context);
  return ok;
}

}  // namespace agentsim
