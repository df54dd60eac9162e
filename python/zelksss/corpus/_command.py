"""The command `zelk-sss corpus`."""

from __future__ import annotations

import argparse
import json
import logging
import signal
import sys
from collections.abc import Sequence
from typing import Any, Callable

from .._error import Error
from .._separator import Parameters
from . import mix, score, separate
from ._items import METHODS
from ._run import Report

_SIZES = {"K": 1 << 10, "M": 1 << 20, "G": 1 << 30, "T": 1 << 40}
_NAMED = 20  # failures that are named at the end


def main(arguments: Sequence[str]) -> int:
    """Run the command with these arguments and return its exit status."""
    options = vars(_parser().parse_args(arguments))
    call = options.pop("call")
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    for name in ("distributed", "asyncio"):  # what a person has to know is said here
        logging.getLogger(name).setLevel(logging.CRITICAL)
    progress = _Progress()
    try:
        if "param" in options:
            options.update(_parameters(options["method"], options.pop("param")))
        report = call(**options, progress=progress)
    except (Error, OSError, KeyboardInterrupt) as error:
        progress.end()
        text = str(error) or "interrupted"
        if isinstance(error, OSError) and error.filename:
            text = f"{error.filename}: {error.strerror}"
        print(f"zelk-sss: {text}", file=sys.stderr)
        return 1
    progress.end()
    for failure in report.failures[:_NAMED]:
        tried = f" ({failure.attempts} attempts)" if failure.attempts > 1 else ""
        print(f"zelk-sss: {failure.id}: {failure.reason}{tried}", file=sys.stderr)
    if len(report.failures) > _NAMED:
        more = f"{len(report.failures) - _NAMED} more failures"
        print(f"zelk-sss: {more} in {options['output']}/failures.jsonl", file=sys.stderr)
    print(_summary(report))
    return 1 if report.failures else 0


def _summary(report: Report) -> str:
    text = f"{report.done + report.found} of {report.items} items are there"
    if report.found:
        text += f", {report.found} from before"
    if report.failures:
        text += f", {len(report.failures)} failed"
    if report.done:
        text += f"; {report.sound_seconds / 3600:.4g} h of sound in {report.seconds:.4g} s"
    return text


class _Progress:
    """A line that says how far it is, on a terminal."""

    def __init__(self) -> None:
        self._told = False

    def __call__(self, report: Report) -> None:
        if not sys.stderr.isatty():
            return
        self._told = True
        finished = report.done + report.found + len(report.failures)
        speed = report.sound_seconds / max(report.seconds, 1e-9)
        text = f"{finished} of {report.items} items, {speed:.0f} h of sound per hour"
        if report.failures:
            text += f", {len(report.failures)} failed"
        if report.workers == 0:
            text += ", no worker yet"
        elif report.done:
            left = report.seconds * (report.items - finished) / (finished - report.found)
            text += f", {left // 3600:.0f}:{left // 60 % 60:02.0f}:{left % 60:02.0f} left"
        print(f"\r{text}\033[K", end="", file=sys.stderr, flush=True)

    def end(self) -> None:
        if self._told:
            print(file=sys.stderr)


def _parameters(method: str, assignments: Sequence[str]) -> dict[str, Any]:
    result = {}
    for assignment in assignments:
        name, sign, value = assignment.partition("=")
        key = name.lower()
        if key not in Parameters.__annotations__ and key.startswith(f"{method.lower()}_"):
            key = key[len(method) + 1 :]
        if not sign or key not in Parameters.__annotations__:
            expected = ", ".join(Parameters.__annotations__)
            raise Error(f'--param is "{assignment}", expected NAME=VALUE with one of {expected}')
        try:
            result[key] = json.loads(value)
        except ValueError:
            result[key] = value
    return result


def _size(text: str) -> int:
    unit = _SIZES.get(text[-1:].upper(), 1)
    return int(float(text.rstrip("KMGTkmgt")) * unit)


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="zelk-sss corpus",
        description="Go through a manifest of many items, on the cores of one machine or of many.",
    )
    commands = parser.add_subparsers(title="Subcommands", metavar="COMMAND", required=True)

    def add(call: Callable[..., Report], help: str) -> argparse.ArgumentParser:
        command = commands.add_parser(call.__name__, help=help, description=help + ".")
        command.set_defaults(call=call)
        add = command.add_argument
        add("manifest", metavar="MANIFEST", help="JSON lines, an item a line; or a URL of them")
        add("-o", "--output", metavar="OUT", required=True, help="Folder or URL for what is made")
        return command

    command = add(separate, "Separate every recording of a manifest")
    option = command.add_argument
    option("--method", choices=METHODS, default="NULL", help="Default: NULL")
    option("--tf", dest="database", metavar="FILE", help="Database, where a line has none")
    option("--responses", metavar="FILE", help="Impulse responses for MVDR")
    option("--sources", dest="scene", metavar="FILE", help="Scene, where a line has none")
    option("--channels", metavar="LIST", help="Such as 1-4,7, where a line has none")
    option("--supervisions", metavar="FILE", help="Who speaks when: a manifest of Lhotse")
    option("--speakers", metavar="FILE", help="Where each name is (JSON)")
    option("--param", action="append", default=[], metavar="NAME=VALUE", help="Of the method")
    option("--piece", type=float, default=600.0, metavar="S", help="Length of a long one's pieces")
    option("--overlap", type=float, default=10.0, metavar="S", help="Learnt from before a piece")
    _add_format(command, "PCM_16")
    _add_running(command)

    command = add(mix, "Render every scene of a manifest")
    command.add_argument("--tf", dest="database", metavar="FILE", help="Where a line has none")
    command.add_argument("--reference-mic", type=int, default=1, metavar="N", help="Default: 1")
    _add_format(command, "FLOAT")
    _add_running(command)

    command = add(score, "Score separated sources against references")
    command.add_argument("--estimates", metavar="FOLDER", help="What corpus separate has made")
    _add_running(command)
    return parser


def _add_format(command: argparse.ArgumentParser, default: str) -> None:
    command.add_argument(
        "--format", dest="samples", choices=("PCM_16", "PCM_24", "FLOAT"), default=default,
        help=f"Default: {default}",
    )  # fmt: skip
    command.add_argument("--flac", action="store_true", help="FLAC instead of WAV")


def _add_running(command: argparse.ArgumentParser) -> None:
    option = command.add_argument
    option("--scheduler", dest="client", metavar="ADDRESS", help="Of dask; else this machine works")
    option("--jobs", type=int, metavar="N", help="Cores of this machine; all")
    option("--batch", type=int, metavar="N", help="Items handed out at once; about a second's")
    option("--retries", type=int, default=2, metavar="N", help="For lost processes; default 2")
    option("--limit", type=float, metavar="S", help="For an item; 120 s and 30 times its length")
    option("--memory", type=_size, metavar="SIZE", help="For an item's process, such as 2G")
    option("--parquet", action="store_true", help="Write index.parquet, too")
    option("--force", action="store_true", help="Make results of other settings anew")
