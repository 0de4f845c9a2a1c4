// The log reports (110) a client sends: mostly virus logs, and now and then
// a URL filtering, scan operation, suspicious object or network callback log,
// each with the keys docs/protocol.md lists for its type.
#include <array>
#include <cstdio>

#include "queries.h"

namespace agentsim {

namespace {

constexpr std::array<const char*, 6> kViruses = {"Eicar_test_file", "TROJ_GENERIC.R002C0", "WORM_AUTORUN.SMX",
                                                 "PUA.Win32.Adware", "RANSOM_LOCKY.A", "HKTL_MIMIKATZ"};
constexpr std::array<const char*, 5> kFiles = {"invoice.pdf.exe", "setup.exe", "report.docm", "update.js",
                                               "eicar.com"};
constexpr std::array<const char*, 4> kFolders = {"C:\\Users\\Public\\Downloads\\", "C:\\Windows\\Temp\\",
                                                 "D:\\Shares\\Finance\\", "C:\\ProgramData\\Cache\\"};

template <std::size_t N>
const char* Pick(const std::array<const char*, N>& choices, Random& random) {
  return choices[random.Below(N)];
}

std::string Head(int logType, const Identity& id) {
  return "requestid=110&functiontype=" + std::to_string(logType) + "&uid=" + id.uid + "&release=" + id.release;
}

std::string Number(Random& random, uint32_t below) { return std::to_string(random.Below(below)); }

std::string VirusLog(const Identity& id, Random& random, const WallTime& now) {
  // Types 1 to 5 are the virus logs; real-time scans (1) outnumber the rest.
  const int type = random.Below(3) == 0 ? 1 + static_cast<int>(random.Below(5)) : 1;
  std::string q = Head(type, id) + "&date=" + now.date + "&time=" + now.time + "&login=" + UrlEncode(id.user);
  q += std::string("&virus=") + UrlEncode(Pick(kViruses, random)) + "&file=" + UrlEncode(Pick(kFiles, random));
  q += "&compressedfile=&directory=" + UrlEncode(Pick(kFolders, random)) + "&infectionsource=" + id.computer;
  q += "&firstaction=" + Number(random, 5) + "&firststatus=0&secondaction=" + Number(random, 5) + "&secondstatus=0";
  return q;
}

std::string UrlFilteringLog(const Identity& id, Random& random, const WallTime& now) {
  std::string q = Head(17, id) + "&time=" + UrlEncode(now.date + " " + now.time) + "&mode=1&credlevel=" +
                  Number(random, 4) + "&policy=Default&credscore=" + Number(random, 100) + "&credscorethreshold=70";
  q += "&groupcode=" + Number(random, 90) + "&groupname=Malware%20Accomplice&realip=10.1.2." + Number(random, 250) +
       "&restype=1";
  return q;
}

std::string ScanOperationLog(const Identity& id, Random& random, const WallTime& now) {
  std::string q = Head(32, id) + "&START_DATE=" + now.date + "&START_TIME=" + now.time + "&FINISH_DATE=" + now.date +
                  "&FINISH_TIME=" + now.time;
  q += "&SCAN_STATUS=0&SCAN_TYPE=" + Number(random, 3) + "&SCANNED_OBJ=" + std::to_string(1000 + random.Below(90000)) +
       "&VIRUS_COUNT=" + Number(random, 3) + "&SPYWARE_COUNT=0&MEMO=scheduled";
  return q;
}

std::string SuspiciousObjectLog(const Identity& id, Random& random, const WallTime& now) {
  char sha1[41];
  std::snprintf(sha1, sizeof sha1, "%016llx%016llx%08x", static_cast<unsigned long long>(random.Next()),
                static_cast<unsigned long long>(random.Next()), static_cast<unsigned>(random.Next()));
  std::string q = Head(33, id) + "&SoData=" + sha1 + "&SoType=1&SoFilename=" + UrlEncode(Pick(kFiles, random)) +
                  "&SoFilepath=" + UrlEncode(Pick(kFolders, random));
  q += "&SoSourceType=1&SoAction=" + Number(random, 3) + "&SoScanType=1&Time=" + UrlEncode(now.date + " " + now.time) +
       "&ScanResult=1&login=" + UrlEncode(id.user);
  return q;
}

std::string NetworkCallbackLog(const Identity& id, Random& random, const WallTime& now) {
  std::string q = Head(26, id) + "&time=" + UrlEncode(now.date + " " + now.time) + "&Direction=1&Port=" +
                  std::to_string(1024 + random.Below(60000)) + "&LocalHost=" + id.ip + "&Protocol=6";
  q += "&CCServer=" + UrlEncode("http://c2-" + Number(random, 50) + ".example.net/gate") +
       "&ProcessName=" + UrlEncode("C:\\Windows\\Temp\\" + std::string(Pick(kFiles, random))) +
       "&Action=" + Number(random, 2) + "&Severity=" + Number(random, 4) + "&ClientIP=" + id.ip;
  return q;
}

}  // namespace

LogFamily PickLogFamily(Random& random) {
  const uint32_t roll = random.Below(100);
  if (roll < 85) return LogFamily::kVirus;
  if (roll < 90) return LogFamily::kUrlFiltering;
  if (roll < 94) return LogFamily::kScanOperation;
  if (roll < 97) return LogFamily::kSuspiciousObject;
  return LogFamily::kNetworkCallback;
}

std::string LogQuery(const Identity& id, LogFamily family, Random& random) {
  const WallTime now = Now();
  switch (family) {
    case LogFamily::kVirus: return VirusLog(id, random, now);
    case LogFamily::kUrlFiltering: return UrlFilteringLog(id, random, now);
    case LogFamily::kScanOperation: return ScanOperationLog(id, random, now);
    case LogFamily::kSuspiciousObject: return SuspiciousObjectLog(id, random, now);
    case LogFamily::kNetworkCallback: return NetworkCallbackLog(id, random, now);
  }
  return VirusLog(id, random, now);
}

}  // namespace agentsim
