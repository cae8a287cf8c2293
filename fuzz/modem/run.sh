#!/usr/bin/env bash
# Builds the modem readers' fuzz target with clang and runs it for a while (300 s unless told):
#   fuzz/modem/run.sh [SECONDS]
# Needs Debian's clang and libclang-rt-14-dev (libFuzzer and the sanitizers). A crash is left
# as build-fuzz/crash-*; fuzz/modem/corpus keeps the seeds, build-fuzz/modem-corpus what grew.
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-300}
command -v clang++ >/dev/null || { echo "fuzz/modem/run.sh: clang++ is not installed (apt-get install clang libclang-rt-14-dev)"; exit 1; }
build=${FUZZ_BUILD_DIR:-build-fuzz}
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target corvel_modem_fuzz
mkdir -p "$build/modem-corpus"
corpus=$PWD/fuzz/modem/corpus
cd "$build"
fuzz/modem/corvel_modem_fuzz -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 modem-corpus "$corpus"
