#!/usr/bin/env bash
# Two people talk at once before an artificial head with a microphone in each ear, and before a ring
# of eight microphones, in the open and in a room; each method separates them. Prints one table of how
# well, and where to listen and look.
#   scripts/demo.sh [FOLDER]    results go to FOLDER, by default out/demo; an earlier run is replaced
# Installs and builds what is missing. Measured responses and speech come from Debian packages.
set -euo pipefail

repository=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${1:-$repository/out/demo}")
responses=${ZELK_DEMO_RESPONSES:-/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa}
speech=${ZELK_DEMO_SPEECH:-/usr/share/pocketsphinx/test/data}
# What each says, a file after the other, about as long as the other one: WAV files of 16 kHz, 44 bytes of header.
talker_a=("$speech/librivox/sense_and_sensibility_01_austen_64kb-0870.wav")
talker_b=("$speech"/cards/{005,002,003}.wav)
methods=(DS WDS NULL ILSE LCMV GJ GICA)
# Of the two blocks in the room; a name may have options behind it.
room_methods=(NULL GICA MVDR "NULL --refine 2")
measured_methods=(NULL GICA MVDR)
room=(--room 6,4.5,2.8 --t60 0.4)

# shellcheck source=scripts/counted-build.sh
source "$repository/scripts/counted-build.sh"
say() { echo "demo.sh: $*" >&2; }

# Tests and benchmarks, and what they need, are left to scripts/test.sh; a build that has them is used.
build() {
  if [ -n "${ZELK_SSS:-}" ]; then return; fi
  bash "$repository/scripts/deps.sh" --demo
  local folder=$repository/build/release log=$out/build.log
  say "building; the log is $log"
  : >"$log"
  { [ -e "$folder/build.ninja" ] || (cd "$repository" && cmake --preset command) >"$log" 2>&1; } &&
    counted_build "$log" "$folder" ||
    { tail -n 30 "$log" >&2; say "the build failed, see $log"; exit 1; }
  ZELK_SSS=$folder/bin/zelk-sss
}

# folder_of METHOD: NULL-refine-2 for NULL --refine 2.
folder_of() { tr -s ' -' '-' <<<"$1"; }

# separate ARRAY METHOD: by the command and, for the methods that need no step parameters, by the
# network document too, which must give the same files. The document's frames have 512 samples.
# MVDR takes the room's responses, and frames as long as the database's.
separate() {
  local folder=$out/$1 options result
  result=$folder/$(folder_of "$2")
  read -ra options <<<"$2"
  case $2 in
    MVDR) options+=(--responses "$out/measured/room.sofa" --length "$(length_of "$folder/array.sofa")") ;;
    *) options+=(--tf "$folder/array.sofa") ;;
  esac
  "$ZELK_SSS" separate "$folder/mix.wav" --sources "$folder/scene.json" --method "${options[@]}" \
    -o "$result" --force >>"$folder/log.txt"
  case "$1-$2" in *-LCMV | *-GJ | *-GICA | *-MVDR | *--refine* | measured-*) return ;; esac
  rm -rf "$folder/network"
  "$ZELK_SSS" run "$repository/examples/separate.n" "$folder/mix.wav" "$folder/scene.json" \
    "$folder/array.sofa" "$2" "$folder/network" >>"$folder/log.txt"
  diff -r -x run.json "$result" "$folder/network" >/dev/null ||
    { say "command and network document differ: $result $folder/network"; exit 1; }
  rm -r "$folder/network"
}

# length_of DATABASE: samples in a frame of it.
length_of() { "$ZELK_SSS" tfdb info "$1" --json | sed -n 's/.*"frame_length": \([0-9]*\).*/\1/p'; }

# scores ARRAY ESTIMATE ESTIMATE: "SDR SIR" of each talker on a line. The references are what the
# first microphone hears of each talker alone. What is separated sounds as that microphone hears it but
# for a smooth gain (head), or as the array's centre hears it (ring); so the filter of 512 taps that score
# allows between the two is no error.
scores() {
  local folder=$out/$1
  "$ZELK_SSS" score --reference "$folder/mix-source0.wav" "$folder/mix-source1.wav" \
    --estimate "$2" "$3" | awk '$1 ~ /^[0-9]+$/ {print $2, $3}'
}

# table_of ARRAY TITLE METHOD…
table_of() {
  local folder=$out/$1 before after method result
  before=$(scores "$1" "$folder/mix.wav" "$folder/mix.wav")
  echo "$2"
  for method in "${@:3}"; do
    say "$1: $method"
    separate "$1" "$method"
    result=$folder/$(folder_of "$method")
    after=$(scores "$1" "$result/source_0.wav" "$result/source_1.wav")
    paste -d' ' <(echo "$before") <(echo "$after") | awk -v method="$method" '
      {printf "  %-15s  %6d  %7.1f  %7.1f  %7.1f  %7.1f  %+11.1f\n", method, NR, $1, $3, $2, $4, $4 - $2}'
  done
}

# pictures_of ARRAY: where NULL listens; and the mixture at the first microphone, both talkers separated from it,
# and one of them alone, while both talk.
pictures_of() {
  (cd "$out/$1" &&
    "$ZELK_SSS" pattern --tf array.sofa --sources scene.json --method NULL \
      -o "$out/pictures/pattern-$1.svg" --force >>log.txt &&
    "$ZELK_SSS" spectrogram mix.wav NULL/source_0.wav mix-source0.wav NULL/source_1.wav \
      --title "both talkers, at the first microphone" "talker A, separated by NULL" \
      "talker A alone, at that microphone" "talker B, separated by NULL" --channel 1 --range 55 \
      --time 0:3.4 -o "$out/pictures/spectrogram-$1.png" --width 800 --force)
}

arrays=(head ring room measured) # the latter two: the ring in a room, with free-field and with its own responses
for array in "${arrays[@]}" pictures; do mkdir -p "$out/$array"; done
build
for array in "${arrays[@]}"; do
  cp "$repository/examples/two-talkers.json" "$out/$array/scene.json"
  : >"$out/$array/log.txt"
done

# Heard through the responses as they are, separated by those relative to the first microphone.
"$ZELK_SSS" tfdb import "$responses" "$out/head/array.sofa" --rate 16000 --length 512 --force \
  >>"$out/head/log.txt"
"$ZELK_SSS" tfdb import "$responses" "$out/head/heard.sofa" --rate 16000 --length 512 \
  --reference-mic none --force >>"$out/head/log.txt"
"$ZELK_SSS" tfdb geometry "$out/ring/array.sofa" --circular 8 0.05 --distances 1.4 --force \
  --rate 16000 --length 512 >>"$out/ring/log.txt"
cp "$out/ring/array.sofa" "$out/ring/heard.sofa"
cp "$out/ring/array.sofa" "$out/room/array.sofa"
cp "$out/ring/array.sofa" "$out/room/heard.sofa"
tail -qc +45 "${talker_a[@]}" >"$out/talker_a.raw"
tail -qc +45 "${talker_b[@]}" >"$out/talker_b.raw"
# mix ARRAY OPTION…: microphones have noise of their own, which arrays of small size amplify.
mix() {
  "$ZELK_SSS" mix "$out/$1/scene.json" --tf "$out/$1/heard.sofa" --dry "$out"/talker_{a,b}.raw --raw-rate 16000 \
    --gain auto --noise-level -70 -o "$out/$1/mix.wav" --force "${@:2}" 2>>"$out/$1/log.txt" \
    >>"$out/$1/log.txt"
}
mix head
mix ring
mix room "${room[@]}"
# As if measured at every 15 degrees in that room; the same mixture.
cp "$out/room"/mix*.wav "$out/measured"
"$ZELK_SSS" tfdb room "$out/measured/room.sofa" --circular 8 0.05 --distances 1.4 --azimuth-step 15 \
  "${room[@]}" --force >>"$out/measured/log.txt"
"$ZELK_SSS" tfdb import "$out/measured/room.sofa" "$out/measured/array.sofa" --force \
  >>"$out/measured/log.txt"

# The table is printed whole, not between the lines that say what is being done.
{
  echo "                               SI-SDR (dB)       SI-SIR (dB)"
  echo "  method           talker   before    after   before    after  SI-SIR gain"
  table_of head "head with two microphones, measured responses" "${methods[@]}"
  table_of ring "ring of eight microphones, 5 cm radius, computed responses" "${methods[@]}"
  table_of room "the ring in a room (T60 0.4 s), responses computed for free field; MVDR: the room's own" \
    "${room_methods[@]}"
  table_of measured "the ring in that room, the room's own responses, frames of 0.51 s" "${measured_methods[@]}"
  echo "Before: the first microphone. After: the separated talker. Both against that talker alone at"
  echo "the first microphone, with a filter of 512 taps between the two allowed (zelk-sss score)."
} >"$out/table.txt"

pictures_of head
pictures_of ring
"$ZELK_SSS" report "$out"/head/{NULL,GICA} -o "$out/report.html" --force \
  --title "Two talkers before a head with two microphones" >>"$out/head/log.txt"
cat "$out/table.txt"

cat <<LISTEN

Listen to, in $out:
  head/mix.wav                                both talkers at once, as the two ears hear them
  head/NULL/source_0.wav and source_1.wav     the two talkers, separated
  head/mix-source0.wav and mix-source1.wav    for comparison: each talker alone at the ears
and the same in ring/, room/ and measured/. The table is in table.txt. Look at, in pictures/:
  pattern-head.svg and pattern-ring.svg            how loud NULL lets each direction through
  spectrogram-head.png and spectrogram-ring.png    mixture, both talkers separated, one alone
Or hear and see it all in a browser, switching between mixture and talkers while they speak:
  $out/report.html
LISTEN
