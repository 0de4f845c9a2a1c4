#include "platform/com.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/text.h"

namespace plat {
namespace {

// Runs fn on a thread of its own, so that each case starts with a thread
// that COM has never seen.
template <typename Fn>
void OnFreshThread(Fn fn) {
  std::thread t(fn);
  t.join();
}

struct Step {
  enum Kind { kInit, kUninit } kind;
  uint32_t model;
  HResult expected;
};

struct ApartmentCase {
  const char* label;
  std::vector<Step> steps;
};

constexpr uint32_t kSta = kCoInitApartmentThreaded;
constexpr uint32_t kMta = kCoInitMultithreaded;

const ApartmentCase kApartmentCases[] = {
    {"first_init_is_S_OK", {{Step::kInit, kSta, kSOk}, {Step::kUninit, 0, 0}}},
    {"nested_same_model_is_S_FALSE",
     {{Step::kInit, kMta, kSOk}, {Step::kInit, kMta, kSFalse}, {Step::kUninit, 0, 0}, {Step::kUninit, 0, 0}}},
    {"other_model_is_changed_mode",
     {{Step::kInit, kMta, kSOk}, {Step::kInit, kSta, kRpcEChangedMode}, {Step::kUninit, 0, 0}}},
    {"changed_mode_owes_no_uninit",
     {{Step::kInit, kMta, kSOk},
      {Step::kInit, kSta, kRpcEChangedMode},
      {Step::kUninit, 0, 0},
      {Step::kInit, kSta, kSOk},
      {Step::kUninit, 0, 0}}},
    {"balanced_uninit_frees_the_model",
     {{Step::kInit, kSta, kSOk},
      {Step::kInit, kSta, kSFalse},
      {Step::kUninit, 0, 0},
      {Step::kInit, kMta, kRpcEChangedMode},
      {Step::kUninit, 0, 0},
      {Step::kInit, kMta, kSOk},
      {Step::kUninit, 0, 0}}},
};

void PrintTo(const ApartmentCase& c, std::ostream* os) { *os << c.label; }

class Apartment : public ::testing::TestWithParam<ApartmentCase> {};

TEST_P(Apartment, AnswersAsComDoes) {
  OnFreshThread([&] {
    int index = 0;
    for (const Step& step : GetParam().steps) {
      if (step.kind == Step::kInit) {
        EXPECT_EQ(CoInitializeEx(step.model), step.expected) << "step " << index;
      } else {
        CoUninitialize();
      }
      ++index;
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Table, Apartment, ::testing::ValuesIn(kApartmentCases),
                         [](const auto& param_info) { return std::string(param_info.param.label); });

struct GuidCase {
  const char16_t* text;
  HResult expected;
};

const GuidCase kGuidCases[] = {
    {u"{3F2504E0-4F89-11D3-9A0C-0305E82C3301}", kSOk},
    {u"{3f2504e0-4f89-11d3-9a0c-0305e82c3301}", kSOk},
    {u"{00000000-0000-0000-0000-000000000000}", kSOk},
    {u"{3F2504E0-4F89-11D3-9A0C-0305E82C330G}", kCoEClassString},   // not hex
    {u"{3F2504E0-4F89-11D3-9A0C-0305E82C3301}x", kCoEClassString},  // trailing text
    {u"{3F2504E0-4F89-11D3-9A0C-0305E82C3301", kCoEClassString},    // no closing brace
    {u"{3F2504E0-4F89-11D3-9A0C0305E82C3301}", kCoEClassString},    // dash missing
    {u"{3F2504E04F89-11D3-9A0C-0305E82C3301-}", kCoEClassString},   // dash misplaced
    {u"{3F2504E0-4F89-11D3-9A0C-0305E82C33}", kCoEClassString},     // too short
    {u"{ 3F2504E0-4F89-11D3-9A0C-0305E82C330}", kCoEClassString},   // blank inside
    {u"{}", kCoEClassString},
    {u"{{3F2504E0-4F89-11D3-9A0C-0305E82C3301}}", kCoEClassString},
};

TEST(ClsidFromString, AcceptsExactlyTheRegistryForm) {
  for (const GuidCase& c : kGuidCases) {
    Guid guid;
    EXPECT_EQ(ClsidFromString(c.text, &guid), c.expected) << ToUtf8(c.text);
  }
}

}  // namespace
}  // namespace plat
