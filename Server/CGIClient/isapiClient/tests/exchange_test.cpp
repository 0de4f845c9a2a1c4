// The web-server side of a request: server variables and ReadClient.
#include "isapi/exchange.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/errors.h"

namespace {

std::string Variable(isapi::Exchange& exchange, const char* name, bool* ok, DWORD capacity = 256) {
  std::string buffer(capacity, '\0');
  DWORD size = capacity;
  *ok = exchange.Ecb()->GetServerVariable(exchange.Ecb()->ConnID, const_cast<char*>(name), buffer.data(), &size) != FALSE;
  return *ok ? std::string(buffer.c_str()) : std::to_string(size);
}

TEST(Exchange, ServerVariablesAnExtensionAsksFor) {
  isapi::Request request;
  request.method = "POST";
  request.queryString = "a=%41";
  request.contentType = "application/x-www-form-urlencoded";
  request.body = "requestid=101";
  request.headers = {{"User-Agent", "agent/1"}, {"Accept-Language", "en"}};
  request.serverPort = "8080";
  isapi::Exchange exchange(request);
  bool ok = false;
  EXPECT_EQ(Variable(exchange, "REQUEST_METHOD", &ok), "POST");
  EXPECT_EQ(Variable(exchange, "QUERY_STRING", &ok), "a=%41") << "undecoded";
  EXPECT_EQ(Variable(exchange, "CONTENT_LENGTH", &ok), "13");
  EXPECT_EQ(Variable(exchange, "SERVER_PORT", &ok), "8080");
  EXPECT_EQ(Variable(exchange, "HTTP_USER_AGENT", &ok), "agent/1");
  EXPECT_EQ(Variable(exchange, "ALL_HTTP", &ok), "HTTP_USER_AGENT:agent/1\nHTTP_ACCEPT_LANGUAGE:en\n");
  Variable(exchange, "NO_SUCH_VARIABLE", &ok);
  EXPECT_FALSE(ok);
  EXPECT_EQ(Variable(exchange, "REQUEST_METHOD", &ok, 3), "5") << "too small: the size needed";
  EXPECT_FALSE(ok);
  EXPECT_EQ(plat::LastError(), plat::kErrorInsufficientBuffer);
}

}  // namespace
