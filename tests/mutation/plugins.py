"""Entries of table.py for the GStreamer element."""

from streams import entry

ENTRIES = [
    entry("element: a reader does not wait for its own end",
          "plugins/gstreamer/Leaving.cpp",
          "  if (stay->entered) names_.insert(name);",
          "  stay->entered = true;\n  names_.insert(name);",
          "SourceReader.ReaderThatLeftBefore", seconds=60),
    entry("element: buffering ends with a stream whose length nobody stated",
          "plugins/gstreamer/SourceWorker.cpp",
          "  const long long learnt = x_fluvia_file_size(handle_);",
          "  const long long learnt = -1;",
          "SourceReader.LevelsEndWith", seconds=60),
    entry("element: settings made in READY hold from the next start on",
          "plugins/gstreamer/FluviaSrc.cpp",
          "content.opened == content.settings &&", "",
          "FluviaSrc.PropertiesSetInReady", seconds=100),
    entry("element: a stream without a length cannot seek",
          "plugins/gstreamer/SourceWorker.cpp",
          "x_fluvia_file_seek(handle_, beyond, &now) != FVFR_SEEK_REFUSED;",
          "x_fluvia_file_seek(handle_, beyond, &now) < 1;",
          "FluviaSrc.SaysThatAStream|SourceReader.KnowsAStream", seconds=100),
    entry("element: a password is not shown",
          "plugins/gstreamer/SourceWorker.cpp",
          "withoutPassword(name_)", "name_",
          "FluviaSrc.ErrorsKeep", seconds=100),
]
