// SPDX-License-Identifier: Apache-2.0
// Units with the byte-swap flag set: the same messages with every number reversed, and the same records.
#include <bit>
#include <cstdint>
#include <vector>

#include "runtime/pack.h"
#include "runtime/unpack.h"
#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;

constexpr std::uint64_t kRecords = 500;  // of every type and layout

struct Reversed {
    Bytes bytes;
    std::vector<std::uint32_t> shortened;  // numbers above 255 of which the low byte is left
};

// Turns a valid message in the host's order into what a reversing writer makes of the same record. It follows
// the message's own references, so it holds for both layouts.
class Reversal {
  public:
    template <class Record>
    static Reversed of(const Bytes& message) {
        Reversal reversal(message);
        reversal.reverse(0, 4);
        reversal.template table<Record>(reversal.value<std::uint32_t>(0));
        return reversal.result_;
    }

  private:
    static constexpr bool kLittleEndianHost = std::endian::native == std::endian::little;

    explicit Reversal(const Bytes& message) : message_(message), result_{message, {}} {}

    template <class T>
    T value(std::size_t at) const {
        EXPECT_LE(at + sizeof(T), message_.size());
        T value;
        std::memcpy(&value, message_.data() + at, sizeof value);
        return value;
    }

    // Out of line, as they are called for every field of every type.
    [[gnu::noinline]] void reverse(std::size_t at, std::size_t width) {
        for (std::size_t i = 0; i < width; ++i) result_.bytes.at(at + i) = message_.at(at + width - 1 - i);
    }

    // Only the low byte of a number below 256 is not zero; of larger ones the rest is lost.
    [[gnu::noinline]] void reverse_short(std::size_t at) {
        const std::size_t low = kLittleEndianHost ? at : at + 1;
        const std::size_t high = kLittleEndianHost ? at + 1 : at;
        result_.bytes.at(low) = 0;
        result_.bytes.at(high) = message_.at(low);
        if (message_.at(high) != 0) result_.shortened.push_back(value<std::uint16_t>(at));
    }

    [[gnu::noinline]] std::uint32_t followed(std::uint32_t reference) {
        reverse(reference, 4);
        return reference + value<std::uint32_t>(reference);
    }

    // The position of the slot's field, 0 if it is absent.
    [[gnu::noinline]] std::uint32_t placed(std::uint32_t slot, std::uint32_t table) {
        reverse_short(slot);
        const std::uint32_t offset = value<std::uint16_t>(slot);
        return offset == 0 ? 0 : table + offset;
    }

    [[gnu::noinline]] void reverse_elements(std::uint32_t vector, std::uint32_t width) {
        for (std::uint32_t k = 0; k < value<std::uint32_t>(vector); ++k)
            reverse(vector + 4 + k * width, width);
    }

    template <class Record>
    void table(std::uint32_t table) {
        const std::uint32_t vtable = table - value<std::uint32_t>(table);
        reverse(table, 4);
        reverse(vtable, 2);
        constexpr bool has_vector =
            kaplo::has_field_of<Record, kaplo::Kind::fixed_array, kaplo::Kind::scalar_vector,
                                kaplo::Kind::table_vector>();
        if (has_vector) {
            reverse(vtable + 2, 2);
        } else {
            reverse_short(vtable + 2);
        }
        kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
            const std::uint32_t at = placed(vtable + 4 + 2 * id, table);
            if (at != 0) field<F>(at);
        });
    }

    template <class F>
    void field(std::uint32_t at) {
        using Element = typename F::Element;
        if constexpr (F::kind == kaplo::Kind::scalar) {
            reverse(at, sizeof(Element));
        } else if constexpr (F::kind == kaplo::Kind::nested_table) {
            table<Element>(followed(at));
        } else {
            const std::uint32_t vector = followed(at);
            reverse(vector, 4);
            if constexpr (F::kind == kaplo::Kind::table_vector) {
                for (std::uint32_t k = 0; k < value<std::uint32_t>(vector); ++k) {
                    this->table<Element>(followed(vector + 4 + 4 * k));
                }
            } else {
                reverse_elements(vector, sizeof(Element));
            }
        }
    }

    const Bytes& message_;
    Reversed result_;
};

// A message type's codec as a unit of its own calls it.
struct Codec {
    const MessageType& type;
    std::uint32_t (*pack)(kaplo::Unit& unit, const void* record, std::uint8_t* buffer, std::uint32_t* length);
    Bytes (*image)(kaplo::Unit& unit, const void* record);  // null where the type has none
    std::uint32_t (*unpack)(kaplo::Unit& unit, const std::uint8_t* buffer, std::uint32_t length,
                            void* record);
    Reversed (*reversed)(const Bytes& message);
};

template <class Record>
Codec codec(const MessageType& type) {
    Codec codec = {type, nullptr, nullptr, nullptr, &Reversal::of<Record>};
    codec.pack = [](kaplo::Unit& unit, const void* record, std::uint8_t* buffer, std::uint32_t* length) {
        return kaplo::pack(unit, static_cast<const Record*>(record), buffer, length);
    };
    if constexpr (!kaplo::owns_memory<Record>) {
        codec.image = [](kaplo::Unit& unit, const void* record) {
            Bytes bytes(kaplo::Image<Record>::bytes);
            kaplo::write_image(unit, *static_cast<const Record*>(record), bytes.data());
            return bytes;
        };
    }
    codec.unpack = [](kaplo::Unit& unit, const std::uint8_t* buffer, std::uint32_t length, void* record) {
        return kaplo::unpack(unit, buffer, length, static_cast<Record*>(record));
    };
    return codec;
}

std::vector<Codec> codecs() {
    auto type = message_types().begin();
#define NAC_CODEC(Message) codec<Message>(*type++),
    return {NAC_ALL_MESSAGES(NAC_CODEC)};
#undef NAC_CODEC
}

std::vector<Codec> codecs_with_images() {
    std::vector<Codec> chosen;
    for (const Codec& codec : codecs()) {
        if (codec.image != nullptr) chosen.push_back(codec);
    }
    return chosen;
}

Bytes compact(const Codec& codec, kaplo::Unit& unit, const void* record) {
    Bytes bytes(codec.type.packed_size(record));
    auto length = static_cast<std::uint32_t>(bytes.size());
    EXPECT_EQ(codec.pack(unit, record, bytes.data(), &length), 0U);
    EXPECT_EQ(length, bytes.size());
    return bytes;
}

Bytes image(const Codec& codec, kaplo::Unit& unit, const void* record) { return codec.image(unit, record); }

class ReversedRoundTrip : public MessageTest, public testing::WithParamInterface<Codec> {
  protected:
    ReversedRoundTrip() {
        services.record(false);
        // The first resolution resets the flags.
        kaplo::KaploMemHooksInit(plain);
        kaplo::KaploMemHooksInit(reversing);
        plain.byte_swap = 0;
        reversing.byte_swap = 1;
    }

    void expect_reversed_round_trip(Bytes (*written)(const Codec&, kaplo::Unit&, const void*)) {
        for (std::uint64_t seed = 0; seed < kRecords && !HasFailure(); ++seed) {
            SCOPED_TRACE(seed);
            const AnyRecords record = codec.type.random(seed);
            const Bytes reversed = written(codec, reversing, *record);
            EXPECT_TRUE(same_bytes(reversed, codec.reversed(written(codec, plain, *record)).bytes));

            GuardedBuffer buffer(reversed);
            AnyRecord received(codec.type);
            EXPECT_EQ(codec.unpack(reversing, buffer.data(), buffer.size(), received.data()),
                      codec.type.record_bytes);
            EXPECT_TRUE(codec.type.same_record(received.data(), *record));
        }
    }

    Codec codec = GetParam();
    kaplo::Unit plain;
    kaplo::Unit reversing;
};

TEST_P(ReversedRoundTrip, CompactMessageHasAllNumbersReversedAndUnpacksToTheSameRecord) {
    expect_reversed_round_trip(compact);
}
INSTANTIATE_TEST_SUITE_P(AllMessages, ReversedRoundTrip, testing::ValuesIn(codecs()),
                         [](const auto& test) { return test.param.type.name; });

class ReversedImage : public ReversedRoundTrip {};

TEST_P(ReversedImage, HasAllNumbersReversedAndUnpacksToTheSameRecord) { expect_reversed_round_trip(image); }
INSTANTIATE_TEST_SUITE_P(MessagesWithImages, ReversedImage, testing::ValuesIn(codecs_with_images()),
                         [](const auto& test) { return test.param.type.name; });

// All fields are there in a rich record, so that no offset and no length of a table without vectors is
// larger in another.
TEST(ShortReversal, ShortensTheTableLengthsOfTwoImagesAndNothingElse) {
    kaplo::Unit plain;
    kaplo::KaploMemHooksInit(plain);
    plain.byte_swap = 0;
    for (const Codec& codec : codecs()) {
        SCOPED_TRACE(codec.type.name);
        const AnyRecords record = codec.type.random(1, Filling::rich);
        EXPECT_EQ(codec.reversed(compact(codec, plain, *record)).shortened, std::vector<std::uint32_t>{});
        if (codec.image == nullptr) continue;
        std::vector<std::uint32_t> expected;
        if (codec.type.name == "Nac_UserDataFlowQueryAckMsg") expected = {264};
        if (codec.type.name == "Nac_RadiusDaclRule") expected = {265};
        EXPECT_EQ(codec.reversed(image(codec, plain, *record)).shortened, expected);
    }
}

}  // namespace
