// Annotations for Clang's thread-safety analysis; empty for other compilers.
#pragma once

#if defined(__clang__)
#define THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define THREAD_ANNOTATION(attribute)
#endif

// The variable is read and written with `lock` held.
#define GUARDED_BY(lock) THREAD_ANNOTATION(guarded_by(lock))
// The function is called with `lock` held.
#define REQUIRES(lock) THREAD_ANNOTATION(requires_capability(lock))
