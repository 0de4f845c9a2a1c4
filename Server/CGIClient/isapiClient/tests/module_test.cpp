// The built extension module, loaded as a web server loads it.
#include <gtest/gtest.h>

#include <string>

#include "inprocess_host.h"
#include "isapi/exchange.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace {

TEST(Module, ExportsItsEntryPointsAndAnswersInBothModes) {
  isapi::Module module;
  std::string error;
  ASSERT_TRUE(module.Load(VGCR_EXTENSION_MODULE, &error)) << error;
  HSE_VERSION_INFO version{};
  ASSERT_TRUE(module.GetExtensionVersion(&version));
  EXPECT_STREQ(version.lpszExtensionDesc, "isapiClient");
  EXPECT_EQ(version.dwExtensionVersion >> 16, DWORD{HSE_VERSION_MAJOR});
  InProcessHost host(EntryPoints{module.GetExtensionVersion, module.HttpExtensionProc, module.TerminateExtension});
  EXPECT_EQ(host.Send(InProcessHost::Get("requestid=206")).body, "-2");
  EXPECT_EQ(host.Send(InProcessHost::Get("requestid=206", true)).body, "-2");
  EXPECT_EQ(host.Send(InProcessHost::Post("uid=1", true)).body, "-1");
  EXPECT_TRUE(module.TerminateExtension(HSE_TERM_MUST_UNLOAD));
  EXPECT_NE(module.Symbol("VgcrGetMetrics"), nullptr) << "a host reads the counters through it";
  EXPECT_NE(module.Symbol("VgcrCheckHealth"), nullptr);
  EXPECT_EQ(module.Symbol("CheckMemoryThreshold"), nullptr) << "nothing else is exported";
  EXPECT_EQ(module.Symbol("_Z20CheckMemoryThresholdR11GuardCachesPFjvE"), nullptr);
}

#if defined(_WIN32)
TEST(Module, ATokenThatCannotBeSetIs500WithSubStatus24) {
  isapi::Module module;
  std::string error;
  ASSERT_TRUE(module.Load(VGCR_EXTENSION_MODULE, &error)) << error;
  HSE_VERSION_INFO version{};
  ASSERT_TRUE(module.GetExtensionVersion(&version));
  InProcessHost host(EntryPoints{module.GetExtensionVersion, module.HttpExtensionProc, module.TerminateExtension});
  isapi::Request request = InProcessHost::Get("requestid=206");
  request.impersonationToken = reinterpret_cast<void*>(0x1234);  // not a token
  isapi::Response response = host.Send(request);
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.body, "<html><body>A server error has occurred.</body></html>");
  module.TerminateExtension(HSE_TERM_MUST_UNLOAD);
}
#endif

}  // namespace
