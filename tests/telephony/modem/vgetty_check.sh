#!/usr/bin/env bash
# vgetty, a voice-modem client that nobody here wrote, takes one call from the modem emulator:
# it sets the modem up, answers on the second ring, plays its greeting, beeps, records the
# caller, stops the recording when the line goes busy and hangs up. That the emulator looks
# like a modem to it is the point of the check.
#
# vgetty's paths are compiled in, so it runs in a private mount namespace in which its
# configuration, spool, log and lock folders are the test's own: nothing outside is touched.
# Where the namespace cannot be made (no root, no mount rights), the check is skipped and says why.
#
#   vgetty_check.sh EMULATOR        exit 0 passed, 1 failed, 77 skipped
set -uo pipefail

emulator=${1:?the path of corvel_modem_emulator}
skip() { echo "SKIPPED: $*"; exit 77; }

for tool in vgetty pvftormd sox unshare mount timeout; do
  command -v "$tool" >/dev/null 2>&1 || [[ -x /usr/sbin/$tool ]] ||
    skip "$tool is not installed (Debian packages mgetty-voice, mgetty-pvftools, sox, util-linux)"
done
[[ $(id -u) -eq 0 ]] || skip "a private mount namespace needs root here"
unshare -m --propagation private true 2>/dev/null || skip "this machine cannot make a private mount namespace"
unshare -m --propagation private sh -c 'mount -t tmpfs none /mnt' 2>/dev/null ||
  skip "mounts are not allowed in a private namespace here"

work=$(mktemp -d /tmp/corvel-vgetty-XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/etc" "$work/spool/incoming" "$work/spool/messages" "$work/log" "$work/lock"

cat >"$work/etc/mgetty.config" <<'CONFIG'
debug 6
speed 38400
toggle-dtr no
CONFIG
cat >"$work/etc/voice.conf" <<'CONFIG'
part generic
voice_log_level 6
voice_dir /var/spool/voice
receive_dir incoming
message_dir messages
message_list Index
backup_message standard.rmd
port_timeout 10
rec_max_len 20
rec_min_len 0
rec_always_keep true
beep_length 300
watchdog_timeout 60
forceV253 TRUE
program vgetty
rings 2
answer_mode voice
CONFIG
cp /etc/mgetty/login.config /etc/mgetty/dialin.config "$work/etc/" 2>/dev/null || true

# The greeting, and what the caller says: tones, made as vgetty's tools make messages.
sox -n -r 8000 -c 1 -b 8 "$work/greeting.pvf" synth 1.0 sine 440 2>/dev/null ||
  sox -n -t pvf -r 8000 -c 1 "$work/greeting.pvf" synth 1.0 sine 440
pvftormd V253modem 8 "$work/greeting.pvf" "$work/spool/messages/standard.rmd" || { echo "pvftormd failed"; exit 1; }
echo standard.rmd >"$work/spool/messages/Index"
sox -n -r 8000 -c 1 -b 16 "$work/speech.wav" synth 2.0 sine 700

# Inside the namespace: the folders swapped for the test's, the emulator started, one call.
timeout 120 unshare -m --propagation private bash -s "$emulator" "$work" <<'INSIDE'
set -uo pipefail
emulator=$1 work=$2
mount --bind "$work/etc" /etc/mgetty
mkdir -p /var/spool/voice 2>/dev/null; mount --bind "$work/spool" /var/spool/voice
mkdir -p /var/log/mgetty 2>/dev/null || mount -t tmpfs none /var/log
mkdir -p /var/log/mgetty; mount --bind "$work/log" /var/log/mgetty
mount --bind "$work/lock" /run/lock
"$emulator" --ring-every 2000 --call-after 3000 --caller 5551234 --speech "$work/speech.wav" \
  --hang-up-after 7000 --port-file "$work/port" --transcript "$work/transcript" --run-for 40000 \
  >"$work/emulator.out" 2>&1 &
emulatorPid=$!
for _ in $(seq 50); do [[ -s $work/port ]] && break; sleep 0.1; done
port=$(cat "$work/port")
timeout 45 /usr/sbin/vgetty -x 6 "${port#/dev/}" >"$work/vgetty.out" 2>&1
echo "vgetty exit: $?" >>"$work/vgetty.out"
kill -TERM "$emulatorPid" 2>/dev/null; wait "$emulatorPid"
INSIDE

show() { for f in "$work"/vgetty.out "$work"/log/* "$work"/transcript; do echo "=== $f"; tail -n 80 "$f"; done; }
fail() { echo "FAILED: $*"; show; exit 1; }
transcript=$work/transcript
[[ -s $transcript ]] || fail "the emulator left no transcript"
grep -q ' H AT+VLS=1$' "$transcript" || fail "vgetty never went off-hook"
grep -q ' H AT+VTX$' "$transcript" || fail "vgetty played nothing"
played=$(grep -o 'H (\([0-9]*\) bytes of sound)' "$transcript" | head -n1 | grep -o '[0-9]*')
[[ ${played:-0} -ge 7000 ]] || fail "vgetty's greeting was ${played:-0} bytes, not a second of sound"
grep -q ' H AT+VRX$' "$transcript" || fail "vgetty recorded nothing"
grep -q ' M <DLE>b$' "$transcript" || fail "the caller never hung up"
awk '/ M <DLE>b$/ {busy=1} busy && / H <DLE>!$/ {found=1} END {exit !found}' "$transcript" ||
  fail "vgetty did not stop recording on the busy tone"
grep -q ' H AT+VLS=0$\| H ATH0\?$' "$transcript" || fail "vgetty did not hang up"
ls "$work"/spool/incoming/* >/dev/null 2>&1 || fail "vgetty kept no recording"
echo "vgetty took the call: greeting of $played bytes, recording in $(basename "$(ls "$work"/spool/incoming/* | head -n1)")"
echo "1 passed, 0 failed"
