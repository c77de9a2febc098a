// SPDX-License-Identifier: Apache-2.0
// Promise: what is written for any record is what the plain writer writes, and what is read from it, whole or
// damaged, is what the plain reader reads, however many of its scalars are zero.
//
// For each message type and byte order N random records, from all scalars set to
// none; each packed into its exact size and into plenty, written as an image, and unpacked again as it is and
// with random damage.
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "fuzz/checked_unit.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/plain_writer.h"
#include "tests/support/random_record.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kDamages = 4;  // of each message

std::uint64_t written_messages = 0;
std::uint64_t read_messages = 0;

// For all messages: mapping one for each would take most of the time.
tests::GuardedBuffer guarded(std::size_t{1} << 16);

std::uint8_t* guarded_copy(const Bytes& content) {
    std::uint8_t* const bytes = guarded.last(static_cast<std::uint32_t>(content.size()));
    std::copy(content.begin(), content.end(), bytes);
    return bytes;
}

// Clears scalars of the record and of all records in it: none, one in eight, half, seven in eight, all, or
// a single one.
class Thinner {
  public:
    explicit Thinner(tests::Random& random) : random_(random), way_(random.below(6)) {
        if (way_ == kSingle) countdown_ = random.below(40);
    }

    template <class Record>
    void thin(Record& record) {
        kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
            if constexpr (F::kind == kaplo::Kind::scalar) {
                if (clears()) F::in(record) = 0;
            } else if constexpr (F::kind == kaplo::Kind::nested_table) {
                thin(F::in(record));
            } else if constexpr (F::kind == kaplo::Kind::table_vector) {
                for (std::uint32_t k = 0; k < F::count(record); ++k) thin(F::elements(record)[k]);
            }
        });
    }

  private:
    static constexpr std::uint32_t kSingle = 5;

    [[gnu::noinline]] bool clears() {
        if (way_ == kSingle) return countdown_-- == 0;
        constexpr std::uint32_t eighths[] = {0, 1, 4, 7, 8};
        return random_.below(8) < eighths[way_];
    }

    tests::Random& random_;
    std::uint32_t way_;
    std::uint32_t countdown_ = 0;
};

void expect_same(const Bytes& expected, const std::uint8_t* bytes, const char* promise) {
    fuzz::promise(std::equal(expected.begin(), expected.end(), bytes), promise);
}

template <class Record>
void unpack_whole_and_damaged(const Bytes& message, std::endian order, tests::Random& random) {
    const auto size = static_cast<std::uint32_t>(message.size());
    fuzz::promise(fuzz::unpack_and_compare<Record>(guarded_copy(message), size, order),
                  "a whole message is valid");
    for (std::uint32_t i = 0; i < kDamages; ++i) {
        const std::uint32_t length = random.one_in(4) ? random.below(size + 1) : size;
        std::uint8_t* const bytes = guarded.last(length);
        std::copy_n(message.begin(), length, bytes);
        for (std::uint32_t change = random.below(3); change > 0 && length > 0; --change) {
            const std::uint32_t at = random.below(length);
            bytes[at] =
                static_cast<std::uint8_t>(random.one_in(2) ? bytes[at] + random.below(9) - 4 : random.next());
        }
        fuzz::unpack_and_compare<Record>(bytes, length, order);
    }
    read_messages += 1 + kDamages;
}

template <class Record>
void run_record(std::uint64_t seed, std::endian order) {
    tests::Random random(seed);
    tests::RandomRecords<Record> records(seed, tests::Filling::rich, 1, 3);
    Record record = *records;
    Thinner(random).thin(record);
    fuzz::CheckedUnit unit(order);
    tests::PlainWriter writer(order);

    const Bytes expected = writer.compact(record);
    const auto size = static_cast<std::uint32_t>(expected.size());
    fuzz::promise(kaplo::message_bytes(&record) == size, "the size is what the plain writer writes");
    for (const std::uint32_t more : {0U, 4096U}) {
        const Bytes untouched(more, 0xEE);
        std::uint8_t* const buffer = guarded_copy(Bytes(size + more, 0xEE));
        std::uint32_t length = size + more;
        fuzz::promise(kaplo::pack(unit, &record, buffer, &length) == 0 && length == size,
                      "pack returns the size");
        expect_same(expected, buffer, "pack writes what the plain writer writes");
        ++written_messages;
        expect_same(untouched, buffer + size, "pack writes nothing after the message");
    }
    unpack_whole_and_damaged<Record>(expected, order, random);

    if constexpr (!kaplo::owns_memory<Record>) {
        const Bytes image = writer.image(record);
        fuzz::promise(image.size() == kaplo::Image<Record>::bytes, "an image has its size");
        std::uint8_t* const buffer = guarded_copy(Bytes(image.size(), 0xEE));
        kaplo::write_image(unit, record, buffer);
        ++written_messages;
        expect_same(image, buffer, "the image is the plain writer's");
        unpack_whole_and_damaged<Record>(image, order, random);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t records = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2000;
    for (std::uint64_t seed = 0; seed < records; ++seed) {
        for (const std::endian order : {std::endian::little, std::endian::big}) {
#define FUZZ_RUN(Message) run_record<Message>(seed, order);
            FUZZ_MESSAGES(FUZZ_RUN)
#undef FUZZ_RUN
        }
    }
    std::printf("count: %llu messages of random records written as the plain writer writes them\n",
                static_cast<unsigned long long>(written_messages));
    std::printf("count: %llu of them, whole or damaged, read as the plain reader reads them\n",
                static_cast<unsigned long long>(read_messages));
    return 0;
}
