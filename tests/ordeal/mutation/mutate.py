#!/usr/bin/env python3
"""Shows that the tests notice when a fix is switched off.

Each entry of table.py names a piece of code, what to put in its place, and the tests that must then
fail. The runner works on a copy of the tree in build/mutation: it first runs the named tests on the
unchanged copy, where they must pass, then makes one change at a time, builds the programs that have
the tests, and runs them again until the first one fails.

An entry that was caught is remembered until a source changes, so that a run that was cut short goes on
where it stopped. The last line is "N caught, M not caught"; the exit code is 0 when M is 0.

--check compares the table with the sources and builds nothing: each snippet stands once in its file,
and each entry names tests that exist.
"""

import argparse
import hashlib
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[2]
WORK = ROOT / "build" / "mutation"
COPY = WORK / "tree"
CAUGHT = WORK / "caught.json"
JOBS = str(os.cpu_count() or 1)

sys.dont_write_bytecode = True  # ./test runs this in the tree itself
sys.path.insert(0, str(HERE))
from programs import all_tests, targets_of  # noqa: E402
from table import ENTRIES  # noqa: E402

TESTS = all_tests(ROOT)
REQUIRED = {"name", "file", "snippet", "replacement", "preset", "tests"}


class Broken(Exception):
    """The table or the tree does not allow the run."""


def run(command, log, seconds):
    """Runs a command with its output in the file log. Returns its exit code, or None if it exceeded its
    time and was killed with all its children."""
    with open(log, "wb") as output:
        process = subprocess.Popen(command, cwd=COPY, stdout=output, stderr=subprocess.STDOUT,
                                   start_new_session=True)
        try:
            return process.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return None


def tracked_files():
    """The files of the tree, also changed ones, without the ignored ones."""
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"],
                            cwd=ROOT, check=True, capture_output=True, text=True)
    return [name for name in sorted(set(listed.stdout.splitlines())) if (ROOT / name).is_file()]


def make_copy(names):
    """Updates the copy. Unchanged files keep their time, so that little is built."""
    COPY.mkdir(parents=True, exist_ok=True)
    wanted = set(names)
    for path in COPY.rglob("*"):
        name = str(path.relative_to(COPY))
        if path.is_file() and not name.startswith("build/") and name not in wanted:
            path.unlink()
    for name in names:
        source, target = ROOT / name, COPY / name
        if not target.exists() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)


def fingerprint(names):
    """Depends on every source, but not on the table: each entry has its own fingerprint."""
    total = hashlib.sha256()
    for name in names:
        if not name.startswith(("docs/", "tests/ordeal/mutation/")):
            total.update(name.encode() + b"\0" + (ROOT / name).read_bytes() + b"\0")
    return total.hexdigest()


def entry_key(entry, tree):
    return hashlib.sha256((tree + json.dumps(entry, sort_keys=True)).encode()).hexdigest()


def faults_of(entry):
    """The faults of an entry, one line each."""
    missing = REQUIRED - entry.keys()
    if missing:
        yield f"lacks {', '.join(sorted(missing))}"
        return
    path = ROOT / entry["file"]
    if path.is_file():
        found = path.read_text().count(entry["snippet"])
        if found != 1:
            yield (f"the snippet stands {found} times in {entry['file']}, not once:\n"
                   + "\n".join("    " + line for line in entry["snippet"].splitlines()))
    else:
        yield f"there is no file {entry['file']}"
    if entry["replacement"] == entry["snippet"]:
        yield "the replacement changes nothing"
    # A part without a test would make the others' failure look like its own.
    yield from (f"there is no test {part}" for part in entry["tests"].split("|")
                if not targets_of(part, TESTS))


def check(entries):
    """Reports every fault of the table at once."""
    faults = []
    names = [entry.get("name", str(entry)) for entry in entries]
    for name, entry in zip(names, entries):
        faults += [f"{name}: {fault}" for fault in faults_of(entry)]
        if names.count(name) > 1:
            faults.append(f"{name}: the name stands more than once")
    if faults:
        raise Broken("the table does not fit the sources\n" + "\n".join(faults))


def build(preset, targets, log):
    return run(["cmake", "--build", "--preset", preset, "-j", JOBS, "--target", *targets], log, 1800)


def test(preset, tests, log, seconds, options=()):
    command = ["ctest", "--test-dir", str(COPY / "build" / preset), "-j", JOBS, "--no-tests=error",
               "--output-on-failure", *options, "-R", tests]
    return run(command, log, seconds)


def repeats(entry):
    tries = entry.get("tries", 1)
    return ["--repeat", f"until-fail:{tries}"] if tries > 1 else []


def show(log):
    sys.stderr.write(Path(log).read_text(errors="replace")[-8000:])


def prepare(entries):
    """Builds the unchanged copy in every flavour in use; the tests must pass there."""
    for preset in sorted({entry["preset"] for entry in entries}):
        flavour = [entry for entry in entries if entry["preset"] == preset]
        tests = "|".join(dict.fromkeys(entry["tests"] for entry in flavour))
        log = WORK / f"build-{preset}.log"
        # A change may leave code unused; that is no fault.
        if run(["cmake", "--preset", preset, "-DFLUVIA_WERROR=OFF"], log, 300) != 0 or \
                build(preset, targets_of(tests, TESTS), log) != 0:
            show(log)
            raise Broken(f"the unchanged tree does not build in {preset}")
        log = WORK / f"before-{preset}.log"
        if test(preset, tests, log, sum(entry.get("seconds", 150) for entry in flavour)) != 0:
            show(log)
            raise Broken(f"tests fail in {preset} without a change")
    for entry in entries:
        log = WORK / "before.log"
        if repeats(entry) and test(entry["preset"], entry["tests"], log, entry.get("seconds", 150),
                                   repeats(entry)) != 0:
            show(log)
            raise Broken(f"{entry['name']}: its tests fail without the change")


def try_entry(entry):
    """True if the tests fail with the fix switched off."""
    path = COPY / entry["file"]
    original = path.read_text()
    log = WORK / f"{re.sub(r'[^A-Za-z0-9]+', '-', entry['name'])}.log"
    try:
        path.write_text(original.replace(entry["snippet"], entry["replacement"]))
        if build(entry["preset"], targets_of(entry["tests"], TESTS), log) != 0:
            show(log)
            raise Broken(f"{entry['name']}: does not build with the change")
        # One failure is enough.
        return test(entry["preset"], entry["tests"], log, entry.get("seconds", 150),
                    ["--stop-on-failure", *repeats(entry)]) != 0
    finally:
        path.write_text(original)


def main():
    options = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    options.add_argument("--only", default="", help="regular expression on the entries' names")
    options.add_argument("--list", action="store_true", help="name the entries and stop")
    options.add_argument("--check", action="store_true",
                         help="compare the table with the sources and stop; nothing is built")
    options.add_argument("--afresh", action="store_true", help="forget what was caught before")
    given = options.parse_args()

    entries = [entry for entry in ENTRIES if re.search(given.only, entry["name"])]
    if given.list:
        print("\n".join(entry["name"] for entry in entries))
        return 0
    check(entries)
    if given.check:
        return 0
    names = tracked_files()
    make_copy(names)
    tree = fingerprint(names)
    caught = json.loads(CAUGHT.read_text()) if CAUGHT.exists() and not given.afresh else {}
    todo = [entry for entry in entries if entry_key(entry, tree) not in caught]
    prepare(todo)

    survivors = []
    for entry in todo:
        begin = time.monotonic()
        if try_entry(entry):
            caught[entry_key(entry, tree)] = entry["name"]
            CAUGHT.write_text(json.dumps(caught, indent=1))
            verdict = "caught"
        else:
            survivors.append(entry["name"])
            verdict = "NOT CAUGHT"
        print(f"{time.monotonic() - begin:6.1f}s  {entry['name']}: {verdict}", flush=True)
    print(f"{len(entries) - len(survivors)} caught, {len(survivors)} not caught")
    return 1 if survivors else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Broken as reason:
        sys.exit(f"mutate.py: {reason}")
