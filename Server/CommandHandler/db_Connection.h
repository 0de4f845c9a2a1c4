// One connection to the database the service keeps its state in: SQLite (a
// file in the data folder, one service) or PostgreSQL (a server that
// several services share). The statements are written once, in the SQL
// both understand; what differs (placeholders, how a transaction begins,
// how the schema is read, locks across services) is the connection's.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace db {

enum class Backend { kSqlite, kPostgres };

// A value's kind as a result column holds it (the numbers are SQLite's).
enum ValueType : int { kInteger = 1, kFloat = 2, kText = 3, kBlob = 4, kNull = 5 };

struct Column {
  std::string name;
  std::string type;  // as the schema description declares it: "INTEGER" or "TEXT"
};

// A prepared statement; the connection owns it and hands it out again for
// the same text. Parameters are numbered from 1 ("?" or "?N" in the text).
class Cursor {
 public:
  virtual ~Cursor() = default;
  // Ready to bind and run again: no result held, no bindings.
  virtual void Reset() = 0;
  virtual bool Bind(int index, int64_t value) = 0;
  virtual bool Bind(int index, const std::string& text) = 0;
  virtual bool BindNull(int index) = 0;
  // 1: a row is ready; 0: no more rows; -1: it failed.
  virtual int Step() = 0;
  virtual int64_t Int(int column) const = 0;
  virtual std::string Text(int column) const = 0;
  virtual int Type(int column) const = 0;
  virtual double Real(int column) const = 0;
  virtual int Columns() const = 0;
  virtual std::string ColumnName(int column) const = 0;
};

class Connection {
 public:
  virtual ~Connection() = default;
  virtual Backend backend() const = 0;
  // One or more statements that return nothing.
  virtual bool Exec(const std::string& sql) = 0;
  // Null when the statement does not prepare (LastError says why).
  virtual Cursor* Prepare(const std::string& sql) = 0;
  virtual std::string LastError() const = 0;
  // The last call failed because another writer holds the database.
  virtual bool Busy() const = 0;
  virtual void SetBusyWait(int ms) = 0;
  // Rows changed by the last INSERT, UPDATE or DELETE.
  virtual int64_t Changes() const = 0;
  // Whether a transaction is open (possibly failed, waiting for ROLLBACK).
  virtual bool TransactionOpen() const = 0;
  // A statement failed in the open transaction, which refuses every other
  // until a rollback (a server's way; SQLite goes on).
  virtual bool TransactionFailed() const = 0;
  // Begins a transaction and runs `then` (statements, may be empty) in it,
  // in one exchange with a server.
  virtual bool Begin(const std::string& then) = 0;
  // Runs `before` (may be empty) and commits, in one exchange with a
  // server; true only when the transaction's work is stored.
  virtual bool Commit(const std::string& before) = 0;
  // The connection is gone (the server went away); Reconnect may bring it
  // back. A file never goes.
  virtual bool Lost() const = 0;
  virtual bool Reconnect() = 0;
  // The tables of the schema, and one table's columns (empty: no such table).
  virtual std::vector<std::string> Tables() = 0;
  virtual std::vector<Column> TableColumns(const std::string& table) = 0;
  // Until the transaction ends, no other service holds `key` (a file
  // database is one writer at a time already). Taken in a transaction.
  virtual bool LockForTransaction(const std::string& key) = 0;
  // Held until Unlock or the connection's end; false when another service
  // holds it now (never waits).
  virtual bool TryLock(const std::string& key) = 0;
  virtual void Unlock(const std::string& key) = 0;
};

// A PostgreSQL location: "postgresql://..." or "postgres://...", or a libpq
// connection string ("host=... dbname=...").
bool IsPostgresLocation(const std::string& location);

// Opens a SQLite file (creating it unless readOnly) or connects to a
// PostgreSQL server. `password` (may be empty) is handed to the server
// apart from the location, so that it need not be written in it.
std::unique_ptr<Connection> OpenSqlite(const std::string& path, bool readOnly, std::string* error);
std::unique_ptr<Connection> ConnectPostgres(const std::string& location, const std::string& password,
                                            std::string* error);

}  // namespace db
