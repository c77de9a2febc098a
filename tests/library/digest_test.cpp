// SPDX-License-Identifier: Apache-2.0
// One number for all that the library gives in a fixed run: the same from every compiler, at every level of
// optimisation, on every machine. tests/long/compilers.py asks many of them for it.
#include <bit>
#include <cstdint>
#include <cstdio>
#include <string>

#include "tests/support/message.h"
#include "tests/support/message_expectations.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;

// A big-endian machine whose build reverses the wire keeps only the low byte of some numbers of vtables.
constexpr std::uint64_t kExpected =
    std::endian::native == std::endian::little ? 0x371647890ad5817c : 0x9a864c2cb6120f3f;

constexpr std::uint64_t kSeeds = 400;  // of every type
constexpr std::uint32_t kDamages = 4;  // of every message
constexpr std::uint32_t kBatchSize = 3;

// FNV-1a, 64 bits (Fowler, Noll, Vo).
class Digest {
  public:
    void add(const Bytes& bytes) {
        for (const std::uint8_t byte : bytes) add(byte);
    }
    void add(const std::string& text) {
        for (const char character : text) add(static_cast<std::uint8_t>(character));
        add(std::uint8_t{0});
    }
    void add(std::uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8) add(static_cast<std::uint8_t>(value >> shift));
    }
    void add(std::uint8_t byte) { value_ = (value_ ^ byte) * 0x100000001B3; }

    std::uint64_t value() const { return value_; }

  private:
    std::uint64_t value_ = 0xCBF29CE484222325;
};

class DigestOfAllOutputs : public MessageTest {
  protected:
    void add_sends(const MessageType& type, const AnyRecords& records) {
        bus.reset();
        EXPECT_EQ(type.send_to(1, *records, 1, 0), 0U);
        EXPECT_EQ(type.send_to(2, *records, records.size(), 7), 0U);
        for (const Sent& sent : bus.sends()) {
            for (const Bytes& message : sent.messages) digest.add(message);
        }
    }

    void add_unpack(const MessageType& type, const Bytes& message) {
        services.reset();
        AnyRecord record(type);
        EXPECT_EQ(type.unpack(message.data(), static_cast<std::uint32_t>(message.size()), record.data()),
                  type.record_bytes);
        for (const std::string& line : logged()) digest.add(line);
        for (const Allocation& allocation : services.allocations()) {
            digest.add(allocation.size);
            digest.add(allocation.caller);
        }
        digest.add(type.packed(record.data()));
    }

    Bytes damaged(Bytes message) {
        const auto size = static_cast<std::uint32_t>(message.size());
        message[random.below(size)] = static_cast<std::uint8_t>(random.next());
        message[random.below(size)] ^= static_cast<std::uint8_t>(1U << random.below(8));
        if (random.one_in(4)) message.resize(random.below(size));
        return message;
    }

    Digest digest;
    Random random{64};
};

TEST_F(DigestOfAllOutputs, IsTheSameEverywhere) {
    for (const MessageType& type : message_types()) {
        if (!is_pinned(type.name)) continue;  // the number is of the types that were there from the beginning
        for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
            const AnyRecords records = type.random(seed, filling_of(seed), kBatchSize);
            add_sends(type, records);
            for (const Bytes& message : type.in_all_layouts(*records)) {
                digest.add(message);
                add_unpack(type, message);
                for (std::uint32_t i = 0; i < kDamages; ++i) add_unpack(type, damaged(message));
            }
        }
    }
    std::printf("digest %016llx\n", static_cast<unsigned long long>(digest.value()));
    EXPECT_EQ(digest.value(), kExpected);
}

}  // namespace
