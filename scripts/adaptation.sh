#!/usr/bin/env bash
# How the adaptive methods learn: SI-SIR in every half second of two mixtures of two voices, one in
# free field and one with reverberation, as the gain over weighted delay-and-sum, which is where all
# three start. The step settings are the command's defaults (ADAPTIVE) and fixed steps of a stated
# size. Prints one table per mixture, mean of both talkers in dB.
#   scripts/adaptation.sh [FOLDER]     needs what scripts/demo.sh has built; default out/adaptation
set -euo pipefail
repository=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${1:-$repository/out/adaptation}")
zelk=${ZELK_SSS:-$repository/build/release/bin/zelk-sss}
responses=/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa
speech=/usr/share/pocketsphinx/test/data
scene=$repository/examples/two-talkers.json
mkdir -p "$out"
# Heard through the responses as they are, separated by those relative to the first microphone.
import=("$zelk" tfdb import "$responses" --rate 16000 --length 512 --force)
"${import[@]}" "$out/head.sofa" >/dev/null
"${import[@]}" "$out/heard.sofa" --reference-mic none >/dev/null

# name | method | --param settings
settings=(
  "LCMV ADAPTIVE|LCMV|"
  "LCMV FIX|LCMV|LCMV_LC_METHOD=FIX LCMV_LC_MYU=${LCMV_FIX:-0.01}"
  "GJ ADAPTIVE|GJ|"
  "GJ FIX|GJ|GJ_LC_METHOD=FIX GJ_LC_MYU=${GJ_FIX:-0.01}"
  "GICA ADAPTIVE|GICA|"
  "GICA FIX|GICA|GICA_SS_METHOD=FIX GICA_SS_MYU=${GICA_FIX:-0.003} GICA_LC_METHOD=FIX GICA_LC_MYU=0.01"
)
times=(0 0.5 1 1.5 2 2.5 3 3.5 4 4.5 5)

separate() { # FOLDER METHOD SETTINGS
  local parameters=()
  for setting in $3; do parameters+=(--param "$setting"); done
  "$zelk" separate "$out/$mixture.wav" --tf "$out/head.sofa" --sources "$scene" --method "$2" \
    "${parameters[@]}" -o "$1" --format FLOAT --force --quiet
}

sir() { # FOLDER BEGIN
  "$zelk" score --reference "$out/$mixture-source0.wav" "$out/$mixture-source1.wav" \
    --estimate "$1/source_0.wav" "$1/source_1.wav" \
    --range "$2:$(awk "BEGIN {print $2 + 0.5}")" | awk '$1 == "mean" {print $3}'
}

for mixture in direct reverberant; do
  room=()
  [ "$mixture" = reverberant ] && room=(--reverb 0.3 --direct-to-reverberant 6)
  "$zelk" mix "$scene" --tf "$out/heard.sofa" --dry \
    "$speech/librivox/sense_and_sensibility_01_austen_64kb-0870.wav" \
    "$speech/librivox/sense_and_sensibility_01_austen_64kb-0920.wav" \
    --gain -6 -6 --noise-level -70 "${room[@]}" -o "$out/$mixture.wav" --force 2>/dev/null
  separate "$out/$mixture-WDS" WDS ""
  echo "$mixture"
  printf '  %-14s' "from (s)"; printf ' %6s' "${times[@]}"; echo
  declare -A start
  for time in "${times[@]}"; do start[$time]=$(sir "$out/$mixture-WDS" "$time"); done
  printf '  %-14s' "WDS, SI-SIR"; for time in "${times[@]}"; do printf ' %6.1f' "${start[$time]}"; done; echo
  for setting in "${settings[@]}"; do
    IFS='|' read -r name method parameters <<<"$setting"
    separate "$out/$mixture-set" "$method" "$parameters"
    printf '  %-14s' "$name"
    for time in "${times[@]}"; do
      awk -v a="$(sir "$out/$mixture-set" "$time")" -v b="${start[$time]}" 'BEGIN {printf " %+6.1f", a - b}'
    done
    echo
  done
done
