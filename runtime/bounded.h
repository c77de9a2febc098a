// SPDX-License-Identifier: Apache-2.0
// memcpy_s and memset_s: the bounds-checked memory functions of the platform, which no libc here has.
#ifndef KAPLO_BOUNDED_H
#define KAPLO_BOUNDED_H

#include <cstddef>
#include <cstring>

#ifdef KAPLO_PLATFORM_MEM_S

// The platform brings its own: a build option of the library links them instead.
extern "C" int memcpy_s(void* destination, std::size_t destination_size, const void* source,
                        std::size_t count);
extern "C" int memset_s(void* destination, std::size_t destination_size, int value, std::size_t count);

namespace kaplo {
using ::memcpy_s;
using ::memset_s;
}  // namespace kaplo

#else

namespace kaplo {

inline constexpr int kRefused = 34;  // ERANGE

// Copies `count` bytes between ranges that do not overlap. Refuses, with a non-zero result and nothing
// written, a count larger than the destination. A count of 0 allows null pointers.
inline int memcpy_s(void* destination, std::size_t destination_size, const void* source, std::size_t count) {
    if (count > destination_size) return kRefused;
    if (count != 0) std::memcpy(destination, source, count);
    return 0;
}

// Fills `count` bytes; refuses as memcpy_s does.
inline int memset_s(void* destination, std::size_t destination_size, int value, std::size_t count) {
    if (count > destination_size) return kRefused;
    if (count != 0) std::memset(destination, value, count);
    return 0;
}

}  // namespace kaplo

#endif

#endif
