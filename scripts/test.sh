#!/usr/bin/env bash
# Installs what is missing; builds the libFuzzer targets with clang and everything with
# AddressSanitizer and UndefinedBehaviorSanitizer; builds the optimised tree that the run, benchmark,
# package and screenshot scripts share (so that a build a user makes cannot fail unseen), makes the
# Debian package from it and checks what it installs; then runs every test through CTest: the
# screenshot tour in the optimised tree, everything else (fuzzers included) in the sanitised one.
# Prints how long each step took.
set -euo pipefail
cd "$(dirname "$0")/.."
timings=()
current=""
step() {
  current=$1 current_start=$SECONDS
  shift
  echo "== $current"
  "$@"
  timings+=("$(printf '%-34s %5d s' "$current" $((SECONDS - current_start)))")
  current=""
}
report() {
  [ -z "$current" ] || timings+=("$(printf '%-34s %5d s (failed)' "$current" $((SECONDS - current_start)))")
  echo "== Time per step"
  printf '  %s\n' "${timings[@]}"
}
trap report EXIT

step "install what is missing" scripts/install-deps.sh

fuzz_tree() {
  cmake -S . -B build/fuzz -G Ninja -DNIMBREL_FUZZ_ONLY=ON -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build/fuzz
}
step "build the fuzzers (clang)" fuzz_tree

test_tree() {
  cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DNIMBREL_SANITIZE=ON \
    -DNIMBREL_FUZZ_BIN_DIR="$PWD/build/fuzz/tests/fuzz" >/dev/null
  cmake --build build/test
}
step "build the sanitised tree" test_tree

release_tree() {
  scripts/configure-release.sh
  cmake --build build/release --target all benchmarks screenshot-tour
}
step "build the optimised tree" release_tree

package() {
  local deb
  deb=$(scripts/package.sh | tail -1)
  scripts/check-install.sh build/release "$deb"
}
step "make and check the package" package

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export QT_QPA_PLATFORM=offscreen
step "screenshot tour (optimised)" ctest --test-dir build/release --output-on-failure --timeout 300
step "tests (sanitised)" ctest --test-dir build/test --output-on-failure --parallel 2 --timeout 600
