"""docs/errors.md lists what the sources can tell a person, all of it and nothing else.

    catalogue.py SOURCE
"""

import pathlib
import re
import sys

from pygments.lexers import CppLexer
from pygments.token import Comment, String

FOLDERS = ("matrix bf dsp audio scene tracking fileio responses separation live scoring pictures host nodes "
           "toolbox cli").split()
# A statement that tells a person something; in the nodes, std::cout does, too.
TELLS = re.compile(
    r"\bthrow\b|\bexpected=|stderr|\b(cerr|out|err)<<|\b(warnings|remarks|findings|notes)\.push_back\("
    r"|\b(fail|refuse|misuse|number|warn|note|report|puts)\(|(?<!->)\bcheck\(")
PROSE = re.compile(r"[A-Za-z]{2,}[^A-Za-z]* [^A-Za-z]*[A-Za-z]{2,}")  # two words at least
FIELD = r"\{[0-9]*(?::[^{}\"]*)?\}|%[a-z]"  # of a format


def statements(path):
    """The line, the code without literals and the literals of each statement; adjacent ones are one."""
    line, code, texts, joins = 1, "", [], False
    for kind, value in CppLexer().get_tokens(path.read_text(encoding="utf-8")):
        line += value.count("\n")
        if kind in Comment or (kind not in String and not value.strip()):
            continue
        if kind in String and kind not in String.Char:
            if not joins:
                texts.append("")
            joins = True
            if kind in String.Escape:
                value = {"\\n": "\n"}.get(value, value[1:])
            elif kind in String.Affix or kind in String.Delimiter or value == '"':
                value = ""
            texts[-1] += value
            continue
        joins = False
        if value not in (";", "{", "}"):
            code += value
            continue
        if texts:
            yield line, code, texts
        code, texts = "", []


def parts(text, separator):
    return [part.strip(" \n") for part in re.split(separator, text) if part.strip(" \n")]


def holds(text, wanted):
    """Whether the text holds the wanted parts, in this order."""
    at = 0
    for part in wanted:
        at = text.find(part, at)
        if at < 0:
            return False
        at += len(part)
    return True


root = pathlib.Path(sys.argv[1])
document = (root / "docs/errors.md").read_text(encoding="utf-8")
rows = [line for line in document.splitlines() if line.startswith("|")]
sources, messages, failures = [], 0, []
for path in (p for folder in FOLDERS for p in sorted((root / folder).rglob("*.*"))):
    if path.suffix not in (".cc", ".h"):
        continue
    for line, code, texts in statements(path):
        sources.append("\n".join(texts))
        if not TELLS.search(code) and not (path.parent.name == "nodes" and "cout<<" in code):
            continue
        for text in filter(PROSE.search, texts):
            messages += 1
            if not any(holds(row, parts(text, FIELD)) for row in rows):
                failures.append(f'{path}:{line}: docs/errors.md has no row for "{text}"')
for row in rows:
    for message in re.findall(r"`+ ?(.*?) ?`+", row.split(" | ")[0]):
        fixed = parts(message, r"[ :.,;\"'()<>]*«[^»]*»[ :.,;\"'()<>]*")
        if not fixed or not any(holds(text, fixed) for text in sources):
            failures.append(f'docs/errors.md: no source has the message "{message}"')
if messages < 150:
    failures.append(f"only {messages} messages were found in {root}")
sys.exit("\n".join(failures) or 0)
