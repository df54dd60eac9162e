#!/usr/bin/env bash
# Completion in bash: what is offered at the end of a command line.
#   completion.sh COMPLETION COMMAND
set -euo pipefail
completion=$1 command=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkdir sub
touch array.sofa scene.json mix.wav net.n notes.txt turns.rttm
# shellcheck source=/dev/null
source "$completion"

# offered WORD…: prints what completes the last word, sorted, on one line.
offered() {
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
  "$(complete -p zelk-sss | sed -E 's/.*-F ([^ ]+).*/\1/')" "$command" "${COMP_WORDS[COMP_CWORD]}" ""
  printf '%s\n' ${COMPREPLY[@]+"${COMPREPLY[@]}"} | LC_ALL=C sort | paste -sd' '
}

failures=0
# expect OFFERED WORD…
expect() {
  local expected=$1 found
  shift
  found=$(offered "$@")
  [ "$found" = "$expected" ] && return
  echo "$*<TAB>: found \"$found\", expected \"$expected\""
  failures=$((failures + 1))
}

expect "arrays corpus evaluate live methods mix pattern report run scene score separate spectrogram tfdb" zelk-sss ""
expect "--help --version" zelk-sss -
expect "check geometry import info room" zelk-sss tfdb ""
expect "--noise-channels --noise-forgetting --noise-from --noise-loading --noise-normalize --noise-recording" \
  zelk-sss separate mix.wav --noi

# values of options
expect "DS GICA GJ ILSE LCMV ML MSNR MVDR NULL WDS" zelk-sss separate --method ""
expect "MSNR" zelk-sss separate --method = MS
expect "GJ_LC_METHOD= GJ_LC_MYU=" zelk-sss separate mix.wav --method GJ --param ""
expect "REG_FACTOR=" zelk-sss separate mix.wav --method = ML --param R
expect "" zelk-sss separate mix.wav --param ""
expect "HAMMING HANN" zelk-sss separate mix.wav --window H
expect "false true" zelk-sss separate --noise-normalize ""
expect "" zelk-sss separate --length ""

# files
expect "array.sofa sub" zelk-sss separate mix.wav --tf ""
expect "scene.json sub turns.rttm" zelk-sss separate mix.wav --quiet --sources ""
expect "respeaker-4 respeaker-6 respeaker-usb-4" zelk-sss tfdb geometry db.sofa --array re
expect "sub" zelk-sss separate -o ""
expect "scene.json sub" zelk-sss mix ""
expect "array.sofa sub" zelk-sss tfdb import --force ""
expect "net.n sub" zelk-sss run ""
expect "" zelk-sss mix scene.json --dry mix.wav "" # the shell's own file names
expect "--raw-rate --resample --reverb --room" zelk-sss mix scene.json --dry mix.wav --r

[ "$failures" -eq 0 ]
