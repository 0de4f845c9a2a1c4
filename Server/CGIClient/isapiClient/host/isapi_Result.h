// A handler's result (`HandlerResult`): 1 when it wrote its reply itself,
// -49 when the reply could not be written (the dispatcher answers 503), any
// other value an error the dispatcher writes as the reply "%d". The values
// are what clients read, so they are the wire codes themselves.
#pragma once

#include <cstdint>

enum HandlerResult : int32_t {
  kResultHandled = 1,

  // The dispatcher's own.
  kResultNoRequestId = -1,
  kResultUnknownRequestId = -2,
  kResultOverMemory = -38,
  kResultBackOff = -49,

  // Shared by the handlers.
  kResultBadFunctionType = -3,  // `functiontype` missing, or a type not served
  kResultCounterUpdateFailed = -4,  // log report: the firewall counters could not be updated
  kResultNotDelivered = -5,     // the command could not be delivered, or the query failed
  kResultInvalidUid = -6,       // `uid` missing, not a GUID, or unknown to the server
  kResultMissingRelease = -7,
  kResultNoPendingChange = -8,  // OPP fetch with `chkdatabase`=1: nothing changed
  kResultUnknownClient = -39,   // service status, update report: the server does not know the client
  kResultMissingField = -40,    // a key the handler needs is absent or too long (no section, no file part)

  // The configuration upload: a section is not valid (the reply names it).
  kResultInvalidSetting = -41,

  // The file upload.
  kResultUploadTooLarge = -42,    // the file is longer than the upload limit
  kResultDiskFull = -43,          // the disk threshold status refuses uploads
  kResultBadFileName = -44,       // the file's name is not a plain name
  kResultUploadIncomplete = -45,  // the body ended before the file part did
  kResultUploadNotStored = -46,   // the temporary file could not be made or written

  // VDI coordination.
  kResultBadDocument = -47,   // not a JSON object of the request's members, types and ranges
  kResultBadEnvelope = -48,   // an envelope that does not decrypt
  kResultUnknownTask = -50,   // a notification for a task that is not running

  // The start registration: a required key missing or too long.
  kResultBadDate = -11,
  kResultBadTime = -12,
  kResultBadComputer = -13,
  kResultBadDomain = -14,
  kResultBadPlatform = -15,
  kResultBadIp = -16,
  kResultBadProgram = -18,
  kResultBadInstallDate = -19,
  kResultBadInstallTime = -20,
  kResultBadHotfix = -21,
  kResultBadEngine = -25,
};
