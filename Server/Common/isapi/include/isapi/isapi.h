// The ISAPI extension interface shared by the web hosts and the extension.
// On Windows it is the platform's own httpext.h; elsewhere the same type,
// field and constant names are defined here, so that a host and an
// extension built apart still agree on one ABI.
#pragma once

#if defined(_WIN32)
#include <windows.h>
#include <httpext.h>
#else

#include <cstdint>

using BOOL = int;
using DWORD = uint32_t;
using LPDWORD = DWORD*;
using CHAR = char;
using LPSTR = char*;
using LPCSTR = const char*;
using LPBYTE = unsigned char*;
using LPVOID = void*;
using HANDLE = void*;
using HCONN = void*;
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#define WINAPI

#define HSE_VERSION_MAJOR 6
#define HSE_VERSION_MINOR 0
#define HSE_LOG_BUFFER_LEN 80
#define HSE_MAX_EXT_DLL_NAME_LEN 256
#define HSE_VERSION MAKELONG(HSE_VERSION_MINOR, HSE_VERSION_MAJOR)
#ifndef MAKELONG
#define MAKELONG(a, b) ((DWORD)(((uint16_t)(a)) | ((DWORD)((uint16_t)(b))) << 16))
#endif

#define HSE_STATUS_SUCCESS 1
#define HSE_STATUS_SUCCESS_AND_KEEP_CONN 2
#define HSE_STATUS_PENDING 3
#define HSE_STATUS_ERROR 4

#define HSE_REQ_BASE 0
#define HSE_REQ_SEND_URL_REDIRECT_RESP 1
#define HSE_REQ_SEND_URL 2
#define HSE_REQ_SEND_RESPONSE_HEADER 3
#define HSE_REQ_DONE_WITH_SESSION 4
#define HSE_REQ_END_RESERVED 1000
#define HSE_REQ_MAP_URL_TO_PATH (HSE_REQ_END_RESERVED + 1)
#define HSE_REQ_GET_SSPI_INFO (HSE_REQ_END_RESERVED + 2)
#define HSE_APPEND_LOG_PARAMETER (HSE_REQ_END_RESERVED + 3)
#define HSE_REQ_IO_COMPLETION (HSE_REQ_END_RESERVED + 5)
#define HSE_REQ_TRANSMIT_FILE (HSE_REQ_END_RESERVED + 6)
#define HSE_REQ_REFRESH_ISAPI_ACL (HSE_REQ_END_RESERVED + 7)
#define HSE_REQ_IS_KEEP_CONN (HSE_REQ_END_RESERVED + 8)
#define HSE_REQ_ASYNC_READ_CLIENT (HSE_REQ_END_RESERVED + 10)
#define HSE_REQ_GET_IMPERSONATION_TOKEN (HSE_REQ_END_RESERVED + 11)
#define HSE_REQ_MAP_URL_TO_PATH_EX (HSE_REQ_END_RESERVED + 12)
#define HSE_REQ_ABORTIVE_CLOSE (HSE_REQ_END_RESERVED + 14)
#define HSE_REQ_GET_CERT_INFO_EX (HSE_REQ_END_RESERVED + 15)
#define HSE_REQ_SEND_RESPONSE_HEADER_EX (HSE_REQ_END_RESERVED + 16)
#define HSE_REQ_CLOSE_CONNECTION (HSE_REQ_END_RESERVED + 17)

#define HSE_IO_SYNC 0x00000001
#define HSE_IO_ASYNC 0x00000002

#define HSE_TERM_ADVISORY_UNLOAD 0x00000001
#define HSE_TERM_MUST_UNLOAD 0x00000002

typedef struct _HSE_VERSION_INFO {
  DWORD dwExtensionVersion;
  CHAR lpszExtensionDesc[HSE_MAX_EXT_DLL_NAME_LEN];
} HSE_VERSION_INFO, *LPHSE_VERSION_INFO;

typedef struct _EXTENSION_CONTROL_BLOCK {
  DWORD cbSize;
  DWORD dwVersion;
  HCONN ConnID;
  DWORD dwHttpStatusCode;
  CHAR lpszLogData[HSE_LOG_BUFFER_LEN];
  LPSTR lpszMethod;
  LPSTR lpszQueryString;
  LPSTR lpszPathInfo;
  LPSTR lpszPathTranslated;
  DWORD cbTotalBytes;
  DWORD cbAvailable;
  LPBYTE lpbData;
  LPSTR lpszContentType;
  BOOL(WINAPI* GetServerVariable)(HCONN hConn, LPSTR lpszVariableName, LPVOID lpvBuffer, LPDWORD lpdwSize);
  BOOL(WINAPI* WriteClient)(HCONN ConnID, LPVOID Buffer, LPDWORD lpdwBytes, DWORD dwReserved);
  BOOL(WINAPI* ReadClient)(HCONN ConnID, LPVOID lpvBuffer, LPDWORD lpdwSize);
  BOOL(WINAPI* ServerSupportFunction)(HCONN hConn, DWORD dwHSERequest, LPVOID lpvBuffer, LPDWORD lpdwSize,
                                      LPDWORD lpdwDataType);
} EXTENSION_CONTROL_BLOCK, *LPEXTENSION_CONTROL_BLOCK;

typedef struct _HSE_SEND_HEADER_EX_INFO {
  LPCSTR pszStatus;
  LPCSTR pszHeader;
  DWORD cchStatus;
  DWORD cchHeader;
  BOOL fKeepConn;
} HSE_SEND_HEADER_EX_INFO, *LPHSE_SEND_HEADER_EX_INFO;

typedef BOOL (*PFN_GETEXTENSIONVERSION)(HSE_VERSION_INFO* pVer);
typedef DWORD (*PFN_HTTPEXTENSIONPROC)(EXTENSION_CONTROL_BLOCK* pECB);
typedef BOOL (*PFN_TERMINATEEXTENSION)(DWORD dwFlags);

#endif
