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
    dict(
        name="trees: a key is closed with the object that is its value",
        file="webs/JSONParser.cpp",
        snippet="void JSONParser::popKeyMark() {\n  if (isTop(':')) marks.pop();",
        replacement="void JSONParser::popKeyMark() {",
        preset="debug",
        tests="Scan|JSONReader.Nested",
    ),
    dict(
        name="trees: a key is closed with the array that is its value",
        file="webs/JSONParser.cpp",
        snippet="    closeName();\n    if (text.isAt(',')) ++text.at;",
        replacement="    if (text.isAt(',')) ++text.at;",
        preset="debug",
        tests="Arrays/Scan",
    ),
    dict(
        name="trees: names of array members stop growing",
        file="webs/JSONParser.cpp",
        snippet="if (arrayMark.size() < MAX_ARRAY_MARK) arrayMark",
        replacement="arrayMark",
        preset="debug",
        tests="JSONParser.NamesOfEmptyMembers",
    ),
    dict(
        name="trees: a document is scanned with empty stacks",
        file="webs/JSONReader.cpp",
        snippet="  parser.reset();\n  const int result",
        replacement="  const int result",
        preset="debug",
        tests="JSONReader.NextDocumentKnows",
    ),
    dict(
        name="trees: pieces are gathered until the brackets are closed",
        file="webs/JSONReader.cpp",
        snippet="const bool ready = isFinal != 0 || isWhole();",
        replacement="const bool ready = true;",
        preset="debug",
        tests="JSONReader.EverySplit|MethodResponse.Three",
    ),
    dict(
        name="trees: clear finds its way in links that it set itself",
        file="webs/TreeNode.cpp",
        snippet="      child->parent = node;\n",
        replacement="",
        preset="debug",
        tests="TreeNodeTest.ClearOwns",
    ),
    dict(
        name="trees: a literal is a value",
        file="webs/TreeNodeSearch.cpp",
        snippet="return findElem(name, std::string(text));",
        replacement="return findElem(name, text != nullptr);",
        preset="debug",
        tests="TreeNodeTest.FindElemTakesLiterals",
    ),
    dict(
        name="trees: exceptions stay out of expat",
        file="webs/XMLReader.cpp",
        snippet="  } catch (...) {\n    reader->stopParser();\n  }\n}\n\nvoid XMLReader::endElem",
        replacement="  } catch (const XMLReader*) {\n    reader->stopParser();\n  }\n}\n\nvoid XMLReader::endElem",
        preset="debug",
        tests="XMLReader.ExceptionOfACallback",
    ),
    dict(
        name="trees: an end without a beginning is survived",
        file="webs/XMLReader.cpp",
        snippet="if (current != nullptr) current = current->getParent();",
        replacement="current = current->getParent();",
        preset="debug",
        tests="XMLReaderTest.AnEndTooMany",
    ),
]
