// SPDX-License-Identifier: Apache-2.0
// Promise: whichever scalars a record lacks, it is written as the plain writer writes it, and read, whole,
// cut or damaged, as the plain reader reads it.
//
// For each message type: every set of absent scalars, those of inner records included, one in N of them where
// there are very many; each packed and read at the end of readable memory,
// and some of them cut at every length and damaged in every byte of their headers. For lists: elements of any
// shape beside each other.
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "fuzz/checked_unit.h"
#include "tests/support/each_scalar.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/plain_writer.h"
#include "tests/support/random_record.h"

namespace {

// docs/security.md states this bound for all messages.
#define NAC_IS_BOUNDED(Message) &&fuzz::most_heap_per_byte<Message> <= 47
static_assert(fuzz::most_heap_per_byte<Nac_SetUserTableMsg> == 47 NAC_ALL_MESSAGES(NAC_IS_BOUNDED));
#undef NAC_IS_BOUNDED

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kMostScalars = 18;  // of a record with its inner records, for all sets to be tried
constexpr std::uint32_t kMostScalarsBesideVectors = 11;
constexpr std::size_t kLongMessage = 1000;
constexpr std::uint64_t kCutSets = 61;  // one in this number of sets is cut and damaged, a prime

std::uint64_t written_messages = 0;
std::uint64_t read_messages = 0;
tests::GuardedBuffer guarded(std::size_t{1} << 16);

std::uint8_t* guarded_copy(const Bytes& content) {
    std::uint8_t* const bytes = guarded.last(content.size());
    std::copy(content.begin(), content.end(), bytes);
    return bytes;
}

template <class Record>
std::uint32_t scalars_in() {
    Record record = {};
    std::uint32_t count = 0;
    tests::each_scalar(record, [&](auto& /*scalar*/) { ++count; });
    return count;
}

template <class Record>
Record with_absent(const Record& full, std::uint64_t absent) {
    Record record = full;
    tests::each_scalar(record, [&](auto& scalar) {
        if ((absent & 1) != 0) scalar = 0;
        absent >>= 1;
    });
    return record;
}

template <class Record>
Bytes pack_and_compare(const Record& record, std::endian order) {
    fuzz::CheckedUnit unit(order);
    tests::PlainWriter writer(order);
    const Bytes expected = writer.compact(record);
    for (const std::size_t more : {std::size_t{0}, std::size_t{1024}}) {
        std::uint8_t* const buffer = guarded_copy(Bytes(expected.size() + more, 0xEE));
        auto length = static_cast<std::uint32_t>(expected.size() + more);
        fuzz::promise(kaplo::pack(unit, &record, buffer, &length) == 0 && length == expected.size(),
                      "pack returns the size");
        fuzz::promise(std::equal(expected.begin(), expected.end(), buffer),
                      "pack writes what the plain writer writes");
        fuzz::promise(
            std::all_of(buffer + length, buffer + length + more, [](int byte) { return byte == 0xEE; }),
            "pack writes nothing after the message");
    }
    ++written_messages;
    return expected;
}

template <class Record>
bool read_and_compare(const Bytes& message, std::endian order) {
    ++read_messages;
    return fuzz::unpack_and_compare<Record>(guarded_copy(message), static_cast<std::uint32_t>(message.size()),
                                            order);
}

template <class Record>
void cut_and_damage(const Bytes& message, std::endian order) {
    for (std::size_t length = 0; length < message.size(); ++length) {
        read_and_compare<Record>(
            Bytes(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(length)), order);
    }
    for (std::size_t at = 0; at < message.size(); ++at) {
        for (const int change : {0x01, 0x04, 0x08, 0x80, 0xFF}) {
            Bytes damaged = message;
            damaged[at] = static_cast<std::uint8_t>(damaged[at] ^ change);
            read_and_compare<Record>(damaged, order);
        }
    }
}

// Sets of absent scalars: all of them; of a record with very many scalars, as many that differ in all of
// them.
std::uint64_t set_of(std::uint64_t number, std::uint32_t scalars) {
    constexpr std::uint64_t odd = 0x9E3779B97F4A7C15;
    return scalars <= kMostScalars ? number : number * odd >> (64 - scalars);
}

template <class Record>
void run_record(std::uint64_t step, std::endian order) {
    const std::uint32_t scalars = scalars_in<Record>();
    const tests::RandomRecords<Record> full(7, tests::Filling::rich);
    const std::uint64_t most = kaplo::owns_memory<Record> ? kMostScalarsBesideVectors : kMostScalars;
    const std::uint64_t sets = std::uint64_t{1} << std::min<std::uint64_t>(scalars, most);
    for (std::uint64_t number = 0; number < sets; number += step) {
        const Bytes message = pack_and_compare(with_absent(*full, set_of(number, scalars)), order);
        fuzz::promise(read_and_compare<Record>(message, order), "a whole message is valid");
        const bool is_long = message.size() > kLongMessage;
        if (is_long ? number == sets / 2
                    : sets <= 64 || number / step % (kCutSets * (sets >> 10) + kCutSets) == 0) {
            cut_and_damage<Record>(message, order);
        }
    }
}

void run_lists(std::uint64_t lists, std::endian order) {
    tests::Random random(11);
    for (std::uint64_t i = 0; i < lists; ++i) {
        std::vector<Nac_UserDataFlowInfo> elements(1 + random.below(5));
        for (Nac_UserDataFlowInfo& element : elements) {
            const tests::RandomRecords<Nac_UserDataFlowInfo> full(random.next(), tests::Filling::rich);
            element = with_absent(*full, random.one_in(3) ? 0 : random.next());
        }
        const Nac_UserDataFlowMsg list = {static_cast<std::uint32_t>(elements.size()), elements.data()};
        const Bytes message = pack_and_compare(list, order);
        fuzz::promise(read_and_compare<Nac_UserDataFlowMsg>(message, order), "a whole list is valid");
        if (i % kCutSets == 0) cut_and_damage<Nac_UserDataFlowMsg>(message, order);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t step = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
    for (const std::endian order : {std::endian::little, std::endian::big}) {
#define NAC_RUN(Message) run_record<Message>(step, order);
        NAC_ALL_MESSAGES(NAC_RUN)
#undef NAC_RUN
        run_lists(20000 / step, order);
    }
    std::printf("count: %llu messages of partly filled records written as the plain writer writes them\n",
                static_cast<unsigned long long>(written_messages));
    std::printf("count: %llu of them, whole, cut or damaged, read as the plain reader reads them\n",
                static_cast<unsigned long long>(read_messages));
    return 0;
}
