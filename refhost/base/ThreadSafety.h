#pragma once
// Tested by tests/refhost/base/Mutex_test.cpp.

// Annotations for Clang's -Wthread-safety: which mutex guards a member, which one a function requires. They
// expand to nothing for other compilers. A test compiles the reference host with the check as an error.
#if defined(__clang__)
#define OV_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define OV_THREAD_SAFETY(attribute)
#endif

/// A type that is a lock.
#define OV_CAPABILITY(name) OV_THREAD_SAFETY(capability(name))
/// A type whose objects hold a lock during their lifetime.
#define OV_SCOPED_CAPABILITY OV_THREAD_SAFETY(scoped_lockable)
/// A member that is accessed only while the mutex is held.
#define OV_GUARDED_BY(mutex) OV_THREAD_SAFETY(guarded_by(mutex))
/// A pointer whose target is accessed only while the mutex is held.
#define OV_PT_GUARDED_BY(mutex) OV_THREAD_SAFETY(pt_guarded_by(mutex))
/// A function that is called, and returns, with the mutexes held.
#define OV_REQUIRES(...) OV_THREAD_SAFETY(requires_capability(__VA_ARGS__))
/// A function that locks the mutexes itself: never called with one of them held.
#define OV_EXCLUDES(...) OV_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
/// A function that locks the mutexes and returns with them held.
#define OV_ACQUIRE(...) OV_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
/// A function that is called with the mutexes held and releases them.
#define OV_RELEASE(...) OV_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// A function that returns `success` when it locked the mutexes.
#define OV_TRY_ACQUIRE(...) OV_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
/// A function that returns a reference to the mutex.
#define OV_RETURN_CAPABILITY(mutex) OV_THREAD_SAFETY(lock_returned(mutex))
/// Asserts to the compiler that the mutex is held, where it cannot know.
#define OV_ASSERT_CAPABILITY(...) OV_THREAD_SAFETY(assert_capability(__VA_ARGS__))
/// A function that is correct although the check cannot verify it. Give the reason.
#define OV_NO_THREAD_SAFETY_ANALYSIS OV_THREAD_SAFETY(no_thread_safety_analysis)
