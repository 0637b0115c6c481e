// The multimedia OS-abstraction library: a sleep, a clock and an allocator. On the simulated device
// the sleep and the clock run on device time, which a test may scale (platform/host/Clock.h).
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Blocks the calling thread for `milliseconds` of device time.
void osal_sleep_ms(uint32_t milliseconds);

// Returns the milliseconds of device time since an unspecified start; never decreases.
uint64_t osal_clock_ms(void);

// Returns zero-filled memory for `count` elements of `size` bytes, or null; release it with free().
// The allocation is recorded with the caller's source `file` (a constant text) and `line`.
void* osal_calloc(size_t count, size_t size, const char* file, int line);

#ifdef __cplusplus
}
#endif
