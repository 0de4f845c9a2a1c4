#include "isapi_Routes.h"

#include "handlers/isapi_DLP.h"
#include "handlers/isapi_OnLog.h"
#include "handlers/isapi_OnServiceStatus.h"
#include "handlers/isapi_OnStart.h"
#include "handlers/isapi_OnUpdate.h"
#include "handlers/isapi_OnUploadCfg.h"
#include "handlers/isapi_PollingSetting.h"
#include "handlers/isapi_RqAlertMsg.h"
#include "handlers/isapi_RqCfg.h"
#include "handlers/isapi_RqIni.h"
#include "handlers/isapi_RqOpp.h"
#include "handlers/isapi_RqUpd.h"
#include "handlers/isapi_Upload.h"
#include "handlers/isapi_VDI.h"

const Route kRoutes[kRouteCount] = {
    {101, "ProcessOnStart", &ProcessOnStart},
    {102, "ProcessOnUpdate", &ProcessOnUpdate},
    {103, "ProcessOnServiceStatus", &ProcessOnServiceStatus},
    {110, "ProcessOnLog", &ProcessOnLog},
    {111, "ProcessOnUploadCfg", &ProcessOnUploadCfg},
    {112, "ProcessOnLogonUser", &ProcessOnLogonUser},
    {201, "ProcessRqIni", &ProcessRqIni},
    {202, "ProcessRqCfg", &ProcessRqCfg},
    {203, "ProcessRqOpp", &ProcessRqOpp},
    {204, "ProcessRqAlertMsg", &ProcessRqAlertMsg},
    {205, "ProcessRqUpd", &ProcessRqUpd},
    {207, "ProcessPollingSetting", &ProcessPollingSetting},
    {301, "CIsapiVdiProcessor", &CIsapiVdiProcessor::Run},
    {321, "ProcessDLP", &ProcessDLP},
};

const UploadHandler kUploadHandler = &CIsapiUploadProcessor::Run;

const Route* FindRoute(int32_t requestId) {
  for (const Route& route : kRoutes) {
    if (route.requestId == requestId) return &route;
  }
  return nullptr;
}
