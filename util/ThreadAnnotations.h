#ifndef FLUVIAFS_UTIL_THREADANNOTATIONS_H_
#define FLUVIAFS_UTIL_THREADANNOTATIONS_H_

// Short names for Clang's thread safety attributes; empty for other compilers. The Clang build
// treats every violation as an error.
#if defined(__clang__)
#define FLUVIA_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define FLUVIA_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) FLUVIA_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY FLUVIA_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) FLUVIA_THREAD_ATTRIBUTE(guarded_by(x))
#define PT_GUARDED_BY(x) FLUVIA_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define REQUIRES(...) FLUVIA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) FLUVIA_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) FLUVIA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) FLUVIA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define RETURN_CAPABILITY(x) FLUVIA_THREAD_ATTRIBUTE(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS FLUVIA_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif  // FLUVIAFS_UTIL_THREADANNOTATIONS_H_
