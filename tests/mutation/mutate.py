#!/usr/bin/env python3
"""Shows that the tests notice when a fix is switched off.

Each entry of table.py names a piece of code, what to put in its place, and the tests that must then
fail. The runner works on a copy of the tree in build/mutation: it first runs the named tests on the
unchanged copy, where they must pass, then makes one change at a time, builds, and runs them again.

An entry that was caught is remembered until a source changes, so that a run that was cut short goes on
where it stopped. The last line is "N caught, M not caught"; the exit code is 0 when M is 0.
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
ROOT = HERE.parent.parent
WORK = ROOT / "build" / "mutation"
COPY = WORK / "tree"
CAUGHT = WORK / "caught.json"
JOBS = str(os.cpu_count() or 1)

sys.path.insert(0, str(HERE))
from table import ENTRIES  # noqa: E402


class Broken(Exception):
    """The table or the tree is not fit for the run."""


def run(command, log, seconds):
    """Runs a command with its output in the file log. Gives its exit code, or None when the time was
    over and it was killed with everything it had started."""
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
    """The files of the tree, changed ones as they are, without what is ignored."""
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"],
                            cwd=ROOT, check=True, capture_output=True, text=True)
    return [name for name in sorted(set(listed.stdout.splitlines())) if (ROOT / name).is_file()]


def make_copy(names):
    """Brings the copy up to date. Files that are the same keep their time, so that little is built."""
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
    """Changes with every source, but not with the table: an entry has a fingerprint of its own."""
    total = hashlib.sha256()
    for name in names:
        if not name.startswith(("docs/", "tests/mutation/")):
            total.update(name.encode() + b"\0" + (ROOT / name).read_bytes() + b"\0")
    return total.hexdigest()


def entry_key(entry, tree):
    return hashlib.sha256((tree + json.dumps(entry, sort_keys=True)).encode()).hexdigest()


def check_entry(entry):
    missing = {"name", "file", "snippet", "replacement", "preset", "tests"} - entry.keys()
    if missing:
        raise Broken(f"{entry.get('name', entry)}: lacks {', '.join(sorted(missing))}")
    path = COPY / entry["file"]
    if not path.is_file():
        raise Broken(f"{entry['name']}: there is no file {entry['file']}")
    found = path.read_text().count(entry["snippet"])
    if found != 1:
        raise Broken(f"{entry['name']}: the snippet stands {found} times in {entry['file']}")


def build(preset, log):
    return run(["cmake", "--build", "--preset", preset, "-j", JOBS], log, 1800)


def test(entry, log, seconds):
    tree = str(COPY / "build" / entry["preset"])
    command = ["ctest", "--test-dir", tree, "-j", JOBS, "--no-tests=error", "--output-on-failure",
               "-R", entry["tests"]]
    if entry.get("tries", 1) > 1:
        command += ["--repeat", f"until-fail:{entry['tries']}"]
    return run(command, log, seconds)


def show(log):
    sys.stderr.write(Path(log).read_text(errors="replace")[-8000:])


def prepare(entries):
    """Builds the unchanged copy in every flavour in use; the tests must pass there."""
    for preset in sorted({entry["preset"] for entry in entries}):
        log = WORK / f"build-{preset}.log"
        if run(["cmake", "--preset", preset], log, 300) != 0 or build(preset, log) != 0:
            show(log)
            raise Broken(f"the unchanged tree does not build in {preset}")
    for entry in entries:
        log = WORK / "before.log"
        if test(entry, log, entry.get("seconds", 150)) != 0:
            show(log)
            raise Broken(f"{entry['name']}: its tests fail without the change")


def try_entry(entry):
    """Whether the tests fail with the fix switched off."""
    path = COPY / entry["file"]
    original = path.read_text()
    log = WORK / f"{re.sub(r'[^A-Za-z0-9]+', '-', entry['name'])}.log"
    try:
        path.write_text(original.replace(entry["snippet"], entry["replacement"]))
        if build(entry["preset"], log) != 0:
            show(log)
            raise Broken(f"{entry['name']}: does not build with the change")
        return test(entry, log, entry.get("seconds", 150)) != 0
    finally:
        path.write_text(original)


def main():
    options = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    options.add_argument("--only", default="", help="regular expression on the entries' names")
    options.add_argument("--list", action="store_true", help="name the entries and stop")
    options.add_argument("--afresh", action="store_true", help="forget what was caught before")
    given = options.parse_args()

    entries = [entry for entry in ENTRIES if re.search(given.only, entry["name"])]
    if given.list:
        print("\n".join(entry["name"] for entry in entries))
        return 0
    names = tracked_files()
    make_copy(names)
    tree = fingerprint(names)
    caught = json.loads(CAUGHT.read_text()) if CAUGHT.exists() and not given.afresh else {}
    for entry in entries:
        check_entry(entry)
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
