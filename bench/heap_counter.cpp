// SPDX-License-Identifier: Apache-2.0
// Counts the calls of malloc and its like; preloaded, so that what is timed runs without it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {
std::uint64_t calls = 0;
}

// The C library's own, under the names that it has for those who replace malloc. Operator new calls malloc.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

std::uint64_t bench_heap_calls() { return calls; }

void* malloc(std::size_t size) {
    ++calls;
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    ++calls;
    return __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
    ++calls;
    return __libc_realloc(block, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    ++calls;
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    ++calls;
    *block = __libc_memalign(alignment, size);
    return *block == nullptr ? 12 : 0;
}
// Nothing to give back is no call of the heap: free(NULL) returns at once.
void free(void* block) {
    if (block != nullptr) ++calls;
    __libc_free(block);
}
}
