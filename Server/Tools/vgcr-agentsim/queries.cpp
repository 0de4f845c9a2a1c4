#include "queries.h"

#include <ctime>

namespace agentsim {

std::string UrlEncode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size() + 8);
  for (const char c : text) {
    const unsigned char u = static_cast<unsigned char>(c);
    if ((u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') || (u >= '0' && u <= '9') || u == '-' || u == '_' ||
        u == '.' || u == '~') {
      out.push_back(c);
    } else {
      out.push_back('%');
      out.push_back(kHex[u >> 4]);
      out.push_back(kHex[u & 15]);
    }
  }
  return out;
}

WallTime Now() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  ::gmtime_r(&now, &utc);
  char compactDate[16], compactTime[16], date[16], time[16];
  std::strftime(compactDate, sizeof compactDate, "%Y%m%d", &utc);
  std::strftime(compactTime, sizeof compactTime, "%H%M%S", &utc);
  std::strftime(date, sizeof date, "%Y-%m-%d", &utc);
  std::strftime(time, sizeof time, "%H:%M:%S", &utc);
  return {compactDate, compactTime, date, time};
}

std::string RegistrationQuery(const Identity& id, const TrustedCertificate* trusted) {
  const WallTime now = Now();
  const uint64_t t = id.traits;
  std::string q = "requestid=101&clienttype=1&uid=" + id.uid + "&date=" + now.compactDate + "&time=" + now.compactTime;
  q += "&computer=" + UrlEncode(id.computer) + "&domain=" + UrlEncode(id.domain) +
       "&platform=" + UrlEncode(id.platform) + "&ip=" + id.ip + "&mac=" + id.mac;
  q += "&program=" + id.program + "&engine=" + id.engine + "&release=" + id.release;
  q += "&instdate=2026" + std::to_string(1001 + t % 28) + "&insttime=120000&hotfix=KB" + std::to_string(5000 + t % 900);
  q += "&majorver=14&minorver=0&build=" + std::to_string(2000 + (t >> 8) % 300) + "&platformid=2&cputype=9";
  q += "&clientlistenport=21112&timezone=" + std::to_string(-60 * static_cast<int>((t >> 16) % 12));
  q += "&totaldiskSpace=" + std::to_string(256000 + (t >> 20) % 768000) +
       "&freediskSpace=" + std::to_string(20000 + (t >> 28) % 200000);
  q += "&ptnfile=" + std::to_string(19000 + (t >> 36) % 100) + "&servicetype=1&updflag=1&logflag=1";
  q += "&LogonUser=" + UrlEncode(id.user) + "&LogonUsrUID=" + id.userUid;
  if (trusted) q += "&CLN_SA_ISR=" + UrlEncode(trusted->issuer) + "&CLN_SA_SN=" + trusted->serial;
  return q;
}

std::string HeartbeatQuery(const Identity& id) { return "requestid=207&functiontype=1&uid=" + id.uid; }

std::string SettingsQuery(const Identity& id, int fetch) {
  static constexpr const char* kFetches[kSettingsFetches] = {"requestid=202&functiontype=1",
                                                             "requestid=202&functiontype=2",
                                                             "requestid=201&functiontype=1"};
  return std::string(kFetches[fetch % kSettingsFetches]) + "&uid=" + id.uid + "&release=" + id.release;
}

std::string AlertQuery(const Identity& id) { return "requestid=204&functiontype=128&uid=" + id.uid; }

// Mostly the protection status (type 3, one key per component running),
// now and then the warning setting (type 2).
std::string StatusQuery(const Identity& id, Random& random) {
  if (random.Below(4) == 0) {
    return "requestid=103&functiontype=2&uid=" + id.uid + "&enablewarningflag=" + std::to_string(random.Below(2));
  }
  static constexpr const char* kComponents[9] = {"av", "as", "wr", "at_office", "fw", "aegis", "dlp", "ncie", "ccsf"};
  std::string q = "requestid=103&functiontype=3&uid=" + id.uid;
  for (int bit = 0; bit < 9; ++bit) {
    if (id.protection & (1u << bit)) q += std::string("&") + kComponents[bit] + "=1";
  }
  return q;
}

std::string LogonQuery(const Identity& id) {
  return "requestid=112&functiontype=1&uid=" + id.uid + "&LogonUser=" + UrlEncode(id.user) +
         "&LogonUsrUID=" + id.userUid;
}

}  // namespace agentsim
