#include "isapi_OnStart.h"

#include <cstring>
#include <string>

#include "channel/cmdal2_OutputCmd.h"
#include "channel/rec_Lifecycle.h"
#include "channel/ser_MsgSerializer.h"
#include "hdl_Common.h"
#include "host/isapi_Result.h"
#include "host/rsp_Reply.h"
#include "support/dbg_Trace.h"
#include "support/ut_InitCOM.h"

namespace {

constexpr char16_t kTraceSource[] = u".\\isapi_OnStart";
constexpr char16_t kName[] = u"ProcessOnStart";

// The keys the registration must have, in the order they are checked, with
// the result when one is missing or too long. Numbers read between them:
// clienttype after uid, buildnum and timezone after program.
struct Required {
  const char* key;
  uint32_t limit;
  HandlerResult result;
  const char* numbersAfter[2];
};
constexpr Required kRequired[] = {
    {"uid", 36, kResultInvalidUid, {"clienttype", nullptr}},
    {"date", 8, kResultBadDate, {}},
    {"time", 6, kResultBadTime, {}},
    {"computer", 120, kResultBadComputer, {}},
    {"platform", 22, kResultBadPlatform, {}},
    {"ip", 65, kResultBadIp, {}},
    {"program", 20, kResultBadProgram, {"buildnum", "timezone"}},
    {"engine", 20, kResultBadEngine, {}},
    {"domain", 120, kResultBadDomain, {}},
    {"hotfix", 14, kResultBadHotfix, {}},
    {"instdate", 8, kResultBadInstallDate, {}},
    {"insttime", 6, kResultBadInstallTime, {}},
    {"release", 7, kResultMissingRelease, {}},
};

// The optional keys, in the order they are read. A limit of 0 marks a number.
struct Optional {
  const char* key;
  uint32_t limit;
  const char16_t* detail;  // traced (level 73) when the key is present
  bool zeroIsEmpty;        // the value "0" is traced but not stored
};
constexpr Optional kOptional[] = {
    {"tsc", 20, nullptr, false},
    {"mac", 12, nullptr, false},
    {"csdver", 32, nullptr, false},
    {"cta", 20, nullptr, false},
    {"Isctasup", 0, nullptr, false},
    {"cfweng", 20, nullptr, false},
    {"ssapieng_version", 20, nullptr, false},
    {"aegisbmdriverver", 20, nullptr, false},
    {"aegisbmservicever", 20, nullptr, false},
    {"aegispeptnver", 20, nullptr, false},
    {"aegiswlptnver", 20, nullptr, false},
    {"aegisbmptnver", 20, nullptr, false},
    {"aegistdptnver", 20, nullptr, false},
    {"ency", 20, nullptr, false},
    {"ptnfile", 0, nullptr, false},
    {"ssapiptn_version", 0, nullptr, false},
    {"ssapivlassaptn_version", 0, nullptr, false},
    {"mobile", 0, nullptr, false},
    {"oppstatus", 0, nullptr, false},
    {"reboot", 0, nullptr, false},
    {"tscptn", 0, nullptr, false},
    {"dcsspyptn", 0, nullptr, false},
    {"spyptn", 0, nullptr, false},
    {"servicetype", 0, nullptr, false},
    {"updflag", 0, nullptr, false},
    {"logflag", 0, nullptr, false},
    {"visibleflag", 0, nullptr, false},
    {"cfgflag", 0, nullptr, false},
    {"majorver", 0, nullptr, false},
    {"minorver", 0, nullptr, false},
    {"build", 0, nullptr, false},
    {"platformid", 0, nullptr, false},
    {"suitemask", 0, nullptr, false},
    {"producttype", 0, nullptr, false},
    {"clientlistenport", 0, nullptr, false},
    {"cfwptn", 0, nullptr, false},
    {"flag1", 0, nullptr, false},
    {"cputype", 0, nullptr, false},
    {"vaptn", 0, nullptr, false},
    {"itrap_white_version", 0, nullptr, false},
    {"itrap_black_version", 0, nullptr, false},
    {"spamthreshold", 0, nullptr, false},
    {"totaldiskSpace", 0, nullptr, false},
    {"freediskSpace", 0, nullptr, false},
    {"non_crc_pattern", 0, nullptr, false},
    {"bf_pattern", 0, nullptr, false},
    {"scan_type", 0, nullptr, false},
    {"scan_mode", 0, nullptr, false},
    {"scan_service_address", 120, nullptr, false},
    {"domain_uid", 36, u"%s - domain_uid(%s)", false},
    {"adguid", 36, u"%s - AD GUID: [%s].", false},
    {"addistinguishedname", 2500, u"%s - AD distinguished name: [%s].", false},
    {"wcs_address", 1024, nullptr, false},
    {"wcs_status", 0, nullptr, false},
    {"IN_UNREACHABLE", 0, nullptr, false},
    {"dlp_status", 0, nullptr, false},
    {"dlplite_ver", 20, u"%s - DlpLite ver: [%s].", false},
    {"dlp3rdparty_ver", 20, u"%s - Dlp3rdParty ver: [%s].", false},
    {"vlebc_version", 20, u"%s - VLEBC version: [%s].", false},
    {"ncie_cnp_ver", 20, u"%s - NCIE_CNP_VERSION ver: [%s]", true},
    {"ncie_rr_ver", 20, u"%s - NCIE_RR_VERSION ver: [%s]", true},
    {"CLN_SA_ISR", 1024, u"%s - SA_ISR : [%s]", false},
    {"CLN_SA_SN", 40, u"%s - SA_SN : [%s]", false},
    {"LogonUser", 256, u"%s - LogonUser: [%s].", false},
    {"smvptn", 20, u"%s - SMV_PTN ver: [%s]", true},
    {"vlmstptn", 20, u"%s - VLMST_PTN ver: [%s]", true},
    {"bepptnver", 0, nullptr, false},
    {"salptnver", 0, nullptr, false},
    {"LogonUsrUID", 36, u"%s - LogonUserGUID: [%s].", false},
    {"SystemModel", 0, nullptr, false},
};

class RecordFiller {
 public:
  RecordFiller(const RequestParams& params, tagCln_CgiOnStart& record) : params_(params), record_(record) {}

  // A number, truncated to its field's width; 0 when absent.
  void Number(const char* key) {
    int32_t value = 0;
    ReadNumber(params_, key, &value);
    record_.Put(*onstart::Find(key), value);
  }
  void Text(const char* key, const std::u16string& value) { record_.Put(*onstart::Find(key), value); }
  uint32_t Stored(const char* key) const { return static_cast<uint32_t>(record_.Number(*onstart::Find(key))); }

 private:
  const RequestParams& params_;
  tagCln_CgiOnStart& record_;
};

// Steps 2: the required keys; the first that fails ends the request silently.
int32_t FillRequired(const RequestParams& params, RecordFiller& fill) {
  for (const Required& r : kRequired) {
    std::u16string value;
    const bool ok = std::strcmp(r.key, "domain") == 0 ? CheckValidDomainString(params, &value)
                                                      : params.GetString(r.key, &value, r.limit);
    if (!ok) return r.result;
    if (std::strcmp(r.key, "domain") == 0) VGCR_TRACE(73, u"%s - domain(%s)", kName, value);
    fill.Text(r.key, value);
    for (const char* number : r.numbersAfter) {
      if (number) fill.Number(number);
    }
  }
  return kResultHandled;
}

// Steps 3 to 5: the optional keys, their detail lines and the two lines
// written always.
void FillOptional(const RequestParams& params, RecordFiller& fill) {
  for (const Optional& o : kOptional) {
    if (o.limit == 0) {
      fill.Number(o.key);
      if (std::strcmp(o.key, "salptnver") == 0) {
        VGCR_TRACE(73, u"%s - BEP_PTN=%d, SAL_PTN=%d", kName, fill.Stored("bepptnver"), fill.Stored("salptnver"));
      } else if (std::strcmp(o.key, "SystemModel") == 0) {
        VGCR_TRACE(73, u"%s - System Model=[%d]", kName, fill.Stored("SystemModel"));
      }
      continue;
    }
    std::u16string value;
    if (!params.GetString(o.key, &value, o.limit)) continue;
    if (o.detail) dbg::TraceW(73, kTraceSource, __LINE__, o.detail, kName, value);
    if (o.zeroIsEmpty && value == u"0") continue;
    fill.Text(o.key, value);
  }
}

}  // namespace

int32_t ProcessOnStart(const RequestParams& params, CHttpResponse& response) {
  UTIL::CComInitiator com(plat::kCoInitApartmentThreaded, false);
  VGCR_TRACE(8, u"[ProcessOnStart] Enter");
  tagCln_CgiOnStart record;
  record.Put(onstart::kVersion, 1);
  RecordFiller fill(params, record);
  if (int32_t result = FillRequired(params, fill); result != kResultHandled) return result;
  FillOptional(params, fill);

  int32_t result = kResultHandled;
  const bool sent = SendRecord(u"CMDHLV2_CLN_ON_START", record);
  if (sent) {
    result = WriteCodeAndTimeReply(params, response, 1) ? kResultHandled : kResultBackOff;
  } else {
    result = kResultNotDelivered;
    VGCR_TRACE(69, u"%s - Leave due error(%d)", kName, result);
  }
  VGCR_TRACE(68, u"%s - Leave", kName);
  return result;
}
