#include "svc_Export.h"

#include <cmath>
#include <cstdio>
#include <mutex>
#include <utility>

#include "db_LogSchema.h"

namespace svc {
namespace {

// The length of the UTF-8 sequence at text[i]; 0 when none starts there
// (a stray byte, a cut or overlong sequence, a surrogate, beyond U+10FFFF).
std::size_t SequenceLength(std::string_view text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned lead = byte(i);
  if (lead < 0x80) return 1;
  std::size_t n = 0;
  unsigned low = 0x80, high = 0xBF;  // the range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    n = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    n = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    n = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (i + n > text.size() || byte(i + 1) < low || byte(i + 1) > high) return 0;
  for (std::size_t k = 2; k < n; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  }
  return n;
}

void AppendEscaped(std::string& json, unsigned char c) {
  switch (c) {
    case '"': json += "\\\""; return;
    case '\\': json += "\\\\"; return;
    case '\b': json += "\\b"; return;
    case '\f': json += "\\f"; return;
    case '\n': json += "\\n"; return;
    case '\r': json += "\\r"; return;
    case '\t': json += "\\t"; return;
    default: break;
  }
  if (c < 0x20 || c == 0x7F) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\u%04x", c);
    json += hex;
  } else {
    json += static_cast<char>(c);
  }
}

std::string JsonValue(const db::Statement& s, int column) {
  switch (s.Type(column)) {
    case db::kNull:
      return "null";
    case db::kInteger:
      return std::to_string(s.Int(column));
    case db::kFloat: {
      const double value = s.Real(column);
      if (!std::isfinite(value)) return "null";
      char text[32];
      std::snprintf(text, sizeof text, "%.17g", value);
      return text;
    }
    default:
      return JsonString(s.Text(column));
  }
}

// Rows are read a page at a time, by id: a server hands over a statement's
// whole result at once, and a table of ten million rows must not be held in
// memory, nor the database for the whole export.
constexpr int64_t kPageRows = 5000;

std::string SelectSql(const logrec::Layout& layout, const ExportFilter& filter) {
  std::string sql = std::string("SELECT * FROM ") + layout.table + " WHERE id > ?4";
  if (!filter.since.empty()) sql += " AND received >= ?1";
  if (!filter.uid.empty()) sql += " AND uid = ?2";
  if (!filter.until.empty()) sql += " AND received < ?3";
  return sql + " ORDER BY id LIMIT ?5";
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string json = "\"";
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t n = SequenceLength(text, i);
    if (n == 0) {
      json += "\\ufffd";
      ++i;
    } else if (n == 1) {
      AppendEscaped(json, static_cast<unsigned char>(text[i++]));
    } else {
      json.append(text.substr(i, n));
      i += n;
    }
  }
  return json + "\"";
}

std::size_t FirstNonText(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t n = SequenceLength(text, i);
    if (n == 0 || text[i] == '\0') return i;
    i += n;
  }
  return std::string_view::npos;
}

std::string RowAsJson(const db::Statement& s) {
  std::string json = "{";
  for (int i = 0; i < s.Columns(); ++i) json += (i ? "," : "") + JsonString(s.ColumnName(i)) + ":" + JsonValue(s, i);
  return json + "}";
}

bool IsTimeText(std::string_view text) {
  // d: a digit; anything else stands for itself.
  constexpr std::string_view kDate = "dddd-dd-dd", kTime = " dd:dd:dd";
  const auto matches = [&](std::string_view mask, std::size_t at) {
    if (text.size() < at + mask.size()) return false;
    for (std::size_t i = 0; i < mask.size(); ++i) {
      const char c = text[at + i];
      if (mask[i] == 'd' ? (c < '0' || c > '9') : c != mask[i]) return false;
    }
    return true;
  };
  if (!matches(kDate, 0)) return false;
  if (text.size() == kDate.size()) return true;
  if (!matches(kTime, kDate.size())) return false;
  std::size_t at = kDate.size() + kTime.size();
  if (at == text.size()) return true;
  if (text[at++] != '.' || at == text.size()) return false;
  for (; at < text.size(); ++at) {
    if (text[at] < '0' || text[at] > '9') return false;
  }
  return true;
}

std::string RowAsCsv(const db::Statement& s) {
  std::string record;
  for (int i = 0; i < s.Columns(); ++i) {
    if (i) record += ',';
    if (s.IsNull(i)) continue;
    const std::string field = s.Text(i);
    if (field.find_first_of(",\"\r\n") == std::string::npos) {
      record += field;
      continue;
    }
    record += '"';
    for (char c : field) record += c == '"' ? std::string("\"\"") : std::string(1, c);
    record += '"';
  }
  return record;
}

bool ExportLogs(db::Database& database, const logrec::Layout& layout, const ExportFilter& filter,
                ExportFormat format, std::ostream& out, std::string* error) {
  if (format == ExportFormat::kCsv) {
    // The layout's columns, which SELECT * gives in this order: known
    // before the first row, and whether there is one.
    bool first = true;
    for (const db::Column& column : db::LogColumns(layout)) out << (std::exchange(first, false) ? "" : ",") << column.name;
    out << "\r\n";
  }
  const std::string sql = SelectSql(layout, filter);
  int64_t after = 0, rows = 0;
  do {
    const auto guard = database.Lock();
    db::Statement s = database.Prepare(sql);
    if (!filter.since.empty()) s.Bind(1, filter.since);
    if (!filter.uid.empty()) s.Bind(2, filter.uid);
    if (!filter.until.empty()) s.Bind(3, filter.until);
    s.Bind(4, after).Bind(5, kPageRows);
    for (rows = 0; s.Step(); ++rows) {
      after = s.Int(0);  // the id, the first column
      out << (format == ExportFormat::kCsv ? RowAsCsv(s) + "\r\n" : RowAsJson(s) + "\n");
    }
    if (s.failed()) {
      *error = "reading " + std::string(layout.table) + " failed: " + database.LastError();
      return false;
    }
  } while (rows == kPageRows && out);
  out.flush();
  if (!out) {
    *error = "cannot write the output";
    return false;
  }
  return true;
}

}  // namespace svc
