#!/usr/bin/env bash
# Builds fuzz targets with clang and runs them for a while (300 s unless told):
#   fuzz/run.sh NAME [SECONDS]     NAME: acs, blocklist, modem, prompt, records, settings, sip or text
#   fuzz/run.sh all [SECONDS]      every target, as many at once as there are cores, each one's
#                                  output in build-fuzz/NAME.log; fails if any of them crashes
# Needs Debian's clang and libclang-rt-14-dev (libFuzzer and the sanitizers). A crash is left
# as build-fuzz/crash-*; fuzz/<name>/corpus keeps the seeds, build-fuzz/<name>-corpus what grew.
set -euo pipefail
cd "$(dirname "$0")/.."
usage="usage: fuzz/run.sh all|acs|blocklist|modem|prompt|records|settings|sip|text [SECONDS]"
name=${1:?"$usage"}
seconds=${2:-300}
if [[ $name == all ]]; then
  names=()
  for corpus in fuzz/*/corpus; do names+=("$(basename "$(dirname "$corpus")")"); done
else
  [[ -d fuzz/$name/corpus ]] || { echo "fuzz/run.sh: no fuzz target \"$name\"; $usage"; exit 1; }
  names=("$name")
fi
command -v clang++ >/dev/null || { echo "fuzz/run.sh: clang++ is not installed (apt-get install clang libclang-rt-14-dev)"; exit 1; }
build=${FUZZ_BUILD_DIR:-build-fuzz}
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
targets=()
for target in "${names[@]}"; do targets+=("corvel_${target}_fuzz"); done
cmake --build "$build" -j "$(nproc)" --target "${targets[@]}"
cd "$build"

fuzz() {
  mkdir -p "$1-corpus"
  "fuzz/$1/corvel_$1_fuzz" -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 "$1-corpus" "$OLDPWD/fuzz/$1/corpus"
}

if [[ $name != all ]]; then
  fuzz "$name"
  exit
fi
# Every target at once would starve them all; a finished one makes room for the next.
failed=()
declare -A running=()
finish_one() {
  local pid status=0
  wait -n -p pid || status=$?
  if ((status != 0)); then
    failed+=("${running[$pid]}")
    tail -n 40 "${running[$pid]}.log"
  fi
  echo "fuzz ${running[$pid]}: $(grep -o 'stat::number_of_executed_units: [0-9]*' "${running[$pid]}.log" | cut -d' ' -f2) runs, exit $status"
  unset "running[$pid]"
}
for target in "${names[@]}"; do
  ((${#running[@]} < $(nproc))) || finish_one
  fuzz "$target" >"$target.log" 2>&1 &
  running[$!]=$target
done
while ((${#running[@]} > 0)); do finish_one; done
((${#failed[@]} == 0)) || { echo "fuzz/run.sh: crashed: ${failed[*]} (inputs in $build/crash-*)"; exit 1; }
