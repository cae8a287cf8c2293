#!/usr/bin/env bash
# Installs what is missing, builds Corvel with its tests and runs every test; then builds the
# tests again under AddressSanitizer and UndefinedBehaviorSanitizer and runs them there too
# (all but the slow end-to-end calls). Any sanitizer report fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)"
ctest --test-dir build --output-on-failure -j "$(nproc)" --timeout 300

cmake -S . -B build-asan -DCORVEL_SANITIZE=ON -DCMAKE_CXX_FLAGS="-O1 -g1" >/dev/null
cmake --build build-asan -j "$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1
export LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
ctest --test-dir build-asan --output-on-failure -j "$(nproc)" --timeout 300 -LE e2e
