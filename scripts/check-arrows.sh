#!/usr/bin/env bash
# Fails when a file includes one of a folder that stands below its own in the table of
# docs/architecture.md, so that no circle can arise.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t folders < <(sed -nE 's/^\| `([a-z]+)\/` \|.*/\1/p' docs/architecture.md)
[ "${#folders[@]}" -gt 5 ] || { echo "check-arrows.sh: docs/architecture.md has no table of folders" >&2; exit 1; }
# The host's headers are included by their names alone.
ls host host/family | grep '\.h$' | sed 's/^/host /' |
  cat - <(git ls-files "${folders[@]/%//*.h}" "${folders[@]/%//*.cc}" | xargs grep -HE '^#include "') |
  awk -v order="${folders[*]}" '
    BEGIN { count = split(order, names, " "); for (i = 1; i <= count; ++i) place[names[i]] = i }
    /^host / { ofHost[$2] = 1; next }
    {
      split($0, text, "\"")
      from = $0; sub("/.*", "", from)
      to = text[2]; if (!sub("/.*", "", to)) to = ofHost[text[2]] ? "host" : from
      if (to in place && place[to] > place[from]) { print "check-arrows.sh: arrow up: " $0; up = 1 }
    }
    END { if (!up) print "check-arrows.sh: " count " folders, no arrow up"; exit up }'
