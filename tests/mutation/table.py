"""The fixes that are switched off one at a time, and the tests that must then fail.

Each entry:
  name         what is lost, in a few words; unique
  file         the source, from the root
  snippet      a text that stands there exactly once
  replacement  what is put in its place
  preset       the build to do it in (debug, clang, asan, tsan or release)
  tests        regular expression for ctest -R
  tries        optional: run the tests so many times, until one fails; 1 unless given
  seconds      optional: a run that lasts longer counts as failed; 150 unless given
"""

ENTRIES = [
    dict(
        name="fluvia: the library's log stays off the screen",
        file="tools/Screen.cpp",
        snippet="const bool moved = dup2(file, STDERR_FILENO) >= 0;",
        replacement="const bool moved = file >= 0;",
        preset="debug",
        tests="cli.log_goes_to_the_file",
    ),
    dict(
        name="fluvia: check compares bytes",
        file="tools/CheckCommand.cpp",
        snippet="if (differs.first != expected.end()) {",
        replacement="if (false && differs.first != expected.end()) {",
        preset="debug",
        tests="cli.check_finds_a_wrong_byte",
    ),
    dict(
        name="fluvia: a full disk is told",
        file="tools/Output.cpp",
        snippet="    if (written < 0) {\n      return failed(error);\n    }",
        replacement="    if (written < 0) {\n      return true;\n    }",
        preset="debug",
        tests="cli.full_output_is_told",
    ),
    dict(
        name="fluvia: the next asynchronous read waits for the last",
        file="tools/CatCommand.cpp",
        snippet="started = begin(reader, buffers[turn].data(), done_ + result.bytes, &underWay);",
        replacement="started = begin(reader, buffers[1 - turn].data(), done_ + result.bytes, &underWay);",
        preset="debug",
        tests="cli.cat_async_copies_the_file",
        tries=20,
    ),
]
