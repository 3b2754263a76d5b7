#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite through ctest:
#   1. a Debug build (thread assertions on),
#   2. the same suite under AddressSanitizer + UndefinedBehaviorSanitizer,
#   3. the scheduler tests (label "threads") under ThreadSanitizer,
#   4. each libFuzzer target for 60 s (clang build in build/fuzz); any finding fails.
# Between 1 and 2 the Debug tree is installed into a temporary prefix and a host
# project (examples/consumer) is built and run against the installed package.
# Test media is generated once into build/test-media and shared by the builds.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

jobs=$(nproc)
media="$PWD/build/test-media"

configure_and_build() { # <dir> [cmake options...]
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVR_TEST_MEDIA_DIR="$media" "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
}

echo "== Debug build and tests"
configure_and_build build/debug
ctest --test-dir build/debug --output-on-failure -j "$jobs"

echo "== Installed package: consumer example, exported symbols, headers"
bash scripts/check-install.sh build/debug "$media/sample.mp4"

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
configure_and_build build/asan -DVR_SANITIZE="address;undefined" -DVR_BUILD_EXAMPLES=OFF
ctest --test-dir build/asan --output-on-failure -j "$jobs" -LE no-asan

echo "== ThreadSanitizer (threading tests)"
configure_and_build build/tsan -DVR_SANITIZE=thread -DVR_BUILD_EXAMPLES=OFF
VR_STRESS_SMALL=1 ctest --test-dir build/tsan --output-on-failure -j "$jobs" -L threads

echo "== Fuzzing (60 s per target)"
VR_FUZZ_SEED=1 bash fuzz/run.sh 60
