#!/usr/bin/env bash
# The manual pages against the command: every option that a command's --help lists stands in its page
# with its default and its choices, no page has another one, and every method and parameter is there.
#   manual.sh FOLDER COMMAND    FOLDER holds zelk-sss*.1
set -euo pipefail
folder=$1 command=$2
failures=0
complain() {
  echo "$*"
  failures=$((failures + 1))
}

# The page as plain text: an entry's tag on a line that begins with "TAG ", its text below.
plain() {
  sed -E 's/\\-/-/g; s/\\f[A-Z]//g; s/^\.TP$/TP/; s/^\.[A-Z]+ //; s/"//g' "$1" |
    awk 'tag {print "TAG " $0; tag = 0; next} /^TP$/ {tag = 1; next} {print}'
}

# entry PAGE OPTION: the tag and the text of the option's entry.
entry() {
  awk -v option="$2" '/^TAG / {on = 0; n = split($0, w, /[ ,]+/); for (i in w) if (w[i] == option) on = 1}
                      /^\.S[HS]/ {on = 0} on' <<<"$1"
}

# check PAGE COMMAND…: the page's options against those of the commands, each a quoted path.
check() {
  local page help option line value
  page=$(plain "$folder/$1.1")
  shift
  help=$(for path in "$@"; do $command $path --help; done | grep -E '^ +(-[a-z],)?--')
  while read -r line; do
    option=$(grep -oE -- '--[a-z0-9-]+' <<<"$line" | head -n 1)
    if [ -z "$(entry "$page" "$option")" ]; then complain "$1: $option is missing"; fi
    # TEXT:{A,B}=A, INT=512, FLOAT=[0], INT:INT in [1 - 1024]=1
    for value in $(sed -nE "s/^.*$option [A-Z]+:\{([^}]*)\}.*/\1/p" <<<"$line" | tr , ' ') \
      $(sed -nE "s/^.*$option [A-Z]+(:\S+| in \[[^]]*\]|:[A-Z]+ in \[[^]]*\])?=\[?([^] ]+).*/\2/p" <<<"$line"); do
      grep -qwF -e "$value" <<<"$(entry "$page" "$option" | tail -n +2)" ||
        complain "$1: $option does not tell of $value"
    done
  done <<<"$help"
  for option in $(grep '^TAG ' <<<"$page" | grep -oE -- '--[a-z0-9-]+'); do
    grep -qE -- "$option( |\$)" <<<"$help" || complain "$1: has $option, which the command has not"
  done
}

check zelk-sss "" methods arrays
# Every command of the program has a page of its own, but the lists of the methods and the arrays.
for name in $("$command" --help | sed -n '/^Subcommands:/,$p' | awk 'NF > 1 && /^  [a-z]/ {print $1}'); do
  case $name in
    methods | arrays) ;;
    corpus) ;; # the Python package's, which need not be there
    tfdb) check zelk-sss-tfdb tfdb "tfdb import" "tfdb geometry" "tfdb room" "tfdb info" "tfdb check" ;;
    *) check "zelk-sss-$name" "$name" ;;
  esac
done

page=$(plain "$folder/zelk-sss.1")
for name in $("$command" methods | grep -oE '^( *)[A-Z_]+'); do
  grep -qw "$name" <<<"$page" || complain "zelk-sss: $name is missing"
done
while read -r name _ value _; do
  # The default follows the name in its sentence.
  tr '\n' ' ' <<<"$page" | grep -qE "$name \([^)]*default ${value%:}\)" ||
    complain "zelk-sss: $name does not tell of its default ${value%:}"
done < <("$command" methods | grep -E '^ +[A-Z_]+ = ')

if command -v groff >/dev/null; then
  for file in "$folder"/zelk-sss*.1; do
    messages=$(groff -man -ww -z -Tutf8 -K utf8 "$file" 2>&1)
    [ -z "$messages" ] || complain "$messages"
  done
fi
[ "$failures" -eq 0 ]
