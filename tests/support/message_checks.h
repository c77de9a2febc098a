// SPDX-License-Identifier: Apache-2.0
// What holds for every message type but for its names and numbers, as one call a type.
#ifndef TESTS_SUPPORT_MESSAGE_CHECKS_H
#define TESTS_SUPPORT_MESSAGE_CHECKS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/message.h"

namespace tests {

// Values that show their place in a message: the low byte tells the field, the others their order.
constexpr std::uint16_t half(std::uint8_t low) { return static_cast<std::uint16_t>(0x2200U | low); }
constexpr std::uint32_t word(std::uint8_t low) { return 0x44332200U | low; }
constexpr std::uint64_t quad(std::uint8_t low) { return 0x8877665544332200U | low; }

using Offsets = std::vector<std::size_t>;

// Several pieces of hexadecimal text as one, for tables that occur in more than one message.
inline std::string join(std::initializer_list<std::string_view> pieces) {
    std::string text;
    for (const std::string_view piece : pieces) text.append(piece).append(" ");
    return text;
}

inline std::vector<std::uint32_t> logged_categories() {
    std::vector<std::uint32_t> categories;
    for (const auto& line : host::Services::instance().log_lines()) categories.push_back(line.category);
    return categories;
}

// Each member that is not zero, alone and all of them together, adds `cost` bytes to the packed size.
template <class Record, class... Members>
void expect_each_costs(std::uint32_t cost, const Record& record, Members Record::*... members) {
    const std::uint32_t before = packed_size(record);
    Record all = record;
    std::uint32_t sum = before;
    const auto check = [&]<class Member>(Member Record::*member) {
        Record lowest = record;
        lowest.*member = 1;
        EXPECT_EQ(packed_size(lowest), before + cost);
        Record highest = record;
        highest.*member = static_cast<Member>(~Member{0});
        EXPECT_EQ(packed_size(highest), before + cost);
        all.*member = 1;
        EXPECT_EQ(packed_size(all), sum += cost);
    };
    (check(members), ...);
}

// Bad arguments are reported under <message>_unpack and leave the record alone.
template <class Record>
void expect_argument_faults(const std::string& message) {
    const Bytes bytes(16, 0x11);
    Bytes untouched(sizeof(Record), 0xAA);
    alignas(Record) std::uint8_t storage[sizeof(Record)];
    std::memset(storage, 0xAA, sizeof storage);
    auto* const record = reinterpret_cast<Record*>(storage);
    const auto unpack = nac::Functions<Record>::unpack;
    host::Services::instance().reset();
    EXPECT_EQ(unpack(nullptr, 16, record), sizeof(Record));
    EXPECT_EQ(unpack(bytes.data(), 16, nullptr), sizeof(Record));
    EXPECT_EQ(unpack(bytes.data(), 3, record), sizeof(Record));
    EXPECT_EQ(unpack(bytes.data(), 0x80000000, record), sizeof(Record));
    EXPECT_TRUE(same_bytes(Bytes(storage, storage + sizeof storage), untouched));
    const std::string start = message + "_unpack: [KAPLO]:Param invalid(";
    EXPECT_EQ(logged(), (Lines{start + "null, 16, nonNull)", start + "nonNull, 16, null)",
                               start + "nonNull, 3, nonNull)", start + "nonNull, -2147483648, nonNull)"}));
    EXPECT_EQ(logged_categories(), std::vector<std::uint32_t>(4, 22));
}

enum class AfterHeaderFault { cleared, untouched };

// The three faults of a message's head: the name under which they are reported, and what becomes of the
// record.
template <class Record>
void expect_header_faults(AfterHeaderFault after, const std::string& function) {
    const Bytes root_outside = hex("ff 00 00 00");
    const Bytes vtable_outside =
        hex("04 00 00 00"    // root reference
            "04 00 00 00");  // soffset: vtable at 0
    const Bytes vtable_too_long =
        hex("08 00 00 00"    // root reference
            "20 00 04 00"    // vtable length 32
            "04 00 00 00");  // soffset: vtable at 4
    const std::uint8_t expected = after == AfterHeaderFault::cleared ? 0 : 0xAA;
    host::Services::instance().reset();
    EXPECT_TRUE(Unpacked<Record>(root_outside, 0xAA).all(expected));
    EXPECT_TRUE(Unpacked<Record>(vtable_outside, 0xAA).all(expected));
    EXPECT_TRUE(Unpacked<Record>(vtable_too_long, 0xAA).all(expected));
    EXPECT_EQ(logged(), (Lines{function + ": [KAPLO]:Table offset(255) is out of range(4 - 4)",
                               function + ": [KAPLO]:Vtable offset(4) is out of range(4 - 4)",
                               function + ": [KAPLO]:Vtable Len(32) is out of range(0 - 8)"}));
    EXPECT_EQ(logged_categories(), std::vector<std::uint32_t>(3, 22));
}

// What pack refuses, and its answer to a null buffer: the size and one line under <message>_pack.
template <class Record>
void expect_pack_refusals(const std::string& message, const Record& record, std::uint32_t size) {
    const auto pack = nac::Functions<Record>::pack;
    GuardedBuffer buffer(size);
    std::memset(buffer.data(), 0xEE, size);
    host::Services::instance().reset();

    std::uint32_t length = size;
    EXPECT_EQ(pack(nullptr, buffer.data(), &length), kRefused);
    EXPECT_EQ(length, size);

    length = size - 1;
    EXPECT_EQ(pack(&record, buffer.data(), &length), kRefused);
    EXPECT_EQ(pack(&record, nullptr, &length), kRefused);
    EXPECT_EQ(length, size - 1);
    EXPECT_TRUE(same_bytes(Bytes(buffer.data(), buffer.data() + size), Bytes(size, 0xEE)));
    EXPECT_EQ(logged(), Lines{});

    length = size + 1;
    EXPECT_EQ(pack(&record, nullptr, &length), 0U);
    EXPECT_EQ(length, size);
    EXPECT_EQ(logged(), Lines{message + "_pack: [KAPLO]:Param invalid(null, " + std::to_string(size + 1) +
                              ", nonNull)"});
    EXPECT_EQ(logged_categories(), std::vector<std::uint32_t>{22});
}

// Unpacks to what packs to the same bytes again, silently. The bytes are canonical, so no field can differ.
template <class Record>
void expect_unpacks_to(const Bytes& bytes, const Record& record) {
    host::Services::instance().reset();
    const Unpacked<Record> unpacked(bytes);
    EXPECT_EQ(logged(), Lines{});
    EXPECT_TRUE(same_bytes(packed(*unpacked), packed(record)));
}

// The compact layout and the fixed image give the same record, to the byte.
template <class Record>
void expect_both_layouts_unpack_to(const Record& record) {
    expect_unpacks_to(packed(record), record);
    expect_unpacks_to(sent(record), record);
    const Unpacked<Record> compact(packed(record), 0xAA);
    const Unpacked<Record> image(sent(record), 0x55);
    EXPECT_EQ(std::memcmp(&*compact, &*image, sizeof record), 0);
}

// A type without vectors travels as its image: alone from the stack, in a batch from one block.
template <class Record>
void expect_sends_image(const std::string& message, std::uint32_t id, const Record& record,
                        std::string_view image_hex) {
    const Bytes image = hex(image_hex);
    const auto bytes = static_cast<std::uint32_t>(image.size());
    auto& bus = host::LoopbackBus::instance();
    auto& services = host::Services::instance();
    bus.reset();
    services.reset();
    const std::vector<Record> records(2, record);

    EXPECT_EQ(nac::Functions<Record>::send(1, records.data(), 0), kRefused);
    EXPECT_TRUE(bus.sends().empty());

    EXPECT_EQ(nac::Functions<Record>::send(1, records.data(), 1), 0U);
    EXPECT_TRUE(services.allocations().empty());

    EXPECT_EQ(nac::Functions<Record>::send(1, records.data(), 2), 0U);
    ASSERT_EQ(services.allocations().size(), 1U);
    const auto block = services.allocations().front();
    EXPECT_EQ(block.allocator, host::Allocator::general);
    EXPECT_EQ(block.size, 2 * (bytes + 16));
    EXPECT_EQ(block.owner_code, 0x6200U);
    EXPECT_EQ(block.caller, message + "__sendbatch");
    ASSERT_EQ(services.releases().size(), 1U);
    EXPECT_EQ(services.releases().front().block, block.block);
    EXPECT_EQ(services.releases().front().caller, message + "__sendbatch");

    ASSERT_EQ(bus.sends().size(), 2U);
    std::size_t count = 1;
    for (const host::Sent& send : bus.sends()) {
        ASSERT_EQ(send.messages.size(), count++);
        for (std::size_t i = 0; i < send.messages.size(); ++i) {
            EXPECT_EQ(send.descriptors[i].message_id, id);
            EXPECT_EQ(send.descriptors[i].length, bytes);
            EXPECT_TRUE(same_bytes(send.messages[i], image));
        }
    }
}

// A type with vectors travels compactly: alone in a block of exactly its size, in a batch from an area of
// 65,536 bytes with the descriptors behind it.
template <class Record>
void expect_sends_compact(const std::string& message, std::uint32_t id, const Record& record,
                          std::string_view packed_hex) {
    const Bytes expected = hex(packed_hex);
    auto& bus = host::LoopbackBus::instance();
    auto& services = host::Services::instance();
    bus.reset();
    services.reset();
    const std::vector<Record> records(2, record);

    EXPECT_EQ(nac::Functions<Record>::send(1, records.data(), 1), 0U);
    EXPECT_EQ(nac::Functions<Record>::send(1, records.data(), 2), 0U);
    const auto blocks = services.allocations();
    const auto releases = services.releases();
    ASSERT_EQ(blocks.size(), 2U);
    ASSERT_EQ(releases.size(), 2U);
    EXPECT_EQ(blocks[0].size, expected.size());
    EXPECT_EQ(blocks[0].caller, message + "__sendsingle");
    EXPECT_EQ(blocks[1].size, (2U + 4096) * 16);
    EXPECT_EQ(blocks[1].caller, message + "__sendbatch");
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(blocks[i].allocator, host::Allocator::general);
        EXPECT_EQ(blocks[i].owner_code, 0x6200U);
        EXPECT_EQ(releases[i].block, blocks[i].block);
        EXPECT_EQ(releases[i].owner_code, 0x6200U);
        EXPECT_EQ(releases[i].caller, blocks[i].caller);
    }

    ASSERT_EQ(bus.sends().size(), 2U);
    for (const host::Sent& send : bus.sends()) {
        for (std::size_t i = 0; i < send.messages.size(); ++i) {
            EXPECT_EQ(send.descriptors[i].message_id, id);
            EXPECT_EQ(send.descriptors[i].length, expected.size());
            EXPECT_TRUE(same_bytes(send.messages[i], expected));
        }
    }
    EXPECT_EQ(bus.sends()[1].messages.size(), 2U);
}

// A record that owns no memory may be freed at any time and any number of times: nothing happens.
template <class Record>
void expect_free_does_nothing() {
    alignas(Record) std::uint8_t storage[sizeof(Record)];
    std::memset(storage, 0x5A, sizeof storage);
    host::Services::instance().reset();
    nac::Functions<Record>::free(reinterpret_cast<Record*>(storage));
    nac::Functions<Record>::free(reinterpret_cast<Record*>(storage));
    nac::Functions<Record>::free(nullptr);
    EXPECT_TRUE(same_bytes(Bytes(storage, storage + sizeof storage), Bytes(sizeof storage, 0x5A)));
    EXPECT_TRUE(host::Services::instance().releases().empty());
    EXPECT_EQ(logged(), Lines{});
}

// For a message of scalars only, with all of them set; `widths` are theirs in field-id order. Wherever the
// buffer or the vtable ends, the whole fields in front are read and the others are zero, without a line.
template <class Record>
void expect_reads_whole_fields_only(const Bytes& full, const std::vector<std::size_t>& widths) {
    const std::size_t frame = full.size() - std::accumulate(widths.begin(), widths.end(), std::size_t{0});
    const auto expect_first = [&](const Bytes& bytes, std::size_t fields) {
        host::Services::instance().reset();
        const Unpacked<Record> unpacked(bytes);
        EXPECT_EQ(logged(), Lines{});
        const auto bytes_read = std::accumulate(
            widths.begin(), widths.begin() + static_cast<std::ptrdiff_t>(fields), std::size_t{0});
        const Bytes again = packed(*unpacked);
        ASSERT_EQ(again.size(), frame + bytes_read);
        EXPECT_TRUE(std::equal(again.begin() + static_cast<std::ptrdiff_t>(frame), again.end(),
                               full.begin() + static_cast<std::ptrdiff_t>(frame)));
    };
    std::size_t fields = 0;
    std::size_t fields_end = frame;
    for (std::size_t length = frame; length <= full.size(); ++length) {
        while (fields < widths.size() && fields_end + widths[fields] <= length)
            fields_end += widths[fields++];
        expect_first(Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(length)), fields);
    }
    EXPECT_EQ(fields, widths.size());
    for (std::uint16_t vtable_length = 4; vtable_length <= 4 + 2 * widths.size(); ++vtable_length) {
        Bytes shorter = full;
        put16(shorter, 4, vtable_length);
        expect_first(shorter, (vtable_length - 4U) / 2);
    }
}

// What a host would see of the arrays that one unpack allocated and of their release.
struct Tag {
    std::uint32_t size;
    std::uint32_t owner_code;
    std::string caller;
    bool operator==(const Tag&) const = default;
};

inline void PrintTo(const Tag& tag, std::ostream* out) {
    *out << tag.size << " bytes for " << tag.owner_code << ", " << tag.caller;
}

inline std::vector<Tag> cache_allocations() {
    std::vector<Tag> tags;
    for (const auto& allocation : host::Services::instance().allocations()) {
        EXPECT_EQ(allocation.allocator, host::Allocator::cache);
        tags.push_back({allocation.size, allocation.owner_code, allocation.caller});
    }
    return tags;
}

// The callers of all releases, with the owner code of the receive side checked.
inline std::vector<std::string> release_callers() {
    std::vector<std::string> callers;
    for (const auto& release : host::Services::instance().releases()) {
        EXPECT_EQ(release.owner_code, 12U);
        callers.push_back(release.caller);
    }
    return callers;
}

// The registrations of a module, in order, each with the functions of its message type.
template <class... Records>
void expect_registers(std::int32_t (*recv_init)(), std::initializer_list<std::uint32_t> ids) {
    auto& bus = host::LoopbackBus::instance();
    bus.reset();
    EXPECT_EQ(recv_init(), 0);
    const auto registrations = bus.registrations();
    std::vector<std::uint32_t> registered;
    for (const auto& entry : registrations) registered.push_back(entry.message_id);
    ASSERT_EQ(registered, std::vector<std::uint32_t>(ids));
    std::size_t at = 0;
    const auto check = [&]<class Record>(const Record*) {
        EXPECT_EQ(registrations[at].unpack,
                  reinterpret_cast<VORN_IDLUnpackFunc>(nac::Functions<Record>::unpack));
        EXPECT_EQ(registrations[at].free_unpacked,
                  reinterpret_cast<VORN_IDLFreeFunc>(nac::Functions<Record>::free));
        ++at;
    };
    (check(static_cast<const Records*>(nullptr)), ...);
}

// Each refusal of the bus in turn ends the module's initialisation with the bus's answer.
inline void expect_stops_at_refusal(std::int32_t (*recv_init)(), std::size_t messages) {
    auto& bus = host::LoopbackBus::instance();
    for (std::size_t refused = 0; refused < messages; ++refused) {
        bus.reset();
        bus.refuse_registration(refused, 77);
        EXPECT_EQ(recv_init(), 77);
        EXPECT_EQ(bus.registrations().size(), refused);
        EXPECT_EQ(bus.registration_calls(), refused + 1);
    }
}

// The module's resource clean is registered, and does nothing.
inline void expect_registers_clean(std::int32_t (*send_init)(), void (*clean)()) {
    auto& bus = host::LoopbackBus::instance();
    bus.reset();
    host::Services::instance().reset();
    EXPECT_EQ(send_init(), 0);
    ASSERT_EQ(bus.resource_cleans().size(), 1U);
    EXPECT_EQ(bus.resource_cleans().front(), clean);
    clean();
    EXPECT_TRUE(host::Services::instance().allocations().empty());
    EXPECT_TRUE(host::Services::instance().releases().empty());
    EXPECT_EQ(logged(), Lines{});
}

}  // namespace tests

#endif
