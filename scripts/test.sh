#!/usr/bin/env bash
# Installs what is missing, builds everything with AddressSanitizer and UndefinedBehaviorSanitizer,
# builds the libFuzzer targets with clang, builds (without running) the trees that the run and
# benchmark scripts build, so that a build a user makes cannot fail unseen, makes the Debian package
# and checks what it installs, and runs every test (fuzzers included) through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

cmake -S . -B build/fuzz -G Ninja -DNIMBREL_FUZZ_ONLY=ON -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/fuzz

cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DNIMBREL_SANITIZE=ON \
  -DNIMBREL_FUZZ_BIN_DIR="$PWD/build/fuzz/tests/fuzz" >/dev/null
cmake --build build/test

# The trees of scripts/run.sh and scripts/bench.sh, with the same settings.
cmake -S . -B build/app -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNIMBREL_TESTS=OFF >/dev/null
cmake --build build/app --target nimbrel-bridge nimbrel-peer
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DNIMBREL_TESTS=OFF -DNIMBREL_BENCH=ON >/dev/null
cmake --build build/bench
# The package of scripts/package.sh, from the release tree just built (it has the same settings).
package=$(scripts/package.sh build/bench | tail -1)
scripts/check-install.sh build/bench "$package"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export QT_QPA_PLATFORM=offscreen
cd build/test
ctest --output-on-failure --parallel 2 --timeout 600
