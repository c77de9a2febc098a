// SPDX-License-Identifier: Apache-2.0
// memcpy_s and memset_s: the bounds-checked memory functions of the platform, which no libc here has.
#ifndef KAPLO_BOUNDED_H
#define KAPLO_BOUNDED_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "runtime/inline.h"

#ifdef KAPLO_PLATFORM_MEM_S

// The platform brings its own: a build option of the library links them instead.
extern "C" int memcpy_s(void* destination, std::size_t destination_size, const void* source,
                        std::size_t count);
extern "C" int memset_s(void* destination, std::size_t destination_size, int value, std::size_t count);

namespace kaplo {
inline constexpr bool kPlatformMemory = true;
using ::memcpy_s;
using ::memset_s;
}  // namespace kaplo

#else

namespace kaplo {

inline constexpr bool kPlatformMemory = false;
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

namespace kaplo {

// Zeroes every byte of an object. By sixteen bytes at a time: gcc makes a string instruction of a memset of
// some hundred constant bytes, which is slow to start.
template <class T>
KAPLO_INLINE inline void clear(T& object) {
    if constexpr (kPlatformMemory) {
        memset_s(&object, sizeof object, 0, sizeof object);
    } else {
        using Sixteen [[gnu::vector_size(16)]] = std::uint64_t;
        constexpr Sixteen zeros = {};
        constexpr std::size_t step = sizeof zeros;
        constexpr std::size_t size = sizeof(T);
        auto* const bytes = reinterpret_cast<unsigned char*>(&object);
        const auto clear_each = [&]<std::size_t... i>(std::index_sequence<i...>) KAPLO_INLINE {
            (std::memcpy(bytes + i * step, &zeros, step), ...);
        };
        clear_each(std::make_index_sequence<size / step>{});
        std::memset(bytes + size / step * step, 0, size % step);
    }
}

}  // namespace kaplo

#endif
