// SPDX-License-Identifier: Apache-2.0
// Promise: a send, whatever its count, stays inside its block, releases it, and gives the bus whole messages.
//
// Input: message type, byte order, kind of count, count, then the first record; the others are zero.
#include "bus/send.h"
#include "fuzz/checked_unit.h"

namespace {

constexpr std::size_t kLargestBlock = 1 << 20;  // larger requests fail, as on a device with little memory
constexpr std::size_t kRecordBytes = 8 << 20;   // enough records for any block that is granted

struct Bus {
    std::size_t calls = 0;
    std::uint32_t message_id = 0;
    std::uint32_t count = 0;
    bool has_target = false;
    std::uint64_t bytes = 0;
} bus;

void* allocate_little(std::uint32_t size, std::uint32_t owner_code, const char* caller) {
    return size > kLargestBlock ? nullptr : fuzz::allocate(size, owner_code, caller);
}

std::int32_t take(const VORN_SendDescriptor* descriptors, std::uint32_t count, bool has_target) {
    ++bus.calls;
    bus.count = count;
    bus.has_target = has_target;
    std::uint8_t sum = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        fuzz::promise(descriptors[i].message_id == bus.message_id, "every message has its type's id");
        for (std::uint32_t at = 0; at < descriptors[i].length; ++at) sum ^= descriptors[i].buffer[at];
        bus.bytes += descriptors[i].length;
    }
    return sum == 0 ? 0 : 7;  // the bytes were looked at
}

template <class Record>
void send(fuzz::Supply& supply, std::uint8_t options) {
    static std::vector<std::uint64_t> storage(kRecordBytes / sizeof(std::uint64_t));
    fuzz::CheckedUnit unit(fuzz::order_from(options));
    unit.state.general_allocate = allocate_little;
    fuzz::account.clear();
    auto count = supply.take<std::uint32_t>();
    switch (options >> 1 & 3) {
        case 0:
            count %= 6000;
            break;
        case 1:
            count %= 16;
            break;
        case 2:  // near a number at which the size of the block wraps
            count =
                static_cast<std::uint32_t>((std::uint64_t{1 + count % 40} << 32) / 16) + count % 8192 - 4200;
            break;
        default:
            break;
    }
    const auto target = supply.take<std::uint16_t>();
    fuzz::RecordSource source(supply);
    auto* const records = reinterpret_cast<Record*>(storage.data());
    std::memset(static_cast<void*>(records), 0, sizeof(Record));
    source.fill(*records);

    bus = {};
    bus.message_id = kaplo::message_id<Record>;
    const bool direct = (options & 8) != 0;
    const std::uint32_t result = direct ? kaplo::send_batch(unit, 1, records, count, target)
                                        : kaplo::send(unit, 1, records, count, target);
    fuzz::promise(fuzz::account.live_blocks == 0, "a send releases its block");
    fuzz::promise(fuzz::account.log.empty(), "a send logs nothing");
    fuzz::promise(bus.calls == (result == kaplo::kRefusal ? 0U : 1U),
                  "a send calls the bus once, or refuses");
    if (bus.calls == 1) {
        fuzz::promise(bus.count == count && bus.has_target == (target != 0), "the bus gets what was asked");
        fuzz::promise(kaplo::sends_image<Record> || bus.bytes <= kaplo::kBatchAreaBytes || count == 1,
                      "a batch stays inside its area");
    }
    std::memset(static_cast<void*>(records), 0, sizeof(Record));
}

}  // namespace

extern "C" {

std::int32_t VORN_SendMsg(std::uint32_t /*destination*/, const VORN_SendDescriptor* descriptors,
                          std::uint32_t count) {
    return take(descriptors, count, false);
}

std::int32_t VORN_SendToMsg(std::uint32_t /*destination*/, const VORN_SendDescriptor* descriptors,
                            std::uint32_t count, std::uint64_t /*target*/) {
    return take(descriptors, count, true);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const auto type = supply.take<std::uint8_t>();
    const auto options = supply.take<std::uint8_t>();
    fuzz::with_message_type(type, [&]<class Record> { send<Record>(supply, options); });
    return 0;
}

}  // extern "C"
