/* The producer of a local file: LocalFileRequest, with a thread of its own that reads the file.
 * startStreaming returns at once. Included by queue.pml. */

bool stopped, running;
byte currentRun;
byte runVersion;
byte requestCount;     /* in chunks; 0: to the end */
bool fileOpen = true;  /* initialize */
bool fileEof;
byte fileAt;           /* the chunk that is read next */
bool fileUsed;         /* a thread is inside the stream object */
bool producerFreed;
byte notOpenedLeft = NOT_OPENED;
byte stoppedRun;       /* the last run that a stop has ended; runs count from 1 */

#ifdef LIVE
/* In 5 ms the start is over: it waits for no thread that waits for the stop. */
#define mayRepeat false
#else
#define mayRepeat true
#endif

#define touchProducer assert(!producerFreed)

/* setStopWait does nothing: a refused run has ended. */
inline setStopWait() {
  skip
}

/* Bytes are stored at their own place. */
inline checkPlace(bytes) {
  assert(!bytes || at == writeHead)
}

/* The queue accepts only an end of the current version, from a run that was not stopped. */
inline checkEvent() {
  assert(needExit || (myRun > stoppedRun && myVersion == version))
}

/* LocalFileRequest::startStreaming, on the queue's worker */
inline startStreaming() {
  acquire(producerLock);
  touchProducer;
  fileUsed = true;
  atomic {
    /* The pieces may step over the count. */
    if
    :: requestCount = length
    :: requestCount = 0
    fi;
    if
    :: running -> refused = true
    :: else ->
       if
       /* reopen fails: 0, and neither bytes nor an end */
       :: stopped && notOpenedLeft > 0 -> notOpenedLeft--; fileOpen = false; lost = true
       :: true ->
          fileOpen = true;
          /* STREAM_NORMAL */
          acquire(feedLock);
          touch;
          if
          :: needExit -> notifyAll()
          :: else -> streamStatus = NORMAL; notifyAll()
          fi;
          unlock(feedLock);
#if FAULT != 16
          fileEof = false;
#endif
          fileAt = from;
          runVersion = myVersion;
          stopped = false;
          running = true;
          currentRun++;
          startThread(FILE_THREAD);
          /* A stop has withdrawn the previous start's request before every start: so the check
             whether that request still stands, which takes no lock, is never made. */
          if
          :: started
          :: else ->
             assert(threads[FILE_THREAD].failed);
             running = false;
             refused = true
          fi
       fi
    fi;
    /* A connection is not started only if the thread cannot be created. */
    assert(!refused || threads[FILE_THREAD].failed);
    fileUsed = false;
    from = 0;
    length = 0;
    unlock(producerLock)
  }
}

/* read and its hand-over; over: the run is */
inline readChunk() {
  atomic {
    acquire(producerLock);
    touchProducer;
    over = false
  };
  if
#if FAULT == 7
  :: stopped || threads[FILE_THREAD].forceClose || fileEof -> over = true
#else
  :: stopped || myRun != currentRun || threads[FILE_THREAD].forceClose || fileEof -> over = true
#endif
  :: else ->
     fileUsed = true;
     atomic {
       assert(fileOpen);
       at = fileAt;
       got = false;
       if
       :: fileAt >= CHUNKS -> fileEof = true
       /* a medium that was pulled out returns no bytes */
       :: earlyLeft > 0 && fileAt < CHUNKS -> earlyLeft--
       :: fileAt < CHUNKS -> got = true; fileAt++
       /* the last piece is a short one */
       :: fileAt == CHUNKS - 1 -> got = true; fileAt++; fileEof = true
       fi;
       fileUsed = false
     };
     assert(myRun > stoppedRun);
     streamIn(got);
     atomic {
       if
       :: !goOn ->
#if FAULT != 14
          stopped = true;
#endif
          running = false;
          over = true
       :: goOn && !got -> over = true
       :: else -> total++
       fi
     }
  fi;
  unlock(producerLock)
}

/* notifyPerformEnd */
inline notifyPerformEnd() {
  atomic {
    acquire(producerLock);
    touchProducer;
    tells = false;
    if
#if FAULT != 7
    :: myRun != currentRun
#endif
    :: else ->
       running = false;
       tells = !stopped
    fi;
    unlock(producerLock)
  };
  if
  :: tells -> event = PARTIAL_END; sendEvent(false)
  :: else
  fi
}

/* runner with perform */
proctype FileThread() {
  byte myVersion, parkedVersion, before, myRun, count, total, at;
  bool goOn, dropped, prepared, wakes, over, got, tells, gone;
  mtype event;
end:
  threadExists(FILE_THREAD);
  do
  :: gone -> break
  :: !gone ->
     beginRun(FILE_THREAD);
     /* deliver */
     atomic {
       acquire(producerLock);
       touchProducer;
       if
       :: !running
       :: else ->
          myRun = currentRun;
          count = requestCount;
          myVersion = runVersion
       fi;
       unlock(producerLock)
     };
     if
     :: myRun == 0
     :: else ->
        do
        :: count != 0 && total == count -> break
        :: else ->
           readChunk();
           if
           :: over -> break
           :: else
           fi
        od;
        notifyPerformEnd();
        /* state that the next run does not need */
        d_step {
          myRun = 0;
          count = 0;
          total = 0;
          at = 0;
          myVersion = 0;
          goOn = false;
          over = false;
          got = false;
          tells = false
        }
     fi;
     touchProducer;
     endRun(FILE_THREAD)
  od
}

/* LocalFileRequest::stopStreaming */
inline stopStreaming() {
  atomic {
    acquire(producerLock);
    touchProducer;
    withdrawRun(FILE_THREAD);
    stopped = true;
    running = false;
    stoppedRun = currentRun;
    fileOpen = false;
    /* state that no run needs any more */
    fileAt = 0;
    requestCount = 0;
    runVersion = 0;
    unlock(producerLock)
  }
}

/* release, which takes no lock, and ~LocalFileRequest */
inline releaseFileRequest() {
  assert(!fileUsed);
  fileOpen = false;
  endThread(FILE_THREAD);
  producerFreed = true
}
