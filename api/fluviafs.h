/*
 * libfluviafs: local files and HTTP(S) resources behind one file-like interface.
 *
 * A caller opens an absolute path or a URL, gets a small integer handle, and reads, seeks and asks
 * for the size and the position much as with a local file. The library keeps data ahead of the
 * reader in memory and goes and gets what a seek needs.
 *
 *   int handle = 0;
 *   unsigned int got = 0;
 *   char buffer[4096];
 *   if (x_fluvia_file_open("/media/film.ts", &handle) == FVFR_OK) {
 *     while (x_fluvia_file_read(handle, buffer, sizeof buffer, &got) == FVFR_OK && got != 0) {
 *       consume(buffer, got);
 *     }
 *     x_fluvia_file_close(handle);
 *   }
 *
 * HANDLES. A handle is a number from 1 to FVFR_MAX_HANDLES, the lowest free one at open; it is
 * reused as soon as it has been closed. "Out of range" below is any other number; "not open" is a
 * number in that range that was never opened or has been closed. A handle has a read position of
 * its own. Handles opened with the same text (byte for byte) share one stream and one buffer; their
 * reads take turns, and a read that waits holds up the other handles of that resource.
 *
 * OPEN SUCCEEDS FOR A MISSING FILE. Opening makes no connection, and x_fluvia_file_open() returns
 * FVFR_OK for a path that does not exist, for anything that is neither a readable regular file nor
 * a block device, and for a server that does not answer. The handle is real and must be closed; the
 * missing thing shows at the first read, size or seek. A handle without a resource behind it (a
 * missing local file) is called "empty" below: read, size and seek give FVFR_FAILED.
 *
 * SIZES. Offsets and sizes are bytes, signed 64 bits. The size of a local file is its length modulo
 * 2^32: a file of 4 GiB + 10 bytes reads as one of 10 bytes, and an exact multiple of 4 GiB as an
 * empty one. The size of a resource whose length cannot be learnt is FVFR_UNKNOWN_SIZE.
 *
 * THREADS. Every function may be called from any thread, also from a completion callback, and
 * never throws. Closing a handle while other threads read on it is allowed: their reads return.
 * A handle must not be used after the call that closed it has returned, as its number may by then
 * belong to somebody else's file.
 *
 * WHICH CALLS WAIT. Waits have no time limit of their own unless one is given here.
 *   read                 until the bytes are there, the stream ends or it fails. Ended by
 *                        read_abort(handle, 0) on the same handle and by close. A transfer that
 *                        stalls is given up by the transfer's own time limits (HTTP only).
 *   read_async           never.
 *   size, seek           the first on a resource may read one byte to learn the size, and waits as
 *                        read does. seek never waits for the data at its target.
 *   open, open_x         opening a name that is already open may wait, as size does, until that
 *                        resource has delivered its first byte or failed. It HOLDS UP THE WHOLE
 *                        INTERFACE meanwhile: no call that takes a handle, and no other open, gets
 *                        on. Only data or the failure of that resource ends it. A first open of a
 *                        name does not wait.
 *   read_abort           until the broken read has given up its wait; short.
 *   close                until running reads of the handle have ended and the callbacks of its
 *                        asynchronous reads that run on other threads have returned.
 *   volatile             until a read of the resource that is under way is over.
 *   everything else      never, apart from the open above.
 *
 * ASYNCHRONOUS READS. A completion callback runs on one of the library's worker threads, with one
 * exception: a request that is cancelled before a worker took it is told so on the thread that
 * called read_abort or close. No lock of the library is held, and the callback may call every
 * function here, close included. Five requests run at a time in the process and one per resource;
 * a callback that takes long holds up others.
 *   - Every outstanding request of a handle starts at the position the handle had when it was
 *     asked for. Two requests issued one after the other deliver the SAME bytes. To read on, issue
 *     the next request from the callback of the last one (the position has moved by then).
 *   - Request ids run from 1 to FVFR_MAX_REQUESTS over all handles, lowest free first, and an id is
 *     reused as soon as its request is over. An id kept too long names somebody else's request.
 *   - ABORTING A QUEUED REQUEST CALLS BACK TWICE, both times with FVFR_ASYNC_CANCELLED and 0 bytes.
 *     userData must outlive the first call. (Closing the handle tells each request once.)
 *   - close waits for callbacks: after it has returned none comes and the buffers are the caller's
 *     again. Do not call close while holding a lock that a callback takes. Called from inside any
 *     callback, close waits for no callback (they might wait for each other): a completion of that
 *     handle that has begun on another thread may then still be running when close returns.
 *
 * LOG. The library writes its log lines to standard error. Level FVFR_LOG_DEFAULT prints errors
 * only, 0 adds the calls of this interface, 3 prints everything. The first successful open of the
 * process replaces the level by the number in "/data/vendor/3rd_rw/fluviafs/log_level" when that
 * file exists and is not empty.
 *
 * UNLOADING. Handles are not closed at exit. The library stays mapped after dlclose(): its worker
 * threads live as long as the process.
 *
 * TWO FAMILIES. c_fluvia_file_NAME() does exactly what x_fluvia_file_NAME() does. Two functions,
 * told below, have no c_ twin.
 */
#ifndef FLUVIAFS_H_
#define FLUVIAFS_H_

#if defined(__GNUC__)
#define FLUVIA_FILE_API __attribute__((visibility("default")))
#else
#define FLUVIA_FILE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What the functions that return int give. Failures are negative. */
enum {
  FVFR_OK = 0,              /* success */
  FVFR_NOT_APPLIED = -1,    /* a setting or request id that cannot be applied; a read that met the
                               closing of its handle */
  FVFR_FAILED = -4,         /* general failure: bad or closed handle, null argument, invalid URL, no
                               free handle or request id, no such file, broken read, failed stream */
  FVFR_TIMEOUT = -6,        /* the server did not answer in time */
  FVFR_SEEK_REFUSED = -12,  /* the stream cannot seek that far */
  FVFR_END_OF_FILE = -13,   /* the read began at the end of the file */
  FVFR_NOT_AVAILABLE = -17, /* the server has the resource but does not give it now */
  FVFR_NOT_FOUND = -21      /* the server has no such resource */
};

/* The status a completion callback is given. */
enum {
  FVFR_ASYNC_FAILED = -1,    /* the read failed */
  FVFR_ASYNC_DONE = 1,       /* readBytes bytes were read, also fewer than asked at the end */
  FVFR_ASYNC_CANCELLED = 3,  /* cancelled before it ran, or broken while it ran */
  FVFR_ASYNC_END_OF_FILE = 4 /* the read began at the end of the file: 0 bytes */
};

enum {
  FVFR_MAX_HANDLES = 255,         /* open handles of a process */
  FVFR_MAX_REQUESTS = 511,        /* outstanding asynchronous reads of a process */
  FVFR_DEFAULT_BUFFER = 0x200000, /* bytes of buffer that x_fluvia_file_open() asks for: 2 MiB */
  FVFR_BUFFER_BLOCK = 32768,      /* bytes of a buffer block; buffers are made of whole blocks */
  FVFR_SEEK_SPAN = 0x100000       /* bytes a stream that cannot seek may be moved forward: 1 MiB */
};

/* The log levels that have a meaning of their own; any int is a level. */
enum {
  FVFR_LOG_DEFAULT = -4,  /* errors only */
  FVFR_LOG_DISABLED = -1, /* what x_fluvia_file_disable_log() sets: still prints errors */
  FVFR_LOG_CALLS = 0,     /* also the calls of this interface */
  FVFR_LOG_ALL = 3        /* everything */
};

/* The size of a resource whose length cannot be learnt, in bytes. */
#define FVFR_UNKNOWN_SIZE 0x0FFFFFFFFFFFFFFFLL

/*
 * Told when an asynchronous read is over.
 *   requestId  the id that x_fluvia_file_read_async() wrote
 *   userData   as given to x_fluvia_file_read_async()
 *   status     one of FVFR_ASYNC_*
 *   readBytes  bytes of the buffer that are valid; also set for a broken read
 * Threads: see ASYNCHRONOUS READS above. Must not throw.
 */
typedef void (*fluvia_file_read_callback)(int requestId, void* userData, int status, int readBytes);

/* ---- Opening and closing ----------------------------------------------------------------------
 */

/*
 * Opens an absolute path or an http:// or https:// URL (case does not matter for this check) with a
 * buffer of FVFR_DEFAULT_BUFFER bytes and writes the handle to *handle. The text is copied.
 *
 * The scheme in capitals ("HTTP://") passes the check but names no server: the handle is empty.
 * May wait and hold up the whole interface when the name is already open: see WHICH CALLS WAIT.
 *
 *   FVFR_OK      *handle is open and must be closed; the file may still be missing
 *   FVFR_FAILED  url or handle is null, or url begins with none of the three: *handle is untouched
 *   FVFR_FAILED  all FVFR_MAX_HANDLES handles are in use, or memory ran out: *handle is -1
 */
FLUVIA_FILE_API int x_fluvia_file_open(const char* url, int* handle);
FLUVIA_FILE_API int c_fluvia_file_open(const char* url, int* handle);

/*
 * As x_fluvia_file_open() with a buffer of bufferSize bytes, rounded towards 0 to whole blocks of
 * FVFR_BUFFER_BLOCK bytes; at least two blocks are used. The memory is taken at once: INT_MAX asks
 * for 2 GiB, and when they cannot be had the handle is empty. When the name is already open its
 * buffer is shared and bufferSize is ignored.
 */
FLUVIA_FILE_API int x_fluvia_file_open_x(const char* url, int* handle, int bufferSize);
FLUVIA_FILE_API int c_fluvia_file_open_x(const char* url, int* handle, int bufferSize);

/*
 * Closes a handle. Its queued asynchronous reads are called back once each with
 * FVFR_ASYNC_CANCELLED (on this thread), its running reads are broken off, and their callbacks on
 * other threads are waited for; see ASYNCHRONOUS READS. The last handle of a resource ends its
 * transfer and gives the buffer back.
 *
 *   FVFR_OK      closed
 *   FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_close(int handle);
FLUVIA_FILE_API int c_fluvia_file_close(int handle);

/*
 * Says that the length of the handle's resource may grow or shrink while it is read (a live stream,
 * a file being recorded). It holds for every handle of the resource and cannot be taken back. Waits
 * for a read of the resource that is under way.
 *
 *   FVFR_OK      marked; also when the handle is empty
 *   FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API int x_fluvia_file_volatile(int handle);
FLUVIA_FILE_API int c_fluvia_file_volatile(int handle);

/* ---- Reading ----------------------------------------------------------------------------------
 */

/*
 * Reads size bytes at the handle's position into buffer and moves the position by *readBytes.
 * Waits for the data; fewer bytes than asked means that the end of the file was reached. buffer has
 * room for size bytes and belongs to the library until the call returns; buffer and readBytes must
 * not be null (not checked).
 *
 *   FVFR_OK             *readBytes bytes read
 *   FVFR_END_OF_FILE    the position is at the end: *readBytes is 0
 *   FVFR_FAILED         out of range, not open or empty: *readBytes is untouched
 *   FVFR_FAILED         broken off, negative position, or the stream failed (also a stream that
 *                       failed with one of the codes below before)
 *   FVFR_NOT_APPLIED    the resource is being closed
 *   FVFR_TIMEOUT, FVFR_NOT_AVAILABLE, FVFR_NOT_FOUND
 *                       the first read that meets the failure of an HTTP resource
 * After a failure the position is where it was, and *readBytes counts the bytes of buffer that were
 * filled before it.
 */
FLUVIA_FILE_API int x_fluvia_file_read(int handle, char* buffer, unsigned int size,
                                       unsigned int* readBytes);
FLUVIA_FILE_API int c_fluvia_file_read(int handle, char* buffer, unsigned int size,
                                       unsigned int* readBytes);

/*
 * Asks for size bytes at the handle's position and returns at once. *requestId is written before
 * the callback can run. buffer (room for size bytes) belongs to the library until the callback has
 * been called or close has returned. When the read is done the position moves by the bytes read,
 * unless it was moved in the meantime. buffer, callback and requestId must not be null (not
 * checked); userData is only passed on.
 *
 *   FVFR_OK      the callback will be called, at least once
 *   FVFR_FAILED  out of range, not open, empty, or FVFR_MAX_REQUESTS requests are outstanding:
 *                *requestId is untouched and no callback comes
 */
FLUVIA_FILE_API int x_fluvia_file_read_async(int handle, char* buffer, unsigned int size,
                                             fluvia_file_read_callback callback, void* userData,
                                             int* requestId);
FLUVIA_FILE_API int c_fluvia_file_read_async(int handle, char* buffer, unsigned int size,
                                             fluvia_file_read_callback callback, void* userData,
                                             int* requestId);

/*
 * Breaks off a read of this handle.
 *   requestId 0   the blocking read that waits on this handle, which then returns FVFR_FAILED; also
 *                 any read of the resource while its size is not known yet
 *   1 to FVFR_MAX_REQUESTS
 *                 that asynchronous read. Still queued: its callback is called TWICE with
 *                 FVFR_ASYNC_CANCELLED on this thread. Running: the callback comes once, on its
 *                 worker, with FVFR_ASYNC_CANCELLED and the bytes it had. Over: nothing happens.
 *
 *   FVFR_OK           done; also when there was nothing to break off
 *   FVFR_NOT_APPLIED  requestId is outside 0 to FVFR_MAX_REQUESTS
 *   FVFR_FAILED       out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_read_abort(int handle, int requestId);
FLUVIA_FILE_API int c_fluvia_file_read_abort(int handle, int requestId);

/* ---- Position and size ------------------------------------------------------------------------
 */

/*
 * Moves the handle's position to offset (bytes from the beginning) and writes the new position to
 * *currentOffset, which must not be null (not checked). An offset past the end gives the end. A
 * negative offset is taken as it is, and the next read fails. A stream that cannot seek moves
 * forward by at most FVFR_SEEK_SPAN bytes, and back only into its first FVFR_SEEK_SPAN bytes.
 *
 *   FVFR_OK            moved
 *   FVFR_SEEK_REFUSED  the stream cannot seek that far: the position stays, but *currentOffset has
 *                      been written
 *   FVFR_FAILED        out of range, not open, empty, a file of 0 bytes, or a resource that failed:
 *                      *currentOffset is untouched
 */
FLUVIA_FILE_API int x_fluvia_file_seek(int handle, long long offset, long long* currentOffset);
FLUVIA_FILE_API int c_fluvia_file_seek(int handle, long long offset, long long* currentOffset);

/*
 * The position at which the handle's next read begins, in bytes.
 *
 *   >= 0         the position: 0 after open and for an empty handle; negative after a seek to a
 *                negative offset
 *   FVFR_FAILED  out of range or not open
 */
FLUVIA_FILE_API long long x_fluvia_file_offset(int handle);
FLUVIA_FILE_API long long c_fluvia_file_offset(int handle);

/*
 * The size of the resource in bytes. The first call may wait for the resource's first byte.
 *
 *   >= 0               the size; modulo 2^32 for a local file; 0 also for a resource that failed
 *   FVFR_UNKNOWN_SIZE  the length cannot be learnt
 *   FVFR_FAILED        out of range, not open or empty
 */
FLUVIA_FILE_API long long x_fluvia_file_size(int handle);
FLUVIA_FILE_API long long c_fluvia_file_size(int handle);

/* ---- The buffer -------------------------------------------------------------------------------
 */

/*
 * The capacity of the resource's buffer in bytes: the size asked for by the handle that was opened
 * first, rounded towards 0 to whole blocks. (So it reads 0 or a negative number when that was asked
 * for, although two blocks are in use.)
 *
 *   FVFR_FAILED  out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_bufferSize(int handle);
FLUVIA_FILE_API int c_fluvia_file_bufferSize(int handle);

/*
 * How many bytes from the handle's position on are held without a gap, that is, can be read without
 * waiting. 0 before the first read. Never waits for data, and may be polled while a read waits.
 *
 *   FVFR_FAILED  out of range, not open or empty
 */
FLUVIA_FILE_API int x_fluvia_file_bufferedSize(int handle);
FLUVIA_FILE_API int c_fluvia_file_bufferedSize(int handle);

/* ---- Diagnosis --------------------------------------------------------------------------------
 */

/*
 * Writes the state of the buffer of the resource that was opened first to the log, when the level
 * is at least FVFR_LOG_ALL. Both arguments are ignored and may be null. Always FVFR_OK.
 */
FLUVIA_FILE_API int x_fluvia_file_dump_buffer(void* unused1, void* unused2);
FLUVIA_FILE_API int c_fluvia_file_dump_buffer(void* unused1, void* unused2);

/* Sets the log level to FVFR_LOG_DISABLED, which still prints errors. Never waits. */
FLUVIA_FILE_API void x_fluvia_file_disable_log(void);
FLUVIA_FILE_API void c_fluvia_file_disable_log(void);

/*
 * Sets the log level of the process to any int: the higher, the more is printed; INT_MIN silences
 * everything. A level set before the first successful open may be replaced by it: see LOG.
 */
FLUVIA_FILE_API void x_fluvia_file_set_log_level(int level);
FLUVIA_FILE_API void c_fluvia_file_set_log_level(int level);

/* The log level of the process. Never fails, never waits. */
FLUVIA_FILE_API int x_fluvia_file_get_log_level(void);
FLUVIA_FILE_API int c_fluvia_file_get_log_level(void);

/* ---- HTTP and HTTPS ---------------------------------------------------------------------------
 *
 * CERTIFICATES ARE NOT CHECKED until x_fluvia_file_http_set_CA() or _set_CAPath() names the
 * authorities to trust: without one of them an https:// resource may come from anybody. Credentials
 * in URLs, cookies and proxy settings appear in the library's log lines and in the transfer
 * library's own lines on standard error.
 *
 * These functions act on the resource behind a handle and so on every handle that shares it. They
 * never wait for a transfer. A setting holds from the resource's next request on: set it before the
 * first read. The texts are copied. A "local" handle below is one of a local file, or an empty one;
 * "out of range" and "not open" are FVFR_FAILED (null for the functions that return text) in all of
 * them.
 *
 * Proxy variables of the environment (http_proxy, https_proxy ...) are obeyed when no proxy was
 * set; 127.0.0.1 is always reached without one, and no_proxy is not read. Redirects are followed,
 * at most 50, to http and https only. While a host's name is being resolved, close and the restart
 * after a seek take up to a second; the resolver itself goes on in the background.
 */

/* What x_fluvia_file_http_get_download_status() gives besides HTTP statuses of 400 and above. */
enum {
  FVFR_DOWNLOAD_OK = 0,       /* no failure so far, also while a transfer runs */
  FVFR_DOWNLOAD_TIMEOUT = -2, /* no connection within 10 s */
  FVFR_DOWNLOAD_NO_DATA = -3, /* a connection without data for 10 s (4 s, see feature flag) */
  FVFR_DOWNLOAD_CONNECTION_DEAD = -5, /* given up at a reader's request after 2 s without data */
  FVFR_DOWNLOAD_UNKNOWN_HOST = -6,    /* the host's name could not be resolved */
  FVFR_DOWNLOAD_UNREACHABLE = -7,     /* the host cannot be reached */
  FVFR_DOWNLOAD_REFUSED = -8          /* the host refused the connection */
};

/*
 * Chooses how failures are taken. Flag 1: a connection that has begun to deliver is given up after
 * 4 s without data instead of 10 s and then tried once more (FVFR_TIMEOUT when that fails too), and
 * a host whose name cannot be resolved is tried once more (then FVFR_FAILED). Any other flag, and
 * the start: 10 s, and both are FVFR_NOT_FOUND at once.
 *
 *   FVFR_OK  set; also for a local handle, where nothing happens
 */
FLUVIA_FILE_API int x_fluvia_file_set_featureflag(int handle, int flag);
FLUVIA_FILE_API int c_fluvia_file_set_featureflag(int handle, int flag);

/*
 * The download speed in bytes per second: smoothed over the last seconds, in the first second of a
 * transfer the average so far, 0 before any.
 *
 *   >= 0  the speed; 0 for a local handle
 */
FLUVIA_FILE_API long long x_fluvia_file_http_get_speed(int handle);
FLUVIA_FILE_API long long c_fluvia_file_http_get_speed(int handle);

/*
 * Caps the average download speed of each transfer at that many bytes per second; 0 or below is no
 * cap, as at the start. Holds from the next piece of a running transfer on.
 *
 *   FVFR_OK  set; also for a local handle, where nothing happens
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_speed(int handle, long long speed);
FLUVIA_FILE_API int c_fluvia_file_http_set_speed(int handle, long long speed);

/*
 * The Content-Type of the last answer, and the Server of the first that named one; "" when there is
 * none yet. The text belongs to the library and lives until the same function is called for this
 * handle again or the handle is closed: copy it when other threads use the handle. Null for a local
 * handle.
 */
FLUVIA_FILE_API const char* x_fluvia_file_http_get_content_type(int handle);
FLUVIA_FILE_API const char* c_fluvia_file_http_get_content_type(int handle);
FLUVIA_FILE_API const char* x_fluvia_file_http_get_server_name(int handle);
FLUVIA_FILE_API const char* c_fluvia_file_http_get_server_name(int handle);

/*
 * Settings of the requests:
 *   userAgent  the User-Agent header; "curl/7.19.5" at the start. Ends at the first line end.
 *   proxy      [scheme://][user:password@]host[:port]; "" is no proxy, also against the environment
 *   CAPath     a directory of PEM certificates with hashed names; switches the checks on. libcurl's
 *              own bundle (on Debian /etc/ssl/certs/ca-certificates.crt) is trusted beside it, and
 *              without that file every transfer fails until CA names one
 *   CA         a file of PEM certificates; switches the checks on
 *   cookie     the Cookie header, as "name=value; name=value". Ends at the first line end.
 *
 *   FVFR_OK           set
 *   FVFR_NOT_APPLIED  value is null, or a local handle
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_userAgent(int handle, const char* value);
FLUVIA_FILE_API int c_fluvia_file_http_set_userAgent(int handle, const char* value);
FLUVIA_FILE_API int x_fluvia_file_http_set_proxy(int handle, const char* value);
FLUVIA_FILE_API int c_fluvia_file_http_set_proxy(int handle, const char* value);
/* Has no c_ function. */
FLUVIA_FILE_API int x_fluvia_file_http_set_CAPath(int handle, const char* value);
FLUVIA_FILE_API int x_fluvia_file_http_set_CA(int handle, const char* value);
FLUVIA_FILE_API int c_fluvia_file_http_set_CA(int handle, const char* value);
FLUVIA_FILE_API int x_fluvia_file_http_set_cookie(int handle, const char* value);
FLUVIA_FILE_API int c_fluvia_file_http_set_cookie(int handle, const char* value);

/*
 * More of them. These refuse null at once, before the handle is looked at:
 *   client_authert  file of the client's certificate
 *   private_key     file of its private key
 *   key_type        format of the key file: "PEM" (the start) or "DER"
 *   ip_resolve      addresses of hosts: "IPv4" (what requests start with), "IPv6" or "whatever" for
 *                   either; any other text changes nothing
 *
 *   FVFR_OK           set, or nothing to change
 *   FVFR_NOT_APPLIED  a local handle
 *   FVFR_FAILED       value is null
 */
FLUVIA_FILE_API int x_fluvia_file_http_set_client_authert(int handle, const char* value);
FLUVIA_FILE_API int c_fluvia_file_http_set_client_authert(int handle, const char* value);
FLUVIA_FILE_API int x_fluvia_file_http_set_private_key(int handle, const char* value);
FLUVIA_FILE_API int c_fluvia_file_http_set_private_key(int handle, const char* value);
FLUVIA_FILE_API int x_fluvia_file_http_set_key_type(int handle, const char* value);
FLUVIA_FILE_API int c_fluvia_file_http_set_key_type(int handle, const char* value);
FLUVIA_FILE_API int x_fluvia_file_http_set_ip_resolve(int handle, const char* value);
FLUVIA_FILE_API int c_fluvia_file_http_set_ip_resolve(int handle, const char* value);

/*
 * How the resource's last transfer ended.
 *
 *   FVFR_DOWNLOAD_*  see there; FVFR_DOWNLOAD_OK for a local handle
 *   >= 400           the HTTP status the server answered with
 */
FLUVIA_FILE_API int x_fluvia_file_http_get_download_status(int handle);
FLUVIA_FILE_API int c_fluvia_file_http_get_download_status(int handle);

/*
 * Writes the IPv4 address, as text, of the server (or proxy) that any transfer of the process
 * connected to last into ipOut, which has room for 16 bytes; "" before any, "0.0.0.0" for IPv6. Has
 * no c_ function.
 *
 *   FVFR_OK           written
 *   FVFR_NOT_APPLIED  ipOut is null, or a local handle: ipOut is untouched
 */
FLUVIA_FILE_API int x_fluvia_file_http_get_url_ip(int handle, char* ipOut);

/*
 * Copies the raw headers of the last answer, status line first, into buffer, at most size bytes and
 * WITHOUT A TERMINATOR, and writes their whole length in bytes, at most 8192, to *length, which may
 * exceed size. length must not be null, buffer only for size 0 (not checked).
 *
 *   FVFR_OK  copied; for a local handle nothing happens and *length is untouched
 */
FLUVIA_FILE_API int x_fluvia_file_http_get_header(int handle, char* buffer, int size, int* length);
FLUVIA_FILE_API int c_fluvia_file_http_get_header(int handle, char* buffer, int size, int* length);

#ifdef __cplusplus
}
#endif

#endif /* FLUVIAFS_H_ */
