#!/usr/bin/env bash
# Builds one fuzz target with clang and runs it for a while (300 s unless told):
#   fuzz/run.sh NAME [SECONDS]     NAME: acs, blocklist, modem, prompt, records, settings, sip or text
# Needs Debian's clang and libclang-rt-14-dev (libFuzzer and the sanitizers). A crash is left
# as build-fuzz/crash-*; fuzz/<name>/corpus keeps the seeds, build-fuzz/<name>-corpus what grew.
set -euo pipefail
cd "$(dirname "$0")/.."
name=${1:?"usage: fuzz/run.sh acs|blocklist|modem|prompt|records|settings|sip|text [SECONDS]"}
seconds=${2:-300}
[[ -d fuzz/$name/corpus ]] || { echo "fuzz/run.sh: no fuzz target \"$name\""; exit 1; }
command -v clang++ >/dev/null || { echo "fuzz/run.sh: clang++ is not installed (apt-get install clang libclang-rt-14-dev)"; exit 1; }
build=${FUZZ_BUILD_DIR:-build-fuzz}
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target "corvel_${name}_fuzz"
mkdir -p "$build/$name-corpus"
corpus=$PWD/fuzz/$name/corpus
cd "$build"
"fuzz/$name/corvel_${name}_fuzz" -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 "$name-corpus" "$corpus"
