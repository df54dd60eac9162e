#!/usr/bin/env bash
# The documents for programmers against what they describe: the example of docs/embedding.md is the file, and
# docs/flowdesigner.md lists each node type with its terminals and parameters and no others.
#   embedding.sh SOURCE TOOLBOX
set -euo pipefail
cd "$1"
toolbox=$2
failures=0
complain() {
  echo "$*"
  failures=$((failures + 1))
}

diff <(sed -n '/^```cpp$/,/^```$/p' docs/embedding.md | sed '1d;$d') examples/engine.cc ||
  complain "docs/embedding.md: the example is not examples/engine.cc"
document=docs/flowdesigner.md

# names FILE NODE KIND: the Inputs, Outputs or Parameters of a node, as the editor has them.
names() {
  sed -n "/<NodeClass name=\"$2\"/,/<\/NodeClass>/p" "$1" | sed -nE "s/.*<$3 name=\"([A-Z_]+)\".*/\1/p"
}

for file in "$toolbox/zelk-sss.def" "$toolbox/zelk-audio.def"; do
  for node in $(sed -nE 's/.*<NodeClass name="([A-Za-z]+)".*/\1/p' "$file"); do
    row=$(grep -F "| \`$node\` |" "$document") || { complain "$document: no row for $node"; continue; }
    column=2
    for kind in Input Output Parameter; do
      column=$((column + 1))
      diff <(names "$file" "$node" $kind | LC_ALL=C sort) \
        <(cut -d'|' -f$column <<<"$row" | grep -oE '`[A-Z_]+`' | tr -d '`' | LC_ALL=C sort) ||
        complain "$document: $node: the ${kind}s differ from $file"
    done
    # The description of the separation nodes says which parameters are required.
    [ "$file" = "$toolbox/zelk-sss.def" ] || continue
    diff <(sed -n "/<NodeClass name=\"$node\"/,/<\/NodeClass>/p" "$file" |
      sed -nE 's/.*<Parameter name="([A-Z_]+)".* Required\..*/\1/p' | LC_ALL=C sort) \
      <(grep -oE '\*\*`[A-Z_]+`' <<<"$row" | tr -d '*`' | LC_ALL=C sort) ||
      complain "$document: $node: other parameters are required in $file"
  done
done
[ "$failures" -eq 0 ]
