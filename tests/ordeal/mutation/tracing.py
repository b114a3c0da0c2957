"""Entries of table.py for fluvia trace."""

from streams import entry

ENTRIES = [
    entry("trace: what is told of the blocks costs no look at all of them",
          "tools/trace/HeldBlocks.cpp",
          "looks_ += static_cast<long long>(told.size());",
          "for (const auto& each : stretches_) looks_ += each.second > 0;",
          "HeldBlocks.WorkOfAChange"),
    entry("trace: texts of nobody are not tried for ever",
          "tools/trace/LogReader.cpp",
          "if (counts_.tries > kFirstTries + kTriesOfALine * counts_.lines) return false;",
          "static_cast<void>(kFirstTries + kTriesOfALine);",
          "LogReader.WorkForTexts"),
]
