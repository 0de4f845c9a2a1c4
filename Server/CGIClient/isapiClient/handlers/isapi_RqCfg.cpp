#include "isapi_RqCfg.h"

#include "channel/cmdal_CmdAPI.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\isapi_RqCfg";
}  // namespace

// Types 5 and 6 are not served, on purpose. Type 0 joins three texts and
// only its last query decides; it and type 15 reset nothing.
const SettingsRow kRqCfgRows[] = {
    {0, {cmdal_GetAllScanCfg, cmdal_GetWtpSetting, cmdal_GetFaRestoreSetting}, 0},
    {1, {cmdal_GetMsCfg}, 65},
    {2, {cmdal_GetRtCfg}, 66},
    {3, {cmdal_GetPsCfg}, 67},
    {4, {cmdal_GetSnCfg}, 68},
    {7, {cmdal_GetMsCfgEx}, 69},
    {8, {cmdal_GetRtCfgEx}, 70},
    {9, {cmdal_GetPsCfgEx}, 71},
    {10, {cmdal_GetSnCfgEx}, 72},
    {11, {cmdal_GetSpyMsCfg}, 97},
    {12, {cmdal_GetSpyRtCfg}, 98},
    {13, {cmdal_GetSpyPsCfg}, 99},
    {14, {cmdal_GetSpySnCfg}, 100},
    {15, {cmdal_GetSpyRestoreList}, 0},
    {16, {cmdal_GetWtpSetting}, 113},
    {17, {cmdal_GetFaRestoreSetting}, 119},
};
const std::size_t kRqCfgRowCount = sizeof kRqCfgRows / sizeof kRqCfgRows[0];

int32_t ProcessRqCfg(const RequestParams& params, CHttpResponse& response) {
  static const SettingsRequest kRequest{{kTraceSource, u"ProcessRqCfg"}, kRqCfgRows, kRqCfgRowCount, nullptr};
  return ServeSettingsRequest(kRequest, params, response);
}
