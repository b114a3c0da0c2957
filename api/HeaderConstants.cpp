// The public header is plain C and self-contained: it repeats these numbers, and this file checks
// them.
#include "api/HandleTable.h"
#include "api/fluviafs.h"
#include "util/BufferQueueDataReceiver.h"
#include "util/Results.h"
#include "webs/AsyncReads.h"
#include "webs/FluviaFile.h"
#include "webs/HttpFileRequest.h"

namespace api {
namespace {

constexpr bool areSame(long long ours, long long told) { return ours == told; }

static_assert(areSame(util::READ_OK, FVFR_OK), "result");
static_assert(areSame(util::CALL_OK, FVFR_OK), "result");
static_assert(areSame(util::READ_EXITING, FVFR_NOT_APPLIED), "result");
static_assert(areSame(util::NOT_APPLIED, FVFR_NOT_APPLIED), "result");
static_assert(areSame(util::READ_FAILED, FVFR_FAILED), "result");
static_assert(areSame(util::CALL_FAILED, FVFR_FAILED), "result");
static_assert(areSame(util::READ_TIMEOUT, FVFR_TIMEOUT), "result");
static_assert(areSame(util::SEEK_REFUSED, FVFR_SEEK_REFUSED), "result");
static_assert(areSame(util::READ_END, FVFR_END_OF_FILE), "result");
static_assert(areSame(util::READ_NOT_AVAILABLE, FVFR_NOT_AVAILABLE), "result");
static_assert(areSame(util::READ_NOT_FOUND, FVFR_NOT_FOUND), "result");

static_assert(areSame(webs::ASYNC_FAILED, FVFR_ASYNC_FAILED), "status");
static_assert(areSame(webs::ASYNC_DONE, FVFR_ASYNC_DONE), "status");
static_assert(areSame(webs::ASYNC_CANCELLED, FVFR_ASYNC_CANCELLED), "status");
static_assert(areSame(webs::ASYNC_END_OF_FILE, FVFR_ASYNC_END_OF_FILE), "status");

static_assert(areSame(webs::DOWNLOAD_OK, FVFR_DOWNLOAD_OK), "download");
static_assert(areSame(webs::DOWNLOAD_TIMEOUT, FVFR_DOWNLOAD_TIMEOUT), "download");
static_assert(areSame(webs::DOWNLOAD_NOT_REVEIVE_DATA, FVFR_DOWNLOAD_NO_DATA), "download");
static_assert(areSame(webs::DOWNLOAD_CONNECTION_DEAD, FVFR_DOWNLOAD_CONNECTION_DEAD), "download");
static_assert(areSame(webs::DOWNLOAD_DNS_UNABLE_RESOLVED, FVFR_DOWNLOAD_UNKNOWN_HOST), "download");
static_assert(areSame(webs::DOWNLOAD_CONNECT_FAIL, FVFR_DOWNLOAD_UNREACHABLE), "download");
static_assert(areSame(webs::DOWNLOAD_CONNECT_REJECT, FVFR_DOWNLOAD_REFUSED), "download");

static_assert(areSame(kMaxHandle, FVFR_MAX_HANDLES), "limit");
static_assert(areSame(webs::kMaxRequests, FVFR_MAX_REQUESTS), "limit");
static_assert(areSame(webs::kSeekSpan, FVFR_SEEK_SPAN), "limit");
static_assert(areSame(util::UNKNOWN_CONTENT_SIZE, FVFR_UNKNOWN_SIZE), "size");

}  // namespace
}  // namespace api
