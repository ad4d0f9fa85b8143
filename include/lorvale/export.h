#pragma once
/// What every public header needs: the visibility of exported names, and the annotations with which clang
/// checks at compile time that guarded members are touched under their lock (-Wthread-safety).

#define LORVALE_EXPORT __attribute__((visibility("default")))

#if defined(__clang__)
#define LORVALE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define LORVALE_THREAD_ANNOTATION(x)
#endif

#define LORVALE_CAPABILITY(name) LORVALE_THREAD_ANNOTATION(capability(name))
#define LORVALE_SCOPED_CAPABILITY LORVALE_THREAD_ANNOTATION(scoped_lockable)
#define LORVALE_GUARDED_BY(mutex) LORVALE_THREAD_ANNOTATION(guarded_by(mutex))
#define LORVALE_PT_GUARDED_BY(mutex) LORVALE_THREAD_ANNOTATION(pt_guarded_by(mutex))
#define LORVALE_REQUIRES(...) LORVALE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define LORVALE_ACQUIRE(...) LORVALE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define LORVALE_TRY_ACQUIRE(...) LORVALE_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define LORVALE_RELEASE(...) LORVALE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define LORVALE_EXCLUDES(...) LORVALE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define LORVALE_ACQUIRED_AFTER(...) LORVALE_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define LORVALE_NO_THREAD_SAFETY_ANALYSIS LORVALE_THREAD_ANNOTATION(no_thread_safety_analysis)
