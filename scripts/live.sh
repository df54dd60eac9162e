#!/usr/bin/env bash
# Lets the command separate live sound of 8 microphones from a JACK server without hardware, in periods of
# 10 ms, and watches how much memory it holds and whether it is late. Prints a row of a Markdown table per
# method. A metronome is what the microphones hear. Needs jackd (Debian: jackd2).
#   scripts/live.sh [MINUTES [METHOD…]]    60 minutes and NULL by default
#   REALTIME=1 scripts/live.sh …           with real-time scheduling, for which one needs the right
set -euo pipefail
repository=$(cd "$(dirname "$0")/.." && pwd)
zelk=${ZELK_SSS:-$repository/build/release/bin/zelk-sss}
minutes=${1:-60}
shift || true
methods=("$@")
[ ${#methods[@]} -gt 0 ] || methods=(NULL)
[[ $minutes =~ ^[1-9][0-9]*$ ]] || { echo "live.sh: MINUTES is $minutes, expected 1 or more" >&2; exit 2; }
for tool in jackd jack_metro jack_connect; do
  command -v $tool >/dev/null || { echo "live.sh: there is no $tool (Debian: jackd2)" >&2; exit 1; }
done

out=$(mktemp -d "${TMPDIR:-/tmp}/zelk-live-XXXXXX")
export JACK_NO_AUDIO_RESERVATION=1 JACK_DEFAULT_SERVER=zelk-live-$$
processes=()
clean() {
  for process in "${processes[@]}"; do kill "$process" 2>/dev/null || true; done
  wait
  rm -rf "$out"
}
trap clean EXIT

"$zelk" tfdb geometry "$out/ring.sofa" --circular 8 0.05 --azimuth-step 5 --rate 16000 --length 512 \
  >/dev/null
echo '{"sources": [{"id": 0, "azimuth": 0}, {"id": 1, "azimuth": 75}]}' >"$out/scene.json"
scheduling=-r
[ -z "${REALTIME:-}" ] || scheduling=-R
jackd $scheduling -n "$JACK_DEFAULT_SERVER" -d dummy -r 16000 -p 160 -C 8 -P 2 >"$out/jackd.txt" 2>&1 &
processes+=($!)
sleep 2
jack_metro -b 120 >/dev/null 2>&1 &
processes+=($!)

# On a busy machine a client may take long to appear.
await_port() {
  local tries
  for tries in $(seq 150); do
    jack_lsp 2>/dev/null | grep -q "^$1" && return
    sleep 0.2
  done
  echo "live.sh: no port $1 appeared within half a minute" >&2
  cat "$out"/*.txt >&2
  exit 1
}

resident() { awk '/^VmRSS/ {printf "%.1f", $2 / 1024}' "/proc/$1/status"; }
cpu_seconds() { awk -v ticks="$(getconf CLK_TCK)" '{print ($14 + $15) / ticks}' "/proc/$1/stat"; }
report() { sed -nE "s/.*of sound;.*$1.*/\1/p" "$out/report.txt"; }

echo "| method | minutes | late | silent samples | xruns of the server | load of a core | MB after half a minute | MB at the end |"
echo "|---|---|---|---|---|---|---|---|"
for method in "${methods[@]}"; do
  "$zelk" live --tf "$out/ring.sofa" --sources "$out/scene.json" --method "$method" --from none \
    --margin "${MARGIN:-1}" >"$out/report.txt" 2>"$out/errors.txt" &
  live=$!
  processes+=($live)
  await_port zelk-sss:mic_8
  await_port metro
  for i in 1 2 3 4 5 6 7 8; do jack_connect "$(jack_lsp metro | head -n 1)" "zelk-sss:mic_$i"; done
  sleep 28
  first=$(resident $live)
  sleep $((minutes * 60 - 30))
  kill -0 $live 2>/dev/null || { cat "$out/errors.txt" >&2; exit 1; }
  last=$(resident $live)
  load=$(awk "BEGIN {printf \"%.1f %%\", 100 * $(cpu_seconds $live) / ($minutes * 60)}")
  kill -TERM $live # SIGINT is ignored by what a script runs in the background
  wait $live || { cat "$out/errors.txt" >&2; exit 1; }
  echo "| \`$method\` | $minutes | $(report 'separation was late ([0-9]+) times') |" \
    "$(report '\(([0-9]+) samples silent') | $(report 'the server ([0-9]+) times') | $load | $first | $last |"
done
