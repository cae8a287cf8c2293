#!/usr/bin/env bash
# One call on the test line of a headless CORVEL (the program given), driven over the session
# bus as another program would: a withheld caller keys "3", waits, and is picked up with
# corvel --pick-up. Run it under dbus-run-session.
set -euo pipefail
corvel=$1
root=$(mktemp -d)
trap 'kill "$pid" 2>/dev/null || true; rm -rf "$root"' EXIT
mkdir -p "$root"/{config,data,home,runtime}
chmod 700 "$root/runtime"
printf '[withheld/data]\nrings=2\nmodem=0\n' >"$root/config/corvel.conf"
export HOME=$root/home XDG_RUNTIME_DIR=$root/runtime XDG_CONFIG_HOME=$root/home/.config \
       XDG_DATA_HOME=$root/home/.local/share XDG_CACHE_HOME=$root/home/.cache QT_QPA_PLATFORM=offscreen

"$corvel" --headless --line test --config-dir "$root/config" --data-dir "$root/data" \
  --web-site http://127.0.0.1:9/ >"$root/corvel.log" 2>&1 &
pid=$!

corvel_call() { gdbus call --session --dest org.corvel.Corvel --object-path "$@"; }
# Waits up to 30 seconds for a command to succeed.
wait_for() {
  for _ in $(seq 150); do "$@" >/dev/null 2>&1 && return 0; sleep 0.2; done
  echo "gave up waiting for: $*" >&2
  cat "$root/corvel.log" >&2
  return 1
}
phase_is() { corvel_call /org/corvel/Corvel --method org.corvel.Corvel.Status | grep -q "'phase': <'$1'>"; }
handed_over() {
  corvel_call /org/corvel/Corvel/TestLine --method org.freedesktop.DBus.Properties.Get \
    org.corvel.Corvel.TestLine HandedOver | grep -q true
}

wait_for phase_is idle
corvel_call /org/corvel/Corvel/TestLine --method org.corvel.Corvel.TestLine.Ring withheld "" "" >/dev/null
wait_for phase_is asking-number
corvel_call /org/corvel/Corvel/TestLine --method org.corvel.Corvel.TestLine.PressKeys "3#" >/dev/null
wait_for phase_is putting-through
"$corvel" --pick-up
wait_for handed_over

grep -q '^Withheld, on ' "$root/data/calls.txt"
grep -q '^ keyed - 3, on ' "$root/data/calls.txt"
[[ -f "$root/data/goodmorning.wav" && -f "$root/data/characters/Phony.acs" ]] # the shipped files were copied
kill -TERM "$pid"
wait "$pid"
echo "a test-line call on $corvel was answered, logged and handed over"
