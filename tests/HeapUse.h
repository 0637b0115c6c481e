// How much of the heap is in use in this process.
//
// Linked into a program, it counts the live blocks of all its libraries, which tells exactly what
// was forgotten; bytes would not, since a block may be a little larger than what was asked for, and
// freed ones wait in their thread's cache as if they were in use. Under a sanitizer, which has an
// allocator of its own, it is the bytes asked for.
#pragma once

extern const bool kHeapUseInBlocks;

// On any thread.
long heapUse();
