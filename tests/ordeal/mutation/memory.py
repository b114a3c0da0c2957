"""Fixes for memory or threads that run out, for table.py."""


def entry(name, file, snippet, replacement, tests, **more):
    return dict(name=name, file=file, snippet=snippet, replacement=replacement, preset="debug",
                tests=tests, **more)


ENTRIES = [
    entry("memory: a producer's start may throw", "util/BufferQueue.cpp",
          "  } catch (const std::exception& failure) {\n"
          "    FLUVIA_LOG_AS(\"workBegin\", -4, \"start failed: %s\", failure.what());\n    return -1;",
          "  } catch (const std::exception& failure) {\n"
          "    FLUVIA_LOG_AS(\"workBegin\", -4, \"start failed: %s\", failure.what());\n    throw;",
          "OutOfMemory.InAProducersStart"),
    entry("memory: a stop is announced when its restart is sure to come", "util/BufferQueue.cpp",
          "  if (!prepareRestart()) return false;\n  producer->setStopWait();\n",
          "  producer->setStopWait();\n  if (!prepareRestart()) return false;\n",
          "OutOfMemory.ForARestart"),
    entry("memory: a pool gives back a block that it cannot keep", "util/BufferBlockPool.cpp",
          "    delete block;\n    --totalBlockNumber;\n    return;", "    throw;",
          "OutOfMemoryPool"),
    entry("memory: kept addresses have no contents", "util/ZeroedMemory.cpp",
          "    if (madvise(memory, kKeptSize, MADV_DONTNEED) != 0) return false;\n", "",
          "ZeroedMemory.KeptAddresses"),
    entry("memory: pages that are locked stay no kept addresses", "util/ZeroedMemory.cpp",
          "    if (madvise(memory, kKeptSize, MADV_DONTNEED) != 0) return false;\n",
          "    madvise(memory, kKeptSize, MADV_DONTNEED);\n", "ZeroedMemory.PagesLocked"),
    entry("memory: an engine without workers takes no restart", "util/BufferQueue.cpp",
          "if (engine->workerCount() > 0) {", "if (engine->workerCount() >= 0) {",
          "OutOfThreads.WithoutAWorker", seconds=60),
    entry("memory: one of few workers is left for restarts", "webs/AsyncReads.cpp",
          "int placesOnEngine() { return util::ThreadEngine::getInstance()->workerCount() - 1; }",
          "int placesOnEngine() { return util::ThreadEngine::getInstance()->workerCount(); }",
          "OutOfThreads.TwoWorkers", seconds=100),
    entry("events: a volatile stream that has ended has an end", "util/BufferQueueWait.cpp",
          "    if (connection.state == StreamConnection::kParked && !needFeed) return Wake::kEnd;\n", "",
          "HttpContent.EndOfVolatile", seconds=100),
    entry("memory: an exception is no cancelled transfer", "webs/MethodRequestTransfer.cpp",
          "if (!stopped && callbackFailed)", "if (false && !stopped && callbackFailed)",
          "MethodRequest.ExceptionOf"),
    entry("memory: no exception crosses libcurl's frames", "webs/MethodRequestTransfer.cpp",
          "  return contained(self, __func__, \"progress refused\", 1,\n"
          "                   [self] { return self->mayGoOn() ? 0 : 1; });",
          "  return self->mayGoOn() ? 0 : 1;",
          "MethodRequest.ExceptionOfACallback"),
]
