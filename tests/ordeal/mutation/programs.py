"""Reads from the sources which tests exist and which programs have them; no build is needed."""

import re
from pathlib import Path

# The tests of a folder or file, the prefix of their names for ctest, and the targets that run them. The first
# matching row counts.
PROGRAMS = [
    ("tests/unit/util/", "", ["util_tests"]),
    ("tests/unit/webs/", "", ["webs_tests"]),
    ("tests/unit/api/", "", ["api_tests"]),
    ("tests/unit/http/", "", ["http_tests"]),
    ("tests/unit/process/", "", ["process_tests"]),
    ("tests/ordeal/torture/", "", ["torture_tests"]),
    ("tests/ordeal/exhaustion/OutOfMemoryTest.cpp", "", ["out_of_memory_tests"]),
    ("tests/ordeal/exhaustion/", "", ["exhaustion_tests"]),
    ("tests/ordeal/stress/", "", ["stress_tests"]),
    ("tests/products/tools/TreeTextTest.cpp", "", ["tree_text_tests"]),
    ("tests/products/tools/", "", ["trace_tests"]),
    ("tests/products/players/ReaderTest.cpp", "players.", ["reader_tests"]),
    ("tests/products/players/ReaderOutageTest.cpp", "players.", ["reader_tests"]),
    ("tests/products/players/ElementTest.cpp", "players.", ["playing_tests"]),
    ("tests/products/players/NestedTest.cpp", "players.", ["adapter_tests"]),
    ("tests/products/players/", "players.", ["all"]),
    ("tests/", "", ["all"]),
]
TEST = re.compile(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", re.M)
INSTANCE = re.compile(r"^INSTANTIATE_TEST_SUITE_P\(\s*(\w+),\s*(\w+),", re.M)


def gtest_names(text):
    """The names as ctest shows them, without the values of parameters."""
    instances = {}
    for prefix, suite in INSTANCE.findall(text):
        instances.setdefault(suite, []).append(prefix)
    for suite, name in TEST.findall(text):
        if suite in instances:
            yield from (f"{prefix}/{suite}.{name}/" for prefix in instances[suite])
        else:
            yield f"{suite}.{name}"


def all_tests(root):
    """Every test with its targets."""
    tests = {}
    for path in sorted((root / "tests").rglob("*Test.cpp")):
        name = str(path.relative_to(root))
        _, prefix, targets = next(row for row in PROGRAMS if name.startswith(row[0]))
        for test in gtest_names(path.read_text()):
            tests[prefix + test] = targets
    commands = (Path(root) / "tests/products/tools/cli.sh").read_text()
    for test in re.findall(r"^([a-z_]*_[a-z0-9_]*)\(\) {$", commands, re.M):
        if test != "make_file":
            tests["cli." + test] = ["fluvia", "bent_pread"]
    return tests


def targets_of(regexp, tests):
    """The targets whose tests match, sorted; none if no test does."""
    return sorted({target for test, targets in tests.items() if re.search(regexp, test)
                   for target in targets})
