#!/usr/bin/env bash
# Makes the pictures of the documentation, docs/pictures/, anew: they are the demonstration's.
set -euo pipefail
cd "$(dirname "$0")/.."
out=$(mktemp -d)
trap 'rm -r "$out"' EXIT
bash scripts/demo.sh "$out"
mkdir -p docs/pictures
cp "$out/pictures/pattern-head.svg" docs/pictures/pattern.svg
cp "$out/pictures/spectrogram-head.png" docs/pictures/spectrogram.png
command=$(realpath "${ZELK_SSS:-build/release/bin/zelk-sss}")
(cd "$out/head" && "$command" pattern --tf array.sofa --sources scene.json --method NULL --map --width 800 -o map.svg)
cp "$out/head/map.svg" docs/pictures/map.svg
ls -l docs/pictures
