#!/usr/bin/env bash
# Runs what the documents show: every block of shell commands, in order, each document in a fresh copy of
# the repository with the built command on the PATH. Also checks that links lead to files, that blocks
# said to be a file are that file, and that every block names its language.
#   scripts/check-docs.sh [--links] [DOCUMENT …]    default: all; needs the release build, but for --links,
#                                                   which looks at nothing but links
#
# Comments in a document, on a line of their own, speak to this script:
#   <!-- not run: WHY -->      the next block needs the network, root, another host or long
#   <!-- run: COMMANDS -->     what a reader has done already, such as recording a file; may span lines
#   <!-- file: PATH -->        the next block is this file of the repository, whole
set -euo pipefail
cd "$(dirname "$0")/.."
repository=$PWD
links_only=
if [ "${1:-}" = --links ]; then links_only=1; shift; fi
build=${ZELK_BUILD:-$repository/build/release}
[ $# -gt 0 ] || set -- README.md CONTRIBUTING.md docs/*.md
[ -n "$links_only" ] || [ -x "$build/bin/zelk-sss" ] || { echo "check-docs.sh: $build/bin/zelk-sss is not built" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
shopt -s nullglob  # a document may have no blocks
complain() { echo "$1" >&2; failures=$((failures + 1)); }

# blocks_of DOCUMENT FOLDER: writes each block to FOLDER/<line>.<what>, <what> being the language of the
# fence, "run" or "skipped", or ".file" with the path in the first line. Lines stand where they stand in
# the document, so that bash's line numbers are the document's.
blocks_of() {
  awk -v folder="$2" '
    function open_block(what) {
      target = sprintf("%s/%05d.%s", folder, NR, what)
      if (what == "file") print file > target
      else for (i = 1; i < NR; ++i) print "" > target
    }
    fence {
      if ($0 ~ /^ *```$/) { fence = 0; close(target); next }
      sub("^" indent, "")
      print > target
      next
    }
    hidden {
      hidden = !/-->/
      sub(/-->.*/, "")
      print > target
      if (!hidden) close(target)
      next
    }
    /^ *<!-- not run: .*-->$/ { skip = 1; next }
    /^ *<!-- file: .*-->$/ { file = $3; next }
    /^ *<!-- run:/ {
      open_block("run")
      hidden = !/-->/
      sub(/^ *<!-- run: */, ""); sub(/-->.*/, "")
      print > target
      if (!hidden) close(target)
      next
    }
    /^ *```/ {
      fence = 1
      indent = $0; sub(/```.*/, "", indent)
      language = $0; sub(/^ *```/, "", language)
      open_block(skip ? "skipped" : file ? "file" : language ? language : "none")
      print "" > target
      skip = 0; file = ""
    }' "$1"
}

# run_block DOCUMENT SCRIPT
run_block() {
  # shellcheck disable=SC2016  # the block's shell expands this
  local shell='trap "echo \"$1:\$LINENO: failed: \$BASH_COMMAND\" >&2" ERR; source "$2"'
  bash -Eeuo pipefail -c "$shell" - "$1" "$2" >"$work/log" 2>&1 && return
  cat "$work/log" >&2
  complain "$1: a command of the block at line $((10#$(basename "$2" | cut -d. -f1))) failed"
}

# anchors_of DOCUMENT: what links to its headings are called.
anchors_of() {
  awk '/^ *```/ { fence = !fence } !fence && /^#+ /' "$1" |
    sed -E 's/^#+ +//; s/[^[:alnum:] _-]//g; s/ /-/g' | tr '[:upper:]' '[:lower:]'
}

check_links() { # DOCUMENT
  local target file
  while read -r target; do
    case "$target" in *://* | '') continue ;; esac
    file=$(dirname "$1")/${target%%#*}
    case "$target" in '#'*) file=$1 ;; esac
    [ -e "$file" ] || { complain "$1: there is no file for the link $target"; continue; }
    case "$target" in
      *#*) anchors_of "$file" | grep -qxF -- "${target#*#}" || complain "$1: there is no heading for the link $target" ;;
    esac
  done < <(grep -oE '\]\([^) ]+\)' "$1" | sed 's/^](//; s/)$//')
  while read -r target; do
    [ -e "$target" ] || complain "$1: there is no file $target"
  done < <(grep -oE '`(docs|scripts|examples|nodes|toolbox|cmake)/[A-Za-z0-9_/.-]+`' "$1" | tr -d '`')
}

if [ -n "$links_only" ]; then
  for document in "$@"; do check_links "$document"; done
  [ "$failures" -eq 0 ] || { echo "check-docs.sh: $failures faults" >&2; exit 1; }
  echo "check-docs.sh: links of $# documents"
  exit
fi
export PATH="$build/bin:$PATH"
git clone --quiet "$repository" "$work/clean" 2>/dev/null
git ls-files -z --modified --others --exclude-standard | xargs -0r cp --parents -t "$work/clean"
run=0
for document in "$@"; do
  check_links "$document"
  blocks=$work/blocks/${document//\//-}
  mkdir -p "$blocks"
  blocks_of "$document" "$blocks"
  cp -r "$work/clean" "$work/copy"
  cd "$work/copy"
  for block in "$blocks"/*; do
    line=$((10#$(basename "$block" | cut -d. -f1)))
    case "$block" in
      *.sh | *.bash | *.run) run_block "$document" "$block"; run=$((run + 1)) ;;
      *.console) sed -i 's/^[^$].*//; s/^\$ //' "$block"; run_block "$document" "$block"; run=$((run + 1)) ;;
      *.file)
        diff <(tail -n +3 "$block") "$(head -n 1 "$block")" >&2 ||
          complain "$document:$line: the block is not the file $(head -n 1 "$block")" ;;
      *.none) complain "$document:$line: the block names no language (sh, text, …)" ;;
    esac
  done
  cd "$repository"
  rm -rf "$work/copy"
done
[ "$failures" -eq 0 ] || { echo "check-docs.sh: $failures faults" >&2; exit 1; }
echo "check-docs.sh: $# documents, $run blocks run"
