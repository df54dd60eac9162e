"""The work of scripts/faults.sh: faults.py MUTATE SOURCES BUILD FOLDER COUNT SEED."""

import collections
import hashlib
import json
import pathlib
import random
import subprocess
import sys
import tempfile

PRODUCT = """matrix geometry bf dsp audio scene tracking fileio responses separation live scoring
pictures report host nodes toolbox cli python"""
# Tests that start the command or load plug-ins, and so notice what they do not link.
BY_PROCESS = {
    f"test-{name}"
    for name in ("cli", "live", "nodes", "pictures", "report", "responses", "toolbox")
}
TIMEOUT = 300  # seconds; a test that hangs has noticed


class Fault:
    """A file with one line changed."""

    def __init__(self, path: pathlib.Path, line: int, old: str, text: str) -> None:
        self.path, self.line, self.old, self.text = path, line, old, text
        self.new = text.split("\n")[line]

    def is_code(self) -> bool:
        return bool(self.old.strip()) and not self.old.strip().startswith(("//", "#", '"""'))


def faults_of(mutate: str, path: pathlib.Path) -> list[Fault]:
    """All faults of a file."""
    lines = path.read_text().split("\n")
    with tempfile.TemporaryDirectory() as folder:
        language = "python" if path.suffix == ".py" else "cpp"
        command = [mutate, path, language, "--noCheck", "--mutantDir", folder]
        subprocess.run(command, check=True, capture_output=True)
        texts = [mutant.read_text() for mutant in sorted(pathlib.Path(folder).iterdir())]
    faults = []
    for text in texts:
        pairs = zip(lines, text.split("\n"), strict=False)  # a line may be put in
        changed = next((i for i, (old, new) in enumerate(pairs) if old != new), None)
        if changed is not None:
            faults.append(Fault(path, changed, lines[changed], text))
    return [fault for fault in faults if fault.is_code()]


def products(build: pathlib.Path) -> dict[pathlib.Path, str]:
    """What was linked, with the hash of each."""
    files = [*build.glob("bin/*"), *build.glob("lib/*.so*"), *build.glob("toolbox/*.tlb")]
    return {file: hashlib.sha256(file.read_bytes()).hexdigest() for file in files if file.is_file()}


def noticing(build: pathlib.Path, test: str) -> set[str]:
    """Files of the tests of an executable that fail; its name where it crashes or hangs."""
    report = (build / "faults.json").resolve()
    report.unlink(missing_ok=True)
    command = [(build / "bin" / test).resolve(), f"--gtest_output=json:{report}"]
    try:
        run = subprocess.run(command, cwd=build / "tests", capture_output=True, timeout=TIMEOUT)
    except subprocess.TimeoutExpired:
        return {test}
    if run.returncode == 0:
        return set()
    if not report.exists():
        return {test}
    suites = json.loads(report.read_text())["testsuites"]
    cases = [case for suite in suites for case in suite["testsuite"]]
    failed = {case["file"] for case in cases if case.get("failures")}
    return {file[file.index("tests/") :] for file in failed} or {test}


def try_fault(fault: Fault, build: pathlib.Path, sound: dict[pathlib.Path, str]) -> set[str] | None:
    """Who notices the fault; None where it does not compile or changes no program."""
    fault.path.write_text(fault.text)
    if fault.path.suffix == ".py":
        command = ["ctest", "--test-dir", build, "-R", "^python$", "--timeout", str(TIMEOUT)]
        failed = subprocess.run(command, capture_output=True).returncode
        return {"tests/python"} if failed else set()
    if subprocess.run(["cmake", "--build", build], capture_output=True).returncode:
        return None
    changed = {file.name for file, digest in products(build).items() if sound.get(file) != digest}
    tests = {name for name in changed if name.startswith("test-")}
    if changed - tests:
        tests |= BY_PROCESS
    return set().union(*(noticing(build, test) for test in sorted(tests))) if changed else None


def main() -> None:
    mutate, sources, build = sys.argv[1], *map(pathlib.Path, sys.argv[2:4])
    folders = [sys.argv[4]] if sys.argv[4] else PRODUCT.split()
    count, seed = map(int, sys.argv[5:7])
    files = [
        file
        for folder in folders
        for file in sorted((sources / folder).rglob("*"))
        if file.suffix in {".cc", ".h", ".py"}
    ]
    faults = [fault for file in files for fault in faults_of(mutate, file)]
    random.Random(seed).shuffle(faults)
    sound = products(build)
    caught, missed, alone = collections.Counter(), collections.Counter(), collections.Counter()
    with open(build.parent / "list.tsv", "w") as report:
        for fault in faults:
            if caught.total() + missed.total() == count:
                break
            text = fault.path.read_text()
            try:
                who = try_fault(fault, build, sound)
            finally:
                fault.path.write_text(text)
            if who is None:
                continue
            place = fault.path.relative_to(sources)
            (caught if who else missed)[place.parts[0]] += 1
            if len(who) == 1:
                alone[next(iter(who))] += 1
            row = [f"{place}:{fault.line + 1}", fault.old.strip(), fault.new.strip()]
            row.append(" ".join(sorted(who)) or "missed")
            print("\t".join(row), file=report, flush=True)
            if not who:
                print(f"missed: {row[0]}\n  - {row[1]}\n  + {row[2]}", flush=True)
    print(f"{'folder':<12} {'caught':>6} {'missed':>6}")
    for folder in sorted(caught | missed):
        print(f"{folder:<12} {caught[folder]:6} {missed[folder]:6}")
    for file, number in alone.most_common():
        print(f"alone caught {number:3}  {file}")


main()
