// SPDX-License-Identifier: Apache-2.0
// Promise: no bytes make the reader of envelopes and packets look beyond them, and what it accepts is written
// again the same.
//
// Input: the bytes of a packet, or of batches.
#include "vorn/core/envelope.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "fuzz/supply.h"

namespace {

template <class Packet>
void check_packet(vorn::Bytes bytes, const std::optional<Packet>& packet) {
    if (!packet) return;
    std::array<std::uint8_t, Packet::kBytes> written = {};
    vorn::write_packet(written.data(), *packet);
    fuzz::promise(std::equal(written.begin(), written.end(), bytes.begin()),
                  "a packet is written as it was read");
}

// One batch after the other, as a delivery is handled.
void check_batches(vorn::Bytes bytes) {
    while (const auto batch = vorn::read_batch(bytes)) {
        std::vector<VORN_SendDescriptor> descriptors;
        batch->each_message([&](const vorn::Message& message) {
            const std::uint8_t* const from = message.bytes.data();
            fuzz::promise(from >= bytes.data() && from + message.bytes.size() <= bytes.data() + bytes.size(),
                          "a message lies within its batch");
            descriptors.push_back({from, message.id, static_cast<std::uint32_t>(message.bytes.size())});
        });
        fuzz::promise(descriptors.size() == batch->header().count, "a batch has as many messages as it says");
        std::vector<std::uint8_t> written(batch->header().bytes);
        vorn::write_batch(written.data(), batch->header(), descriptors.data());
        fuzz::promise(std::equal(written.begin(), written.end(), bytes.begin()),
                      "a batch is written as it was read");
        bytes = bytes.subspan(batch->header().bytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const std::vector<std::uint8_t> bytes = supply.rest();
    check_packet(bytes, vorn::read_hello(bytes));
    check_packet(bytes, vorn::read_welcome(bytes));
    check_packet(bytes, vorn::read_watch(bytes));
    check_batches(bytes);
    std::array<std::uint64_t, 13> counters = {};
    vorn::read_counters(bytes, counters);
    return 0;
}
