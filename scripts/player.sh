#!/usr/bin/env bash
# The player library of the report page, report/player/: the bundle that its makers publish, and its
# licence, as npm installs them by the versions and checksums of package-lock.json. They are kept in the
# tree, so that a build needs neither npm nor a network.
#   scripts/player.sh            renews the two files, after a change of package.json or package-lock.json
#   scripts/player.sh --check    says whether they are what npm installs; 77 without npm or its registry
set -euo pipefail
cd "$(dirname "$0")/../report/player"
command -v npm >/dev/null || { echo "player.sh: npm is missing (apt install npm)" >&2; exit 77; }
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cp package.json package-lock.json "$folder"
(cd "$folder" && npm ci --ignore-scripts --no-audit --no-fund >/dev/null) ||
  { echo "player.sh: npm cannot install the library" >&2; exit 77; }
package=$folder/node_modules/wavesurfer.js
for file in "$package/dist/wavesurfer.min.js" "$package/LICENSE"; do
  if [ "${1:-}" != --check ]; then
    cp "$file" .
  elif ! cmp "$file" "$(basename "$file")"; then
    echo "player.sh: report/player/$(basename "$file") is not what npm installs" >&2
    exit 1
  fi
done
