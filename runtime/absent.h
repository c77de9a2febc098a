// SPDX-License-Identifier: Apache-2.0
// Which scalars of a record are absent, that is 0: looked at sixteen bytes of the record at a time.
#ifndef KAPLO_ABSENT_H
#define KAPLO_ABSENT_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "runtime/description.h"
#include "runtime/inline.h"
#include "runtime/wire.h"
#include "runtime/word.h"

namespace kaplo {

// Puts the width of each scalar where it starts in the record, those of inner records too.
template <class Record>
constexpr void note_scalars(std::uint8_t* widths) {
    each_field<Record>([&]<class F, std::uint32_t id> {
        constexpr std::uint32_t offset = offset_in_record<Record, id>();
        if constexpr (F::kind == Kind::nested_table) {
            note_scalars<typename F::Member>(widths + offset);
        } else if constexpr (F::kind == Kind::scalar) {
            widths[offset] = sizeof(typename F::Member);
        }
    });
}

// The words of a record that have its scalars, those of its inner records too.
template <class Record>
class ScalarWords {
  public:
    static constexpr std::uint32_t kBytes = sizeof(Word<16>);

  private:
    static_assert(sizeof(Record) >= kBytes);

    // The width of the scalar that starts at each byte, 0 where none does.
    static constexpr auto widths = [] {
        std::array<std::uint8_t, sizeof(Record)> result = {};
        note_scalars<Record>(result.data());
        return result;
    }();

    struct Starts {
        std::array<std::uint32_t, sizeof(Record)> items = {};
        std::uint32_t count = 0;
    };
    // Where the words start: numbers in them are aligned.
    static constexpr Starts starts = [] {
        Starts result;
        for (std::uint32_t at = 0; at < sizeof(Record); ++at) {
            if (widths[at] == 0) continue;
            constexpr std::uint32_t alignment = alignof(Record);
            constexpr std::uint32_t last = sizeof(Record) - kBytes;
            const std::uint32_t start = std::min(at / alignment * alignment, last);
            result.items[result.count++] = start;
            at = start + kBytes - 1;
        }
        return result;
    }();

    // All ones where a scalar of that width is in the word.
    template <std::uint32_t word, std::uint32_t width>
    alignas(kBytes) static constexpr auto mask = [] {
        std::array<std::uint8_t, kBytes> result = {};
        for (std::uint32_t i = 0; i < kBytes; ++i) {
            if (widths[starts.items[word] + i] != width) continue;
            for (std::uint32_t k = 0; k < width; ++k) result[i + k] = 0xFF;
        }
        return result;
    }();

  public:
    static constexpr std::uint32_t count = starts.count;
    static constexpr std::uint32_t scalars = sizeof(Record) - std::ranges::count(widths, 0);

    // All ones where a scalar of the word is 0.
    template <std::uint32_t word>
    KAPLO_INLINE static inline Word<16> absent(const Record& record) {
        const Word<16> bytes =
            word_at<16>(reinterpret_cast<const std::uint8_t*>(&record) + starts.items[word]);
        Word<16> result = {};
        each_index<4>([&]<std::uint32_t log>() KAPLO_INLINE {
            constexpr std::uint32_t width = 1U << log;
            result |= zeros_of<width>(bytes) & word_at<16>(mask<word, width>.data());
        });
        return result;
    }
};

// Whether it takes less to look at words than at scalars.
template <class Record>
constexpr bool has_scalars_in_words() {
    if constexpr (sizeof(Record) < sizeof(Word<16>)) {
        return false;
    } else {
        return ScalarWords<Record>::scalars >= 4 * ScalarWords<Record>::count;
    }
}

template <class Record>
KAPLO_INLINE inline void count_absent(const Record& record, std::uint64_t& absent) {
    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        if constexpr (F::kind == Kind::scalar) {
            count_if(F::in(record) == 0, absent);
        } else if constexpr (F::kind == Kind::nested_table) {
            count_absent(F::in(record), absent);
        }
    });
}

// Whether no scalar is 0, in a record without vectors.
template <class Record>
KAPLO_INLINE inline bool has_every_scalar(const Record& record) {
    static_assert(!owns_memory<Record>);
    if constexpr (has_scalars_in_words<Record>()) {
        using Words = ScalarWords<Record>;
        Word<16> absent = {};
        each_index<Words::count>([&]<std::uint32_t n>()
                                     KAPLO_INLINE { absent |= Words::template absent<n>(record); });
        return is_zero(absent);
    } else {
        std::uint64_t absent = 0;
        count_absent(record, absent);
        return absent == 0;
    }
}

}  // namespace kaplo

#endif
