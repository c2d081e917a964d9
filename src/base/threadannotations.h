// What a lock guards, said so that clang can check it (-Wthread-safety); nothing to other
// compilers.
#ifndef MPBP_BASE_THREADANNOTATIONS_H_
#define MPBP_BASE_THREADANNOTATIONS_H_

#ifdef __clang__
#define MPBP_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define MPBP_THREAD_ATTRIBUTE(x)
#endif

// Of a class: a lock, and what holds one for as long as it lives.
#define MPBP_LOCK MPBP_THREAD_ATTRIBUTE(capability("lock"))
#define MPBP_SCOPED_LOCK MPBP_THREAD_ATTRIBUTE(scoped_lockable)
// Of a member: it is only touched with the lock held.
#define MPBP_GUARDED_BY(lock) MPBP_THREAD_ATTRIBUTE(guarded_by(lock))
// Of a function: it acquires the lock, releases it, or requires its caller to hold it.
#define MPBP_ACQUIRES(...) MPBP_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define MPBP_RELEASES(...) MPBP_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define MPBP_REQUIRES(lock) MPBP_THREAD_ATTRIBUTE(requires_capability(lock))

#endif  // MPBP_BASE_THREADANNOTATIONS_H_
