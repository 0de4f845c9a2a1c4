// The reply signature, checked the way a client checks it: with OpenSSL and
// nothing but the certificate.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "db_probe.h"
#include "sig_Signer.h"
#include "signature_check.h"

namespace {

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

TEST_F(Signer, ASignatureBindsTheReplyAndTheClientsNumber) {
  const std::string reply = "1\n1795323842";
  const std::string signature = signer_->Sign({reply.begin(), reply.end()}, -7);
  EXPECT_TRUE(SignatureVerifies(signer_->CertificatePath(), reply, -7, signature));
  EXPECT_FALSE(SignatureVerifies(signer_->CertificatePath(), "1\n1795323843", -7, signature)) << "another reply";
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
