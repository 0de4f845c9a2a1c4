// One-way notifications to the server's notification pipes. Unlike
// cmdal2_Send, the message keeps its bytes.
#pragma once

#include "ser_MsgSerializer.h"

// To "VgcThreatLogServerNamePipe", the threat-log service.
bool ocl_SendToThreatLogServer(CMsgSerializer& message);
// To "VgcServerNamePipe", the server's general notification pipe.
bool ocl_SendToServer(CMsgSerializer& message);
// "VG_REFRESH_CERT_INFO" with the argument as its one wide-string field
// (null is taken as empty). The outcome is not looked at.
void ocl_RefreshCertInfo(const char16_t* argument);
