#include "HeapUse.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

extern "C" size_t __sanitizer_get_current_allocated_bytes();

const bool kHeapUseInBlocks = false;

long heapUse() { return static_cast<long>(__sanitizer_get_current_allocated_bytes()); }

#else

// The C library's own, behind those that this file puts in front of them.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);
}

namespace {

std::atomic<long> blocks{0};

void* counted(void* memory) {
    if (memory != nullptr) blocks.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

}  // namespace

const bool kHeapUseInBlocks = true;

long heapUse() { return blocks.load(std::memory_order_relaxed); }

extern "C" {

void* malloc(size_t size) { return counted(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) { return counted(__libc_calloc(count, size)); }
void* memalign(size_t alignment, size_t size) { return counted(__libc_memalign(alignment, size)); }
void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void** memory, size_t alignment, size_t size) {
    void* const made = memalign(alignment, size);
    if (made == nullptr) return ENOMEM;
    *memory = made;
    return 0;
}

void free(void* memory) {
    if (memory != nullptr) blocks.fetch_sub(1, std::memory_order_relaxed);
    __libc_free(memory);
}

void* realloc(void* memory, size_t size) {
    if (memory == nullptr) return counted(__libc_realloc(nullptr, size));
    if (size == 0) {
        free(memory);
        return nullptr;
    }
    return __libc_realloc(memory, size);
}

}  // extern "C"

#endif
