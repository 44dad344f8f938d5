#!/usr/bin/env bash
# Installs what is missing, builds everything with AddressSanitizer and UndefinedBehaviorSanitizer,
# builds the libFuzzer targets with clang, and runs every test (fuzzers included) through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

cmake -S . -B build/fuzz -G Ninja -DNIMBREL_FUZZ_ONLY=ON -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/fuzz

cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DNIMBREL_SANITIZE=ON \
  -DNIMBREL_FUZZ_BIN_DIR="$PWD/build/fuzz/tests/fuzz" >/dev/null
cmake --build build/test

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export QT_QPA_PLATFORM=offscreen
cd build/test
ctest --output-on-failure --parallel 2 --timeout 600
