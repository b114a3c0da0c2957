"""Entries of table.py for the GStreamer element."""

from streams import entry

ENTRIES = [
    entry("element: a reader does not wait for its own end",
          "plugins/gstreamer/Leaving.cpp",
          "  if (stay->entered) names_.insert(name);",
          "  stay->entered = true;\n  names_.insert(name);",
          "SourceReader.ReaderThatLeftBefore", seconds=60),
]
