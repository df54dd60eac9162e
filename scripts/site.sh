#!/usr/bin/env bash
# Makes a site of the documents, the notebooks and the API reference: build/site/html/index.html. A link to a page,
# a heading or a picture that is not there is an error. Needs PyPI for the first time.
#   scripts/site.sh
set -euo pipefail
cd "$(dirname "$0")/.."
environment=$(bash scripts/python-env.sh site)
bash scripts/api-docs.sh >/dev/null
site=$PWD/build/site
rm -rf "$site"
mkdir -p "$site"/{source,extra}
cp -r build/api/html "$site/extra/api"
cp -r docs/pictures python/notebooks "$site/source"
cp docs/site/conf.py "$site/source"

# page DOCUMENT NAME: what speaks to scripts/check-docs.sh is left out, and documents that are named as files
# become links by their titles, outside blocks of code.
page() {
  awk '
    !fence && /^ *<!--/ { hidden = 1 }
    hidden { if (/-->/) hidden = 0; next }
    /^ *```/ { fence = !fence }
    !fence {
      while (match($0, /`(docs\/)?[A-Za-z]+\.md`/)) {
        file = substr($0, RSTART + 1, RLENGTH - 2)
        sub(/^docs\//, "", file)
        if (file == "README.md") file = "index.md"
        $0 = substr($0, 1, RSTART - 1) "[](" file ")" substr($0, RSTART + RLENGTH)
      }
      gsub(/\]\(docs\//, "](")
    }
    { print }' "$1" >"$site/source/$2"
}
page README.md index.md
for document in CHANGELOG.md CONTRIBUTING.md docs/*.md; do page "$document" "$(basename "$document")"; done

cat >>"$site/source/index.md" <<'END'

```{toctree}
:hidden:
:caption: For whom
command
python
embedding
flowdesigner
corpus
scale
live
```
```{toctree}
:hidden:
:caption: Notebooks
:glob:
notebooks/*
```
```{toctree}
:hidden:
:caption: What it does
methods
scores
formats
errors
limits
scale
speed
architecture
CONTRIBUTING
CHANGELOG
```

<a href="api/index.html">API reference</a>
END
"$environment/bin/sphinx-build" -q -W --keep-going -D html_extra_path="$site/extra" "$site/source" "$site/html"
echo "site: $site/html/index.html"
