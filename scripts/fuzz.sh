#!/usr/bin/env bash
# Open-ended fuzzing with clang's libFuzzer: builds every fuzz target with
# AddressSanitizer and UndefinedBehaviorSanitizer and runs each for
# ${VGCR_FUZZ_SECONDS:-60} seconds. Findings land in build/fuzz/findings/.
set -euo pipefail
cd "$(dirname "$0")/.."

for package in clang libclang-rt-14-dev; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$package" >/dev/null
  fi
done

cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_COMPILER=clang++ -DVGCR_LIBFUZZER=ON >/dev/null
targets=$(sed -n 's/^ *vgcr_add_fuzz_target(\([a-z_0-9]*\) .*/\1/p' fuzz/CMakeLists.txt)
cmake --build build/fuzz --target $targets
mkdir -p build/fuzz/findings
export VGCR_LOCAL_PATH=$(mktemp -d) TMPDIR=$(mktemp -d) XDG_CACHE_HOME=$(mktemp -d)
for target in $targets; do
  mkdir -p "build/fuzz/corpus/$target"
  echo "== $target"
  "build/fuzz/fuzz/$target" -max_total_time="${VGCR_FUZZ_SECONDS:-60}" -artifact_prefix=build/fuzz/findings/ \
    "build/fuzz/corpus/$target"
done
