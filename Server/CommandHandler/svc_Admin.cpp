#include "svc_Admin.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "channel/rec_Settings.h"
#include "db_LogSchema.h"
#include "db_Schema.h"
#include "platform/com.h"
#include "platform/text.h"
#include "st_Defaults.h"
#include "st_Sections.h"
#include "st_Store.h"
#include "sig_Signer.h"
#include "svc_Clients.h"
#include "svc_Database.h"
#include "svc_Export.h"
#include "svc_Service.h"

namespace svc {
namespace {

int Fail(const std::string& message, int status = 1) {
  std::fprintf(stderr, "vgcr-cmdhandler: %s\n", message.c_str());
  return status;
}

// A settings text from a file, or from standard input for "-".
bool ReadText(const std::string& path, std::string* text, std::string* error) {
  std::ostringstream bytes;
  if (path == "-") {
    bytes << std::cin.rdbuf();
  } else {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
      *error = "cannot read " + path;
      return false;
    }
    bytes << file.rdbuf();
  }
  const std::string raw = bytes.str();
  if (const std::size_t at = FirstNonText(raw); at != std::string::npos) {
    *error = path + " is not text (at byte " + std::to_string(at) +
             ": a NUL byte or bytes that are not UTF-8); settings and messages are UTF-8 text";
    return false;
  }
  *text = st::WithCrLf(raw);
  return true;
}

// What clients send: a GUID without braces.
bool IsUid(const std::string& uid) {
  plat::Guid guid;
  return uid.size() == 36 && plat::ClsidFromString((u"{" + plat::FromUtf8(uid) + u"}").c_str(), &guid) >= 0;
}

std::string SectionNames() {
  std::string names;
  for (const st::SectionRule& rule : st::kSections) names += std::string(names.empty() ? "" : ", ") + rule.section;
  return names;
}

struct Admin {
  std::unique_ptr<db::Database> database;
  std::unique_ptr<st::Store> store;
};

bool Open(const Options& options, Admin* admin, std::string* error) {
  if (!PrepareDataFolder(options.dataFolder, error)) return false;
  // One connection, and no bound on a statement's time: an export or a
  // change to every client may take longer than a client's request may.
  Options one = options;
  one.databaseConnections = 1;
  admin->database = OpenDatabase(one, error);
  if (!admin->database) return false;
  if (admin->database->backend() == db::Backend::kPostgres) {
    const auto lock = admin->database->Lock();
    admin->database->Exec("SET statement_timeout = 0");
  }
  admin->store = std::make_unique<st::Store>(*admin->database);
  return true;
}

int SetSection(st::Store& store, const std::vector<std::string>& args) {
  const std::string& uid = args[1];
  const std::string& section = args[2];
  std::string text, error;
  if (!ReadText(args[3], &text, &error)) return Fail(error);
  uint32_t event = 0;
  if (!store.WriteSection(uid, section, text, &event)) return Fail("not stored");
  std::printf("%s of %s stored (%zu bytes); config event %u pending\n", section.c_str(), uid.c_str(), text.size(),
              event);
  return 0;
}

int ClearSection(st::Store& store, const std::vector<std::string>& args) {
  uint32_t event = 0;
  bool removed = false;
  if (!store.ClearSection(args[1], args[2], &event, &removed)) return Fail("not changed");
  if (!removed) {
    std::printf("%s of %s: the client had no section of its own\n", args[2].c_str(), args[1].c_str());
  } else {
    std::printf("%s of %s is the default again; config event %u pending\n", args[2].c_str(), args[1].c_str(), event);
  }
  return 0;
}

int UpdateOrder(st::Store& store, const std::vector<std::string>& args) {
  std::string text, error;
  if (!ReadText(args[1], &text, &error)) return Fail(error);
  if (!store.SetUpdateOrder(text)) return Fail("not stored");
  std::printf("update order stored (%zu bytes)\n", text.size());
  return 0;
}

int Alert(st::Store& store, const std::vector<std::string>& args) {
  const int32_t kind = plat::StrToLong(args[1].c_str());
  bool served = false;
  for (int32_t k : kAlertMessageKinds) served |= k == kind && std::to_string(k) == args[1];
  if (!served) return Fail("KIND is one of 0, 1, 3, 5, 7, 8, 12, 13, 128", 2);
  std::string text, error;
  if (!ReadText(args[2], &text, &error)) return Fail(error);
  const std::string uid = args.size() > 3 ? args[3] : "";
  int64_t id = 0;
  if (!store.AddAlertMessage(uid, kind, text, &id)) return Fail("not stored");
  std::printf("alert message %lld of kind %d for %s\n", static_cast<long long>(id), kind,
              uid.empty() ? "every client" : uid.c_str());
  return 0;
}

int Sections() {
  for (const st::SectionRule& rule : st::kSections) {
    std::printf("%-26s event %3u%s\n", rule.section, rule.event, rule.flag ? " (and flag 0x1000)" : "");
  }
  return 0;
}

// export-logs TABLE [--since TIME] [--until TIME] [--uid UID] [--csv]
int ExportLogsCommand(const Options& options) {
  const std::vector<std::string>& args = options.command;
  constexpr char kForm[] = "export-logs TABLE [--since TIME] [--until TIME] [--uid UID] [--csv]";
  if (args.size() < 2) return Fail(kForm, 2);
  const logrec::Layout* layout = db::FindLogTable(args[1]);
  if (layout == nullptr) return Fail("unknown log table " + args[1] + "; one of " + db::LogTableNames(), 2);
  ExportFilter filter;
  ExportFormat format = ExportFormat::kJsonLines;
  for (std::size_t i = 2; i < args.size(); ++i) {
    const bool valued = i + 1 < args.size();
    if (args[i] == "--csv") {
      format = ExportFormat::kCsv;
    } else if (valued && (args[i] == "--since" || args[i] == "--until") && IsTimeText(args[i + 1])) {
      (args[i] == "--since" ? filter.since : filter.until) = args[i + 1];
      ++i;
    } else if (valued && args[i] == "--uid" && IsUid(args[i + 1])) {
      filter.uid = args[++i];
    } else {
      return Fail(std::string(kForm) + "; TIME is 'YYYY-MM-DD[ hh:mm:ss]' (UTC), UID a GUID without braces", 2);
    }
  }
  Admin admin;
  std::string error;
  if (!Open(options, &admin, &error)) return Fail(error);
  if (!ExportLogs(*admin.database, *layout, filter, format, std::cout, &error)) return Fail(error);
  return 0;
}

// A protection mask for the client filters: a number from 1 to 2^32 - 1,
// decimal or 0x hexadecimal.
bool Mask(const std::string& text, int64_t* mask) {
  char* end = nullptr;
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const long long value = std::strtoll(text.c_str() + (hex ? 2 : 0), &end, hex ? 16 : 10);
  if (text.empty() || *end != '\0' || value <= 0 || value > 0xFFFFFFFFll) return false;
  *mask = value;
  return true;
}

// clients [--seen-before TIME] [--release R] [--json]
int ClientsCommand(const Options& options) {
  const std::vector<std::string>& args = options.command;
  ClientFilter filter;
  bool json = false;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--json") {
      json = true;
    } else if (args[i] == "--seen-before" && i + 1 < args.size() && IsTimeText(args[i + 1])) {
      filter.seenBefore = args[++i];
    } else if (args[i] == "--release" && i + 1 < args.size() && !args[i + 1].empty()) {
      filter.release = args[++i];
    } else if (args[i] == "--with-protection" && i + 1 < args.size() && Mask(args[i + 1], &filter.withProtection)) {
      ++i;
    } else if (args[i] == "--without-protection" && i + 1 < args.size() &&
               Mask(args[i + 1], &filter.withoutProtection)) {
      ++i;
    } else {
      return Fail("clients [--seen-before TIME] [--release R] [--with-protection MASK] [--without-protection MASK] "
                  "[--json]",
                  2);
    }
  }
  Admin admin;
  std::string error;
  if (!Open(options, &admin, &error)) return Fail(error);
  if (!ListClients(*admin.database, filter, json, std::cout, &error)) return Fail(error);
  return 0;
}

// client UID [--json]
int ClientCommand(const Options& options) {
  const std::vector<std::string>& args = options.command;
  const bool json = args.size() == 3 && args[2] == "--json";
  if (args.size() != 2 && !json) return Fail("client UID [--json]", 2);
  if (!IsUid(args[1])) return Fail("UID is a GUID without braces, as the client sends it", 2);
  Admin admin;
  std::string error;
  if (!Open(options, &admin, &error)) return Fail(error);
  bool known = false;
  if (!ShowClient(*admin.database, args[1], json, std::cout, &known, &error)) return Fail(error);
  if (!known) return Fail("no client " + args[1]);
  return 0;
}

// set-default SECTION FILE, clear-default SECTION
int DefaultCommand(const Options& options) {
  const std::vector<std::string>& args = options.command;
  const bool set = args[0] == "set-default";
  if (args.size() != (set ? 3u : 2u)) return Fail(set ? "set-default SECTION FILE" : "clear-default SECTION", 2);
  const std::string& section = args[1];
  if (!st::FindSection(section)) return Fail("unknown section " + section + "; one of " + SectionNames(), 2);
  std::string text, error;
  if (set && !ReadText(args[2], &text, &error)) return Fail(error);
  Admin admin;
  if (!Open(options, &admin, &error)) return Fail(error);
  int64_t clients = 0;
  if (!admin.store->SetDefault(section, set ? &text : nullptr, &clients)) return Fail("not changed");
  std::printf("default %s %s; %lld clients without their own get it after their next heartbeat\n", section.c_str(),
              set ? ("stored (" + std::to_string(text.size()) + " bytes)").c_str() : "is the shipped one again",
              static_cast<long long>(clients));
  return 0;
}

// record-identity: this data folder's certificate becomes the one every
// service on the database must sign with.
int RecordIdentity(const Options& options) {
  if (options.command.size() != 1) return Fail("record-identity", 2);
  Admin admin;
  std::string error;
  if (!Open(options, &admin, &error)) return Fail(error);
  auto signer = sig::Signer::Open(options.dataFolder, sig::KeyKindNamed(options.signingKey), &error);
  if (!signer || !CheckSigningIdentity(*admin.database, *signer, true, &error)) return Fail(error);
  std::printf("signing certificate serial %s recorded; services with another one refuse to start\n",
              signer->Serial().c_str());
  return 0;
}

struct AdminCommand {
  const char* name;
  std::size_t minArgs, maxArgs;  // after the name
  int (*run)(st::Store& store, const std::vector<std::string>& args);
  bool takesUidAndSection;
  std::size_t uidAt;  // the argument that is an optional uid; 0: none
};

constexpr AdminCommand kCommands[] = {
    {"set-section", 3, 3, SetSection, true, 0},
    {"clear-section", 2, 2, ClearSection, true, 0},
    {"update-order", 1, 1, UpdateOrder, false, 0},
    {"alert", 2, 3, Alert, false, 3},
};

}  // namespace

int RunAdmin(const Options& options) {
  const std::vector<std::string>& args = options.command;
  if (args[0] == "sections") return Sections();
  if (args[0] == "export-logs") return ExportLogsCommand(options);
  if (args[0] == "clients") return ClientsCommand(options);
  if (args[0] == "client") return ClientCommand(options);
  if (args[0] == "record-identity") return RecordIdentity(options);
  if (args[0] == "set-default" || args[0] == "clear-default") return DefaultCommand(options);
  for (const AdminCommand& command : kCommands) {
    if (args[0] != command.name) continue;
    const std::size_t given = args.size() - 1;
    if (given < command.minArgs || given > command.maxArgs) return Fail("wrong arguments; see --help", 2);
    std::string uid;
    if (command.takesUidAndSection) {
      uid = args[1];
      if (!st::FindSection(args[2])) return Fail("unknown section " + args[2] + "; one of " + SectionNames(), 2);
    } else if (command.uidAt != 0 && args.size() > command.uidAt) {
      uid = args[command.uidAt];
    }
    if (!uid.empty() && !IsUid(uid)) return Fail("UID is a GUID without braces, as the client sends it", 2);
    Admin admin;
    std::string error;
    if (!Open(options, &admin, &error)) return Fail(error);
    // A change for a uid no client registered would wait for nobody.
    bool known = true;
    if (!uid.empty() && (!admin.store->IsKnown(uid, &known) || !known)) return Fail("no client " + uid);
    return command.run(*admin.store, args);
  }
  return Fail("unknown command " + args[0] + "; see --help", 2);
}

}  // namespace svc
