#!/usr/bin/env python3
"""Reports a run of ctest, from the JUnit file it wrote.

  scripts/junit.py FILE EXIT_CODE

Prints "passed failed skipped" on the first line, then a line for each skipped test, with its reason, and for
each other fault of the run. A test that could not run (its program is missing, or its fixture has failed) has
failed. So has a run that executed no test, or whose exit code does not fit its tests.
"""

import re
import sys
import xml.etree.ElementTree as ElementTree

# ctest's words for a test that reported itself as skipped.
SAID_SO = ('SKIP_REGULAR_EXPRESSION_MATCHED', 'SKIP_RETURN_CODE=')


def skipped_by_itself(case):
    told = case.find('skipped')
    return told is not None and told.get('message', '').startswith(SAID_SO)


def reason(case):
    """The reason that the test gives: GoogleTest's message, or the last line of a script."""
    lines = [line.strip() for line in (case.findtext('system-out') or '').splitlines() if line.strip()]
    for line, following in zip(lines, lines[1:]):
        if re.search(r':\d+: Skipped$', line) and not following.startswith('['):
            return following
    return lines[-1] if lines and not lines[-1].startswith('[') else 'no reason given'


def judge(cases, code):
    """(passed, failed, skipped, lines to print)."""
    passed = failed = skipped = 0
    lines = []
    for case in cases:
        name, status = case.get('name'), case.get('status')
        if status == 'run':
            passed += 1
        elif status == 'fail':
            failed += 1
        elif status == 'disabled' or skipped_by_itself(case):
            skipped += 1
            lines.append('skipped: %s: %s' % (name, reason(case)))
        else:
            failed += 1
            told = case.find('skipped')
            lines.append('NOT RUN: %s: %s' % (name, status if told is None else told.get('message')))
    if passed + failed == 0:
        failed += 1
        lines.append('NO TEST was executed')
    elif (code == 0) != (failed == 0):
        lines.append('ctest ended with %d' % code)
        failed = max(failed, 1)
    return passed, failed, skipped, lines


def main():
    file, code = sys.argv[1:]
    cases = ElementTree.parse(file).getroot().findall('testcase')
    passed, failed, skipped, lines = judge(cases, int(code))
    print(passed, failed, skipped)
    print('\n'.join(lines))


main()
