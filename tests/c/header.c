/* The public header needs no other header and may be included twice. The address of every
   function of its two families has the type that callers rely on. */
#include <fluviafs.h>

#define FAMILY(prefix)                                                                      \
  int (*prefix##Open)(const char*, int*) = prefix##_fluvia_file_open;                       \
  int (*prefix##OpenX)(const char*, int*, int) = prefix##_fluvia_file_open_x;               \
  int (*prefix##Close)(int) = prefix##_fluvia_file_close;                                   \
  int (*prefix##Volatile)(int) = prefix##_fluvia_file_volatile;                             \
  int (*prefix##Read)(int, char*, unsigned int, unsigned int*) = prefix##_fluvia_file_read; \
  int (*prefix##ReadAsync)(int, char*, unsigned int, void (*)(int, void*, int, int), void*, \
                           int*) = prefix##_fluvia_file_read_async;                         \
  int (*prefix##ReadAbort)(int, int) = prefix##_fluvia_file_read_abort;                     \
  int (*prefix##Seek)(int, long long, long long*) = prefix##_fluvia_file_seek;              \
  long long (*prefix##Offset)(int) = prefix##_fluvia_file_offset;                           \
  long long (*prefix##Size)(int) = prefix##_fluvia_file_size;                               \
  int (*prefix##BufferSize)(int) = prefix##_fluvia_file_bufferSize;                         \
  int (*prefix##BufferedSize)(int) = prefix##_fluvia_file_bufferedSize;                     \
  int (*prefix##DumpBuffer)(void*, void*) = prefix##_fluvia_file_dump_buffer;               \
  void (*prefix##DisableLog)(void) = prefix##_fluvia_file_disable_log;                      \
  void (*prefix##SetLogLevel)(int) = prefix##_fluvia_file_set_log_level;                    \
  int (*prefix##GetLogLevel)(void) = prefix##_fluvia_file_get_log_level

#define HTTP_FAMILY(prefix)                                                                      \
  int (*prefix##FeatureFlag)(int, int) = prefix##_fluvia_file_set_featureflag;                   \
  long long (*prefix##GetSpeed)(int) = prefix##_fluvia_file_http_get_speed;                      \
  int (*prefix##SetSpeed)(int, long long) = prefix##_fluvia_file_http_set_speed;                 \
  const char* (*prefix##ContentType)(int) = prefix##_fluvia_file_http_get_content_type;          \
  const char* (*prefix##ServerName)(int) = prefix##_fluvia_file_http_get_server_name;            \
  int (*prefix##UserAgent)(int, const char*) = prefix##_fluvia_file_http_set_userAgent;          \
  int (*prefix##Proxy)(int, const char*) = prefix##_fluvia_file_http_set_proxy;                  \
  int (*prefix##CA)(int, const char*) = prefix##_fluvia_file_http_set_CA;                        \
  int (*prefix##Cookie)(int, const char*) = prefix##_fluvia_file_http_set_cookie;                \
  int (*prefix##ClientAuthert)(int, const char*) = prefix##_fluvia_file_http_set_client_authert; \
  int (*prefix##PrivateKey)(int, const char*) = prefix##_fluvia_file_http_set_private_key;       \
  int (*prefix##KeyType)(int, const char*) = prefix##_fluvia_file_http_set_key_type;             \
  int (*prefix##IpResolve)(int, const char*) = prefix##_fluvia_file_http_set_ip_resolve;         \
  int (*prefix##Status)(int) = prefix##_fluvia_file_http_get_download_status;                    \
  int (*prefix##Header)(int, char*, int, int*) = prefix##_fluvia_file_http_get_header

FAMILY(x);
FAMILY(c);
HTTP_FAMILY(x);
HTTP_FAMILY(c);
int (*xCAPath)(int, const char*) = x_fluvia_file_http_set_CAPath;
int (*xUrlIp)(int, char*) = x_fluvia_file_http_get_url_ip;

/* An array of negative size stops the compilation if a value that callers have compiled in changes.
 */
#define SAME(name, constant, value) typedef char name[(constant) == (value) ? 1 : -1]
SAME(okIs0, FVFR_OK, 0);
SAME(notAppliedIsMinus1, FVFR_NOT_APPLIED, -1);
SAME(failedIsMinus4, FVFR_FAILED, -4);
SAME(timeoutIsMinus6, FVFR_TIMEOUT, -6);
SAME(seekRefusedIsMinus12, FVFR_SEEK_REFUSED, -12);
SAME(endOfFileIsMinus13, FVFR_END_OF_FILE, -13);
SAME(notAvailableIsMinus17, FVFR_NOT_AVAILABLE, -17);
SAME(notFoundIsMinus21, FVFR_NOT_FOUND, -21);
SAME(asyncFailedIsMinus1, FVFR_ASYNC_FAILED, -1);
SAME(asyncDoneIs1, FVFR_ASYNC_DONE, 1);
SAME(asyncCancelledIs3, FVFR_ASYNC_CANCELLED, 3);
SAME(asyncEndOfFileIs4, FVFR_ASYNC_END_OF_FILE, 4);
SAME(unknownSizeIs60Bits, FVFR_UNKNOWN_SIZE, 1152921504606846975LL);
SAME(downloadOkIs0, FVFR_DOWNLOAD_OK, 0);
SAME(downloadTimeoutIsMinus2, FVFR_DOWNLOAD_TIMEOUT, -2);
SAME(downloadNoDataIsMinus3, FVFR_DOWNLOAD_NO_DATA, -3);
SAME(downloadDeadIsMinus5, FVFR_DOWNLOAD_CONNECTION_DEAD, -5);
SAME(downloadUnknownHostIsMinus6, FVFR_DOWNLOAD_UNKNOWN_HOST, -6);
SAME(downloadUnreachableIsMinus7, FVFR_DOWNLOAD_UNREACHABLE, -7);
SAME(downloadRefusedIsMinus8, FVFR_DOWNLOAD_REFUSED, -8);
