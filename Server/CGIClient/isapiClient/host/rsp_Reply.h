// The reply writers: every text reply is first signed for the client (when
// it names a certificate), then sent as application/octet-stream.
#pragma once

#include <cstdint>
#include <string>

#include "fw_HttpResponse.h"
#include "req_RequestParams.h"

// "%d"
bool WriteCodeReply(const RequestParams& params, CHttpResponse& response, int32_t code);
// "%d\n%.10d": the code and the current time in seconds since 1970.
bool WriteCodeAndTimeReply(const RequestParams& params, CHttpResponse& response, int32_t code);
// The same with a given time (tests).
bool WriteCodeAndTimeReplyAt(const RequestParams& params, CHttpResponse& response, int32_t code, int64_t unixTime);
// A narrow text, as it is.
bool WriteTextReply(const RequestParams& params, CHttpResponse& response, const char* text, std::size_t length);
// A UTF-16 text, converted to the ANSI code page first.
bool WriteWideTextReply(const RequestParams& params, CHttpResponse& response, const char16_t* text);

// Asks the signing service to sign the reply for the client named by SA_ISR
// (issuer), SA_SN (serial) and SA_RN (the client's number); sets SA_SG and
// SA_NEW. Without certificate parameters the reply stays unsigned (true).
// False when signing failed (the caller then answers 503); the service's
// -65502 (not our certificate) is accepted, unsigned.
bool AppendHTTPSign(const RequestParams& params, CHttpResponse& response, const char* body, uint32_t length);

// Reads the client's "domain" (at most 120 characters) into *domain and
// checks it: present, within the limit, and free of control characters
// (U+0000 to U+001F, U+007F to U+009F) and unpaired surrogates, which no
// domain or workgroup name holds and which would corrupt the server's
// records and logs. An empty domain (a computer in no domain) is valid.
bool CheckValidDomainString(const RequestParams& params, std::u16string* domain);

// Asks the service to drop the client's pending configuration record.
bool RemoveConfigRecord(const char16_t* uid, uint32_t event, const char16_t* release = u"");
