#!/usr/bin/env bash
# Lets the command separate a long stream of eight microphones (16 kHz, 16 bit, without header) from a pipe
# into a pipe, and watches how much memory it holds once a minute of sound came out and at the end: what grows
# with a stream shows here. Fails when memory grew by more than 1 MB, or the output has another length.
#   scripts/endurance-stream.sh [SECONDS [METHOD]]     3600 s of sound and NULL by default
set -euo pipefail
repository=$(cd "$(dirname "$0")/.." && pwd)
zelk=${ZELK_SSS:-$repository/build/release/bin/zelk-sss}
seconds=${1:-3600}
method=${2:-NULL}
out=$(mktemp -d "${TMPDIR:-/tmp}/zelk-endurance-XXXXXX")
trap 'rm -rf "$out"' EXIT

"$zelk" tfdb geometry "$out/ring.sofa" --circular 8 0.05 --azimuth-step 5 --rate 16000 --length 512 \
  >/dev/null
cat >"$out/scene.json" <<END
{"sources": [{"id": 0, "azimuth": 30}, {"id": 1, "azimuth": -60, "active": [[0.5, 1e9]]}]}
END
head -c $((60 * 16000 * 16)) /dev/urandom >"$out/minute.raw"
mkfifo "$out/in" "$out/separated"

# That minute again and again, into the command; a count of bytes, as they come, out of it.
perl -e '
  open(my $file, "<:raw", $ARGV[0]) or die "$ARGV[0]: $!\n";
  my $minute = do { local $/; <$file> };
  binmode STDOUT;
  for (my $left = $ARGV[1] * 256000; $left > 0; $left -= length $minute) {
    print $left < length $minute ? substr($minute, 0, $left) : $minute;
  }' "$out/minute.raw" "$seconds" >"$out/in" &
"$zelk" separate - --raw S16_LE,8,16000 --tf "$out/ring.sofa" --sources "$out/scene.json" \
  --method "$method" --raw-output S16_LE -o - --quiet <"$out/in" >"$out/separated" &
process=$!
perl -e '
  my ($bytes, $minute) = (0, 60 * 64000);
  $| = 1;
  while (my $got = sysread(STDIN, my $block, 65536)) {
    print "minute\n" if $bytes < $minute && $bytes + $got >= $minute;
    $bytes += $got;
  }
  print "$bytes\n";' <"$out/separated" >"$out/count" &
counter=$!

first='' last=''
while kill -0 $process 2>/dev/null; do
  now=$(awk '/^VmRSS/ {print $2}' "/proc/$process/status" 2>/dev/null || true)
  [ -n "$now" ] && last=$now
  [ -z "$first" ] && grep -q minute "$out/count" && first=$now
  sleep 0.2
done
wait $process
wait $counter
written=$(tail -n 1 "$out/count")
echo "$method: $seconds s of 8 microphones through a pipe: ${first:-$last} kB after a minute, $last kB at the end," \
  "$written bytes written"
[ "$written" -eq $((seconds * 64000)) ] || { echo "expected $((seconds * 64000)) bytes" >&2; exit 1; }
[ $((last - ${first:-$last})) -le 1024 ] || { echo "memory grew" >&2; exit 1; }
