#!/usr/bin/env bash
# Makes the Python environment build/python-env-GROUP for building and testing the package zelksss, and prints
# where it is. Quick, and without network, when it is there already.
#   scripts/python-env.sh [GROUP]    of the dependency groups in pyproject.toml: build, test (default), faults, site,
#                                    wheel, bench, cluster
# PYTHON names another interpreter than python3.
set -euo pipefail
cd "$(dirname "$0")/.."
group=${1:-test}
python=$(readlink -f "$(command -v "${PYTHON:-python3}")")
folder=$PWD/build/python-env-$group
wanted="$group $python $(sed -n '/^\[dependency-groups\]/,/^$/p' pyproject.toml | sha256sum)"
if [ "$(cat "$folder/made-for" 2>/dev/null)" != "$wanted" ]; then
  echo "python-env.sh: making $folder for $group" >&2
  rm -rf "$folder"
  "${PYTHON:-python3}" -m venv "$folder"
  "$folder/bin/pip" install -q --disable-pip-version-check --upgrade pip
  "$folder/bin/pip" install -q --disable-pip-version-check --group "$group"
  echo "$wanted" >"$folder/made-for"
fi
echo "$folder"
