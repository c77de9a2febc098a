// SPDX-License-Identifier: Apache-2.0
// Promise: no small damage to a small message is read otherwise than the plain reader reads it.
//
// For a small message of each type, in each layout and byte order: every truncation, every value of every
// byte, every 16-bit and 32-bit word set to each of 24 edge values; on a little-endian wire also every pair
// of 16-bit words set to each pair of 6 edge values, or, with --all-pairs, of all 24. The message always ends
// where an unmapped page begins. Prints how many messages were read. A number N reads, for slow builds, one
// in N of them only, but all truncations and all 16-bit words.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "fuzz/checked_unit.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/random_record.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint64_t sample = 1;
bool pairs_of_all_edges = false;
std::uint64_t changes = 0;
std::uint64_t compared = 0;
std::uint64_t clean = 0;

template <class Record>
class Damage {
  public:
    Damage(const Bytes& message, std::endian order) : message_(message), order_(order), guarded_(message) {}

    void run() {
        all_truncations();
        all_words<std::uint16_t>();
        all_bytes();
        all_words<std::uint32_t>();
        if (order_ == std::endian::little) all_pairs();
    }

  private:
    std::uint32_t size() const { return static_cast<std::uint32_t>(message_.size()); }

    void check(const std::uint8_t* bytes, std::uint32_t length) {
        ++compared;
        if (fuzz::unpack_and_compare<Record>(bytes, length, order_)) ++clean;
    }
    void check_sample() {
        if (changes++ % sample == 0) check(guarded_.data(), size());
    }

    void all_truncations() {
        for (std::uint32_t length = 0; length <= size(); ++length) {
            std::uint8_t* const bytes = guarded_.last(length);
            std::copy_n(message_.begin(), length, bytes);
            check(bytes, length);
        }
    }

    void all_bytes() {
        for (std::uint32_t at = 0; at < size(); ++at) {
            for (unsigned value = 0; value < 256; ++value) {
                guarded_.data()[at] = static_cast<std::uint8_t>(value);
                check_sample();
            }
            guarded_.data()[at] = message_[at];
        }
    }

    // Numbers at which some comparison of a position, a length or a count at `at` changes its answer.
    template <class T>
    std::array<T, 24> edges(std::uint32_t at) const {
        const std::uint32_t rest = size() - at;
        constexpr std::uint32_t most = static_cast<T>(~T{0});
        const std::uint32_t values[24] = {0,
                                          1,
                                          3,
                                          4,
                                          5,
                                          6,
                                          size() - 5,
                                          size() - 4,
                                          size() - 3,
                                          size() - 1,
                                          size(),
                                          size() + 1,
                                          rest - 5,
                                          rest - 4,
                                          rest - 3,
                                          rest,
                                          rest + 1,
                                          0 - at,
                                          0xFF,
                                          most / 4,
                                          most / 4 + 1,
                                          most / 2,
                                          most / 2 + 1,
                                          most};
        std::array<T, 24> edges = {};
        for (std::size_t i = 0; i < edges.size(); ++i) edges[i] = static_cast<T>(values[i]);
        return edges;
    }

    template <class T>
    void set(std::uint32_t at, T value) {
        const T stored = order_ == std::endian::little ? value : kaplo::byte_reversed(value);
        fuzz::put(guarded_.data() + at, stored, sizeof stored);
    }
    void restore(std::uint32_t at, std::uint32_t bytes) {
        std::copy_n(message_.begin() + at, bytes, guarded_.data() + at);
    }

    template <class T>
    void all_words() {
        for (std::uint32_t at = 0; at + sizeof(T) <= size(); ++at) {
            for (const T value : edges<T>(at)) {
                set(at, value);
                if constexpr (sizeof(T) == 2) {
                    check(guarded_.data(), size());
                } else {
                    check_sample();
                }
            }
            restore(at, sizeof(T));
        }
    }

    std::vector<std::uint16_t> edges_of_pairs(std::uint32_t at) const {
        const auto all = edges<std::uint16_t>(at);
        if (pairs_of_all_edges) return {all.begin(), all.end()};
        return {
            0,      4,     static_cast<std::uint16_t>(size() - 4), static_cast<std::uint16_t>(size() - at),
            0x8000, 0xFFFF};
    }

    void all_pairs() {
        for (std::uint32_t first = 0; first + 2 <= size(); first += 2) {
            for (std::uint32_t second = first + 2; second + 2 <= size(); second += 2) {
                for (const std::uint16_t one : edges_of_pairs(first)) {
                    set(first, one);
                    for (const std::uint16_t other : edges_of_pairs(second)) {
                        set(second, other);
                        check_sample();
                    }
                }
                restore(second, 2);
            }
            restore(first, 2);
        }
    }

    const Bytes& message_;
    std::endian order_;
    tests::GuardedBuffer guarded_;
};

template <class Record>
void run_type(std::endian order) {
    fuzz::CheckedUnit unit(order);
    const tests::RandomRecords<Record> record(7, tests::Filling::rich, 1, 1);
    Bytes compact(kaplo::message_bytes(&*record));
    auto length = static_cast<std::uint32_t>(compact.size());
    kaplo::pack(unit, &*record, compact.data(), &length);
    Damage<Record>(compact, order).run();
    if constexpr (!kaplo::owns_memory<Record>) {
        Bytes image(kaplo::Image<Record>::bytes);
        kaplo::write_image(unit, *record, image.data());
        Damage<Record>(image, order).run();
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--all-pairs") {
            pairs_of_all_edges = true;
        } else {
            sample = std::strtoull(argv[i], nullptr, 10);
        }
    }
    for (const std::endian order : {std::endian::little, std::endian::big}) {
#define NAC_RUN(Message) run_type<Message>(order);
        NAC_ALL_MESSAGES(NAC_RUN)
#undef NAC_RUN
    }
    std::printf(
        "count: %llu damaged messages read as the plain reader reads them, %llu of them without a fault\n",
        static_cast<unsigned long long>(compared), static_cast<unsigned long long>(clean));
    return 0;
}
