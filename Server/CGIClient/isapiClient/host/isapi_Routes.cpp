#include "isapi_Routes.h"

#include "handlers/isapi_OnServiceStatus.h"
#include "handlers/isapi_OnStart.h"
#include "handlers/isapi_OnUpdate.h"
#include "handlers/isapi_PollingSetting.h"

const Route kRoutes[kRouteCount] = {
    {101, "ProcessOnStart", &ProcessOnStart},
    {102, "ProcessOnUpdate", nullptr},
    {103, "ProcessOnServiceStatus", &ProcessOnServiceStatus},
    {110, "ProcessOnLog", nullptr},
    {111, "ProcessOnUploadCfg", nullptr},
    {112, "ProcessOnLogonUser", &ProcessOnLogonUser},
    {201, "ProcessRqIni", nullptr},
    {202, "ProcessRqCfg", nullptr},
    {203, "ProcessRqOpp", nullptr},
    {204, "ProcessRqAlertMsg", nullptr},
    {205, "ProcessRqUpd", nullptr},
    {207, "ProcessPollingSetting", &ProcessPollingSetting},
    {301, "CIsapiVdiProcessor", nullptr},
    {321, "ProcessDLP", nullptr},
};

const UploadHandler kUploadHandler = nullptr;

const Route* FindRoute(int32_t requestId) {
  for (const Route& route : kRoutes) {
    if (route.requestId == requestId) return &route;
  }
  return nullptr;
}
