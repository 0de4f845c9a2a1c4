// The reply signature, checked the way a client checks it: with OpenSSL and
// nothing but the certificate.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <cstdio>

#include "b64_Base64Coder.h"
#include "db_probe.h"
#include "sig_Signer.h"

namespace {

// What a client does: base64-decode SA_SG and verify it over the reply
// bytes and its number (32-bit little-endian) with the certificate's key.
bool Verifies(const std::string& certificatePath, const std::string& reply, int32_t number,
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

class Signer : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = MakeTempFolder();
    std::string error;
    signer_ = sig::Signer::Open(folder_, &error);
    ASSERT_TRUE(signer_) << error;
  }
  void TearDown() override { RemoveFolder(folder_); }
  std::string folder_;
  std::unique_ptr<sig::Signer> signer_;
};

TEST_F(Signer, ASignatureVerifiesWithTheCertificateAndBindsTheClientsNumber) {
  const std::string reply = "1\n1795323842";
  const std::string signature = signer_->Sign({reply.begin(), reply.end()}, -7);
  ASSERT_FALSE(signature.empty());
  EXPECT_TRUE(Verifies(signer_->CertificatePath(), reply, -7, signature));
  EXPECT_FALSE(Verifies(signer_->CertificatePath(), reply, 7, signature)) << "another client's number";
  EXPECT_FALSE(Verifies(signer_->CertificatePath(), "1\n1795323843", -7, signature)) << "another reply";
}

TEST_F(Signer, TheKeyIsMadeOnceAndKeptPrivate) {
  const std::string serial = signer_->Serial();
  std::string error;
  auto again = sig::Signer::Open(folder_, &error);
  ASSERT_TRUE(again) << error;
  EXPECT_EQ(again->Serial(), serial);
  struct stat info {};
  ASSERT_EQ(::stat((folder_ + "/signing-key.pem").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(Signer, TellsItsOwnCertificateFromOthers) {
  const std::string issuer = signer_->Issuer();
  const std::string serial = signer_->Serial();
  std::string lower = serial;
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  struct Case {
    std::string issuer, serial;
    bool ours;
  } cases[] = {
      {issuer, serial, true},
      {issuer, lower, true},
      {issuer, "00" + serial, true},
      {issuer, serial + "0", false},
      {"CN=Someone Else", serial, false},
      {"", "", false},
  };
  EXPECT_EQ(issuer, "CN=Vigilcrest Reply Signing,O=Vigilcrest Server");
  for (const Case& c : cases) EXPECT_EQ(signer_->IsOurs(c.issuer, c.serial), c.ours) << c.issuer << " / " << c.serial;
}

}  // namespace
