// SPDX-License-Identifier: Apache-2.0
// What the bus puts around messages: the envelope of a batch, and the packets in which processes exchange
// batches.
//
// All numbers are little-endian, nothing is padded; docs/bus.md shows every byte. Reading never looks beyond
// what it is given, and accepts only what the writers here write.
#ifndef VORN_ENVELOPE_H
#define VORN_ENVELOPE_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "bus/vorn_bus_api.h"
#include "runtime/wire.h"

namespace vorn {

using Bytes = std::span<const std::uint8_t>;

inline constexpr auto kLittleEndian =
    std::endian::native == std::endian::little ? kaplo::ByteOrder::host : kaplo::ByteOrder::reversed;

template <class T>
T get(const std::uint8_t* at) {
    return kaplo::load<kLittleEndian, T>(at);
}

template <class T>
void put(std::uint8_t* at, T value) {
    kaplo::store<kLittleEndian, T>(at, value);
}

// The first eight bytes of every envelope and packet: "VORN", version, kind, two zero bytes.
inline constexpr std::uint32_t kPreambleBytes = 8;
inline constexpr std::uint8_t kVersion = 1;

enum class Kind : std::uint8_t {
    batch = 1,
    hello = 2,     // ipc, sender to receiver, with a ring and its doorbell: read this
    welcome = 3,   // ipc, receiver to whoever connects: what it takes
    data = 4,      // nats, sender to stream: batches
    ask = 5,       // anyone to receiver: your counters?
    counters = 6,  // receiver to anyone: these
    watch = 7,     // ipc, watcher to receiver, with a ring: copies of what you take, please
    watching = 8,  // ipc, receiver to watcher: from now on
    wake = 9       // ipc, receiver to a watcher that sleeps: there is a copy
};
inline constexpr Kind kLastKind = Kind::wake;

void put_preamble(std::uint8_t* at, Kind kind);

// The kind of bytes that begin like an envelope or packet of this version.
std::optional<Kind> kind_of(Bytes bytes);

// ---- a batch ---------------------------------------------------------------------------------------

inline constexpr std::uint32_t kBatchHeaderBytes = 32;
inline constexpr std::uint32_t kEntryBytes = 8;

struct BatchHeader {
    std::uint32_t destination;
    std::uint32_t source;
    std::uint64_t target;
    std::uint32_t count;
    std::uint32_t bytes;  // of the whole batch, this header included
};

struct Message {
    std::uint32_t id;
    Bytes bytes;
};

// A batch that has been read; refers to the bytes that it was read from.
class Batch {
  public:
    const BatchHeader& header() const { return header_; }

    // Calls use(Message) for each message, in order.
    template <class Use>
    void each_message(Use&& use) const {
        const std::uint8_t* entry = start_ + kBatchHeaderBytes;
        const std::uint8_t* message = entry + std::size_t{header_.count} * kEntryBytes;
        for (std::uint32_t i = 0; i < header_.count; ++i, entry += kEntryBytes) {
            const auto length = get<std::uint32_t>(entry + 4);
            use(Message{get<std::uint32_t>(entry), Bytes(message, length)});
            message += length;
        }
    }

  private:
    friend std::optional<Batch> read_batch(Bytes bytes);
    BatchHeader header_ = {};
    const std::uint8_t* start_ = nullptr;
};

// The size of a batch; none where it exceeds 32 bits.
std::optional<std::uint32_t> batch_bytes(const VORN_SendDescriptor* descriptors, std::uint32_t count);

// Writes header.bytes bytes.
void write_batch(std::uint8_t* at, const BatchHeader& header, const VORN_SendDescriptor* descriptors);

// Reads the batch at the beginning of `bytes`; others may follow it. None: the envelope is damaged.
std::optional<Batch> read_batch(Bytes bytes);

// ---- packets --------------------------------------------------------------------------------------

struct Hello {
    static constexpr std::uint32_t kBytes = 40;
    std::uint32_t source;
    std::uint32_t destination;
    std::uint64_t first;        // number of the first batch in the ring
    std::uint32_t batches;      // that are in the ring at most
    std::uint32_t ring_bytes;   // of the shared memory
    std::uint32_t is_repeated;  // 1: the first batch may have been handled before
    std::uint32_t reserved;     // 0
};

struct Welcome {
    static constexpr std::uint32_t kBytes = 24;
    std::uint32_t address;      // of the receiver
    std::uint32_t batches;      // that a sender may have on their way
    std::uint32_t batch_bytes;  // of the largest batch that is taken
    std::uint32_t reserved;     // 0
};

struct Watch {
    static constexpr std::uint32_t kBytes = 16;
    std::uint32_t ring_bytes;
    std::uint32_t reserved;  // 0
};

// Before each batch in a watcher's ring: its number, from 1 for this watcher (8), and when it was taken, in
// nanoseconds since 1970 (8).
inline constexpr std::uint32_t kCopyHeadBytes = 16;

// Each writes kBytes, preamble included.
void write_packet(std::uint8_t* at, const Hello& packet);
void write_packet(std::uint8_t* at, const Welcome& packet);
void write_packet(std::uint8_t* at, const Watch& packet);

// Each reads a packet of its kind and of just its size. None: it is damaged.
std::optional<Hello> read_hello(Bytes bytes);
std::optional<Welcome> read_welcome(Bytes bytes);
std::optional<Watch> read_watch(Bytes bytes);

// Counters travel as preamble, count (u32), a zero u32, and that many u64. A reader takes those it knows.
inline constexpr std::uint32_t kCountersHeaderBytes = 16;
void write_counters(std::uint8_t* at, std::span<const std::uint64_t> values);
bool read_counters(Bytes bytes, std::span<std::uint64_t> values);

}  // namespace vorn

#endif
