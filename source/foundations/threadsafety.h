#pragma once

// Lock annotations for clang's thread safety analysis; nothing under other compilers.
#if defined(__clang__)
#define VNK_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VNK_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) VNK_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY VNK_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) VNK_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) VNK_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) VNK_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) VNK_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) VNK_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS VNK_THREAD_ANNOTATION(no_thread_safety_analysis)
