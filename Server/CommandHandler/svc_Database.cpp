#include "svc_Database.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "db_Schema.h"
#include "sig_Signer.h"
#include "svc_Files.h"

namespace svc {
namespace {

bool ReadPasswordFile(const std::string& path, std::string* password, std::string* error) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    *error = "--database-password-file " + path + " is not a file";
    return false;
  }
  if ((info.st_mode & 077) != 0) {
    *error = "--database-password-file " + path + " may be read by others (chmod 600 it)";
    return false;
  }
  std::ifstream in(path, std::ios::binary);
  std::string line;
  std::getline(in, line);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.empty()) {
    *error = "--database-password-file " + path + " holds no password on its first line";
    return false;
  }
  *password = line;
  return true;
}

std::string ReadCertificate(const sig::Signer& signer) {
  std::ifstream in(signer.CertificatePath(), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

std::string DatabaseLocation(const Options& options) {
  return options.database.empty() ? options.dataFolder + "/cmdhandler.db" : options.database;
}

bool DatabasePassword(const Options& options, std::string* password, std::string* error) {
  password->clear();
  if (!options.databasePasswordFile.empty()) return ReadPasswordFile(options.databasePasswordFile, password, error);
  if (const char* value = std::getenv("VGCR_DATABASE_PASSWORD")) *password = value;
  return true;
}

std::unique_ptr<db::Database> OpenDatabase(const Options& options, std::string* error) {
  const std::string location = DatabaseLocation(options);
  std::string password;
  if (!DatabasePassword(options, &password, error)) return nullptr;
  if (!db::IsPostgresLocation(location)) {
    for (const char* suffix : {"", "-wal", "-shm"}) {
      if (!KeepPrivate(location + suffix, 0600, error)) return nullptr;
    }
  }
  std::unique_ptr<db::Database> database =
      db::Database::Open(location, error, password, options.databaseConnections);
  if (database && !db::CreateSchema(*database, error)) return nullptr;
  return database;
}

std::unique_ptr<db::Database> OpenDatabaseForReading(const Options& options, std::string* error) {
  std::string password;
  if (!DatabasePassword(options, &password, error)) return nullptr;
  return db::Database::OpenForReading(DatabaseLocation(options), error, password);
}

bool CheckSigningIdentity(db::Database& database, const sig::Signer& signer, bool replace, std::string* error) {
  const std::string ours = ReadCertificate(signer);
  if (ours.empty()) {
    *error = "cannot read " + signer.CertificatePath();
    return false;
  }
  std::string recorded;
  const bool ok = db::InTransaction(database, [&] {
    database.connection().LockForTransaction("vgcr signing identity");
    db::Statement s = database.Prepare(
        std::string("INSERT INTO signing_identity (id, certificate, recorded) VALUES (1, ?, ") + db::kNowSql +
        (replace ? ") ON CONFLICT(id) DO UPDATE SET certificate = excluded.certificate, recorded = excluded.recorded"
                 : ") ON CONFLICT(id) DO NOTHING"));
    if (!s.Bind(1, ours).Run()) return false;
    db::Statement read = database.Prepare("SELECT certificate FROM signing_identity WHERE id = 1");
    if (!read.Step()) return false;
    recorded = read.Text(0);
    return true;
  });
  if (!ok) {
    *error = "cannot read the recorded signing certificate: " + database.LastError();
    return false;
  }
  if (recorded == ours) return true;
  *error = "this service's signing certificate (" + signer.CertificatePath() + ", serial " + signer.Serial() +
           ") is not the one the database records for every service sharing it; give this service the same "
           "signing-key.pem and signing-cert.pem as the others, or, when all of them have the new pair, run "
           "vgcr-cmdhandler record-identity once";
  return false;
}

}  // namespace svc
