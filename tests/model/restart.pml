/* Reader, transfer, engine and close around one buffer queue with the producer of a URL.
 *
 * The states are the code's own, by its names; what is left out is the content of blocks. A resource
 * has CHUNKS chunks and the queue room for ROOM of them. Waiting is on conditions without time-outs
 * and without wake-ups out of nothing, so that a wake-up that the code forgets is a deadlock here;
 * the two waits that the code repeats after milliseconds may go on by themselves.
 *
 * Checked: every process comes to its end (no reader waits for ever, close terminates), nothing is
 * touched after it was freed, version and tasks stay in bounds, and no cycle without progress.
 *
 * READS, ENGINES, FAILURES, EARLY and NO_MEMORY bound a run: reads of a free choice of positions,
 * workers of the engine, errors of the connection, connections that end early, restarts that find no
 * memory for their task. With PATIENT the handle is closed when its reads are over: whoever waits
 * for ever is a deadlock then. Without it the close comes at any time. In both another thread aborts
 * once. FAULT takes one thing away that the code does, and check.sh wants an error for each:
 *   1  a reader that is broken off does not tell who broke it
 *   2  a close does not wake who waits
 *   3  a stop is announced before there is memory for the restart that brings it
 *   4  a stop is not repeated while the worker is about to start the producer
 *   5  the close does not wait for restart tasks
 *   6  a connection that failed is taken for one that was cancelled
 */
#ifndef READS
#define READS 2
#endif
#ifndef ENGINES
#define ENGINES 1
#endif
#ifndef FAILURES
#define FAILURES 1
#endif
#ifndef EARLY
#define EARLY 1
#endif
#ifndef NO_MEMORY
#define NO_MEMORY 1
#endif
#ifndef FAULT
#define FAULT 0
#endif
#define CHUNKS 3
#define ROOM 2

mtype = { IDLE, NORMAL, ENDED, FAILED, RELEASED };
mtype = { NO_EVENT, PARTIAL_END, STREAM_ERROR, CANCELED };

/* Locks. */
bool queueLock, feedLock, workerLock, producerLock;
/* Who waits on feedLock's condition: reader, transfer, closer, aborter. */
bool waitR, waitT, waitC, waitA;

/* BufferQueue. */
mtype streamStatus = IDLE;
byte retryCount;
byte version;
byte notedVersion;
byte startedVersion = 255;
byte activeWorkNum;
byte tasksQueued;      /* on the engine, not taken */
byte restartTasks;     /* queued or running */
bool needFeed, breakRequested, readRunning, mayPlace;
bool streaming, parked, connecting, workerStarted, releaseCalled, connectionStored;
byte emptyEnds;
byte streamFrom;
bool held[CHUNKS];
byte heldCount;
byte writeHead;        /* the chunk that the stream writes next */
byte position;         /* of the reader */

/* ThreadObject of the worker. */
bool workerAlive, workerClosed, workerGone;

/* HttpFileRequest and MethodRequest. */
bool alive, finished = true, stopWait, armed, isActive, running;

/* The handle. */
bool aborterDone;
bool closing, reading, readerDone, freed;
bool holding;          /* the transfer holds still for a stop */
byte failuresLeft = FAILURES;
byte earlyLeft = EARLY;
byte noMemoryLeft = NO_MEMORY;

#define needExit (streamStatus == RELEASED || (streamStatus == FAILED && retryCount > 1))
#define touch assert(!freed)
#define acquire(l) atomic { !l -> l = true }
#define unlock(l) l = false

inline notifyAll() {
  d_step {
    waitR = false;
    waitT = false;
    waitC = false;
    waitA = false
  }
}

inline waitFeed(w) {
  atomic { w = true; unlock(feedLock) };
  atomic { !w && !feedLock -> feedLock = true };
  touch
}

/* One of the chunks that are held makes room; the reader's own only when there is no other. */
inline makeRoom() {
  if
  :: heldCount < ROOM
  :: heldCount >= ROOM ->
     if
     :: held[0] && position != 0 -> held[0] = false
     :: held[1] && position != 1 -> held[1] = false
     :: held[2] && position != 2 -> held[2] = false
     fi;
     heldCount--
  fi
}

/* failStream */
inline failStream() {
  streamStatus = FAILED;
  retryCount = 2;
  notifyAll()
}

/* prepareRestart: prepared tells whether there is memory for the task. */
inline prepareRestart() {
  prepared = true;
  if
  :: noMemoryLeft > 0 -> noMemoryLeft--; prepared = false; streaming = false; failStream()
  :: true
  fi
}

/* announceRestart */
inline announceRestart() {
#if FAULT == 3
  stopWait = true;
#endif
  prepareRestart();
  if
  :: prepared -> stopWait = true
  :: else
  fi
}

/* resetStreaming, with a task */
inline queueRestart(from) {
  d_step {
    streamFrom = from;
    version++;
    assert(version < 20);
    streaming = true;
    activeWorkNum++;
    restartTasks++;
    tasksQueued++
  }
}

/* restartFromWriteHead */
inline restartAt(from) {
  prepareRestart();
  if
  :: prepared -> queueRestart(from)
  :: else
  fi
}

/* fragmentStreaming at what the reader wants, with the task prepared */
inline place() {
  makeRoom();
  writeHead = position;
  queueRestart(position)
}

inline placeAtReader() {
  prepareRestart();
  if
  :: prepared -> place()
  :: else
  fi
}

/* forgetBrokenRead, feedLock held */
inline forgetBrokenRead() {
  if
  :: streamStatus == RELEASED && !releaseCalled -> streamStatus = IDLE
  :: else
  fi
}

/* ---------------------------------------------------------------- the reader */

inline readOnce() {
  acquire(queueLock);
  touch;
  acquire(feedLock);
  forgetBrokenRead();
  opens = false;
  if
  :: !workerStarted ->
     workerStarted = true;
     activeWorkNum = 1;
     streaming = true;
     opens = !needExit;
     workerAlive = true
  :: else
  fi;
  if
  :: !opens && needExit -> skip
  :: else ->
     readRunning = true;
     mayPlace = true;
     notifyAll();
     do
     :: held[position] -> break
     :: !held[position] ->
        needFeed = true;
        /* placeReader */
        if
        :: mayPlace && !streaming && !parked && !needExit -> mayPlace = false; placeAtReader()
        :: else -> mayPlace = false
        fi;
        if
        :: needExit
        :: else -> notifyAll(); waitFeed(waitR)
        fi;
        if
#if FAULT == 1
        :: breakRequested -> breakRequested = false; break
#else
        :: breakRequested -> breakRequested = false; notifyAll(); break
#endif
        :: !breakRequested && needExit -> break
        :: else
        fi
     od;
     /* ~RunningRead */
     if
     :: breakRequested -> notifyAll()
     :: else
     fi;
     breakRequested = false;
     needFeed = false;
     readRunning = false
  fi;
  unlock(feedLock);
  unlock(queueLock)
}

proctype Reader() {
  byte count = 0;
  bool opens, prepared;
  do
  :: atomic { count < READS && !closing -> reading = true };
     if
     :: position = 0
     :: position = 1
     :: position = 2
     fi;
     readOnce();
     reading = false;
     count++
  :: closing || count == READS -> break
  od;
  readerDone = true
}

/* ---------------------------------------------------------------- the transfer, on the worker */

/* streamIn of the chunk at writeHead */
inline streamIn() {
  acquire(feedLock);
  touch;
  notifyAll();
  retryCount = 0;
  dropped = false;
  if
  :: myVersion != version || needExit -> goOn = false
  :: else ->
     goOn = true;
     /* findRoom */
     do
     :: held[writeHead] -> break
     :: !held[writeHead] && heldCount < ROOM ->
        held[writeHead] = true;
        heldCount++;
        break
     :: !held[writeHead] && heldCount == ROOM ->
        if
        :: position > 0 && held[0] -> held[0] = false; heldCount--
        :: position > 1 && held[1] -> held[1] = false; heldCount--
        :: else ->
           if
           :: needFeed && !held[position] -> dropped = true; break
           :: else
           fi;
           notifyAll();
           waitFeed(waitT);
           if
           :: needExit || myVersion != version -> goOn = false; break
           :: else
           fi
        fi
     od;
     if
     :: !goOn
     :: else ->
        if
        :: !dropped -> connectionStored = true; emptyEnds = 0; writeHead++
        :: else
        fi;
        /* serveReader */
        if
        :: needFeed && !held[position] ->
           if
           :: !dropped && position == writeHead -> needFeed = false
           :: else ->
              announceRestart();
              if
              :: prepared -> place()
              :: else
              fi;
              goOn = false
           fi
        :: else ->
           if
           :: dropped ->
              announceRestart();
              if
              :: prepared -> queueRestart(writeHead)
              :: else
              fi;
              goOn = false
           :: else
           fi
        fi
     fi
  fi;
  notifyAll();
  unlock(feedLock)
}

/* parkUntilFed */
inline parkUntilFed() {
  emptyEnds = 0;
  parkedVersion = version;
  parked = true;
  do
  :: needFeed && !held[position] ->
     parked = false;
     needFeed = false;
     placeAtReader();
     break
  :: else ->
     notifyAll();
     waitFeed(waitT);
     if
     :: needExit || version != parkedVersion -> parked = false; break
     :: else
     fi
  od
}

inline continueAfterEnd() {
  if
  :: activeWorkNum > 1 && notedVersion != version -> notifyAll()
  :: else ->
     streamStatus = ENDED;
     notifyAll();
     if
     :: writeHead >= CHUNKS -> parkUntilFed()
     :: else ->
        if
        :: !connectionStored -> emptyEnds++
        :: else
        fi;
        if
        :: !connectionStored && emptyEnds >= 2 -> failStream()
        :: else -> restartAt(writeHead)
        fi
     fi
  fi
}

/* notifyStreamException */
inline sendEvent() {
  acquire(feedLock);
  touch;
  entryVersion = version;
  if
  :: needExit -> notifyAll()
  :: else ->
     if
     :: event == PARTIAL_END -> continueAfterEnd()
     :: event == STREAM_ERROR ->
        retryCount++;
        streamStatus = FAILED;
        notifyAll();
        if
        :: retryCount >= 2
        :: else ->
           if
           :: writeHead >= CHUNKS -> continueAfterEnd()
           :: else -> restartAt(writeHead)
           fi
        fi
     :: event == CANCELED ->
        notifyAll();
        if
        :: breakRequested -> streamStatus = RELEASED
        :: else
        fi
     fi
  fi;
  if
  :: version == entryVersion && notedVersion == version -> streaming = false
  :: else
  fi;
  unlock(feedLock)
}

/* executeGet and receive */
inline transfer() {
  /* beginTransfer */
  atomic {
    if
    :: !armed -> isActive = true
    :: else
    fi;
    armed = false;
    running = true
  };
  event = NO_EVENT;
  first = true;
  do
  :: !isActive -> event = CANCELED; break
  :: isActive ->
     if
#if FAULT == 6
     /* an exception in a callback that looks like a refused piece */
     :: failuresLeft > 0 -> failuresLeft--; event = CANCELED; break
#else
     :: failuresLeft > 0 -> failuresLeft--; event = STREAM_ERROR; break
#endif
     /* a server that says nothing more, met by a close */
     :: closing -> !isActive
     :: earlyLeft > 0 -> earlyLeft--; event = PARTIAL_END; break
     :: writeHead >= CHUNKS && myVersion == version -> event = PARTIAL_END; break
     :: else ->
        if
        :: first ->
           acquire(feedLock);
           if
           :: !needExit -> streamStatus = NORMAL; notifyAll()
           :: else
           fi;
           unlock(feedLock);
           first = false
        :: else
        fi;
        streamIn();
        /* holds still after an announced stop */
        holding = true;
        (!stopWait || !isActive);
        holding = false;
        if
        :: !goOn -> event = CANCELED; break
        :: else
        fi
     fi
  od;
  /* endTransfer */
  atomic { isActive = false; running = false }
}

proctype Worker() {
  byte myVersion, parkedVersion, entryVersion;
  bool goOn, dropped, go, first, prepared;
  mtype event;
end:
  do
  :: workerClosed -> break
  :: workerAlive && !workerClosed ->
     workerAlive = false;
     /* prepareConnection */
     acquire(feedLock);
     touch;
     forgetBrokenRead();
     go = false;
     if
     :: needExit -> streaming = false; notifyAll()
     :: else ->
        if
        :: notedVersion != version || startedVersion == version
        :: else ->
           go = true;
           needFeed = false;
           connecting = true;
           startedVersion = version;
           myVersion = version;
           writeHead = streamFrom;
           connectionStored = false
        fi
     fi;
     unlock(feedLock);
     if
     :: go ->
        /* startStreaming */
        acquire(producerLock);
        alive = true;
        unlock(producerLock);
        acquire(producerLock);
        if
        :: !alive -> unlock(producerLock)
        :: else ->
           finished = false;
           atomic { isActive = true; armed = true };
           unlock(producerLock);
           transfer();
           acquire(producerLock);
           sendEvent();
           finished = true;
           unlock(producerLock)
        fi;
        /* connectionLeft */
        acquire(feedLock);
        touch;
        connecting = false;
        notifyAll();
        unlock(feedLock)
     :: else
     fi
  od;
  workerGone = true
}

/* ---------------------------------------------------------------- stopping and restarting */

/* HttpFileRequest::stopStreaming with MethodRequest::stop inside */
inline stopStreaming() {
  acquire(producerLock);
  touch;
  alive = false;
  atomic { stopWait = false; isActive = false };
  !(armed || running);
  /* while (!finished) wait(0): gives the lock */
  if
  :: finished
  :: else ->
     unlock(producerLock);
     atomic { finished && !producerLock -> producerLock = true }
  fi;
  unlock(producerLock)
}

/* stopWorker, with workerLock held */
inline stopWorker() {
  stopStreaming();
  acquire(feedLock);
  do
#if FAULT == 4
  :: true -> break
#endif
  :: !connecting -> break
  :: connecting ->
     /* waits 5 ms at most */
     unlock(feedLock);
     stopStreaming();
     acquire(feedLock)
  od;
  unlock(feedLock);
  workerAlive = false;
  activeWorkNum--
}

proctype Engine() {
end:
  do
  :: atomic { tasksQueued > 0 -> tasksQueued-- };
     touch;
     /* restart */
     acquire(workerLock);
     acquire(feedLock);
     forgetBrokenRead();
     unlock(feedLock);
     if
     :: needExit ->
        /* giveRestartUp */
        if
        :: !releaseCalled -> stopStreaming()
        :: else
        fi;
        acquire(feedLock);
        activeWorkNum--;
        streaming = false;
        notifyAll();
        unlock(feedLock)
     :: else ->
        acquire(feedLock);
        if
        :: notedVersion == version -> activeWorkNum--; unlock(feedLock)
        :: else ->
           unlock(feedLock);
           stopWorker();
           acquire(feedLock);
           notedVersion = version;
           unlock(feedLock);
           workerAlive = true
        fi
     fi;
     unlock(workerLock);
     touch;
     restartTasks--
  :: freed && tasksQueued == 0 -> break
  od
}

/* ---------------------------------------------------------------- close */

inline breakRead(w) {
  acquire(feedLock);
  touch;
  if
  :: !readRunning
  :: else ->
     breakRequested = true;
     do
     :: !breakRequested -> break
     :: breakRequested -> notifyAll(); waitFeed(w)
     od
  fi;
  unlock(feedLock)
}

/* An abort of another thread, once, while the handle is open. */
proctype Aborter() {
  if
  :: !closing -> breakRead(waitA)
  :: true
  fi;
  aborterDone = true
}

proctype Closer() {
#ifdef PATIENT
  readerDone && aborterDone;
  timeout;
  /* Nothing moves any more: what still waits is a parked transfer, not one that burns its
     processor. */
  assert(!holding);
#endif
  closing = true;
  /* withdrawReads: breaks the read until it has ended */
  do
  :: !reading -> break
  :: reading -> breakRead(waitC)
  od;
  /* release */
  acquire(feedLock);
  releaseCalled = true;
  streamStatus = RELEASED;
#if FAULT != 2
  notifyAll();
#endif
  unlock(feedLock);
  acquire(queueLock);
  atomic { restartTasks = restartTasks - tasksQueued; tasksQueued = 0 };
  acquire(workerLock);
  stopWorker();
  unlock(workerLock);
  unlock(queueLock);
#if FAULT != 5
  restartTasks == 0;
#endif
  /* releaseFileRequest, ~BufferQueue */
  stopStreaming();
  workerClosed = true;
  workerGone;
  readerDone && aborterDone;
  freed = true
}

init {
  byte i = 0;
  atomic {
    run Reader();
    run Worker();
    run Closer();
    run Aborter();
    do
    :: i < ENGINES -> run Engine(); i++
    :: else -> break
    od
  }
}
