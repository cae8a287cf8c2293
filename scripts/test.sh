#!/usr/bin/env bash
# Installs what is missing, builds Corvel with its tests and runs every test; builds the Debian
# package and tries it installed; then builds the tests again under AddressSanitizer and
# UndefinedBehaviorSanitizer and runs them there too (all but the slow end-to-end calls); last,
# every fuzz target for a minute. Any sanitizer report or fuzz crash fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build build -j "$(nproc)"
ctest --test-dir build --output-on-failure -j "$(nproc)" --timeout 300

# The Debian package: built, checked by lintian, installed, used for one call, removed.
scripts/package.sh
tests/package/installed_package_test.sh build/package/corvel_*_amd64.deb

cmake -S . -B build-asan -DCORVEL_SANITIZE=ON -DCMAKE_CXX_FLAGS="-O1 -g1" >/dev/null
cmake --build build-asan -j "$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1
export LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
ctest --test-dir build-asan --output-on-failure -j "$(nproc)" --timeout 300 -LE e2e

# Every reader of outside data under libFuzzer (clang), a minute each, as many at once as cores.
fuzz/run.sh all 60
