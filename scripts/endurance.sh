#!/usr/bin/env bash
# Lets the command separate a long recording of 16 microphones by each method, and watches how much
# memory it holds: what grows with the length of a recording shows here. Prints a Markdown table. The
# recording (4 talkers of noise around a ring, 16 bit) is made in a temporary folder and takes 0.5 MB
# a second there; what is separated takes another quarter.
#   scripts/endurance.sh [SECONDS [METHOD…]]     3600 s and all nine methods by default
#   ADVANCE=256 TMPDIR=/tmp scripts/endurance.sh …    another frame advance (128), another place
set -euo pipefail
repository=$(cd "$(dirname "$0")/.." && pwd)
zelk=${ZELK_SSS:-$repository/build/release/bin/zelk-sss}
seconds=${1:-3600}
shift || true
methods=("$@")
[ ${#methods[@]} -gt 0 ] || methods=(DS WDS NULL ILSE LCMV GJ GICA ML MSNR)
advance=${ADVANCE:-128}
minute=60
if [ "$seconds" -le $minute ] || [ "$seconds" -gt 8000 ]; then
  echo "endurance.sh: SECONDS is $seconds, expected more than $minute and at most 8000" >&2
  exit 2
fi
out=$(mktemp -d "${TMPDIR:-/tmp}/zelk-endurance-XXXXXX")
trap 'rm -rf "$out"' EXIT

"$zelk" tfdb geometry "$out/ring.sofa" --circular 16 0.1 --azimuth-step 5 --rate 16000 \
  --length 512 >/dev/null
# MSNR tells a source from noise by its pauses, so it gets two sources that take turns with both.
cat >"$out/four.json" <<END
{"sources": [{"id": 0, "azimuth": 0}, {"id": 1, "azimuth": 75}, {"id": 2, "azimuth": 160},
             {"id": 3, "azimuth": -110}]}
END
turns() { awk -v from="$1" -v end="$seconds" 'BEGIN {
  for (t = from; t < end; t += 12) printf "%s[%d, %d]", (t > from ? ", " : ""), t, t + 6 }'; }
cat >"$out/two.json" <<END
{"sources": [{"id": 0, "azimuth": 0, "active": [$(turns 0)]},
             {"id": 1, "azimuth": 75, "active": [$(turns 3)]}]}
END

# One minute, mixed by the command, then repeated as 16-bit samples.
for i in 0 1 2 3; do head -c $((minute * 32000)) /dev/urandom >"$out/dry$i.raw"; done
"$zelk" mix "$out/four.json" --tf "$out/ring.sofa" --dry "$out"/dry?.raw --raw-rate 16000 \
  --gain -20 -20 -20 -20 --noise-level -60 -o "$out/minute.wav" 2>/dev/null
perl -e '
  my ($in, $wanted) = @ARGV;
  open(my $file, "<:raw", $in) or die "$in: $!\n";
  my $mix = do { local $/; <$file> };
  my $begin = index($mix, "data") + 8;
  my @samples = map { int($_ * 32767) } unpack("f<*", substr($mix, $begin));
  my $block = pack("s<*", @samples);
  my $bytes = $wanted * 16000 * 32;
  binmode STDOUT;
  print pack("a4Va4a4VvvVVvva4V", "RIFF", 36 + $bytes, "WAVE", "fmt ", 16, 1, 16, 16000,
             16000 * 32, 32, 16, "data", $bytes);
  for (my $left = $bytes; $left > 0; $left -= length $block) {
    print $left < length $block ? substr($block, 0, $left) : $block;
  }' "$out/minute.wav" "$seconds" >"$out/long.wav"
rm "$out"/minute.wav "$out"/minute-source?.wav "$out"/dry?.raw

resident() { awk '/^VmRSS/ {print $2}' "/proc/$1/status" 2>/dev/null || true; }

# Bytes in the largest file of the output folder that a process has open; it has no name yet.
written() {
  local largest=0 size file
  for file in /proc/"$1"/fd/*; do
    [[ "$(readlink "$file")" == "$(realpath "$out")"/separated/* ]] || continue
    size=$(stat -Lc %s "$file" 2>/dev/null || echo 0)
    [ "$size" -gt "$largest" ] && largest=$size
  done
  echo "$largest"
}

# Prints a row: resident size once a minute of sound is written, and the last one seen.
watch() { # METHOD
  local options=(--tf "$out/ring.sofa" --sources "$out/four.json") sources=4 first='' last='' now
  [ "$1" = ML ] && options+=(--noise-recording "$out/minute-microphone-noise.wav")
  [ "$1" = MSNR ] && options=(--sources "$out/two.json") sources=2
  "$zelk" separate "$out/long.wav" --method "$1" "${options[@]}" --advance "$advance" \
    -o "$out/separated" --force >"$out/report.txt" 2>"$out/errors.txt" &
  local process=$!
  while kill -0 $process 2>/dev/null; do
    now=$(resident $process)
    [ -n "$now" ] && last=$now
    [ -z "$first" ] && [ "$(written $process)" -ge $((minute * 32000)) ] && first=$now
    sleep 0.2
  done
  wait $process || { cat "$out/errors.txt" >&2; exit 1; }
  printf '| `%s` | %d | %d | %d | %s | %.1f | %.1f | %+.1f |\n' "$1" $sources "$advance" "$seconds" \
    "$(sed -n 's/.*real-time factor \([0-9.]*\).*/\1/p' "$out/report.txt")" \
    "$(awk "BEGIN {print $first / 1024}")" "$(awk "BEGIN {print $last / 1024}")" \
    "$(awk "BEGIN {print ($last - $first) / 1024}")"
  rm -rf "$out/separated"
}

echo "| method | sources | advance | sound (s) | real-time factor | MB after a minute | MB at the end | growth (MB) |"
echo "|---|---|---|---|---|---|---|---|"
for method in "${methods[@]}"; do watch "$method"; done
