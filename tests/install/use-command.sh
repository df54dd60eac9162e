#!/usr/bin/env bash
# Uses an installed command as a person would: a database from microphone positions, a mixture of two
# noises, separation, scores.
#   use-command.sh COMMAND SCENE    the scene has the sources 0 and 1
set -euo pipefail
command=$1 scene=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

for i in 0 1; do head -c 64000 /dev/urandom >"dry$i.raw"; done
"$command" tfdb geometry array.sofa --circular 4 0.05 --distances 1.4
"$command" tfdb check array.sofa
"$command" mix "$scene" --tf array.sofa --dry dry0.raw dry1.raw --raw-rate 16000 --gain -12 -12 \
  -o mix.wav
"$command" separate mix.wav --tf array.sofa --sources "$scene" --method NULL -o separated
"$command" score --reference mix-source0.wav mix-source1.wav --mixture mix.wav \
  --estimate separated/source_0.wav separated/source_1.wav --filter-taps 256 | tee scores.txt

# A ring of four separates two noises by 35 dB and more where its responses are known exactly.
awk '$1 ~ /^[0-9]+$/ {rows++; if ($3 + 0 < 20) low = 1}
     END {if (rows != 2 || low) {print "expected two sources with an SI-SIR of 20 dB or more"; exit 1}}' \
  scores.txt
