// The functions must be defined under their plain names.
#undef _FILE_OFFSET_BITS

#include "tests/ordeal/torture/Interpose.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

// The allocators below these: a sanitizer's, so that its checks work, else the C library's.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);
void* __interceptor_malloc(size_t size) __attribute__((weak));
void* __interceptor_calloc(size_t count, size_t size) __attribute__((weak));
void* __interceptor_realloc(void* block, size_t size) __attribute__((weak));
void* __interceptor_memalign(size_t alignment, size_t size) __attribute__((weak));
void __interceptor_free(void* block) __attribute__((weak));
}

namespace torture {

const char kHostName[] = "torture.test";

namespace {

std::atomic<int> armedPoint{static_cast<int>(Point::kNone)};
std::atomic<long> firstFailing{0};
std::atomic<long> countFailing{0};
std::atomic<long> counted{0};
std::atomic<long> failed{0};
// The program itself is statically linked with this: reading it needs no memory.
thread_local int spared = 0;

// True if this call must fail.
bool due(Point point) {
  if (armedPoint.load(std::memory_order_relaxed) != static_cast<int>(point) || spared > 0) {
    return false;
  }
  const long number = counted.fetch_add(1) + 1;
  const long first = firstFailing;
  const long count = countFailing;
  if (first == 0 || number < first) return false;
  if (count != 0 && number >= first + count) return false;
  ++failed;
  return true;
}

// The system's own function of that name, looked up at its first call.
void* below(std::atomic<void*>* known, const char* name) {
  void* function = known->load(std::memory_order_acquire);
  if (function != nullptr) return function;
  const Spared ours;
  function = dlsym(RTLD_NEXT, name);
  if (function == nullptr) abort();
  known->store(function, std::memory_order_release);
  return function;
}

#define TORTURE_BELOW(name)                                                    \
  ([]() {                                                                      \
    static std::atomic<void*> known{nullptr};                                  \
    return reinterpret_cast<decltype(&::name)>(torture::below(&known, #name)); \
  }())

// The faster clock: shown time = shown base + (time - base) * factor, for both kinds of clock.
struct Rate {
  int64_t factor = 1;
  int64_t realBase[2] = {0, 0};
  int64_t toldBase[2] = {0, 0};
};
Rate rate;
std::atomic_flag rateLock = ATOMIC_FLAG_INIT;
std::atomic<bool> clockTouched{false};

class RateGuard {
 public:
  RateGuard() {
    while (rateLock.test_and_set(std::memory_order_acquire)) {
    }
  }
  ~RateGuard() { rateLock.clear(std::memory_order_release); }
};

constexpr int64_t kSecond = 1000000000;

int kindOf(clockid_t clock) { return clock == CLOCK_REALTIME ? 0 : 1; }

int64_t toNanoseconds(const struct timespec& time) {
  return static_cast<int64_t>(time.tv_sec) * kSecond + time.tv_nsec;
}

struct timespec toTimespec(int64_t nanoseconds) {
  struct timespec time;
  time.tv_sec = static_cast<time_t>(nanoseconds / kSecond);
  time.tv_nsec = static_cast<long>(nanoseconds % kSecond);
  return time;
}

int64_t realTime(clockid_t clock) {
  struct timespec now = {};
  TORTURE_BELOW(clock_gettime)(clock, &now);
  return toNanoseconds(now);
}

bool isScaled(clockid_t clock) {
  return clockTouched && (clock == CLOCK_REALTIME || clock == CLOCK_MONOTONIC ||
                          clock == CLOCK_MONOTONIC_RAW || clock == CLOCK_MONOTONIC_COARSE);
}

int64_t told(int kind, int64_t real) {
  const RateGuard guard;
  return rate.toldBase[kind] + (real - rate.realBase[kind]) * rate.factor;
}

int64_t realOf(int kind, int64_t toldTime) {
  const RateGuard guard;
  return rate.realBase[kind] + (toldTime - rate.toldBase[kind]) / rate.factor;
}

int64_t factorNow() {
  const RateGuard guard;
  return rate.factor;
}

struct Name {
  Point point;
  const char* name;
};
constexpr Name kNames[] = {{Point::kAllocation, "allocation"},
                           {Point::kThread, "thread"},
                           {Point::kSocket, "socket"},
                           {Point::kConnect, "connect"},
                           {Point::kOpen, "open"},
                           {Point::kRead, "read"},
                           {Point::kSend, "send"},
                           {Point::kResolve, "resolve"}};

}  // namespace

const char* nameOf(Point point) {
  for (const Name& entry : kNames) {
    if (entry.point == point) return entry.name;
  }
  return "none";
}

Point pointOf(const std::string& name) {
  for (const Name& entry : kNames) {
    if (name == entry.name) return entry.point;
  }
  return Point::kNone;
}

void arm(Point point, long first, long count) {
  counted = 0;
  failed = 0;
  firstFailing = first;
  countFailing = count;
  armedPoint = static_cast<int>(point);
}

long disarm() {
  armedPoint = static_cast<int>(Point::kNone);
  return counted;
}

long failures() { return failed; }

Spared::Spared() { ++spared; }
Spared::~Spared() { --spared; }

Counted::Counted() : before_(spared) { spared = 0; }
Counted::~Counted() { spared = before_; }

void setClockSpeed(int factor) {
  const int64_t real[2] = {realTime(CLOCK_REALTIME), realTime(CLOCK_MONOTONIC)};
  const RateGuard guard;
  for (int kind = 0; kind < 2; ++kind) {
    rate.toldBase[kind] =
        clockTouched ? rate.toldBase[kind] + (real[kind] - rate.realBase[kind]) * rate.factor
                     : real[kind];
    rate.realBase[kind] = real[kind];
  }
  rate.factor = factor;
  clockTouched = true;
}

namespace {

void* allocate(size_t size) {
  if (due(Point::kAllocation)) return nullptr;
  return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

void* allocateAligned(size_t alignment, size_t size) {
  if (due(Point::kAllocation)) return nullptr;
  return __interceptor_memalign != nullptr ? __interceptor_memalign(alignment, size)
                                           : __libc_memalign(alignment, size);
}

void deallocate(void* block) {
  if (__interceptor_free != nullptr) {
    __interceptor_free(block);
  } else {
    __libc_free(block);
  }
}

void* allocateOrThrow(size_t size) {
  void* block = allocate(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

// libcurl wakes itself over a pair of local sockets, whose calls do not fail like that.
bool isNetwork(int descriptor) {
  int domain = 0;
  socklen_t length = sizeof domain;
  return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &length) == 0 &&
         (domain == AF_INET || domain == AF_INET6);
}

template <typename Call>
int openWithMode(int flags, va_list arguments, Call call) {
  if (due(Point::kOpen)) {
    errno = EMFILE;
    return -1;
  }
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0
                          ? static_cast<mode_t>(va_arg(arguments, unsigned int))
                          : 0;
  return call(mode);
}

}  // namespace

}  // namespace torture

using torture::due;
using torture::Point;

// Visible to every shared library of the process.
#pragma GCC visibility push(default)

extern "C" {

void* malloc(size_t size) {
  void* block = torture::allocate(size);
  if (block == nullptr) errno = ENOMEM;
  return block;
}

void* calloc(size_t count, size_t size) {
  if (due(Point::kAllocation)) {
    errno = ENOMEM;
    return nullptr;
  }
  return __interceptor_calloc != nullptr ? __interceptor_calloc(count, size)
                                         : __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
  if (size != 0 && due(Point::kAllocation)) {
    errno = ENOMEM;
    return nullptr;
  }
  return __interceptor_realloc != nullptr ? __interceptor_realloc(block, size)
                                          : __libc_realloc(block, size);
}

void free(void* block) { torture::deallocate(block); }

void* aligned_alloc(size_t alignment, size_t size) {
  void* block = torture::allocateAligned(alignment, size);
  if (block == nullptr) errno = ENOMEM;
  return block;
}

int posix_memalign(void** result, size_t alignment, size_t size) {
  void* block = torture::allocateAligned(alignment, size);
  if (block == nullptr) return ENOMEM;
  *result = block;
  return 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  if (due(Point::kThread)) return EAGAIN;
  return TORTURE_BELOW(pthread_create)(thread, attributes, start, argument);
}

// Sanitizers call it as a thread begins; they end the process if it has no memory.
int pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes) {
  const torture::Spared ours;
  return TORTURE_BELOW(pthread_getattr_np)(thread, attributes);
}

int socket(int domain, int type, int protocol) {
  if (due(Point::kSocket)) {
    errno = EMFILE;
    return -1;
  }
  return TORTURE_BELOW(socket)(domain, type, protocol);
}

int socketpair(int domain, int type, int protocol, int pair[2]) {
  if (due(Point::kSocket)) {
    errno = EMFILE;
    return -1;
  }
  return TORTURE_BELOW(socketpair)(domain, type, protocol, pair);
}

int connect(int descriptor, const struct sockaddr* address, socklen_t length) {
  if (due(Point::kConnect)) {
    errno = ENETUNREACH;
    return -1;
  }
  return TORTURE_BELOW(connect)(descriptor, address, length);
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int result = torture::openWithMode(
      flags, arguments, [&](mode_t mode) { return TORTURE_BELOW(open)(path, flags, mode); });
  va_end(arguments);
  return result;
}

int openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int result = torture::openWithMode(flags, arguments, [&](mode_t mode) {
    return TORTURE_BELOW(openat)(folder, path, flags, mode);
  });
  va_end(arguments);
  return result;
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int result = torture::openWithMode(
      flags, arguments, [&](mode_t mode) { return TORTURE_BELOW(open64)(path, flags, mode); });
  va_end(arguments);
  return result;
}

FILE* fopen(const char* path, const char* mode) {
  if (due(Point::kOpen)) {
    errno = EMFILE;
    return nullptr;
  }
  return TORTURE_BELOW(fopen)(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
  if (due(Point::kOpen)) {
    errno = EMFILE;
    return nullptr;
  }
  return TORTURE_BELOW(fopen64)(path, mode);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
  if (due(Point::kRead)) {
    errno = EIO;
    return -1;
  }
  return TORTURE_BELOW(read)(descriptor, buffer, size);
}

ssize_t recv(int descriptor, void* buffer, size_t size, int flags) {
  if (torture::isNetwork(descriptor) && due(Point::kRead)) {
    errno = ECONNRESET;
    return -1;
  }
  return TORTURE_BELOW(recv)(descriptor, buffer, size, flags);
}

ssize_t send(int descriptor, const void* buffer, size_t size, int flags) {
  if (torture::isNetwork(descriptor) && due(Point::kSend)) {
    errno = ECONNRESET;
    return -1;
  }
  return TORTURE_BELOW(send)(descriptor, buffer, size, flags);
}

int getaddrinfo(const char* node, const char* service, const struct addrinfo* hints,
                struct addrinfo** result) {
  if (due(Point::kResolve)) return EAI_AGAIN;
  const bool ours = node != nullptr && strcmp(node, torture::kHostName) == 0;
  return TORTURE_BELOW(getaddrinfo)(ours ? "127.0.0.1" : node, service, hints, result);
}

int clock_gettime(clockid_t clock, struct timespec* time) {
  const int result = TORTURE_BELOW(clock_gettime)(clock, time);
  if (result == 0 && torture::isScaled(clock)) {
    *time = torture::toTimespec(torture::told(
        torture::kindOf(clock),
        torture::realTime(clock == CLOCK_REALTIME ? CLOCK_REALTIME : CLOCK_MONOTONIC)));
  }
  return result;
}

int gettimeofday(struct timeval* __restrict time, void* __restrict zone) {
  static_cast<void>(zone);
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  time->tv_sec = now.tv_sec;
  time->tv_usec = now.tv_nsec / 1000;
  return 0;
}

time_t time(time_t* result) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != nullptr) *result = now.tv_sec;
  return now.tv_sec;
}

int poll(struct pollfd* descriptors, nfds_t count, int timeout) {
  if (timeout > 0 && torture::clockTouched) {
    const int64_t shorter = timeout / torture::factorNow();
    timeout = shorter < 1 ? 1 : static_cast<int>(shorter);
  }
  return TORTURE_BELOW(poll)(descriptors, count, timeout);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* until) {
  struct timespec real = *until;
  if (torture::isScaled(clock)) {
    real = torture::toTimespec(
        torture::realOf(torture::kindOf(clock), torture::toNanoseconds(*until)));
  }
  return TORTURE_BELOW(pthread_cond_clockwait)(condition, mutex, clock, &real);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const struct timespec* until) {
  struct timespec real = *until;
  if (torture::isScaled(CLOCK_REALTIME)) {
    real = torture::toTimespec(torture::realOf(0, torture::toNanoseconds(*until)));
  }
  return TORTURE_BELOW(pthread_cond_timedwait)(condition, mutex, &real);
}

int usleep(useconds_t microseconds) {
  if (torture::clockTouched) {
    microseconds /= static_cast<useconds_t>(torture::factorNow());
  }
  return TORTURE_BELOW(usleep)(microseconds);
}

unsigned int sleep(unsigned int seconds) {
  for (unsigned int i = 0; i < seconds; ++i) usleep(1000000);
  return 0;
}

}  // extern "C"

void* operator new(size_t size) { return torture::allocateOrThrow(size); }
void* operator new[](size_t size) { return torture::allocateOrThrow(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return torture::allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return torture::allocate(size);
}
void operator delete(void* block) noexcept { torture::deallocate(block); }
void operator delete[](void* block) noexcept { torture::deallocate(block); }
void operator delete(void* block, size_t) noexcept { torture::deallocate(block); }
void operator delete[](void* block, size_t) noexcept { torture::deallocate(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { torture::deallocate(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { torture::deallocate(block); }

#pragma GCC visibility pop
