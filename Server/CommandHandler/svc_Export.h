// The log tables as JSON Lines, for whatever reads logs elsewhere: one object
// per row with every column, oldest first.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "channel/rec_Logs.h"
#include "db_Database.h"

namespace svc {

// `text` as a JSON string, quotes included: quotes, backslashes and control
// characters escaped, and bytes that are not UTF-8 (a row written with the
// shell may hold any) replaced by U+FFFD so that the line stays JSON.
std::string JsonString(std::string_view text);

// Where text stops being text an operator may store (a NUL byte, or bytes
// that are not UTF-8); npos when it is all text.
std::size_t FirstNonText(std::string_view text);

// The statement's current row as one JSON object, every column by its name.
std::string RowAsJson(const db::Statement& s);

// A --since value: "YYYY-MM-DD", optionally followed by " hh:mm:ss" and
// fractions of a second, as the tables keep times.
bool IsTimeText(std::string_view text);

struct ExportFilter {
  std::string since;  // received at or after; empty: from the first row
  std::string until;  // received before; empty: to the last row
  std::string uid;    // empty: every client
};

// JSON Lines (one object per row), or CSV (RFC 4180: a header of the column
// names, fields quoted where they hold a comma, a quote or a line break,
// NULL as an empty field).
enum class ExportFormat { kJsonLines, kCsv };

// Writes the rows; false with a message when the database failed.
bool ExportLogs(db::Database& database, const logrec::Layout& layout, const ExportFilter& filter,
                ExportFormat format, std::ostream& out, std::string* error);

// The statement's current row as one CSV record, without its line end.
std::string RowAsCsv(const db::Statement& s);

}  // namespace svc
