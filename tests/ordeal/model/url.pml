/* The producer of a URL: HttpFileRequest with MethodRequest. Its transfer runs on the queue's
 * worker, inside startStreaming. Included by queue.pml. */

bool alive, finished = true, stopWait, armed, isActive, running;
bool firstReceived;    /* a first piece of the resource has come */

#ifdef LIVE
/* A stop that came before its start is repeated after 5 ms, when the start has begun. */
#define mayRepeat alive
#else
#define mayRepeat true
#endif

inline setStopWait() {
  stopWait = true
}

inline checkPlace(bytes) {
  skip
}

inline checkEvent() {
  skip
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
     /* a silent server, met by a close */
     :: closing -> !isActive
     :: earlyLeft > 0 -> earlyLeft--; event = PARTIAL_END; break
     :: writeHead >= CHUNKS && myVersion == version -> event = PARTIAL_END; break
     :: else ->
        if
        :: !firstReceived ->
           atomic {
             acquire(feedLock);
             if
             :: !needExit -> streamStatus = NORMAL; notifyAll()
             :: else
             fi;
             unlock(feedLock)
           };
           firstReceived = true
        :: else
        fi;
        streamIn(true);
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

/* HttpFileRequest::startStreaming, on the worker */
inline startStreaming() {
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
     sendEvent(true);
     finished = true;
     unlock(producerLock)
  fi
}

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

inline releaseFileRequest() {
  stopStreaming()
}
