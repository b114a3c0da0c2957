/**
 * @file
 * The complete C interface of libfluviafs. No other header is installed, and none is needed.
 */
/**
 * @mainpage libfluviafs
 *
 * Local files and HTTP(S) resources behind one file-like interface.
 *
 * A caller opens an absolute path or a URL and gets a small integer handle. It then reads, seeks
 * and asks for the size and the position, much as with a local file. The library reads ahead into
 * memory and starts a new request when the target of a seek is not buffered.
 *
 * @code
 * int handle = 0;
 * unsigned int got = 0;
 * char buffer[4096];
 * if (x_fluvia_file_open("/media/film.ts", &handle) == FVFR_OK) {
 *   while (x_fluvia_file_read(handle, buffer, sizeof buffer, &got) == FVFR_OK && got != 0) {
 *     consume(buffer, got);
 *   }
 *   x_fluvia_file_close(handle);
 * }
 * @endcode
 *
 * @section handles Handles
 * A handle is a number from 1 to FVFR_MAX_HANDLES. Open returns the lowest free one; a number is
 * free again as soon as its handle has been closed. "Out of range" below means any other number.
 * "Not open" means a number in that range that was never opened or has been closed.
 *
 * Each handle has its own read position. Handles opened with the same text (byte for byte) share
 * one stream and one buffer. Their reads take turns, and a read that waits delays the other handles
 * of that resource.
 *
 * The library does not detect that a resource was replaced on its server while it is open. Bytes of
 * the old and the new resource are then mixed, each at its offset, without an error; this affects
 * all handles that share the resource, and also a single handle. A caller that opens the name again
 * should compare the size and the type with those it had before.
 *
 * @section missing Open succeeds for a missing file
 * Opening makes no connection. x_fluvia_file_open() returns FVFR_OK for a path that does not exist,
 * for anything that is neither a readable regular file nor a block device, and for a server that
 * does not respond. The handle is valid and must be closed; the error shows at the first read, size
 * or seek. A handle without a resource behind it (a missing local file) is called "empty" below:
 * read, size and seek return FVFR_FAILED.
 *
 * @section sizes Sizes
 * Offsets and sizes are in bytes, signed 64 bits. The size of a local file is its length modulo
 * 2^32: a file of 4 GiB + 10 bytes reads as one of 10 bytes, and an exact multiple of 4 GiB as an
 * empty one. The size of an HTTP resource is the length that the first response states. If only the
 * total of a Content-Range line states it, the size is at most 2147483647. If the length of a
 * resource cannot be determined, its size is FVFR_UNKNOWN_SIZE.
 *
 * @section threads Threads
 * Every function may be called from any thread, also from a completion callback. None throws. A
 * handle may be closed while other threads read on it: their reads return. Do not use a handle
 * after the call that closed it has returned: its number may by then refer to a different file.
 *
 * @section waits Which calls wait
 * A wait has no time limit of its own unless one is given here.
 * - read: until the bytes are available, the stream ends or it fails. read_abort with request 0 on
 *   the same handle and close also end the wait. The transfer's own time limits end a transfer that
 *   stalls (HTTP only).
 * - read_async: never.
 * - size, seek: the first call on a resource may read one byte to determine the size, and waits as
 *   read does. seek never waits for the data at its target.
 * - open, open_x: opening a name that is already open may wait, as size does, until that resource
 *   has delivered its first byte or failed. IT BLOCKS THE WHOLE INTERFACE meanwhile: every call
 *   that takes a handle, and every other open. Only data or the failure of that resource ends the
 *   wait. The first open of a name does not wait.
 * - read_abort: until the aborted read has stopped waiting; short.
 * - close: until running reads of the handle have ended and the callbacks of its asynchronous reads
 *   that run on other threads have returned.
 * - volatile: until a running read of the resource has ended.
 * - everything else: never, except while an open blocks the interface (see above).
 *
 * @section log Log
 * The library writes its log lines to standard error. Level FVFR_LOG_DEFAULT prints errors only, 0
 * adds the calls of this interface, 3 prints everything. The first successful open of the process
 * sets the level from the file "/data/vendor/3rd_rw/fluviafs/log_level", if that file exists and is
 * not empty: its first two characters are read as a number, 0 if they form none.
 *
 * @section unloading Unloading
 * Handles are not closed at exit. The library stays mapped after dlclose(), because its worker
 * threads live as long as the process.
 *
 * @section families Two families of names
 * Each function of the family c_fluvia_file does exactly the same as the function of the family
 * x_fluvia_file with the same ending. Two functions have no c_ twin; each says so.
 */
#ifndef FLUVIAFS_H_
#define FLUVIAFS_H_

/** Marks the functions that the shared library exports. */
#if defined(__GNUC__)
#define FLUVIA_FILE_API __attribute__((visibility("default")))
#else
#define FLUVIA_FILE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @defgroup fluvia_codes Codes and limits
 * Return values and limits.
 *
 * Every function that can fail reports it by its return value: failures are negative, and errno is
 * not set. Test for FVFR_OK and for the failures that need special handling; treat any other
 * negative number as a failure.
 * @{
 */

/** Return values of the functions that return int. Failures are negative. */
enum {
  FVFR_OK = 0,              /**< success */
  FVFR_NOT_APPLIED = -1,    /**< a setting or request id that cannot be applied; a read that met the
                               closing of its handle */
  FVFR_FAILED = -4,         /**< general failure: bad or closed handle, null argument, invalid URL,
                               no free handle or request id, no such file, aborted read, failed
                               stream */
  FVFR_TIMEOUT = -6,        /**< the server did not respond in time */
  FVFR_SEEK_REFUSED = -12,  /**< the stream cannot seek that far */
  FVFR_END_OF_FILE = -13,   /**< the read began at the end of the file */
  FVFR_NOT_AVAILABLE = -17, /**< the server cannot serve the resource now (an HTTP
                               status of 500 to 599) */
  FVFR_NOT_FOUND = -21      /**< the server has no such resource (400 to 499), has fallen silent, or
                               cannot be found by its name */
};

/** The status that a completion callback gets. */
enum {
  FVFR_ASYNC_FAILED = -1,    /**< the read failed */
  FVFR_ASYNC_DONE = 1,       /**< readBytes bytes were read; fewer than asked at the end */
  FVFR_ASYNC_CANCELLED = 3,  /**< cancelled before it ran, or aborted while it ran */
  FVFR_ASYNC_END_OF_FILE = 4 /**< the read began at the end of the file: 0 bytes */
};

/** The limits of the interface. */
enum {
  FVFR_MAX_HANDLES = 255,         /**< open handles of a process: a table of 256 whose entry 0 is
                                     never used */
  FVFR_MAX_REQUESTS = 511,        /**< outstanding asynchronous reads of a process: a table of 512,
                                     whose entry 0 stands for the blocking read */
  FVFR_DEFAULT_BUFFER = 0x200000, /**< bytes of buffer that x_fluvia_file_open() asks for: 2 MiB, 64
                                     blocks */
  FVFR_BUFFER_BLOCK = 32768, /**< bytes of a buffer block; buffers are made of whole blocks, and
                                connections begin at multiples of it */
  FVFR_SEEK_SPAN = 0x100000  /**< bytes a stream that cannot seek may be moved forward: 1 MiB,
                                half of the default buffer */
};

/** The log levels with a name; any int is a level. */
enum {
  FVFR_LOG_DEFAULT = -4,  /**< errors only */
  FVFR_LOG_DISABLED = -1, /**< what x_fluvia_file_disable_log() sets: still prints errors */
  FVFR_LOG_CALLS = 0,     /**< errors and the calls of this interface */
  FVFR_LOG_ALL = 3        /**< everything */
};

/**
 * The size, in bytes, of a resource whose length cannot be determined: 2^60 - 1. It is larger than
 * any real size, so comparing a position with the size needs no special case.
 */
#define FVFR_UNKNOWN_SIZE 0x0FFFFFFFFFFFFFFFLL

/** @} */

/**
 * @defgroup fluvia_open Opening and closing
 * Opens a handle for a path or a URL, and closes it.
 *
 * A handle is valid in the whole process: any thread may use it. The library copies the name and
 * keeps no pointer to the caller's memory.
 * @{
 */

/**
 * Opens an absolute path or an http:// or https:// URL with a buffer of FVFR_DEFAULT_BUFFER bytes.
 *
 * The check of the beginning ignores case. A scheme in capitals ("HTTP://") passes it but names no
 * server: the handle is empty. If the name is already open, this may wait and block the whole
 * interface: see "Which calls wait".
 *
 * @param[in]  url     the name, zero-terminated; copied
 * @param[out] handle  1 to FVFR_MAX_HANDLES on success
 * @retval FVFR_OK      *handle is open and must be closed; the file may still be missing
 * @retval FVFR_FAILED  url or handle is null, or url begins with none of "http://", "https://" and
 *                      "/": *handle is untouched. All FVFR_MAX_HANDLES handles are in use, or
 *                      memory ran out: *handle is -1
 */
FLUVIA_FILE_API int x_fluvia_file_open(const char* url, int* handle);
/** @copydoc x_fluvia_file_open */
FLUVIA_FILE_API int c_fluvia_file_open(const char* url, int* handle);

/**
 * Same as x_fluvia_file_open(), with a buffer size chosen by the caller.
 *
 * The buffer's addresses are reserved at once, its memory is used as it fills. INT_MAX reserves 2
 * GiB of addresses; if they are not available, the handle is empty. If the name is already open,
 * its buffer is shared and bufferSize is ignored.
 *
 * @param[in]  url         as for x_fluvia_file_open()
 * @param[out] handle      as for x_fluvia_file_open()
 * @param[in]  bufferSize  bytes, rounded towards 0 to whole blocks of FVFR_BUFFER_BLOCK; any int,
 *                         at least two blocks are used
 * @retval FVFR_OK      as for x_fluvia_file_open()
 * @retval FVFR_FAILED  as for x_fluvia_file_open()
 */
FLUVIA_FILE_API int x_fluvia_file_open_x(const char* url, int* handle, int bufferSize);
/** @copydoc x_fluvia_file_open_x */
FLUVIA_FILE_API int c_fluvia_file_open_x(const char* url, int* handle, int bufferSize);

/**
 * Closes a handle.
 *
 * Cancels its queued asynchronous reads: each is called back once with FVFR_ASYNC_CANCELLED, on
 * this thread. Aborts its running reads and waits for their callbacks on other threads; see
 * x_fluvia_file_read_async(). Closing the last handle of a resource ends its transfer and frees the
 * buffer.
 *
 * @param[in] handle  an open handle; its number may refer to another file once this has returned
 * @retval FVFR_OK      closed
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_close(int handle);
/** @copydoc x_fluvia_file_close */
FLUVIA_FILE_API int c_fluvia_file_close(int handle);

/**
 * Declares that the length of the handle's resource may grow or shrink while it is read (a live
 * stream, a file being recorded).
 *
 * This applies to every handle of the resource and cannot be undone. Waits until a running read of
 * the resource has ended.
 *
 * @param[in] handle  an open handle
 * @retval FVFR_OK      marked; also when the handle is empty
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_volatile(int handle);
/** @copydoc x_fluvia_file_volatile */
FLUVIA_FILE_API int c_fluvia_file_volatile(int handle);

/** @} */

/**
 * @defgroup fluvia_read Reading
 * Reads that wait.
 * @{
 */

/**
 * Reads at the handle's position and moves it by the bytes read.
 *
 * Waits for the data. Returns fewer bytes than asked only if the end of the file was reached. After
 * a failure the position is unchanged, and *readBytes counts the bytes of buffer that were filled
 * before the failure.
 *
 * A stream without a length (a chunked body, one that ends with its connection, an ICY response)
 * needs care: the read after a seek back to bytes that are no longer buffered returns FVFR_OK AND
 * THE BYTES OF ANOTHER PLACE. It begins at the position plus the offset of the oldest byte that is
 * buffered. Only x_fluvia_file_offset() shows this afterwards.
 *
 * @param[in]  handle     an open handle
 * @param[out] buffer     room for size bytes; in use by the library until the call returns. Must
 *                        not be null unless size is 0 (not checked)
 * @param[in]  size       bytes to read, any number; 0 reads nothing and still reports the end
 * @param[out] readBytes  bytes of buffer that were filled. Must not be null (not checked)
 * @retval FVFR_OK             *readBytes bytes read
 * @retval FVFR_END_OF_FILE    the position is at the end: *readBytes is 0
 * @retval FVFR_FAILED         out of range, not open or empty: *readBytes is unchanged. Or the read
 *                             was aborted, the position is negative, or the stream failed (also a
 *                             stream that failed before with one of the codes below)
 * @retval FVFR_NOT_APPLIED    the resource is being closed
 * @retval FVFR_TIMEOUT        no response in time: returned to the first read that meets this
 *                             failure of an HTTP resource
 * @retval FVFR_NOT_AVAILABLE  status 500 to 599: likewise
 * @retval FVFR_NOT_FOUND      status 400 to 499, an unknown host or a silent server: likewise
 */
FLUVIA_FILE_API int x_fluvia_file_read(int handle, char* buffer, unsigned int size,
                                       unsigned int* readBytes);
/** @copydoc x_fluvia_file_read */
FLUVIA_FILE_API int c_fluvia_file_read(int handle, char* buffer, unsigned int size,
                                       unsigned int* readBytes);

/** @} */

/**
 * @defgroup fluvia_read_async Asynchronous reads
 * Reads that call back when they end, and how reads of both kinds are aborted.
 *
 * A completion callback runs on one of the library's worker threads. One exception: a request that
 * is cancelled before a worker took it is called back on the thread that called read_abort or
 * close. No lock of the library is held during a callback, and the callback may call every function
 * of the interface, including close. At most five requests run at a time in the process (one of its
 * six workers is reserved for restarting streams), and one per resource. A callback that takes long
 * delays other requests.
 * - Every outstanding request of a handle starts at the position that the handle had when the
 *   request was issued. Two requests issued one after the other deliver the SAME bytes. To continue
 *   reading, issue the next request from the callback of the last one (the position has moved by
 *   then).
 * - Request ids run from 1 to FVFR_MAX_REQUESTS over all handles, lowest free first. An id is
 *   reused as soon as its request has ended: an id kept too long names a different request.
 * - ABORTING A QUEUED REQUEST CALLS BACK TWICE, both times with FVFR_ASYNC_CANCELLED and 0 bytes.
 *   userData must outlive the first call. (Closing the handle calls back once per request.)
 * - close waits for callbacks: after it has returned no callback comes, and the buffers are the
 *   caller's again. Do not call close while holding a lock that a callback takes. If close is
 *   called inside any callback, it waits for no callback (they might wait for each other): a
 *   completion of that handle that has begun on another thread may then still be running when close
 *   returns.
 * @{
 */

/**
 * Called when an asynchronous read has ended. Must not throw.
 *
 * @param[in] requestId  the id that x_fluvia_file_read_async() wrote
 * @param[in] userData   as given to x_fluvia_file_read_async()
 * @param[in] status     FVFR_ASYNC_DONE, FVFR_ASYNC_END_OF_FILE, FVFR_ASYNC_CANCELLED or
 *                       FVFR_ASYNC_FAILED
 * @param[in] readBytes  bytes of the buffer that are valid; also set for an aborted read
 */
typedef void (*fluvia_file_read_callback)(int requestId, void* userData, int status, int readBytes);

/**
 * Issues a read at the handle's position and returns at once.
 *
 * When the read has ended, the position moves by the bytes read, unless it was moved in the
 * meantime.
 *
 * @param[in]  handle     an open handle
 * @param[out] buffer     room for size bytes; in use by the library until the callback has been
 *                        called or close has returned. Must not be null (not checked)
 * @param[in]  size       bytes to read; at most INT_MAX, as the callback counts in an int
 * @param[in]  callback   called when the read has ended. Must not be null (not checked)
 * @param[in]  userData   passed to the callback unchanged; may be null
 * @param[out] requestId  1 to FVFR_MAX_REQUESTS; written before the callback can run. Must not be
 *                        null (not checked)
 * @retval FVFR_OK      the callback will be called, at least once
 * @retval FVFR_FAILED  out of range, not open, empty, or FVFR_MAX_REQUESTS requests are
 *                      outstanding: *requestId is unchanged and no callback comes
 */
FLUVIA_FILE_API int x_fluvia_file_read_async(int handle, char* buffer, unsigned int size,
                                             fluvia_file_read_callback callback, void* userData,
                                             int* requestId);
/** @copydoc x_fluvia_file_read_async */
FLUVIA_FILE_API int c_fluvia_file_read_async(int handle, char* buffer, unsigned int size,
                                             fluvia_file_read_callback callback, void* userData,
                                             int* requestId);

/**
 * Aborts a read of this handle.
 *
 * Request 0 is the blocking read that waits on this handle, which then returns FVFR_FAILED. While
 * the size of the resource is unknown, request 0 aborts any read of the resource. Any other number
 * is an asynchronous read:
 * - queued: its callback is called TWICE with FVFR_ASYNC_CANCELLED on this thread.
 * - running: its callback is called once, on its worker, with FVFR_ASYNC_CANCELLED and the bytes
 *   read so far.
 * - ended: nothing happens.
 *
 * @param[in] handle     an open handle
 * @param[in] requestId  0 to FVFR_MAX_REQUESTS
 * @retval FVFR_OK           done; also when there was nothing to abort
 * @retval FVFR_NOT_APPLIED  requestId is outside 0 to FVFR_MAX_REQUESTS
 * @retval FVFR_FAILED       out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_read_abort(int handle, int requestId);
/** @copydoc x_fluvia_file_read_abort */
FLUVIA_FILE_API int c_fluvia_file_read_abort(int handle, int requestId);

/** @} */

/**
 * @defgroup fluvia_seek Position and size
 * Moves a handle's position, and returns the position and the size of the resource.
 * @{
 */

/**
 * Moves the handle's position.
 *
 * An offset past the end moves to the end. A negative offset is stored as it is, and the next read
 * fails. A stream that cannot seek moves forward by at most FVFR_SEEK_SPAN bytes, and back only
 * into its first FVFR_SEEK_SPAN bytes. May wait for the size, never for the data at the target.
 *
 * A stream without a length cannot seek. A move back that is not refused returns FVFR_OK, but the
 * bytes there may be gone: x_fluvia_file_read() describes what the next read then does. To find out
 * whether a stream can seek, move it by FVFR_SEEK_SPAN + 1 bytes after its first byte has been
 * read: if it cannot, this returns FVFR_SEEK_REFUSED and keeps the position. Do not seek then.
 *
 * @param[in]  handle         an open handle
 * @param[in]  offset         bytes from the beginning of the resource
 * @param[out] currentOffset  the new position, bytes from the beginning. Must not be null (not
 *                            checked)
 * @retval FVFR_OK            moved
 * @retval FVFR_SEEK_REFUSED  the stream cannot seek that far: the position is unchanged, but
 *                            *currentOffset has been written
 * @retval FVFR_FAILED        out of range, not open, empty, a file of 0 bytes, or a resource that
 *                            failed: *currentOffset is unchanged
 */
FLUVIA_FILE_API int x_fluvia_file_seek(int handle, long long offset, long long* currentOffset);
/** @copydoc x_fluvia_file_seek */
FLUVIA_FILE_API int c_fluvia_file_seek(int handle, long long offset, long long* currentOffset);

/**
 * Returns the position at which the handle's next read begins. Never waits.
 *
 * After a seek back in a stream without a length this is the target of the seek until the next
 * read, which may move the position elsewhere: see x_fluvia_file_read().
 *
 * @param[in] handle  an open handle
 * @return The position in bytes: 0 after open and for an empty handle; negative after a seek to a
 *         negative offset.
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API long long x_fluvia_file_offset(int handle);
/** @copydoc x_fluvia_file_offset */
FLUVIA_FILE_API long long c_fluvia_file_offset(int handle);

/**
 * Returns the size of the resource. The first call may wait for the resource's first byte.
 *
 * @param[in] handle  an open handle
 * @return The size in bytes: modulo 2^32 for a local file; 0 also for a resource that failed, see
 *         x_fluvia_file_http_get_download_status(). That status stays FVFR_DOWNLOAD_OK for an
 *         address of IP version 6 if x_fluvia_file_http_set_ip_resolve() has not allowed those.
 * @retval FVFR_UNKNOWN_SIZE  the length cannot be determined
 * @retval FVFR_FAILED        out of range, not open or empty
 */
FLUVIA_FILE_API long long x_fluvia_file_size(int handle);
/** @copydoc x_fluvia_file_size */
FLUVIA_FILE_API long long c_fluvia_file_size(int handle);

/** @} */

/**
 * @defgroup fluvia_buffer The buffer
 * The capacity of a resource's buffer, and how much of it is filled.
 * @{
 */

/**
 * Returns the capacity of the resource's buffer. Never waits.
 *
 * @param[in] handle  an open handle
 * @return Bytes: the size asked for by the handle that was opened first, rounded towards 0 to whole
 *         blocks of FVFR_BUFFER_BLOCK. (If 0 or a negative size was asked for, that is returned,
 *         although two blocks are in use.)
 * @retval FVFR_FAILED  out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_bufferSize(int handle);
/** @copydoc x_fluvia_file_bufferSize */
FLUVIA_FILE_API int c_fluvia_file_bufferSize(int handle);

/**
 * Returns how much can be read without waiting. Never waits for data. It may be polled while a read
 * waits.
 *
 * @param[in] handle  an open handle
 * @return Bytes that are buffered without a gap from the handle's position on; 0 before the first
 *         read.
 * @retval FVFR_FAILED  out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_bufferedSize(int handle);
/** @copydoc x_fluvia_file_bufferedSize */
FLUVIA_FILE_API int c_fluvia_file_bufferedSize(int handle);

/** @} */

/**
 * @defgroup fluvia_log Log and diagnosis
 * How much the library logs on standard error.
 *
 * The process has one level. A line of level N is written when the level is at least N; see the
 * section "Log". libcurl's own lines about transfers are written at every level.
 * @{
 */

/**
 * Logs the state of the buffer of the resource that was opened first, when the level is at least
 * FVFR_LOG_ALL.
 *
 * @param[in] unused1  ignored; may be null
 * @param[in] unused2  ignored; may be null
 * @retval FVFR_OK  always
 */
FLUVIA_FILE_API int x_fluvia_file_dump_buffer(void* unused1, void* unused2);
/** @copydoc x_fluvia_file_dump_buffer */
FLUVIA_FILE_API int c_fluvia_file_dump_buffer(void* unused1, void* unused2);

/** Sets the log level to FVFR_LOG_DISABLED, which still prints errors. Never waits. */
FLUVIA_FILE_API void x_fluvia_file_disable_log(void);
/** @copydoc x_fluvia_file_disable_log */
FLUVIA_FILE_API void c_fluvia_file_disable_log(void);

/**
 * Sets the log level of the process. Never waits.
 *
 * A level set before the first successful open may be replaced by it: see the section "Log".
 *
 * @param[in] level  any int: the higher, the more is printed; INT_MIN silences everything
 */
FLUVIA_FILE_API void x_fluvia_file_set_log_level(int level);
/** @copydoc x_fluvia_file_set_log_level */
FLUVIA_FILE_API void c_fluvia_file_set_log_level(int level);

/**
 * Returns the log level of the process. Never fails, never waits.
 *
 * @return The level: FVFR_LOG_DEFAULT at the start.
 */
FLUVIA_FILE_API int x_fluvia_file_get_log_level(void);
/** @copydoc x_fluvia_file_get_log_level */
FLUVIA_FILE_API int c_fluvia_file_get_log_level(void);

/** @} */

/**
 * @defgroup fluvia_http_settings Settings of HTTP and HTTPS
 * What requests send, which authorities they trust, speed limits and time-outs.
 *
 * CERTIFICATES ARE NOT CHECKED until x_fluvia_file_http_set_CA() or x_fluvia_file_http_set_CAPath()
 * names the authorities to trust: without one of them an https:// resource may come from any
 * server. Credentials in URLs, cookies and proxy settings appear in the library's log lines and in
 * the transfer library's own lines on standard error.
 *
 * These functions act on the resource behind a handle, and so on every handle that shares it. They
 * never wait for a transfer. A setting applies from the resource's next request on: set it before
 * the first read. The texts are zero-terminated and copied; their length is not limited. A "local"
 * handle below is one of a local file, or an empty one.
 *
 * If no proxy was set, the proxy variables of the environment (http_proxy, https_proxy ...) apply.
 * 127.0.0.1 is always reached without a proxy, and no_proxy is not read. Redirects are followed, at
 * most 50, to http and https only. While a host's name is being resolved, close and the restart
 * after a seek take up to a second; the resolver itself continues in the background.
 * @{
 */

/**
 * Selects how failures are handled.
 *
 * With flag 1 a connection that has begun to deliver is aborted after 4 s without data instead of
 * 10 s. It is then retried once (FVFR_TIMEOUT if the retry fails too). A host whose name cannot be
 * resolved is retried once (then FVFR_FAILED). With any other flag, and at the start, the limit is
 * 10 s, and both failures are FVFR_NOT_FOUND at once.
 *
 * @param[in] handle  an open handle
 * @param[in] flag    1, or any other number
 * @retval FVFR_OK      set; also for a local handle, where nothing happens
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_set_featureflag(int handle, int flag);
/** @copydoc x_fluvia_file_set_featureflag */
FLUVIA_FILE_API int c_fluvia_file_set_featureflag(int handle, int flag);

/**
 * Limits the average download speed of each transfer. A running transfer applies the limit from its
 * next piece on.
 *
 * @param[in] handle  an open handle
 * @param[in] speed   bytes per second; 0 or below means no limit, as at the start
 * @retval FVFR_OK      set; also for a local handle, where nothing happens
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_speed(int handle, long long speed);
/** @copydoc x_fluvia_file_http_set_speed */
FLUVIA_FILE_API int c_fluvia_file_http_set_speed(int handle, long long speed);

/**
 * Sets the User-Agent header.
 *
 * @param[in] handle  an open handle
 * @param[in] value   the header's text, which ends at the first line end; "curl/7.19.5" at the
 *                    start
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  value is null, or a local handle
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_userAgent(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_userAgent */
FLUVIA_FILE_API int c_fluvia_file_http_set_userAgent(int handle, const char* value);

/**
 * Sets the proxy.
 *
 * @param[in] handle  an open handle
 * @param[in] value   `[scheme://][user:password@]host[:port]`; "" means no proxy and overrides the
 *                    environment
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  value is null, or a local handle
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_proxy(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_proxy */
FLUVIA_FILE_API int c_fluvia_file_http_set_proxy(int handle, const char* value);

/**
 * Sets a directory of authorities to trust and enables certificate checks. Has no c_ twin.
 *
 * libcurl's own bundle (on Debian /etc/ssl/certs/ca-certificates.crt) is trusted too. Without that
 * file every transfer fails until x_fluvia_file_http_set_CA() names one.
 *
 * @param[in] handle  an open handle
 * @param[in] value   a directory of PEM certificates with hashed names
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  value is null, or a local handle
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_CAPath(int handle, const char* value);

/**
 * Sets a file of authorities to trust and enables certificate checks.
 *
 * @param[in] handle  an open handle
 * @param[in] value   a file of PEM certificates
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  value is null, or a local handle
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_CA(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_CA */
FLUVIA_FILE_API int c_fluvia_file_http_set_CA(int handle, const char* value);

/**
 * Sets the Cookie header. Cookies that servers set are not kept.
 *
 * @param[in] handle  an open handle
 * @param[in] value   "name=value; name=value"; ends at the first line end; none at the start
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  value is null, or a local handle
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_cookie(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_cookie */
FLUVIA_FILE_API int c_fluvia_file_http_set_cookie(int handle, const char* value);

/**
 * Sets the client's certificate, for servers that ask for one. Null is refused before the handle is
 * looked up.
 *
 * @param[in] handle  an open handle
 * @param[in] value   a file with the certificate, PEM
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  a local handle
 * @retval FVFR_FAILED       value is null, or out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_client_authert(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_client_authert */
FLUVIA_FILE_API int c_fluvia_file_http_set_client_authert(int handle, const char* value);

/**
 * Sets the private key of the client's certificate. Null is refused before the handle is looked up.
 *
 * @param[in] handle  an open handle
 * @param[in] value   a file with the key
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  a local handle
 * @retval FVFR_FAILED       value is null, or out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_private_key(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_private_key */
FLUVIA_FILE_API int c_fluvia_file_http_set_private_key(int handle, const char* value);

/**
 * Sets the format of the key file. Null is refused before the handle is looked up.
 *
 * @param[in] handle  an open handle
 * @param[in] value   "PEM", as at the start, or "DER"
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  a local handle
 * @retval FVFR_FAILED       value is null, or out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_key_type(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_key_type */
FLUVIA_FILE_API int c_fluvia_file_http_set_key_type(int handle, const char* value);

/**
 * Selects which addresses of a host are used. Null is refused before the handle is looked up.
 *
 * @param[in] handle  an open handle
 * @param[in] value   "IPv4", as at the start, "IPv6", or "whatever" for either; any other text
 *                    changes nothing
 * @retval FVFR_OK           set, or nothing to change
 * @retval FVFR_NOT_APPLIED  a local handle
 * @retval FVFR_FAILED       value is null, or out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_ip_resolve(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_ip_resolve */
FLUVIA_FILE_API int c_fluvia_file_http_set_ip_resolve(int handle, const char* value);

/** @} */

/**
 * @defgroup fluvia_http_status State of an HTTP resource
 * How the last transfer ended, its speed, and what the server reported about itself and the
 * resource.
 *
 * The values belong to the resource behind a handle, and so to every handle that shares it. None of
 * these functions waits for a transfer or starts one: before the first read or size they have
 * nothing to report. A "local" handle below is one of a local file, or an empty one. The texts come
 * from the server and are not trusted: do not print them unescaped.
 * @{
 */

/** What x_fluvia_file_http_get_download_status() returns besides HTTP statuses of 400 and above. */
enum {
  FVFR_DOWNLOAD_OK = 0,               /**< no failure so far, also while a transfer runs */
  FVFR_DOWNLOAD_TIMEOUT = -2,         /**< no connection within 10 s */
  FVFR_DOWNLOAD_NO_DATA = -3,         /**< a connection without data for 10 s (4 s, see
                                         x_fluvia_file_set_featureflag()) */
  FVFR_DOWNLOAD_CONNECTION_DEAD = -5, /**< aborted at a reader's request after 2 s without data */
  FVFR_DOWNLOAD_UNKNOWN_HOST = -6,    /**< the host's name could not be resolved */
  FVFR_DOWNLOAD_UNREACHABLE = -7,     /**< the host is unreachable */
  FVFR_DOWNLOAD_REFUSED = -8          /**< the host refused the connection */
};

/**
 * Returns how the resource's last transfer ended.
 *
 * @param[in] handle  an open handle
 * @return FVFR_DOWNLOAD_OK (also for a local handle), another FVFR_DOWNLOAD number, or the HTTP
 *         status of the response if that is 400 or above.
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_get_download_status(int handle);
/** @copydoc x_fluvia_file_http_get_download_status */
FLUVIA_FILE_API int c_fluvia_file_http_get_download_status(int handle);

/**
 * Returns the download speed, smoothed over samples of one second each; before the resource's first
 * sample, the average so far.
 *
 * @param[in] handle  an open handle
 * @return Bytes per second; 0 before any transfer and for a local handle.
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API long long x_fluvia_file_http_get_speed(int handle);
/** @copydoc x_fluvia_file_http_get_speed */
FLUVIA_FILE_API long long c_fluvia_file_http_get_speed(int handle);

/**
 * Returns the Content-Type of the last response.
 *
 * @param[in] handle  an open handle
 * @return The type, "" when there is none yet; null when out of range, not open or a local handle.
 *         The text belongs to the library and stays valid until the same function is called for
 *         this handle again or the handle is closed: copy it if other threads use the handle.
 */
FLUVIA_FILE_API const char* x_fluvia_file_http_get_content_type(int handle);
/** @copydoc x_fluvia_file_http_get_content_type */
FLUVIA_FILE_API const char* c_fluvia_file_http_get_content_type(int handle);

/**
 * Returns the server's name: the Server header of the first response that had one.
 *
 * @param[in] handle  an open handle
 * @return The name, "" when there is none yet; null when out of range, not open or a local handle.
 *         The text belongs to the library and stays valid until the same function is called for
 *         this handle again or the handle is closed: copy it if other threads use the handle.
 */
FLUVIA_FILE_API const char* x_fluvia_file_http_get_server_name(int handle);
/** @copydoc x_fluvia_file_http_get_server_name */
FLUVIA_FILE_API const char* c_fluvia_file_http_get_server_name(int handle);

/**
 * Stores the IPv4 address, as text, of the server (or proxy) that any transfer of the process
 * connected to last. Has no c_ twin.
 *
 * @param[in]  handle  an open handle
 * @param[out] ipOut   room for 16 bytes, the longest address and its terminator; "" before any
 *                     transfer, "0.0.0.0" for IPv6
 * @retval FVFR_OK           written
 * @retval FVFR_NOT_APPLIED  ipOut is null, or a local handle: ipOut is unchanged
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_get_url_ip(int handle, char* ipOut);

/**
 * Copies the raw headers of the last response, status line first, WITHOUT A TERMINATOR.
 *
 * @param[in]  handle  an open handle
 * @param[out] buffer  room for size bytes; may be null only when size is 0 (not checked)
 * @param[in]  size    bytes to copy at most; 0 or below copies none
 * @param[out] length  the whole length of the headers in bytes, which may exceed size; at most
 *                     8192, because no more of them is kept. Must not be null (not checked)
 * @retval FVFR_OK      copied; for a local handle nothing happens and *length is unchanged
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_get_header(int handle, char* buffer, int size, int* length);
/** @copydoc x_fluvia_file_http_get_header */
FLUVIA_FILE_API int c_fluvia_file_http_get_header(int handle, char* buffer, int size, int* length);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* FLUVIAFS_H_ */
