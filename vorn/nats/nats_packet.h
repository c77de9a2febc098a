// SPDX-License-Identifier: Apache-2.0
// What stands around the batches in a message of a stream, and what servers say of such messages. Pure: bytes
// in, values out.
#ifndef VORN_NATS_PACKET_H
#define VORN_NATS_PACKET_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vorn/core/envelope.h"

namespace vorn {

// One message: `count` batches of a session, or none at all (a void) where they were too large for the
// server.
struct NatsPacket {
    static constexpr std::uint32_t kBytes = 40;  // and the batches
    std::uint64_t session = 0;
    std::uint64_t first = 0;    // number of the first batch, from 1 within the session
    std::uint32_t count = 0;    // of batches that are numbered, at least 1
    std::uint32_t pending = 0;  // batches just before `first` that may not be stored yet
    std::uint32_t attempt = 0;  // how often this one was published, at least 1

    std::uint64_t last() const { return first + count - 1; }
    // Whatever was published before is stored, and these batches were never published.
    bool is_sure() const { return pending == 0 && attempt == 1; }
};

void write_packet(std::uint8_t* at, const NatsPacket& packet);

// None: damaged.
std::optional<NatsPacket> read_nats_packet(Bytes bytes);

// A message's number in its stream, from the subject to which its receiver acknowledges it.
std::optional<std::uint64_t> read_stream_number(std::string_view acknowledge_to);

// What a stream answers to a publisher.
struct NatsAnswer {
    std::uint64_t position = 0;  // where the message is stored; 0: it is not
    int error = 0;               // JetStream's number of the reason
};
NatsAnswer read_answer(std::string_view json);

}  // namespace vorn

#endif
