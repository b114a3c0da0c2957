/**
 * @file
 * The C interface of libfluviafs, whole: no other header is installed, and none is needed.
 */
/**
 * @mainpage libfluviafs
 *
 * Local files and HTTP(S) resources behind one file-like interface.
 *
 * A caller opens an absolute path or a URL, gets a small integer handle, and reads, seeks and asks
 * for the size and the position much as with a local file. The library keeps data ahead of the
 * reader in memory and goes and gets what a seek needs.
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
 * A handle is a number from 1 to FVFR_MAX_HANDLES, the lowest free one at open; it is reused as
 * soon as it has been closed. "Out of range" below is any other number; "not open" is a number in
 * that range that was never opened or has been closed. A handle has a read position of its own.
 * Handles opened with the same text (byte for byte) share one stream and one buffer; their reads
 * take turns, and a read that waits holds up the other handles of that resource.
 * A resource that is replaced on its server while it is open is not noticed: bytes of the old one
 * and of the new one come together without a word, each at its offset, to all who share it and also
 * to a single handle. Whoever opens the name again compares the size and the type with those of
 * before.
 *
 * @section missing Open succeeds for a missing file
 * Opening makes no connection, and x_fluvia_file_open() returns FVFR_OK for a path that does not
 * exist, for anything that is neither a readable regular file nor a block device, and for a server
 * that does not answer. The handle is real and must be closed; the missing thing shows at the first
 * read, size or seek. A handle without a resource behind it (a missing local file) is called
 * "empty" below: read, size and seek give FVFR_FAILED.
 *
 * @section sizes Sizes
 * Offsets and sizes are bytes, signed 64 bits. The size of a local file is its length modulo 2^32:
 * a file of 4 GiB + 10 bytes reads as one of 10 bytes, and an exact multiple of 4 GiB as an empty
 * one. The size of an HTTP resource is the length that the first answer states; where only the
 * total of a Content-Range line tells it, at most 2147483647. The size of a resource whose length
 * cannot be learnt is FVFR_UNKNOWN_SIZE.
 *
 * @section threads Threads
 * Every function may be called from any thread, also from a completion callback, and never throws.
 * Closing a handle while other threads read on it is allowed: their reads return. A handle must not
 * be used after the call that closed it has returned, as its number may by then belong to somebody
 * else's file.
 *
 * @section waits Which calls wait
 * Waits have no time limit of their own unless one is given here.
 * - read: until the bytes are there, the stream ends or it fails. Ended by read_abort with request
 *   0 on the same handle and by close. A transfer that stalls is given up by the transfer's own
 *   time limits (HTTP only).
 * - read_async: never.
 * - size, seek: the first on a resource may read one byte to learn the size, and waits as read
 *   does. seek never waits for the data at its target.
 * - open, open_x: opening a name that is already open may wait, as size does, until that resource
 *   has delivered its first byte or failed. It HOLDS UP THE WHOLE INTERFACE meanwhile: no call that
 *   takes a handle, and no other open, gets on. Only data or the failure of that resource ends it.
 *   A first open of a name does not wait.
 * - read_abort: until the broken read has given up its wait; short.
 * - close: until running reads of the handle have ended and the callbacks of its asynchronous reads
 *   that run on other threads have returned.
 * - volatile: until a read of the resource that is under way is over.
 * - everything else: never, apart from the open above.
 *
 * @section log Log
 * The library writes its log lines to standard error. Level FVFR_LOG_DEFAULT prints errors only, 0
 * adds the calls of this interface, 3 prints everything. The first successful open of the process
 * replaces the level by the number that the first two characters of
 * "/data/vendor/3rd_rw/fluviafs/log_level" make (0 when they make none), when that file exists and
 * is not empty.
 *
 * @section unloading Unloading
 * Handles are not closed at exit. The library stays mapped after dlclose(): its worker threads live
 * as long as the process.
 *
 * @section families Two families of names
 * Each function of the family c_fluvia_file does exactly what the one of the same ending in the
 * family x_fluvia_file does. Two functions, told at their place, have no c_ twin.
 */
#ifndef FLUVIAFS_H_
#define FLUVIAFS_H_

/** Marks what the shared library exports. */
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
 * What the functions give, and the numbers that bound them.
 *
 * All functions that can fail tell so by what they return: failures are negative, and nothing is
 * kept in errno. Test for FVFR_OK and for the failures that are handled apart, and take any other
 * negative number for a failure.
 * @{
 */

/** What the functions that return int give. Failures are negative. */
enum {
  FVFR_OK = 0,              /**< success */
  FVFR_NOT_APPLIED = -1,    /**< a setting or request id that cannot be applied; a read that met the
                               closing of its handle */
  FVFR_FAILED = -4,         /**< general failure: bad or closed handle, null argument, invalid URL,
                               no free handle or request id, no such file, broken read, failed
                               stream */
  FVFR_TIMEOUT = -6,        /**< the server did not answer in time */
  FVFR_SEEK_REFUSED = -12,  /**< the stream cannot seek that far */
  FVFR_END_OF_FILE = -13,   /**< the read began at the end of the file */
  FVFR_NOT_AVAILABLE = -17, /**< the server has the resource but does not give it now (an HTTP
                               status of 500 to 599) */
  FVFR_NOT_FOUND = -21      /**< the server has no such resource (400 to 499), has fallen silent, or
                               cannot be found by its name */
};

/** The status a completion callback is given. */
enum {
  FVFR_ASYNC_FAILED = -1,    /**< the read failed */
  FVFR_ASYNC_DONE = 1,       /**< readBytes bytes were read, also fewer than asked at the end */
  FVFR_ASYNC_CANCELLED = 3,  /**< cancelled before it ran, or broken while it ran */
  FVFR_ASYNC_END_OF_FILE = 4 /**< the read began at the end of the file: 0 bytes */
};

/** What bounds the interface. */
enum {
  FVFR_MAX_HANDLES = 255,         /**< open handles of a process: a table of 256 whose place 0 is
                                     never given out */
  FVFR_MAX_REQUESTS = 511,        /**< outstanding asynchronous reads of a process: a table of 512,
                                     whose place 0 stands for the blocking read */
  FVFR_DEFAULT_BUFFER = 0x200000, /**< bytes of buffer that x_fluvia_file_open() asks for: 2 MiB, 64
                                     blocks */
  FVFR_BUFFER_BLOCK = 32768, /**< bytes of a buffer block; buffers are made of whole blocks, and
                                connections begin at multiples of it */
  FVFR_SEEK_SPAN = 0x100000  /**< bytes a stream that cannot seek may be moved forward: 1 MiB,
                                half of the default buffer */
};

/** The log levels that have a meaning of their own; any int is a level. */
enum {
  FVFR_LOG_DEFAULT = -4,  /**< errors only */
  FVFR_LOG_DISABLED = -1, /**< what x_fluvia_file_disable_log() sets: still prints errors */
  FVFR_LOG_CALLS = 0,     /**< also the calls of this interface */
  FVFR_LOG_ALL = 3        /**< everything */
};

/**
 * The size of a resource whose length cannot be learnt, in bytes: 2^60 - 1, larger than any real
 * one, so that comparing a position with the size needs no special case.
 */
#define FVFR_UNKNOWN_SIZE 0x0FFFFFFFFFFFFFFFLL

/** @} */

/**
 * @defgroup fluvia_open Opening and closing
 * Gets a handle for a path or a URL, and gives it back.
 *
 * The handle is a number that the process shares: any of its threads may use it. The library copies
 * the name and keeps nothing of the caller's.
 * @{
 */

/**
 * Opens an absolute path or an http:// or https:// URL with a buffer of FVFR_DEFAULT_BUFFER bytes.
 *
 * Case does not matter for the check of the beginning; a scheme in capitals ("HTTP://") passes it
 * but names no server: the handle is empty. May wait and hold up the whole interface when the name
 * is already open: see "Which calls wait".
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
 * Opens as x_fluvia_file_open() does, with a buffer of a size of the caller's.
 *
 * Its addresses are taken at once and its memory as it fills: INT_MAX asks for 2 GiB of addresses,
 * and when they cannot be had the handle is empty. When the name is already open its buffer is
 * shared and bufferSize is ignored.
 *
 * @param[in]  url         as for x_fluvia_file_open()
 * @param[out] handle      as for x_fluvia_file_open()
 * @param[in]  bufferSize  bytes, rounded towards 0 to whole blocks of FVFR_BUFFER_BLOCK; any int,
 * at least two blocks are used
 * @retval FVFR_OK      as for x_fluvia_file_open()
 * @retval FVFR_FAILED  as for x_fluvia_file_open()
 */
FLUVIA_FILE_API int x_fluvia_file_open_x(const char* url, int* handle, int bufferSize);
/** @copydoc x_fluvia_file_open_x */
FLUVIA_FILE_API int c_fluvia_file_open_x(const char* url, int* handle, int bufferSize);

/**
 * Closes a handle.
 *
 * Its queued asynchronous reads are called back once each with FVFR_ASYNC_CANCELLED (on this
 * thread), its running reads are broken off, and their callbacks on other threads are waited for;
 * see x_fluvia_file_read_async(). The last handle of a resource ends its transfer and gives the
 * buffer back.
 *
 * @param[in] handle  an open handle; it may belong to another file as soon as this has returned
 * @retval FVFR_OK      closed
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_close(int handle);
/** @copydoc x_fluvia_file_close */
FLUVIA_FILE_API int c_fluvia_file_close(int handle);

/**
 * Says that the length of the handle's resource may grow or shrink while it is read (a live stream,
 * a file being recorded).
 *
 * It holds for every handle of the resource and cannot be taken back. Waits for a read of the
 * resource that is under way.
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
 * Reads and waits.
 * @{
 */

/**
 * Reads at the handle's position and moves it by the bytes read.
 *
 * Waits for the data; fewer bytes than asked means that the end of the file was reached. After a
 * failure the position is where it was, and *readBytes counts the bytes of buffer that were filled
 * before it.
 *
 * On a stream without a length (a chunked body, one that ends with its connection, an ICY answer)
 * the read that follows a seek back to bytes that are no longer buffered gives FVFR_OK AND THE
 * BYTES OF ANOTHER PLACE: it begins at the position plus the offset of the oldest byte that is
 * buffered. Only x_fluvia_file_offset() shows it afterwards.
 *
 * @param[in]  handle     an open handle
 * @param[out] buffer     room for size bytes; the library's until the call returns. Must not be
 * null unless size is 0 (not checked)
 * @param[in]  size       bytes wanted, any number; 0 reads nothing and still tells the end
 * @param[out] readBytes  bytes of buffer that were filled. Must not be null (not checked)
 * @retval FVFR_OK             *readBytes bytes read
 * @retval FVFR_END_OF_FILE    the position is at the end: *readBytes is 0
 * @retval FVFR_FAILED         out of range, not open or empty: *readBytes is untouched. Broken off,
 *                             negative position, or the stream failed (also a stream that failed
 *                             with one of the codes below before)
 * @retval FVFR_NOT_APPLIED    the resource is being closed
 * @retval FVFR_TIMEOUT        no answer in time: the first read that meets this failure of an HTTP
 *                             resource gets it
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
 * Reads that call back when they are over, and how reads of both kinds are broken off.
 *
 * A completion callback runs on one of the library's worker threads, with one exception: a request
 * that is cancelled before a worker took it is told so on the thread that called read_abort or
 * close. No lock of the library is held, and the callback may call every function of the interface,
 * close included. Five requests run at a time in the process (of its six workers one is kept for
 * restarting streams) and one per resource; a callback that takes long holds up others.
 * - Every outstanding request of a handle starts at the position the handle had when it was asked
 *   for. Two requests issued one after the other deliver the SAME bytes. To read on, issue the next
 *   request from the callback of the last one (the position has moved by then).
 * - Request ids run from 1 to FVFR_MAX_REQUESTS over all handles, lowest free first, and an id is
 *   reused as soon as its request is over. An id kept too long names somebody else's request.
 * - ABORTING A QUEUED REQUEST CALLS BACK TWICE, both times with FVFR_ASYNC_CANCELLED and 0 bytes.
 *   userData must outlive the first call. (Closing the handle tells each request once.)
 * - close waits for callbacks: after it has returned none comes and the buffers are the caller's
 *   again. Do not call close while holding a lock that a callback takes. Called from inside any
 *   callback, close waits for no callback (they might wait for each other): a completion of that
 *   handle that has begun on another thread may then still be running when close returns.
 * @{
 */

/**
 * Told when an asynchronous read is over. Must not throw.
 *
 * @param[in] requestId  the id that x_fluvia_file_read_async() wrote
 * @param[in] userData   as given to x_fluvia_file_read_async()
 * @param[in] status     FVFR_ASYNC_DONE, FVFR_ASYNC_END_OF_FILE, FVFR_ASYNC_CANCELLED or
 *                       FVFR_ASYNC_FAILED
 * @param[in] readBytes  bytes of the buffer that are valid; also set for a broken read
 */
typedef void (*fluvia_file_read_callback)(int requestId, void* userData, int status, int readBytes);

/**
 * Asks for bytes at the handle's position and returns at once.
 *
 * When the read is done the position moves by the bytes read, unless it was moved in the meantime.
 *
 * @param[in]  handle     an open handle
 * @param[out] buffer     room for size bytes; the library's until the callback has been called or
 *                        close has returned. Must not be null (not checked)
 * @param[in]  size       bytes wanted; at most INT_MAX, as the callback counts in an int
 * @param[in]  callback   who is told. Must not be null (not checked)
 * @param[in]  userData   only passed on; may be null
 * @param[out] requestId  1 to FVFR_MAX_REQUESTS; written before the callback can run. Must not be
 *                        null (not checked)
 * @retval FVFR_OK      the callback will be called, at least once
 * @retval FVFR_FAILED  out of range, not open, empty, or FVFR_MAX_REQUESTS requests are
 * outstanding: *requestId is untouched and no callback comes
 */
FLUVIA_FILE_API int x_fluvia_file_read_async(int handle, char* buffer, unsigned int size,
                                             fluvia_file_read_callback callback, void* userData,
                                             int* requestId);
/** @copydoc x_fluvia_file_read_async */
FLUVIA_FILE_API int c_fluvia_file_read_async(int handle, char* buffer, unsigned int size,
                                             fluvia_file_read_callback callback, void* userData,
                                             int* requestId);

/**
 * Breaks off a read of this handle.
 *
 * Request 0 is the blocking read that waits on this handle, which then returns FVFR_FAILED; also
 * any read of the resource while its size is not known yet. Any other number is an asynchronous
 * read:
 * - still queued: its callback is called TWICE with FVFR_ASYNC_CANCELLED on this thread.
 * - running: the callback comes once, on its worker, with FVFR_ASYNC_CANCELLED and its bytes
 *   so far.
 * - over: nothing happens.
 *
 * @param[in] handle     an open handle
 * @param[in] requestId  0 to FVFR_MAX_REQUESTS
 * @retval FVFR_OK           done; also when there was nothing to break off
 * @retval FVFR_NOT_APPLIED  requestId is outside 0 to FVFR_MAX_REQUESTS
 * @retval FVFR_FAILED       out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_read_abort(int handle, int requestId);
/** @copydoc x_fluvia_file_read_abort */
FLUVIA_FILE_API int c_fluvia_file_read_abort(int handle, int requestId);

/** @} */

/**
 * @defgroup fluvia_seek Position and size
 * Moves a handle's position and tells it, and the size of what is read.
 * @{
 */

/**
 * Moves the handle's position.
 *
 * An offset past the end gives the end. A negative offset is taken as it is, and the next read
 * fails. A stream that cannot seek moves forward by at most FVFR_SEEK_SPAN bytes, and back only
 * into its first FVFR_SEEK_SPAN bytes. May wait for the size, never for the data at the target.
 *
 * A stream without a length cannot seek. Moving it back is answered with FVFR_OK all the same,
 * where it is not refused, but the bytes there may be gone: what the next read then does is told at
 * x_fluvia_file_read(). To see whether a stream can seek, move it by FVFR_SEEK_SPAN + 1 bytes after
 * its first byte has been read: FVFR_SEEK_REFUSED says no and leaves the position. Do not seek
 * then.
 *
 * @param[in]  handle         an open handle
 * @param[in]  offset         bytes from the beginning of the resource
 * @param[out] currentOffset  the new position, bytes from the beginning. Must not be null (not
 *                            checked)
 * @retval FVFR_OK            moved
 * @retval FVFR_SEEK_REFUSED  the stream cannot seek that far: the position stays, but
 * *currentOffset has been written
 * @retval FVFR_FAILED        out of range, not open, empty, a file of 0 bytes, or a resource that
 *                            failed: *currentOffset is untouched
 */
FLUVIA_FILE_API int x_fluvia_file_seek(int handle, long long offset, long long* currentOffset);
/** @copydoc x_fluvia_file_seek */
FLUVIA_FILE_API int c_fluvia_file_seek(int handle, long long offset, long long* currentOffset);

/**
 * Tells the position at which the handle's next read begins. Never waits.
 *
 * After a seek back in a stream without a length it is where the seek went until the next read,
 * which may move it elsewhere: see x_fluvia_file_read().
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
 * Tells the size of the resource. The first call may wait for the resource's first byte.
 *
 * @param[in] handle  an open handle
 * @return The size in bytes: modulo 2^32 for a local file; 0 also for a resource that failed, of
 * which x_fluvia_file_http_get_download_status() tells more. It stays FVFR_DOWNLOAD_OK for an
 *         address of IP version 6 where x_fluvia_file_http_set_ip_resolve() has not allowed those.
 * @retval FVFR_UNKNOWN_SIZE  the length cannot be learnt
 * @retval FVFR_FAILED        out of range, not open or empty
 */
FLUVIA_FILE_API long long x_fluvia_file_size(int handle);
/** @copydoc x_fluvia_file_size */
FLUVIA_FILE_API long long c_fluvia_file_size(int handle);

/** @} */

/**
 * @defgroup fluvia_buffer The buffer
 * How much the buffer of a resource can hold, and how much of it is there.
 * @{
 */

/**
 * Tells the capacity of the resource's buffer. Never waits.
 *
 * @param[in] handle  an open handle
 * @return Bytes: the size asked for by the handle that was opened first, rounded towards 0 to whole
 *         blocks of FVFR_BUFFER_BLOCK. (So it is 0 or a negative number when that was asked for,
 *         although two blocks are in use.)
 * @retval FVFR_FAILED  out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_bufferSize(int handle);
/** @copydoc x_fluvia_file_bufferSize */
FLUVIA_FILE_API int c_fluvia_file_bufferSize(int handle);

/**
 * Tells how much can be read without waiting. Never waits for data, and may be polled while a read
 * waits.
 *
 * @param[in] handle  an open handle
 * @return Bytes from the handle's position on that are held without a gap; 0 before the first read.
 * @retval FVFR_FAILED  out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_bufferedSize(int handle);
/** @copydoc x_fluvia_file_bufferedSize */
FLUVIA_FILE_API int c_fluvia_file_bufferedSize(int handle);

/** @} */

/**
 * @defgroup fluvia_log Log and diagnosis
 * How much the library tells on standard error.
 *
 * The level is one number for the process. A line of level N is written when the level is at least
 * N; see the section "Log". libcurl's own lines about transfers are written whatever the level is.
 * @{
 */

/**
 * Writes the state of the buffer of the resource that was opened first to the log, when the level
 * is at least FVFR_LOG_ALL.
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
 * Tells the log level of the process. Never fails, never waits.
 *
 * @return The level: FVFR_LOG_DEFAULT at the start.
 */
FLUVIA_FILE_API int x_fluvia_file_get_log_level(void);
/** @copydoc x_fluvia_file_get_log_level */
FLUVIA_FILE_API int c_fluvia_file_get_log_level(void);

/** @} */

/**
 * @defgroup fluvia_http_settings Settings of HTTP and HTTPS
 * What requests are sent with, whom they trust, and how fast and how patient they are.
 *
 * CERTIFICATES ARE NOT CHECKED until x_fluvia_file_http_set_CA() or x_fluvia_file_http_set_CAPath()
 * names the authorities to trust: without one of them an https:// resource may come from anybody.
 * Credentials in URLs, cookies and proxy settings appear in the library's log lines and in the
 * transfer library's own lines on standard error.
 *
 * These functions act on the resource behind a handle and so on every handle that shares it. They
 * never wait for a transfer. A setting holds from the resource's next request on: set it before the
 * first read. The texts are zero-terminated and copied; their length is not bounded. A "local"
 * handle below is one of a local file, or an empty one.
 *
 * Proxy variables of the environment (http_proxy, https_proxy ...) are obeyed when no proxy was
 * set; 127.0.0.1 is always reached without one, and no_proxy is not read. Redirects are followed,
 * at most 50, to http and https only. While a host's name is being resolved, close and the restart
 * after a seek take up to a second; the resolver itself goes on in the background.
 * @{
 */

/**
 * Chooses how failures are taken.
 *
 * With flag 1 a connection that has begun to deliver is given up after 4 s without data instead of
 * 10 s and then tried once more (FVFR_TIMEOUT when that fails too), and a host whose name cannot be
 * resolved is tried once more (then FVFR_FAILED). With any other flag, and at the start, it is 10
 * s, and both are FVFR_NOT_FOUND at once.
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
 * Caps the average download speed of each transfer. Holds from the next piece of a running transfer
 * on.
 *
 * @param[in] handle  an open handle
 * @param[in] speed   bytes per second; 0 or below is no cap, as at the start
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
 * @param[in] value   `[scheme://][user:password@]host[:port]`; "" is no proxy, also against the
 *                    environment
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  value is null, or a local handle
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_proxy(int handle, const char* value);
/** @copydoc x_fluvia_file_http_set_proxy */
FLUVIA_FILE_API int c_fluvia_file_http_set_proxy(int handle, const char* value);

/**
 * Names a folder of authorities to trust, and switches the checks of certificates on. Has no c_
 * twin.
 *
 * libcurl's own bundle (on Debian /etc/ssl/certs/ca-certificates.crt) is trusted beside it, and
 * without that file every transfer fails until x_fluvia_file_http_set_CA() names one.
 *
 * @param[in] handle  an open handle
 * @param[in] value   a directory of PEM certificates with hashed names
 * @retval FVFR_OK           set
 * @retval FVFR_NOT_APPLIED  value is null, or a local handle
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_CAPath(int handle, const char* value);

/**
 * Names a file of authorities to trust, and switches the checks of certificates on.
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
 * Sets the Cookie header. Servers' own cookies are not kept.
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
 * Names the client's certificate, for servers that ask for one. Null is refused before the handle
 * is looked up.
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
 * Names the private key of the client's certificate. Null is refused before the handle is looked
 * up.
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
 * Chooses which addresses of hosts are used. Null is refused before the handle is looked up.
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
 * @defgroup fluvia_http_status What is known of an HTTP resource
 * How the last transfer went, how fast, and what the server said of itself and the resource.
 *
 * What is told belongs to the resource behind a handle and so to every handle that shares it. None
 * of these waits for a transfer, or makes one: before the first read or size there is nothing to
 * tell. A "local" handle below is one of a local file, or an empty one. Texts are what a stranger
 * sent: do not print them unescaped.
 * @{
 */

/** What x_fluvia_file_http_get_download_status() gives besides HTTP statuses of 400 and above. */
enum {
  FVFR_DOWNLOAD_OK = 0,               /**< no failure so far, also while a transfer runs */
  FVFR_DOWNLOAD_TIMEOUT = -2,         /**< no connection within 10 s */
  FVFR_DOWNLOAD_NO_DATA = -3,         /**< a connection without data for 10 s (4 s, see
                                         x_fluvia_file_set_featureflag()) */
  FVFR_DOWNLOAD_CONNECTION_DEAD = -5, /**< given up at a reader's request after 2 s without data */
  FVFR_DOWNLOAD_UNKNOWN_HOST = -6,    /**< the host's name could not be resolved */
  FVFR_DOWNLOAD_UNREACHABLE = -7,     /**< the host cannot be reached */
  FVFR_DOWNLOAD_REFUSED = -8          /**< the host refused the connection */
};

/**
 * Tells how the resource's last transfer ended.
 *
 * @param[in] handle  an open handle
 * @return FVFR_DOWNLOAD_OK (also for a local handle), another FVFR_DOWNLOAD number, or the HTTP
 *         status of 400 and above that the server answered with.
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_get_download_status(int handle);
/** @copydoc x_fluvia_file_http_get_download_status */
FLUVIA_FILE_API int c_fluvia_file_http_get_download_status(int handle);

/**
 * Tells the download speed, smoothed over samples of a second each; before the resource's first
 * sample it is the average so far.
 *
 * @param[in] handle  an open handle
 * @return Bytes per second; 0 before any transfer and for a local handle.
 * @retval FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API long long x_fluvia_file_http_get_speed(int handle);
/** @copydoc x_fluvia_file_http_get_speed */
FLUVIA_FILE_API long long c_fluvia_file_http_get_speed(int handle);

/**
 * Tells the Content-Type of the last answer.
 *
 * @param[in] handle  an open handle
 * @return The type, "" when there is none yet; null when out of range, not open or a local handle.
 *         The text belongs to the library and lives until the same function is called for this
 *         handle again or the handle is closed: copy it when other threads use the handle.
 */
FLUVIA_FILE_API const char* x_fluvia_file_http_get_content_type(int handle);
/** @copydoc x_fluvia_file_http_get_content_type */
FLUVIA_FILE_API const char* c_fluvia_file_http_get_content_type(int handle);

/**
 * Tells what the server calls itself: the Server header of the first answer that had one.
 *
 * @param[in] handle  an open handle
 * @return The name, "" when there is none yet; null when out of range, not open or a local handle.
 *         The text belongs to the library and lives until the same function is called for this
 *         handle again or the handle is closed: copy it when other threads use the handle.
 */
FLUVIA_FILE_API const char* x_fluvia_file_http_get_server_name(int handle);
/** @copydoc x_fluvia_file_http_get_server_name */
FLUVIA_FILE_API const char* c_fluvia_file_http_get_server_name(int handle);

/**
 * Tells the IPv4 address, as text, of the server (or proxy) that any transfer of the process
 * connected to last. Has no c_ twin.
 *
 * @param[in]  handle  an open handle
 * @param[out] ipOut   room for 16 bytes, the longest address and its terminator; "" before any
 *                     transfer, "0.0.0.0" for IPv6
 * @retval FVFR_OK           written
 * @retval FVFR_NOT_APPLIED  ipOut is null, or a local handle: ipOut is untouched
 * @retval FVFR_FAILED       out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_http_get_url_ip(int handle, char* ipOut);

/**
 * Copies the raw headers of the last answer, status line first, WITHOUT A TERMINATOR.
 *
 * @param[in]  handle  an open handle
 * @param[out] buffer  room for size bytes; may be null only when size is 0 (not checked)
 * @param[in]  size    bytes to copy at most; 0 or below copies none
 * @param[out] length  the whole length of the headers in bytes, which may exceed size; at most
 * 8192, what is kept of them. Must not be null (not checked)
 * @retval FVFR_OK      copied; for a local handle nothing happens and *length is untouched
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
