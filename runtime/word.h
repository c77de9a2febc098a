// SPDX-License-Identifier: Apache-2.0
// What is loaded, combined and stored at once: an integer, or two in a vector register. Every machine that
// the compiler knows has these; one without such registers takes two steps.
#ifndef KAPLO_WORD_H
#define KAPLO_WORD_H

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON) && defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace kaplo {

template <std::uint32_t bytes>
struct WordOf;
template <>
struct WordOf<1> {
    using Type = std::uint8_t;
};
template <>
struct WordOf<2> {
    using Type = std::uint16_t;
};
template <>
struct WordOf<4> {
    using Type = std::uint32_t;
};
template <>
struct WordOf<8> {
    using Type = std::uint64_t;
};
template <>
struct WordOf<16> {
    using Type [[gnu::vector_size(16)]] = std::uint64_t;
};
template <std::uint32_t bytes>
using Word = typename WordOf<bytes>::Type;

inline bool is_zero(Word<8> word) { return word == 0; }
inline bool is_zero(Word<16> word) {
#if defined(__SSE2__)
    const auto zeros = _mm_cmpeq_epi8(reinterpret_cast<__m128i>(word), _mm_setzero_si128());
    return _mm_movemask_epi8(zeros) == 0xFFFF;
#else
    return (word[0] | word[1]) == 0;
#endif
}

// All ones where a number of that many bytes in the word is 0, else 0.
template <std::uint32_t bytes>
Word<16> zeros_of(Word<16> word) {
    using Numbers [[gnu::vector_size(16)]] = Word<bytes>;
    return reinterpret_cast<Word<16>>(reinterpret_cast<Numbers>(word) == 0);
}

// The pointer, of which the compiler knows nothing any more: so that it reads the parts of an entry in a
// table by one address, and does not compute one for each.
template <class T>
const T& at_one_address(const T& entry) {
    const T* address = &entry;
    asm("" : "+r"(address));
    return *address;
}

template <std::uint32_t bytes>
Word<bytes> word_at(const std::uint8_t* at) {
    Word<bytes> word;
    std::memcpy(&word, at, bytes);
    return word;
}

// Which of the 16-bit numbers at `at` are 0, bit i for the i-th: four of them, or eight.
template <std::uint32_t count>
std::uint32_t zeros_among(const std::uint8_t* at) {
    static_assert(count == 4 || count == 8);
#if defined(__SSE2__)
    const auto* const lanes = reinterpret_cast<const __m128i*>(at);
    const __m128i numbers = count == 8 ? _mm_loadu_si128(lanes) : _mm_loadl_epi64(lanes);
    const __m128i zeros = _mm_cmpeq_epi16(numbers, _mm_setzero_si128());
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(zeros, zeros))) & ((1U << count) - 1);
#elif defined(__ARM_NEON) && defined(__aarch64__)
    const uint16x4_t bits = {1, 2, 4, 8};
    const auto zeros_of_four = [&](const std::uint8_t* four) -> std::uint32_t {
        return vaddv_u16(vand_u16(vceqz_u16(vreinterpret_u16_u8(vld1_u8(four))), bits));
    };
    return count == 4 ? zeros_of_four(at) : zeros_of_four(at) | zeros_of_four(at + 8) << 4;
#else
    std::uint32_t zeros = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint16_t number;
        std::memcpy(&number, at + i * sizeof number, sizeof number);
        zeros |= static_cast<std::uint32_t>(number == 0) << i;
    }
    return zeros;
#endif
}

// Zero if `count` bytes are the same here and there.
template <std::uint32_t count>
auto difference_of(const std::uint8_t* here, const std::uint8_t* there) {
    constexpr std::uint32_t step = count >= 16 ? 16 : 8;
    static_assert(count >= step);
    Word<step> difference = {};
    for (std::uint32_t at = 0; at < count; at += step) {
        const std::uint32_t start = at + step <= count ? at : count - step;
        difference |= word_at<step>(here + start) ^ word_at<step>(there + start);
    }
    return difference;
}

template <class W>
void put_word(std::uint8_t* at, W word) {
    std::memcpy(at, &word, sizeof word);
}

}  // namespace kaplo

#endif
