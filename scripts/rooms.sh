#!/usr/bin/env bash
# Separation in simulated rooms with the rooms' own responses: how the length of the frame and
# responses relative to a microphone matter. Two talkers 1.4 m from the array, three pairs of
# directions, in a room of 6 × 4.5 × 2.8 m of several T60; two microphones 15 cm apart, or a ring of
# 5 cm radius. Prints a line for every T60, array, method and length: SIR and SDR in dB (512 filter
# taps, images at microphone 1), the median over the six talkers and the worst, with absolute and with
# relative responses.
#   scripts/rooms.sh [FOLDER]     needs what scripts/demo.sh has built; default out/rooms; a few minutes
# The variables T60, MICROPHONES, METHODS and LENGTHS choose some of the table.
set -euo pipefail
repository=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${1:-$repository/out/rooms}")
zelk=${ZELK_SSS:-$repository/build/release/bin/zelk-sss}
speech=/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb
pairs=("30 -60" "0 60" "-90 -30")
mkdir -p "$out"

# render T60 MICROPHONES FOLDER: the room's responses and a mixture for each pair.
render() {
  local room=(--room 6,4.5,2.8 --t60 "$1") array=(--circular "$2" 0.05) i
  [ "$2" = 2 ] && array=(--linear 2 0.15)
  mkdir -p "$3"
  "$zelk" tfdb room "$3/room.sofa" "${room[@]}" "${array[@]}" --azimuth-step 30 --distances 1.4 \
    --force >/dev/null
  "$zelk" tfdb geometry "$3/array.sofa" "${array[@]}" --distances 1.4 --force >/dev/null
  for i in "${!pairs[@]}"; do
    read -r one other <<<"${pairs[i]}"
    echo "{\"sources\": [{\"id\": 0, \"azimuth\": $one, \"distance\": 1.4},
                         {\"id\": 1, \"azimuth\": $other, \"distance\": 1.4}]}" >"$3/scene$i.json"
    "$zelk" mix "$3/scene$i.json" --tf "$3/array.sofa" "${room[@]}" --dry "$speech-0870.wav" \
      "$speech-0920.wav" --gain -6 -6 --noise-level -80 -o "$3/mix$i.wav" --force 2>/dev/null
  done
}

# scores FOLDER DATABASE METHOD: "SIR SDR" of every talker of every pair.
scores() {
  local i
  for i in "${!pairs[@]}"; do
    "$zelk" separate "$1/mix$i.wav" --tf "$2" --sources "$1/scene$i.json" --method "$3" \
      -o "$1/separated" --format FLOAT --force --quiet 2>/dev/null
    "$zelk" score --reference "$1/mix$i-source0.wav" "$1/mix$i-source1.wav" --filter-taps 512 \
      --estimate "$1/separated/source_0.wav" "$1/separated/source_1.wav" |
      awk '$1 ~ /^[0-9]+$/ {print $3, $2}'
  done
}

# Median and least value of a column of numbers.
summary() {
  sort -g | awk '{x[NR] = $1} END {printf "%6.1f %6.1f", (x[int((NR + 1) / 2)] + x[int(NR / 2) + 1]) / 2, x[1]}'
}

printf '%32s %27s   %27s\n' "" "absolute" "relative"
printf '%4s  %4s  %-6s  %6s   %13s %13s   %13s %13s\n' T60 mics method length SIR SDR SIR SDR
for t60 in ${T60:-0.2 0.4 0.7}; do
  for microphones in ${MICROPHONES:-2 4 8}; do
    folder=$out/$t60-$microphones
    render "$t60" "$microphones" "$folder"
    for length in ${LENGTHS:-512 1024 2048 4096}; do
      for reference in none 1; do
        "$zelk" tfdb import "$folder/room.sofa" "$folder/$reference.sofa" --length "$length" \
          --reference-mic "$reference" --force >/dev/null 2>&1
      done
      for method in ${METHODS:-NULL LCMV GICA}; do
        printf '%4s  %4s  %-6s  %6s ' "$t60" "$microphones" "$method" "$length"
        for reference in none 1; do
          scores "$folder" "$folder/$reference.sofa" "$method" >"$folder/scores.txt"
          printf '  %s %s' "$(cut -d' ' -f1 "$folder/scores.txt" | summary)" \
            "$(cut -d' ' -f2 "$folder/scores.txt" | summary)"
        done
        echo
      done
    done
  done
done
