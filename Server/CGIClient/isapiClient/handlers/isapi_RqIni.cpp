#include "isapi_RqIni.h"

#include "channel/cmdal_CmdAPI.h"

namespace {
constexpr char16_t kTraceSource[] = u".\\isapi_RqIni";
}  // namespace

// The event numbers name the server's configuration records; they do not
// follow the function types (4 resets 79 and 5 resets 77; 17 resets 111
// and 18 resets 110). Types 8, 9 and 22 reset nothing; 9 sends no uid.
const SettingsRow kRqIniRows[] = {
    {0, {cmdal_GetIniCritical}, 22},
    {1, {cmdal_GetIniGlobalSetting}, 73},
    {2, {cmdal_GetIniOtherUpdateSrc}, 74},
    {3, {cmdal_GetIniServiceModel}, 75},
    {4, {cmdal_PfwGetClientDomain}, 79},
    {5, {cmdal_PfwGetLogQueryCondition}, 77},
    {6, {cmdal_GetClnNetQuarantineCmd}, 11},
    {8, {cmdal_GetIniComponentVer}, 0},
    {9, {cmdal_GetProductInfo}, 0},
    {16, {cmdal_GetIniWhiteList}, 103},
    {17, {cmdal_GetIniAegisSetting}, 111},
    {18, {cmdal_GetIniScanServiceList}, 110},
    {19, {cmdal_GetIniLocalScanSetting}, 112},
    {20, {cmdal_GetIniServiceSwitchSetting}, 117},
    {21, {cmdal_GetNcieSetting}, 120},
    {22, {cmdal_PfwGetClientFullDomain}, 0},
    {255, {cmdal_GetClientAllSetting}, 255},
};
const std::size_t kRqIniRowCount = sizeof kRqIniRows / sizeof kRqIniRows[0];

int32_t ProcessRqIni(const RequestParams& params, CHttpResponse& response) {
  static const SettingsRequest kRequest{
      {kTraceSource, u"ProcessRqIni"}, kRqIniRows, kRqIniRowCount, IsClientKnownToServer};
  return ServeSettingsRequest(kRequest, params, response);
}
