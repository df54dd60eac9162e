"""``python -m zelksss`` is the command zelk-sss."""

from __future__ import annotations

import os
import sys
from pathlib import Path


def command() -> Path:
    """Return where the command is: in the package, or where the system has installed it."""
    for folder in (Path(__file__).parent / "bin", Path("/usr/bin")):
        if (folder / "zelk-sss").exists():
            return folder / "zelk-sss"
    raise SystemExit("zelksss: the command zelk-sss is not installed, expected it in this package")


def main() -> None:
    """Become the command, with the same arguments."""
    path = command()
    os.execv(path, ["zelk-sss", *sys.argv[1:]])


if __name__ == "__main__":
    main()
