#!/usr/bin/env bash
# One second of sound, separated by the real command under valgrind: reads of memory that was never
# written, writes outside of what was allocated, memory that nobody can free any more. Exit status 0
# without any. Needs what scripts/test.sh has built.
#   scripts/valgrind.sh [METHOD…]     NULL and GICA by default
set -euo pipefail
repository=$(cd "$(dirname "$0")/.." && pwd)
zelk=${ZELK_SSS:-$repository/build/release/bin/zelk-sss}
[ $# -gt 0 ] || set -- NULL GICA
out=$(mktemp -d "${TMPDIR:-/tmp}/zelk-valgrind-XXXXXX")
trap 'rm -rf "$out"' EXIT

cat >"$out/scene.json" <<END
{"sources": [{"id": 0, "azimuth": 30, "active": [[0.4, 0.7], [0.8, 1]]},
             {"id": 1, "azimuth": -60, "active": [[0.3, 1]]}]}
END
"$zelk" tfdb geometry "$out/ring.sofa" --circular 4 0.05 --azimuth-step 30 >/dev/null
for i in 0 1; do head -c 32000 /dev/urandom >"$out/$i.raw"; done
"$zelk" mix "$out/scene.json" --tf "$out/ring.sofa" --dry "$out/0.raw" "$out/1.raw" \
  --raw-rate 16000 --gain -20 -20 -o "$out/mix.wav" 2>/dev/null

for method in "$@"; do
  options=(--tf "$out/ring.sofa")
  [ "$method" = ML ] && options+=(--noise-from 0:0.3)
  [ "$method" = MSNR ] && options=()
  valgrind --quiet --error-exitcode=3 --leak-check=full --errors-for-leak-kinds=definite \
    --show-leak-kinds=definite "$zelk" separate "$out/mix.wav" --sources "$out/scene.json" \
    --method "$method" "${options[@]}" --advance 256 -o "$out/$method" --quiet
  echo "$method: no errors"
done
