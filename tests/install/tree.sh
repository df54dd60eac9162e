#!/usr/bin/env bash
# Installs to one folder, moves that to another and looks at what is there.
#   tree.sh CMAKE BUILD SOURCE PREFIX LIBDIR VERSION
set -euo pipefail
cmake=$1 build=$2 source=$3 prefix=$4 libdir=$5 version=$6
fail() {
  echo "$*"
  exit 1
}

rm -rf "$prefix" "$prefix.first"
"$cmake" --install "$build" --prefix "$prefix.first" >"$prefix.log"
mv "$prefix.first" "$prefix"
cd "$prefix"

# Every file, and no other: nothing of the tests, no private header, nothing in a FlowDesigner's folder.
sed "s|LIBDIR|$libdir|; s|VERSION|$version|; s|MAJOR|${version%%.*}|" "$source/tests/install/files.txt" |
  LC_ALL=C sort | diff - <(find . -not -type d -printf '%P\n' | LC_ALL=C sort) ||
  fail "the installed files differ from tests/install/files.txt"

found=$(grep -rlF -e "$build" -e "$source" -e "$prefix" . || true)
[ -z "$found" ] || fail "paths of this machine stand in: $found"
broken=$(find . -xtype l)
[ -z "$broken" ] || fail "links that lead nowhere: $broken"

# Libraries are found relative to who needs them, or by the system.
while read -r file; do
  dynamic=$(readelf -d "$file" 2>/dev/null) || continue
  for path in $(sed -nE 's/.*(RUNPATH|RPATH).*\[(.*)\]/\2/p' <<<"$dynamic" | tr : ' '); do
    [[ $path == \$ORIGIN* ]] || fail "$file looks for libraries in $path"
  done
  missing=$(ldd "$file" | grep 'not found' || true)
  if [[ $file == *.tlb ]]; then  # to be loaded where the host is
    grep -qE 'RUNPATH|RPATH' <<<"$dynamic" && fail "$file would load without its host"
    missing=$(LD_LIBRARY_PATH=$libdir/zelk-sss ldd "$file" | grep 'not found' || true)
  fi
  [ -z "$missing" ] || fail "$file: $missing"
done < <(find bin "$libdir" -type f)

# One version everywhere.
[ "$(bin/zelk-sss --version)" = "zelk-sss $version" ] || fail "the command has another version"
readelf -d "$libdir/zelk-sss/libzelk-sss.so" | grep -qF "soname: [libzelk-sss.so.${version%%.*}]" ||
  fail "libzelk-sss.so has another SONAME"
for page in share/man/man1/*; do
  head -n 1 "$page" | grep -qE "\"20[0-9-]{8}\" \"zelk..sss $version\"" || fail "$page has another version"
done
