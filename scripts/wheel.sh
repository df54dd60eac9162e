#!/usr/bin/env bash
# Builds a wheel of the Python package zelksss that carries its libraries, and prints where it is.
#   scripts/wheel.sh [FOLDER]    by default build/wheels
# PYTHON names another interpreter than python3; the wheel is for its version.
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(realpath -m "${1:-build/wheels}")
bash scripts/deps.sh --build
environment=$(bash scripts/python-env.sh wheel)
rm -rf "$folder/plain"
"$environment/bin/pip" wheel -q --disable-pip-version-check --no-deps --no-build-isolation -w "$folder/plain" . >&2
PATH=$environment/bin:$PATH "$environment/bin/auditwheel" repair -w "$folder" "$folder"/plain/zelksss-*.whl >&2
ls "$folder"/zelksss-*.whl
