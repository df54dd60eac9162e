#!/usr/bin/env bash
# Installs the Python package for several interpreters, each in an environment of its own under build/pythons/, and
# runs its tests there. Prints one line for each, and fails if one fails.
#   scripts/check-pythons.sh [INTERPRETER …]    by default those of pyenv, 3.9 and newer
# Takes some minutes for each. The command, which some tests run, is that of build/release.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh --build
if [ $# -eq 0 ]; then
  for python in "${PYENV_ROOT:-$HOME/.pyenv}"/versions/3.*/bin/python3; do
    if "$python" -c 'import sys; sys.exit(sys.version_info < (3, 9))'; then set -- "$@" "$python"; fi
  done
fi

# install_and_test PYTHON FOLDER: the tests of the package as pip installs it, not of the build tree.
install_and_test() {
  "$1" -m venv --clear "$2"
  "$2/bin/pip" install -q --upgrade pip
  "$2/bin/pip" install -q --group test
  "$2/bin/pip" install -q .
  PATH=$PWD/build/release/bin:$PATH "$2/bin/python" -m pytest -q -p no:cacheprovider tests/python
}

failed=0
for python in "$@"; do
  version=$("$python" -c 'import platform; print(platform.python_version())')
  folder=build/pythons/$version
  mkdir -p "$folder"
  result=ok
  install_and_test "$python" "$folder/environment" >"$folder/log" 2>&1 || { result="failed, see $folder/log" failed=1; }
  echo "check-pythons.sh: $version: $result; $(tail -1 "$folder/log")"
done
exit "$failed"
