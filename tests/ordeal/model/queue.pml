/* Reader, transfer, engine and close around one buffer queue and its producer.
 *
 * The states and their names are the code's own; the content of blocks is left out. A resource has
 * CHUNKS chunks and the queue has room for ROOM of them. Conditions have neither time-outs nor
 * spurious wake-ups, so that a wake-up that the code forgets is a deadlock here. Waits that the
 * code repeats after milliseconds may continue by themselves. Work under feedLock, a producer's
 * lock or a thread object's is one step up to the next wait; queries without a lock are between
 * the steps.
 *
 * This file is the queue with its reader, engine, abort and close. The producer is that of a URL
 * (url.pml, whose transfer runs on the queue's worker), or with LOCAL that of a local file
 * (local.pml, which has a thread of its own).
 *
 * Checked: every process terminates (no reader waits for ever, close terminates), there is no use
 * after free, no read fails without a cause, version and tasks stay within limits. For a local
 * file: a stopped run delivers nothing more, only the end of the current version is reported,
 * bytes are stored at their own place, and no thread uses the file when it is closed.
 *
 * Service is checked too. After a reader began to wait, the queue takes at most one chunk that does
 * not serve it before its bytes come or a newer version is announced (unserved). A chunk serves the
 * reader if it completes the bytes at position, or if the stream reaches them next: within MARGIN
 * chunks of writeHead. A reader that waits in the block that is written next requests nothing. The
 * request of any other reader (wishAsks) stands until that reader continues, even if needFeed is
 * lowered.
 *
 * A transfer without room may pause: then a read that leaves a chunk wakes it only if the reader is
 * near the write head. The clock that ends a pause is left out, so every reader that is served here
 * is served without it.
 *
 * With LIVE the search looks for a read that never ends (served), in runs that are fair to every
 * process. With ENDLESS the last chunk stands for the rest of a long resource. The network brings
 * pieces of it as long as the connection lasts, and no reader is there: only the queue ends that
 * connection.
 *
 * READS, ENGINES, FAILURES, EARLY, NO_MEMORY, NO_THREAD and NOT_OPENED limit a run: reads at any
 * positions, of one chunk or (not with SHORT_READS) up to the end; workers of the engine; errors of
 * the connection; connections or runs that end early; restarts without memory for their task (or,
 * of a local file, without a block); threads that cannot be created; files that cannot be opened.
 * With PATIENT the handle is closed after its reads: then a wait without end is a deadlock. Without
 * it the close comes at any time. In both cases another thread aborts once. Reads are numbered; an
 * abort and a close break the current read by its number, once, and wait for its end.
 *
 * Intentional, and no fault: a local file that cannot be reopened delivers neither bytes nor an
 * end. Its read waits until it is aborted or its handle is closed. So only after that (lost) a
 * patient close may find a waiting reader, and it has to end its wait.
 *
 * FAULT leaves out one thing that the code does, and check.sh expects an error for each:
 *   1  a broken read does not inform the thread that broke it
 *   2  a close does not wake waiting threads
 *   3  a stop is announced before there is memory for the restart that brings it
 *   4  a stop is not repeated while the worker is about to start the producer
 *   5  the close does not wait for restart tasks
 *   6  a failed connection is treated as a cancelled one
 *  17  a transfer that finds no room does not wake a reader that waits for more than there is room
 *  18  a chunk does not renew the wish of a waiting reader
 *  19  a restart clears that wish when its connection begins
 *  20  a transfer clears the wish of a reader that it does not reach
 *  21  a break that comes before its read is lost
 *  22  a broken read waits nevertheless
 *  23  a chunk renews the wish even if the reader's bytes are buffered: a reader that was woken and
 *      has not got the lock yet may then restart a transfer without room again and again
 *  24  a late break cancels one that names a later read
 *  25  a reader that begins to wait does not end the pause of a transfer without room
 * and of a local file's producer:
 *   7  a run does not check that it is still the current one
 *   8  a stop that met a start is not repeated after that start
 *   9  the producer is destroyed without waiting for its thread
 *  10  the queue does not record that a run which it refused has ended
 *  11  a reader that waits again does not request a connection, though nothing streams
 *  12  a start during a run is lost when that run ends
 *  13  a forced stop does not wake a sleeping thread
 *  14  a refused run sends its end
 *  15  the close waits for a thread that could not be created
 *  16  a start does not clear the end of the file that an earlier run met
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
#ifndef NO_THREAD
#define NO_THREAD 1
#endif
#ifndef NOT_OPENED
#define NOT_OPENED 1
#endif
#ifndef FAULT
#define FAULT 0
#endif
#ifndef CHUNKS
#define CHUNKS 3
#endif
#ifndef ROOM
#define ROOM 2
#endif
#ifndef MARGIN
#define MARGIN 0
#endif
#ifdef ENDLESS
#define READABLE (CHUNKS - 1)
#define endless(chunk) (chunk == CHUNKS - 1)
#else
#define READABLE CHUNKS
#define endless(chunk) false
#endif

mtype = { IDLE, NORMAL, ENDED, FAILED, RELEASED };
mtype = { NONE, ANNOUNCED, RUNNING, PARKED };
mtype = { NO_EVENT, PARTIAL_END, STREAM_ERROR, CANCELED };

/* Locks. */
bool queueLock, feedLock, workerLock, producerLock;
/* True for threads that wait on feedLock's condition: reader, transfer, closer, aborter. */
bool waitR, waitT, waitC, waitA;
bool pauses;           /* the transfer waits for room, and no reader was near the write head */

/* BufferQueue. */
mtype streamStatus = IDLE;
byte retryCount;
byte version;
byte notedVersion;
byte startedVersion = 255;  /* connection.version */
mtype connection = NONE;
byte tasksQueued;      /* on the engine, not taken */
byte restartTasks;     /* queued or running */
bool needFeed, breakRequested, readRunning;
bool connecting, workerStarted, releaseCalled, connectionStored, endReported;
bool wishStands;       /* the reader waits: true until it has the lock again, even once woken */
bool wishAsks;         /* its bytes may need another connection */
byte brokenUpTo;       /* the highest number of a read that a break has named */
byte emptyEnds;
byte streamFrom;
byte streamLength;     /* in chunks; 0: to the end */
bool held[CHUNKS];
byte heldCount;
byte writeHead;        /* the chunk that the stream writes next */
byte position;         /* of the reader */
byte readEnd;          /* where its read ends */
byte tail;             /* the chunk that the reader was in last (rdTail) */
bool placed = true;    /* there is an empty block at writeHead */
byte walk, gap;        /* places of loops; 0 outside of them */

/* Chunks that were taken while the reader waited and that do not serve it, since it began to wait
   and since the last restart was announced. */
byte unserved;

/* The handle. */
byte number;           /* of its reads, from 1 on */
bool aborterDone;
bool closing, reading, readerDone, freed;
bool holding;          /* the transfer holds still for a stop */
bool lost;             /* a file could not be opened again */
byte failuresLeft = FAILURES;
byte earlyLeft = EARLY;
byte noMemoryLeft = NO_MEMORY;

#define needExit (streamStatus == RELEASED || (streamStatus == FAILED && retryCount > 1))
#define touch assert(!freed)
/* A read may fail: two ends in a row without a byte, two errors, or nothing to go on with. */
#define hasCause (releaseCalled || noMemoryLeft < NO_MEMORY || threadFailed || \
                  earlyLeft + 2 <= EARLY || failuresLeft + 2 <= FAILURES)
/* The stream is about to bring the reader's bytes. */
#define brings (position >= writeHead && position - writeHead <= MARGIN)
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

/* One buffered chunk makes room for another; the reader's own only if there is no other. A reader
   that was in it last, or in an empty block, is in the new one now. */
inline makeRoom(chunk) {
  if
  :: heldCount < ROOM
  :: heldCount >= ROOM ->
     if
     :: held[0] && position != 0 -> held[0] = false
     :: held[1] && position != 1 -> held[1] = false
     :: held[2] && position != 2 -> held[2] = false
#if CHUNKS > 3
     :: held[3] && position != 3 -> held[3] = false
#endif
#if CHUNKS > 4
     :: held[4] && position != 4 -> held[4] = false
#endif
     fi;
     heldCount--
  fi;
  if
  :: !held[tail] -> tail = chunk
  :: else
  fi
}

/* moveReaderTo: from block to block towards the reader's position, as far as there are blocks. */
inline moveReader() {
  d_step {
    walk = tail;
    do
    :: walk < position ->
       walk++;
       if
       :: held[walk] || (placed && walk == writeHead) -> tail = walk
       :: else
       fi
    :: walk > position ->
       walk--;
       if
       :: held[walk] || (placed && walk == writeHead) -> tail = walk
       :: else
       fi
    :: else -> break
    od;
    walk = 0
  }
}

/* selectBlockToWrite: one makes room for the chunk at writeHead, unless the reader is in it or it
   was written last. */
inline giveUpOne() {
  d_step {
    walk = 0;
    do
    :: held[walk] -> break
    :: else -> walk++
    od;
    if
    :: walk >= tail || walk + 1 == writeHead ->
       /* the last one, as the first one stays */
       walk = CHUNKS - 1;
       do
       :: held[walk] -> break
       :: else -> walk--
       od
    :: else
    fi;
    if
    :: walk == tail || walk + 1 == writeHead
    :: else -> held[walk] = false; heldCount--
    fi;
    walk = 0
  }
}

/* failStream */
inline failStream() {
  streamStatus = FAILED;
  retryCount = 2;
  notifyAll()
}

/* prepareRestart: prepared is true if there is memory for the task. */
inline prepareRestart() {
  prepared = true;
  if
  :: noMemoryLeft > 0 -> noMemoryLeft--; prepared = false; connection = NONE; failStream()
  :: true
  fi
}

/* announceRestart */
inline announceRestart() {
#if FAULT == 3
  setStopWait();
#endif
  prepareRestart();
  if
  :: prepared -> setStopWait()
  :: else
  fi
}

/* queueRestartTask, with memory for it */
inline queueRestartTask() {
  restartTasks++;
  tasksQueued++
}

/* resetStreaming, with a task */
inline queueRestart(from) {
  d_step {
    streamFrom = from;
    version++;
    assert(version < 20);
    unserved = 0;
    connection = ANNOUNCED;
    queueRestartTask()
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

/* fragmentStreaming with the task prepared: up to the next buffered chunk. */
inline placeAt(chunk) {
  makeRoom(chunk);
  writeHead = chunk;
  placed = true;
#ifdef LOCAL
  d_step {
    walk = writeHead + 1;
    do
    :: walk < CHUNKS && !held[walk] -> walk++
    :: else -> break
    od;
    streamLength = 0;
    if
    :: walk < CHUNKS -> streamLength = walk - writeHead
    :: else
    fi;
    walk = 0
  };
#endif
  queueRestart(writeHead)
}

/* fragmentOrNext at the reader's position, with the task prepared, or failPlacement */
inline place() {
  if
#ifdef LOCAL
  :: noMemoryLeft > 0 -> noMemoryLeft--; failStream(); queueRestartTask()
#endif
  :: true -> placeAt(position)
  fi
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

/* ---------------------------------------------------------------- thread objects */

typedef ThreadObject {
  bool alive;           /* a run is requested */
  bool forceClose, created, sleeping, wakeRequested;
  bool failed;          /* createResult is not 0 */
  bool sleeps, stopper  /* its thread, or a forced stop, waits on the object's condition */
};
#define WORKER 0
#define FILE_THREAD 1
#ifdef LOCAL
ThreadObject threads[2];
#define noThreads NO_THREAD
#else
ThreadObject threads[1];
#define noThreads 0
#endif
byte noThreadLeft = noThreads;
#define threadFailed (noThreadLeft != noThreads)
#define threadExists(t) (threads[t].created && !threads[t].failed)

/* Each of these holds the object's lock and none waits with it, so they are single steps. A start
   sets started if it was accepted. */
inline startThread(t) {
  atomic {
    if
    :: threads[t].alive || threads[t].forceClose -> started = false
    :: else ->
       started = true;
       if
       :: threads[t].sleeping -> threads[t].wakeRequested = true
       :: !threads[t].sleeping && threads[t].created
       :: else ->
          threads[t].created = true;
          if
          :: noThreadLeft > 0 -> noThreadLeft--; threads[t].failed = true; started = false
          :: true
          fi
       fi;
       threads[t].alive = started
    fi;
    threads[t].sleeps = false;
    threads[t].stopper = false
  }
}

/* stop(false) */
inline withdrawRun(t) {
  threads[t].alive = false
}

/* stop(true) */
inline endThread(t) {
  d_step {
    if
    :: threads[t].created ->
       threads[t].alive = false;
       threads[t].forceClose = true;
#if FAULT != 13
       threads[t].wakeRequested = true;
#endif
    :: else
    fi
  };
  do
#if FAULT == 9
  :: t == FILE_THREAD -> threads[t].sleeps = false; break
#endif
#if FAULT == 15
  :: !threads[t].created -> break
  :: atomic { threads[t].created ->
#else
  :: !threadExists(t) -> break
  :: atomic { threadExists(t) ->
#endif
     threads[t].sleeps = false; threads[t].stopper = true };
     !threads[t].stopper
  od
}

/* runner up to its function */
inline beginRun(t) {
  threads[t].alive = false
}

/* runner after its function, with park; gone: the thread leaves. */
inline endRun(t) {
  atomic {
    threads[t].stopper = false;
    threads[t].sleeps = false;
    if
    :: threads[t].forceClose -> threads[t].created = false; gone = true
#if FAULT == 12
    :: !threads[t].forceClose ->
#else
    :: !threads[t].forceClose && threads[t].alive
    :: !threads[t].forceClose && !threads[t].alive ->
#endif
       threads[t].sleeping = true;
       threads[t].wakeRequested = false;
       threads[t].sleeps = true
    fi
  };
  do
  :: atomic { !threads[t].sleeping -> break }
  :: atomic { threads[t].sleeping && !threads[t].sleeps ->
       if
       :: !threads[t].wakeRequested -> threads[t].sleeps = true
       :: else ->
          threads[t].wakeRequested = false;
          threads[t].sleeping = false;
          if
          :: threads[t].forceClose ->
             threads[t].created = false;
             threads[t].stopper = false;
             gone = true
          :: else
          fi
       fi
     }
  od
}

/* ---------------------------------------------------------------- the reader */

inline readOnce() {
  acquire(queueLock);
  atomic {
    acquire(feedLock);
    touch;
    forgetBrokenRead();
    opens = false;
    if
    :: !workerStarted ->
       workerStarted = true;
       connection = ANNOUNCED;
       opens = !needExit;
       startThread(WORKER);
       if
       :: started
       :: else -> opens = false; connection = NONE; failStream()
       fi
    :: else
    fi;
    unlock(feedLock)
  };
  atomic {
    acquire(feedLock);
    touch;
    if
    :: !opens && needExit -> assert(hasCause)
    :: else ->
       readRunning = true;
       breakRequested = number <= brokenUpTo;
#if FAULT == 11
       mayPlace = true;
#endif
       unserved = 0;
       before = tail;
       do
       :: position == readEnd -> break
       :: position < readEnd && held[position] ->
          moveReader();
          position++;
          unserved = 0;
          if
          :: needExit -> assert(hasCause); break
          :: !needExit && breakRequested -> breakRequested = false; notifyAll(); break
          :: else
          fi
       :: position < readEnd && !held[position] ->
          moveReader();
          /* waitInBlock: the block that it is in is the next to be written. */
          assert(tail != position || (placed && position == writeHead));
          needFeed = tail != position;
          /* placeReader */
          if
          :: breakRequested
#if FAULT == 11
          :: !breakRequested && !mayPlace
          :: !breakRequested && connection == NONE && !needExit && mayPlace -> placeAtReader()
#else
          :: !breakRequested && connection == NONE && !needExit -> placeAtReader()
#endif
          :: else
          fi;
#if FAULT == 11
          mayPlace = false;
#endif
          if
#if FAULT != 22
          :: needExit || breakRequested
#else
          :: needExit
#endif
          :: else ->
#if FAULT == 25
             if
             :: waitT && pauses -> notifyAll(); waitT = true
             :: else -> notifyAll()
             fi;
#else
             notifyAll();
#endif
             wishAsks = needFeed;
             wishStands = true;
             waitFeed(waitR);
             wishStands = false;
             wishAsks = false
          fi;
          if
#if FAULT == 1
          :: breakRequested -> breakRequested = false; break
#else
          :: breakRequested -> breakRequested = false; notifyAll(); break
#endif
          :: !breakRequested && needExit -> assert(hasCause); break
          :: else
          fi
       od;
       /* takeArrived */
       do
       :: position < readEnd && held[position] -> moveReader(); position++
       :: else -> break
       od;
       /* ~RunningRead */
       if
       :: breakRequested -> notifyAll()
       :: else
       fi;
       breakRequested = false;
       needFeed = false;
       readRunning = false;
       /* It has left a block, which may be the room that the transfer waits for. */
       if
       :: before != tail && waitT -> notifyAll()
       :: before != tail && waitT && pauses
       :: before == tail || !waitT
       fi;
       before = 0;
       prepared = false
    fi;
    opens = false;
    started = false;
    unlock(feedLock)
  };
  unlock(queueLock)
}

proctype Reader() {
  byte count = 0, before = 0;
  bool opens, prepared, started;
#if FAULT == 11
  bool mayPlace;
#endif
  do
  :: atomic { count < READS && !closing -> reading = true; number++ };
     atomic {
       position = 0;
       do
       :: position + 1 < READABLE -> position++
       :: break
       od;
       if
       :: readEnd = position + 1
#ifndef SHORT_READS
       :: readEnd = READABLE
#endif
       fi
     };
     readOnce();
     reading = false;
     count++
  :: closing || count == READS -> break
  od;
  readerDone = true
}

/* ---------------------------------------------------------------- the transfer */

/* A chunk was taken. */
inline noteService() {
#ifndef LIVE
  d_step {
    if
    :: wishStands && !held[position] && !brings -> unserved++; assert(unserved <= 1)
    :: else
    fi
  }
#else
  skip
#endif
}

/* streamIn of the chunk at writeHead. bytes: false for a piece without any */
inline streamIn(bytes) {
  atomic {
    acquire(feedLock);
    touch;
    dropped = false;
    if
    :: bytes -> retryCount = 0
    :: else
    fi;
#if FAULT != 18
    /* As the reader itself would if every chunk woke it. */
    if
#if FAULT == 23
    :: wishStands && wishAsks -> needFeed = true
#else
    :: wishStands && wishAsks && !held[position] -> needFeed = true
#endif
    :: else
    fi;
#endif
    if
    :: myVersion != version || needExit -> goOn = false
    :: else ->
       goOn = true;
       checkPlace(bytes);
       /* findRoom */
       do
       :: !bytes -> break
#ifdef LOCAL
       /* Its run should have ended before, but its pieces stepped over the count. */
       :: bytes && held[writeHead] ->
          goOn = false;
          break
#else
       :: bytes && held[writeHead] -> break
#endif
       /* There is always room for a piece of the rest. */
       :: bytes && endless(writeHead) -> break
       :: bytes && !endless(writeHead) && !held[writeHead] && heldCount < ROOM ->
          held[writeHead] = true;
          heldCount++;
          break
       :: bytes && !endless(writeHead) && !held[writeHead] && heldCount == ROOM ->
          giveUpOne();
          if
          :: heldCount < ROOM
          :: else ->
             before = tail;
#if FAULT != 17
             notifyAll();
#endif
             if
             :: pauses = true
             :: true
             fi;
             waitFeed(waitT);
             pauses = false;
             if
             :: needExit || myVersion != version -> goOn = false; break
             :: else
             fi;
             /* followReader */
             if
             :: needFeed ->
                moveReader();
                if
                :: before == tail -> dropped = true; break
                :: else
                fi
             :: else
             fi
          fi
       od;
       if
       :: !goOn
       :: else ->
          if
          :: bytes && !dropped ->
             connectionStored = true;
             emptyEnds = 0;
             if
             :: endless(writeHead)
             :: else -> writeHead++; placed = false
             fi;
             noteService()
          :: else
          fi;
          /* serveReader */
          if
          :: needFeed && !held[position] ->
             if
             :: !dropped && brings -> needFeed = false
#if FAULT == 20
             :: !dropped && !brings -> needFeed = false
             :: dropped ->
#else
             :: dropped || !brings ->
#endif
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
#ifdef LOCAL
#if FAULT != 10
    /* A run outside startStreaming reports no end. */
    if
    :: !goOn && myVersion == version -> connection = NONE
    :: else
    fi;
#endif
#endif
    /* readerCanGoOn */
    if
    :: wishStands -> moveReader()
    :: else
    fi;
    d_step {
      walk = position;
      do
      :: walk < readEnd && held[walk] -> walk++
      :: else -> break
      od;
      wakes = !goOn || (wishStands && walk == readEnd);
      walk = 0
    };
    dropped = false;
    prepared = false;
    before = 0;
    unlock(feedLock)
  };
  d_step {
    if
    :: wakes -> notifyAll()
    :: else
    fi;
    wakes = false
  };
  touch
}

/* parkUntilFed */
inline parkUntilFed() {
  emptyEnds = 0;
  parkedVersion = version;
  connection = PARKED;
  do
  :: needFeed && !held[position] ->
     needFeed = false;
     placeAtReader();
     break
  :: else ->
     notifyAll();
     waitFeed(waitT);
     if
     :: needExit || version != parkedVersion -> break
     :: else
     fi
  od;
  parkedVersion = 0
}

/* emptyEndIsFinal, up to its answer */
inline countEmptyEnd() {
  if
  :: !connectionStored -> emptyEnds++
  :: else
  fi
}

inline continueAfterEnd() {
  if
  :: connection == ANNOUNCED -> notifyAll()
  :: else ->
     streamStatus = ENDED;
     notifyAll();
     if
     :: writeHead >= CHUNKS -> parkUntilFed()
#ifdef LOCAL
     /* walkForGap: its count ended the run where chunks are buffered. */
     :: writeHead < CHUNKS && held[writeHead] ->
        d_step {
          gap = writeHead;
          do
          :: gap < CHUNKS && held[gap] -> gap++
          :: else -> break
          od
        };
        if
        :: gap < CHUNKS ->
           prepareRestart();
           if
           :: prepared -> placeAt(gap)
           :: else
           fi;
           gap = 0
        /* no block can be placed there */
        :: gap = 0; parkUntilFed()
        fi
#endif
     :: else ->
        countEmptyEnd();
        if
        :: !connectionStored && emptyEnds >= 2 -> failStream()
        :: else -> restartAt(writeHead)
        fi
     fi
  fi
}

/* notifyStreamException. inside: sent by the thread that is inside startStreaming */
inline sendEvent(inside) {
  atomic {
    acquire(feedLock);
    touch;
    checkEvent();
    if
    :: inside && connecting -> endReported = true
    :: else
    fi;
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
    :: connection != ANNOUNCED -> connection = NONE
    :: else
    fi;
    prepared = false;
    event = NO_EVENT;
    unlock(feedLock)
  }
}

#ifdef LOCAL
#include "local.pml"
#else
#include "url.pml"
#endif

/* ---------------------------------------------------------------- the worker */

proctype Worker() {
  byte myVersion;
#ifndef LOCAL
  byte parkedVersion, before;
  bool goOn, dropped, prepared, wakes;
  mtype event;
#endif
  byte from, length;
  bool go, gone, started, refused;
end:
  threadExists(WORKER);
  do
  :: gone -> break
  :: !gone ->
     beginRun(WORKER);
     /* prepareConnection */
     atomic {
       acquire(feedLock);
       touch;
       forgetBrokenRead();
       go = false;
       if
       :: needExit -> connection = NONE; notifyAll()
       :: else ->
          if
          :: notedVersion != version || startedVersion == version
          :: else ->
             go = true;
             needFeed = false;
#if FAULT == 19
             wishAsks = false;
#endif
             connecting = true;
             startedVersion = version;
             myVersion = version;
             from = streamFrom;
             writeHead = from;
             length = streamLength;
             streamLength = 0;
             connectionStored = false;
             endReported = false;
             connection = RUNNING
          fi
       fi;
       unlock(feedLock)
     };
     if
     :: go ->
        startStreaming();
        /* connectionLeft */
        atomic {
          acquire(feedLock);
          touch;
          connecting = false;
          if
          :: refused && myVersion == version && !needExit -> connection = NONE; failStream()
          :: else -> notifyAll()
          fi;
          myVersion = 0;
          go = false;
          refused = false;
          started = false;
          unlock(feedLock)
        }
     :: else
     fi;
     endRun(WORKER)
  od
}

/* ---------------------------------------------------------------- stopping and restarting */

/* stopWorker, with workerLock held */
inline stopWorker() {
  late = connecting;
  stopStreaming();
  do
#if FAULT == 4
  :: true -> break
#endif
  :: atomic { !connecting && !feedLock -> break }
  :: atomic { connecting && !feedLock && mayRepeat };
     /* waits 5 ms at most */
     stopStreaming()
  od;
  late = late && !endReported;
  if
#if FAULT != 8
  :: late -> stopStreaming()
#endif
  :: else
  fi;
  d_step {
    withdrawRun(WORKER);
    late = false
  }
}

proctype Engine() {
  bool late, started;
end:
  do
  :: atomic { tasksQueued > 0 -> tasksQueued-- };
     touch;
     /* restart */
     acquire(workerLock);
     atomic { acquire(feedLock); forgetBrokenRead(); unlock(feedLock) };
     if
     :: needExit ->
        /* giveRestartUp */
        if
        :: !releaseCalled -> stopStreaming()
        :: else
        fi;
        atomic {
          acquire(feedLock);
          connection = NONE;
          notifyAll();
          unlock(feedLock)
        }
     :: else ->
        if
        :: atomic { notedVersion == version && !feedLock }
        :: atomic { notedVersion != version && !feedLock };
           stopWorker();
           atomic { acquire(feedLock); notedVersion = version; unlock(feedLock) };
           atomic {
             startThread(WORKER);
             assert(started);
             started = false
           }
        fi
     fi;
     unlock(workerLock);
     touch;
     restartTasks--
  :: freed && tasksQueued == 0 -> break
  od
}

/* ---------------------------------------------------------------- close */

/* breakReads: of every read up to that number, also of one that the queue does not know yet */
inline breakReads(highest, w) {
  atomic {
    acquire(feedLock);
    touch;
#if FAULT != 21
    if
#if FAULT == 24
    :: brokenUpTo = highest
#else
    :: brokenUpTo < highest -> brokenUpTo = highest
    :: else
#endif
    fi;
#endif
    if
    :: !readRunning || number > highest
    :: else ->
       breakRequested = true;
       do
       :: !breakRequested -> break
       :: breakRequested -> notifyAll(); waitFeed(w)
       od
    fi;
    unlock(feedLock)
  }
}

/* An abort by another thread, once, while the handle is open: breaks the current read and waits for
   its end. */
proctype Aborter() {
  byte mine;
  if
  :: atomic { reading && !closing -> mine = number };
     breakReads(mine, waitA);
     !reading || number != mine
  :: true
  fi;
  aborterDone = true
}

proctype Closer() {
  bool late;
#ifdef PATIENT
  (readerDone && aborterDone) || lost;
#ifndef ENDLESS
  timeout;
  /* Nothing moves any more: a transfer that still waits is parked and does not spin. */
  assert(!holding);
#endif
#endif
  closing = true;
  /* withdrawReads: breaks the read that runs, and waits for its end */
  if
  :: reading -> breakReads(number, waitC); !reading
  :: !reading
  fi;
  /* release */
  atomic {
    acquire(feedLock);
    releaseCalled = true;
    streamStatus = RELEASED;
#if FAULT != 2
    notifyAll();
#endif
    unlock(feedLock)
  };
  acquire(queueLock);
  atomic { restartTasks = restartTasks - tasksQueued; tasksQueued = 0 };
  acquire(workerLock);
  stopWorker();
  unlock(workerLock);
  unlock(queueLock);
#if FAULT != 5
  restartTasks == 0;
#endif
  releaseFileRequest();
  /* ~BufferQueue */
  endThread(WORKER);
  readerDone && aborterDone;
  freed = true
}

init {
  byte i = 0;
  atomic {
    run Reader();
    run Worker();
#ifdef LOCAL
    run FileThread();
#endif
    run Closer();
    run Aborter();
    do
    :: i < ENGINES -> run Engine(); i++
    :: else -> break
    od
  }
}

#ifdef LIVE
/* Every read ends at some time. */
ltl served { [] (reading -> <> !reading) }
#endif
