#include "isapi_Routes.h"

const Route kRoutes[kRouteCount] = {
    {101, "ProcessOnStart", nullptr},
    {102, "ProcessOnUpdate", nullptr},
    {103, "ProcessOnServiceStatus", nullptr},
    {110, "ProcessOnLog", nullptr},
    {111, "ProcessOnUploadCfg", nullptr},
    {112, "ProcessOnLogonUser", nullptr},
    {201, "ProcessRqIni", nullptr},
    {202, "ProcessRqCfg", nullptr},
    {203, "ProcessRqOpp", nullptr},
    {204, "ProcessRqAlertMsg", nullptr},
    {205, "ProcessRqUpd", nullptr},
    {207, "ProcessPollingSetting", nullptr},
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
