// Helpers for tests that touch machine-wide names (pipes, events, records).
#pragma once

#include <string>

namespace plat::testing {

// A name no other test process or test case uses: prefix + pid + counter.
std::u16string UniqueName(const char* prefix);

}  // namespace plat::testing
