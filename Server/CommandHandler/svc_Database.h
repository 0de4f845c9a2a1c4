// Where the service keeps its state: the SQLite file in its data folder, or
// the PostgreSQL server several services share (--database), and the
// signing identity every service on a shared database must sign with.
#pragma once

#include <memory>
#include <string>

#include "db_Database.h"
#include "svc_Options.h"

namespace sig {
class Signer;
}

namespace svc {

// What --database names, else DIR/cmdhandler.db.
std::string DatabaseLocation(const Options& options);
// The password for a PostgreSQL location: --database-password-file (a
// file only its owner may read), else VGCR_DATABASE_PASSWORD, else none
// (libpq's own ~/.pgpass still applies).
bool DatabasePassword(const Options& options, std::string* password, std::string* error);

// Opens the database and brings its schema up to this build's version;
// a SQLite file is kept private to the service.
std::unique_ptr<db::Database> OpenDatabase(const Options& options, std::string* error);
// A read-only connection of its own to the same database (the metrics).
std::unique_ptr<db::Database> OpenDatabaseForReading(const Options& options, std::string* error);

// The certificate the database records as the one every service signs
// with is recorded by the first service; a service whose certificate
// differs is refused, so that clients never meet two. `replace` records
// this service's instead (after the operator gave every service the new
// key and certificate).
bool CheckSigningIdentity(db::Database& database, const sig::Signer& signer, bool replace, std::string* error);

}  // namespace svc
