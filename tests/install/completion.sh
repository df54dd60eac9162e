#!/usr/bin/env bash
# Completion in a shell that is run: what is offered at the end of a command line.
#   completion.sh bash|zsh|fish COMPLETION COMMAND
# Ends with 77, which stands for a test that was left out, where there is no such shell.
set -euo pipefail
shell=$1 completion=$2 command=$3
command -v "$shell" >/dev/null || { echo "left out: there is no $shell (scripts/deps.sh --shells)"; exit 77; }
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir -p "$folder/files/sub" "$folder/home"
cd "$folder/files"
touch array.sofa scene.json mix.wav net.n notes.txt turns.rttm
PATH=$(dirname "$command"):$PATH
export HOME=$folder/home XDG_CONFIG_HOME=$folder/home XDG_DATA_HOME=$folder/home TERM=xterm

# offered_SHELL LINE: prints what completes the last word of a line, one on a line.
offered_bash() {
  local words
  read -ra words <<<"${1//=/ = }"
  [[ $1 == *" " ]] && words+=("")
  COMP_WORDS=("${words[@]}") COMP_CWORD=$((${#words[@]} - 1))
  "$(complete -p zelk-sss | sed -E 's/.*-F ([^ ]+).*/\1/')" "$command" "${words[-1]}" ""
  printf '%s\n' ${COMPREPLY[@]+"${COMPREPLY[@]}"}
}
offered_fish() {
  fish --no-config -c 'source $argv[1]; complete -C $argv[2]' "$completion" "$1" | sed -E 's/\t.*//; s/^--[a-z-]+=//'
}
# A shell at a pseudo-terminal, where a key has all offers inserted and the line written to a file.
offered_zsh() {
  rm -f "$folder/line"
  zsh -f -c '
    zmodload zsh/zpty
    zpty inner zsh -f -i
    zpty -w inner "source $1"
    zpty -r inner seen "*ready*" && zpty -n -w inner "$2"$'"'\\x14'"'
    for ((i = 0; i < 3000; ++i)); do
      [[ -e $3 ]] && break
      zpty -rt inner seen
      sleep 0.02
    done
    zpty -d inner' - "$folder/inner.zsh" "$1" "$folder/line"
  local last=${1##* }
  case $last in *=*) last=${last#*=} ;; esac
  cut -c $((${#1} - ${#last} + 1))- "$folder/line" | tr ' ' '\n'
}
cat >"$folder/inner.zsh" <<END
fpath=($(printf %q "$(dirname "$completion")") \$fpath)
autoload -Uz compinit && compinit -u -d "$folder/dump"
show() {
  _main_complete
  compstate[insert]=all
}
zle -C show complete-word show
write() {
  zle show
  print -r -- "\$BUFFER" >"$folder/part"
  mv "$folder/part" "$folder/line"
}
zle -N write
bindkey '^T' write
print rea''dy
END

# What any file is: bash offers it by itself where its completion has nothing.
any="array.sofa mix.wav net.n notes.txt scene.json sub turns.rttm"
# shellcheck source=/dev/null
if [ "$shell" = bash ]; then source "$completion"; any=""; fi

failures=0
# expect OFFERED LINE
expect() {
  local found
  found=$("offered_$shell" "$2" | sed 's|/$||; /^$/d' | LC_ALL=C sort | paste -sd' ')
  [ "$found" = "$1" ] && return
  echo "$2<TAB>: found \"$found\", expected \"$1\""
  failures=$((failures + 1))
}

expect "arrays corpus evaluate live methods mix pattern report run scene score separate spectrogram tfdb" "zelk-sss "
expect "--help --version" "zelk-sss -"
expect "check geometry import info room" "zelk-sss tfdb "
expect "--noise-channels --noise-forgetting --noise-from --noise-loading --noise-normalize --noise-recording" \
  "zelk-sss separate mix.wav --noi"

# values of options
expect "DS GICA GJ ILSE LCMV ML MSNR MVDR NULL WDS" "zelk-sss separate --method "
expect "MSNR" "zelk-sss separate --method=MS"
expect "GJ_LC_METHOD= GJ_LC_MYU=" "zelk-sss separate mix.wav --method GJ --param "
expect "REG_FACTOR=" "zelk-sss separate mix.wav --method=ML --param R"
expect "" "zelk-sss separate mix.wav --param "
expect "HAMMING HANN" "zelk-sss separate mix.wav --window H"
expect "false true" "zelk-sss separate --noise-normalize "
expect "" "zelk-sss separate --length "

# files
expect "array.sofa sub" "zelk-sss separate mix.wav --tf "
expect "scene.json sub turns.rttm" "zelk-sss separate mix.wav --quiet --sources "
expect "respeaker-4 respeaker-6 respeaker-usb-4" "zelk-sss tfdb geometry db.sofa --array re"
expect "sub" "zelk-sss separate -o "
expect "scene.json sub" "zelk-sss mix "
expect "array.sofa sub" "zelk-sss tfdb import --force "
expect "net.n sub" "zelk-sss run "
expect "mix score separate" "zelk-sss corpus "
expect "$any" "zelk-sss mix scene.json --dry mix.wav "
expect "--raw-rate --resample --reverb --room" "zelk-sss mix scene.json --dry mix.wav --r"

[ "$failures" -eq 0 ]
