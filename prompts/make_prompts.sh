#!/usr/bin/env bash
# Speaks every prompt in the table into a telephone-quality WAV file (8000 Hz, 16-bit PCM mono):
#
#   make_prompts.sh TABLE OUTPUT_DIR
#
# espeak-ng says the words; sox trims the synthesiser's own silence, band-limits the speech to
# what a telephone line carries, resamples it, brings the peaks to -3 dBFS, fades the edges so
# nothing clicks and pads the start and end with silence. See the table's header for its format.
set -euo pipefail

# A clear, unhurried voice. The pitch range is opened up a little from the synthesiser's
# default so longer sentences sound less flat.
readonly voice=en-gb
readonly words_per_minute=150
readonly pitch=50
readonly pitch_range=130%
readonly rate=8000
readonly peak_db=-3
readonly lead_default=0.15
readonly tail_default=0.25
readonly digit_edge=0.04
# The tone the caller leaves a message after: a short pause, then 1 kHz with soft edges, well
# under the speech's peaks so it is plainly heard without being harsh.
readonly beep_pause=0.5
readonly beep_seconds=0.4
readonly beep_gain_db=-12

die() {
  echo "make_prompts.sh: $*" >&2
  exit 1
}

[[ $# -eq 2 ]] || die "usage: make_prompts.sh TABLE OUTPUT_DIR"
table=$1
out_dir=$2
[[ -r "$table" ]] || die "cannot read the prompt table '$table'"
for tool in espeak-ng sox; do
  command -v "$tool" >/dev/null ||
    die "'$tool' is not installed; on Debian: apt-get install espeak-ng sox"
done
mkdir -p "$out_dir"

work=$(mktemp -d "${TMPDIR:-/tmp}/corvel-prompts.XXXXXX")
trap 'rm -rf "$work"' EXIT

# -D: no dither, so the same table always gives the same bytes.
sox_() { sox -D -V1 "$@"; }

# The words as markup for espeak-ng, which reads the table text inside a prosody element.
markup() {
  local text=$1
  text=${text//&/&amp;}
  text=${text//</&lt;}
  text=${text//>/&gt;}
  printf '<speak><prosody range="%s">%s</prosody></speak>' "$pitch_range" "$text"
}

make_prompt() {
  local file=$1 words=$2 options=$3
  local lead=$lead_default tail=$tail_default beep=false option
  local IFS=,
  for option in $options; do
    case "$option" in
      digit) lead=$digit_edge tail=$digit_edge ;;
      lead=*) lead=${option#lead=} ;;
      tail=*) tail=${option#tail=} ;;
      beep) beep=true ;;
      *) die "$file: unknown option '$option'" ;;
    esac
  done
  unset IFS
  [[ "$lead" =~ ^[0-9]+(\.[0-9]+)?$ && "$tail" =~ ^[0-9]+(\.[0-9]+)?$ ]] ||
    die "$file: lead and tail must be seconds, e.g. tail=0.7"

  espeak-ng -m -v "$voice" -s "$words_per_minute" -p "$pitch" \
    -w "$work/spoken.wav" "$(markup "$words")"

  # Band-limit and resample before trimming, so the filters' ringing stays inside the kept
  # audio, and trim to the speech (-60 dB). A second pass, once the length is known, sets the
  # peak and softens the first and last moments.
  sox_ "$work/spoken.wav" -b 16 -c 1 "$work/trimmed.wav" \
    highpass 200 lowpass 3400 rate -v "$rate" \
    silence 1 0.005 0.1% reverse silence 1 0.005 0.1% reverse
  sox_ "$work/trimmed.wav" "$work/speech.wav" norm "$peak_db" fade q 0.005 -0 0.01

  local parts=("$work/speech.wav")
  if $beep; then
    sox_ -n -r "$rate" -b 16 -c 1 "$work/beep.wav" \
      synth "$beep_seconds" sine 1000 fade h 0.01 -0 0.01 gain "$beep_gain_db" pad "$beep_pause" 0
    parts+=("$work/beep.wav")
  fi

  # Made in the work folder and only then moved into place, so a failed run leaves no half file.
  sox_ "${parts[@]}" "$work/prompt.wav" pad "$lead" "$tail"
  mv -f "$work/prompt.wav" "$out_dir/$file"
}

count=0
line_number=0
while IFS= read -r line || [[ -n "$line" ]]; do
  line_number=$((line_number + 1))
  line=${line%$'\r'}
  [[ -z "${line//[[:space:]]/}" || "$line" == \#* ]] && continue
  IFS=$'\t' read -r file words options <<<"$line"
  [[ -n "${words:-}" ]] || die "$table:$line_number: expected FILE<TAB>WORDS[<TAB>OPTIONS]"
  [[ "$file" =~ ^[A-Za-z0-9_-]+\.wav$ ]] || die "$table:$line_number: '$file' is not a plain .wav name"
  make_prompt "$file" "$words" "${options:-}"
  count=$((count + 1))
done <"$table"

[[ $count -gt 0 ]] || die "no prompts in '$table'"
echo "make_prompts.sh: wrote $count prompts to $out_dir"
