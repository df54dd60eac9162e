#!/usr/bin/env bash
# All nine methods against noise: one talker before a head with two microphones (measured responses,
# real speech), first in strong diffuse noise, then beside another voice that is there all the time.
# The noise is alone for the first 1.5 s. Prints one table: SI-SDR and SI-SIR in dB, the noise's image
# at the microphone taken as the interference.
#   scripts/noise.sh [FOLDER]     needs what scripts/demo.sh has built; default out/noise
set -euo pipefail
repository=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${1:-$repository/out/noise}")
zelk=${ZELK_SSS:-$repository/build/release/bin/zelk-sss}
speech=/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb
mkdir -p "$out"
# Heard through the responses as they are, separated by those relative to the first microphone.
import=("$zelk" tfdb import /usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa --rate 16000 --length 512 --force)
"${import[@]}" "$out/head.sofa" >/dev/null
"${import[@]}" "$out/heard.sofa" --reference-mic none >/dev/null
talker='{"id": 0, "azimuth": 30, "distance": 1.4, "active": [[1.5, 8]]}'
other='{"id": 1, "azimuth": -45, "distance": 1.4}'
echo "{\"sources\": [$talker]}" >"$out/diffuse.json"
echo "{\"sources\": [$talker], \"noise\": [$other]}" >"$out/directional.json"
"$zelk" mix "$out/diffuse.json" --tf "$out/heard.sofa" --dry "$speech-0870.wav" --gain -6 \
  --diffuse-level -33 --noise-level -80 -o "$out/diffuse.wav" --force 2>/dev/null
"$zelk" mix "$out/directional.json" --tf "$out/heard.sofa" --dry "$speech-0870.wav" \
  "$speech-0920.wav" --gain -6 -6 --noise-level -70 -o "$out/directional.wav" --force 2>/dev/null

score() { # SCENE NOISE-IMAGE ESTIMATE
  "$zelk" score --reference "$out/$1-source0.wav" "$out/$1-$2.wav" --estimate "$3" "$3" \
    --range 1.5:7 | awk '$1 == 1 {printf "%7.1f %7.1f", $2, $3}'
}

for scene in diffuse directional; do
  noise=diffuse-noise
  [ "$scene" = directional ] && noise=noise1
  printf '%s\n  %-7s %7s %7s\n' "$scene" method SI-SDR SI-SIR
  printf '  %-7s %s\n' none "$(score $scene $noise "$out/$scene.wav")"
  for method in DS WDS NULL ILSE LCMV GJ GICA ML MSNR; do
    setting=()
    [ "$method" = ML ] && setting=(--noise-from 0:1.4)
    [ "$method" != MSNR ] && setting+=(--tf "$out/head.sofa")
    "$zelk" separate "$out/$scene.wav" --sources "$out/$scene.json" --method "$method" \
      "${setting[@]}" -o "$out/$scene-$method" --format FLOAT --force --quiet
    printf '  %-7s %s\n' "$method" "$(score $scene $noise "$out/$scene-$method/source_0.wav")"
  done
done
