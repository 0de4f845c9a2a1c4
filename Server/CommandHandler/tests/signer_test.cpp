// The reply signature, checked the way a client checks it: with OpenSSL and
// nothing but the certificate.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "db_probe.h"
#include "sig_Signer.h"
#include "signature_check.h"

namespace {

class Signer : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = MakeTempFolder();
    std::string error;
    signer_ = sig::Signer::Open(folder_, sig::KeyKind::kEcdsaP256, &error);
    ASSERT_TRUE(signer_) << error;
  }
  void TearDown() override { RemoveFolder(folder_); }
  std::string folder_;
  std::unique_ptr<sig::Signer> signer_;
};

// Either kind of key a new folder may get; a client verifies both the same
// way, with the certificate alone.
TEST(SignerKinds, ASignatureBindsTheReplyAndTheClientsNumber) {
  const struct {
    sig::KeyKind kind;
    int keyType;
  } kinds[] = {{sig::KeyKind::kEcdsaP256, EVP_PKEY_EC}, {sig::KeyKind::kRsa2048, EVP_PKEY_RSA}};
  for (const auto& kind : kinds) {
    const std::string folder = MakeTempFolder();
    std::string error;
    auto signer = sig::Signer::Open(folder, kind.kind, &error);
    ASSERT_TRUE(signer) << error;
    std::FILE* file = std::fopen(signer->CertificatePath().c_str(), "r");
    ASSERT_NE(file, nullptr);
    X509* certificate = PEM_read_X509(file, nullptr, nullptr, nullptr);
    std::fclose(file);
    ASSERT_NE(certificate, nullptr);
    EXPECT_EQ(EVP_PKEY_get_base_id(X509_get0_pubkey(certificate)), kind.keyType);
    X509_free(certificate);

    const std::string reply = "1\n1795323842";
    const std::string signature = signer->Sign({reply.begin(), reply.end()}, -7);
    EXPECT_TRUE(SignatureVerifies(signer->CertificatePath(), reply, -7, signature));
    EXPECT_FALSE(SignatureVerifies(signer->CertificatePath(), "1\n1795323843", -7, signature)) << "another reply";
    EXPECT_FALSE(SignatureVerifies(signer->CertificatePath(), reply, 7, signature)) << "another number";
    RemoveFolder(folder);
  }
}

TEST_F(Signer, TheKeyIsMadeOnceAndKeptPrivate) {
  const std::string serial = signer_->Serial();
  std::string error;
  auto again = sig::Signer::Open(folder_, sig::KeyKind::kEcdsaP256, &error);
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

// Signing goes on while reloads swap the keys: whatever certificate a
// signature is said to be made for, it verifies with that certificate.
TEST_F(Signer, ASignatureAlwaysMatchesTheCertificateItIsToldFor) {
  namespace fs = std::filesystem;
  const std::string first = folder_ + "/first.pem";
  fs::copy_file(signer_->CertificatePath(), first);
  const std::string other = MakeTempFolder();
  std::string error;
  auto second = sig::Signer::Open(other, sig::KeyKind::kEcdsaP256, &error);
  ASSERT_TRUE(second) << error;
  const std::string firstIssuer = signer_->Issuer();
  const std::string firstSerial = signer_->Serial();

  std::atomic<bool> done{false};
  std::thread reloads([&] {
    const std::string pairs[] = {other, folder_ + "/keep"};
    fs::create_directory(pairs[1]);
    for (const char* name : {"/signing-key.pem", "/signing-cert.pem"})
      fs::copy_file(folder_ + name, pairs[1] + name);
    for (int i = 0; i < 40; ++i) {
      for (const char* name : {"/signing-key.pem", "/signing-cert.pem"})
        fs::copy_file(pairs[i % 2] + name, folder_ + name, fs::copy_options::overwrite_existing);
      std::string ignored;
      signer_->Reload(&ignored);  // may meet a half-copied pair: then nothing changes
    }
    done = true;
  });
  const std::vector<uint8_t> reply = {'o', 'k'};
  int signedCount = 0;
  while (!done) {
    const sig::Signer::Signature made = signer_->SignFor(firstIssuer, firstSerial, reply, 7);
    if (made.match == sig::Signer::Match::kNone) continue;
    ++signedCount;
    EXPECT_TRUE(SignatureVerifies(first, "ok", 7, made.base64));
  }
  reloads.join();
  EXPECT_GT(signedCount, 0);
  const sig::Signer::Signature stranger = signer_->SignFor("CN=Someone Else", firstSerial, reply, 7);
  EXPECT_EQ(stranger.match, sig::Signer::Match::kNone);
  EXPECT_TRUE(stranger.base64.empty());
  RemoveFolder(other);
}

}  // namespace
