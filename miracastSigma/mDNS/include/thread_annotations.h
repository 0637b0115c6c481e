// Annotations for Clang's thread-safety analysis (-Wthread-safety); empty for other compilers.
#pragma once

#if defined(__clang__)
#define SIGMA_ANNOTATION(attribute) __attribute__((attribute))
#else
#define SIGMA_ANNOTATION(attribute)
#endif

// The variable is read and written with `lock` held.
#define SIGMA_GUARDED_BY(lock) SIGMA_ANNOTATION(guarded_by(lock))
// The function is called with `lock` held.
#define SIGMA_REQUIRES(lock) SIGMA_ANNOTATION(requires_capability(lock))
