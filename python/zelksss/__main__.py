"""``python -m zelksss`` is the command zelk-sss."""

from __future__ import annotations

import os
import shutil
import sys
from pathlib import Path


def command() -> Path:
    """Return where the command is: in the package, or on the PATH."""
    own = Path(__file__).parent / "bin" / "zelk-sss"
    found = str(own) if own.exists() else shutil.which("zelk-sss")
    if found:
        return Path(found)
    raise SystemExit(
        "zelksss: this package comes without the command zelk-sss, expected it from the Debian"
        " package zelk-sss or an installation from source; separate, mix and score are here as"
        " functions (import zelksss)"
    )


def main() -> None:
    """Become the command, with the same arguments; `corpus` is of this package."""
    if sys.argv[1:2] == ["corpus"]:
        try:
            from .corpus._command import main as corpus
        except ImportError as error:
            raise SystemExit(f"zelk-sss: {error}") from None
        raise SystemExit(corpus(sys.argv[2:]))
    path = command()
    os.execv(path, ["zelk-sss", *sys.argv[1:]])


if __name__ == "__main__":
    main()
